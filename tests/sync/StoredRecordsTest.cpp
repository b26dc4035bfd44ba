// The compact form of the stored table's records: a regular record read from its text costs no value and reads back
// exactly; every other record (numbers, the null object, missing or extra keys, escapes, another key order) keeps
// its exact value and normalises as it did; and the table made after a store is the list that was stored.

#include "platform/PreferenceJson.h"
#include "sync/StoredRecords.h"
#include "sync/WatchedTable.h"

#include <gtest/gtest.h>

using engine::RecordKey;
using engine::StoredRecords;
using engine::StoredTable;
using platform::Value;

namespace {

Value regularRecord(const std::string& number, const std::string& path)
{
    return Value::dictionary({ { "BaseSystemFileIDKey", number }, { "BaseSystemFilePathKey", path },
        { "changeTypeKey", "Created" }, { "oldPathKey", "" }, { "isFilekey", "1" }, { "fileSizeKey", "3" },
        { "filemodifiedDateKey", "2026-11-24 10:00:00" }, { "FileIDKey", "F-" + number },
        { "computerIDKey", "C-1" }, { "removeKey", "0" } });
}

std::string storedText(const Value& record)
{
    return platform::writePreferenceJson(record, { .allowFragments = true, .escapeSlashes = false });
}

// Both ways in: from the stored text, and from the value.
void expectReadsBackExactly(const Value& record, bool regular)
{
    StoredRecords records;
    records.appendText(storedText(record));
    records.append(record);
    for (std::size_t row = 0; row < 2; ++row) {
        SCOPED_TRACE(row);
        EXPECT_EQ(records.isRegular(row), regular);
        const Value back = records.record(row);
        EXPECT_EQ(back.description(), record.description());
        if (record.isDictionary()) {
            EXPECT_EQ(back.keys(), record.keys());
        }
        EXPECT_EQ(storedText(back), storedText(record));
    }
}

}

TEST(StoredRecords, ARegularRecordIsKeptCompactlyAndReadsBackWithItsKeyOrder)
{
    expectReadsBackExactly(regularRecord("12", "/home/ann/Korbanhold/a b.txt"), true);
    // Another key order is another shape, not an odd record.
    Value reordered = Value::dictionary();
    const Value record = regularRecord("13", "/home/ann/Korbanhold/c");
    for (auto entry = record.entries().rbegin(); entry != record.entries().rend(); ++entry)
        reordered.setObject(entry->second, entry->first);
    expectReadsBackExactly(reordered, true);

    StoredRecords records;
    records.appendText(storedText(record));
    EXPECT_EQ(records.text(0, RecordKey::BaseSystemFilePath), "/home/ann/Korbanhold/c");
    EXPECT_EQ(records.text(0, RecordKey::OldPath), "");
    EXPECT_EQ(*records.find(0, RecordKey::FileID), Value("F-13"));
    EXPECT_FALSE(records.find(0, RecordKey::Other));
}

// Texts are kept after their length, in blocks of a mebibyte: every length a length byte changes at, texts that
// fill blocks, and a text too long for a block (kept as its value) all read back exactly.
TEST(StoredRecords, TextsOfEveryLengthReadBackExactly)
{
    const std::size_t block = std::size_t { 1 } << 20;
    for (const std::size_t length : { 1ul, 127ul, 128ul, 16383ul, 16384ul, 700000ul, block - 3, block - 2, block }) {
        SCOPED_TRACE(length);
        expectReadsBackExactly(regularRecord("7", std::string(length, 'p')), length <= block - 3);
    }
    StoredRecords records;
    for (int row = 0; row < 40; ++row)
        records.append(regularRecord(std::to_string(row), "/k/" + std::string(100000 + row, 'a' + row % 26)));
    for (int row = 0; row < 40; ++row)
        EXPECT_EQ(records.text(row, RecordKey::BaseSystemFilePath),
            "/k/" + std::string(100000 + row, 'a' + row % 26));
}

TEST(StoredRecords, EveryOtherRecordKeepsItsExactValue)
{
    Value number = regularRecord("1", "/p");
    number.setObject(Value::integer(7), "fileSizeKey");
    Value null = regularRecord("2", "/p");
    null.setObject(Value::null(), "FileIDKey");
    Value missing = regularRecord("3", "/p");
    missing.removeObjectForKey("oldPathKey");
    Value extra = regularRecord("4", "/p");
    extra.setObject(Value("x"), "somethingElse");
    Value nested = regularRecord("5", "/p");
    nested.setObject(Value::array({ "a", Value::boolean(true) }), "changeTypeKey");
    for (const Value& odd : { number, null, missing, extra, nested, Value("not a record"), Value::real(0.5),
             Value::dictionary() }) {
        SCOPED_TRACE(odd.description());
        expectReadsBackExactly(odd, false);
    }
    // Escapes and text beyond printable ASCII go through the JSON reader, and the record is still regular.
    expectReadsBackExactly(regularRecord("6", "/home/ann/Korbanhold/\"quoted\"\\back\tslash"), true);
    expectReadsBackExactly(regularRecord("7", "/home/ann/Korbanhold/café/日本"), true);
}

TEST(StoredRecords, ATextThatIsNotAValueRaisesAndOneWithTheSameKeyTwiceIsReadAsTheReaderReadsIt)
{
    StoredRecords records;
    EXPECT_THROW(records.appendText("{\"BaseSystemFileIDKey\":\"1\""), platform::JsonError);
    EXPECT_EQ(records.count(), 0u);
    const std::string twice = "{\"removeKey\":\"0\",\"removeKey\":\"1\"}";
    records.appendText(twice);
    EXPECT_EQ(records.record(0).description(), platform::readPreferenceJson(twice).description());
}

TEST(StoredRecords, OddRecordsNormaliseAndRaiseAsTheStoredValuesDid)
{
    const Value computerId("C-1");
    StoredRecords nullFileID;
    Value record = regularRecord("1", "/p");
    record.setObject(Value::null(), "FileIDKey");
    nullFileID.append(record);
    EXPECT_THROW(StoredTable::normalise(nullFileID, &computerId, 1), platform::Exception);

    StoredRecords missingFileID;
    record.removeObjectForKey("FileIDKey");
    missingFileID.append(record);
    const auto table = StoredTable::normalise(missingFileID, &computerId, 1);
    ASSERT_EQ(table->entries.size(), 1u);
    EXPECT_EQ(*table->view(0).find(RecordKey::FileID), Value("")); // a missing identifier reads as the empty text
    EXPECT_EQ(table->view(0).fileNumber(), 1u);

    StoredRecords notADictionary;
    notADictionary.append(Value("x"));
    EXPECT_THROW(StoredTable::normalise(notADictionary, &computerId, 1), platform::Exception);
    // Without a computer identifier even a regular record raises, at the first record.
    StoredRecords regular;
    regular.append(regularRecord("2", "/q"));
    EXPECT_THROW(StoredTable::normalise(regular, nullptr, 1), platform::Exception);
}

TEST(StoredRecords, TheTableMadeAfterAStoreIsTheListThatWasStored)
{
    const Value computerId("C-1");
    StoredRecords records;
    Value created = regularRecord("1", "/a");
    records.append(created); // stored as a created record: key order of its own, seen once and rewritten
    Value seen = regularRecord("2", "/b");
    records.appendText(storedText(seen));
    Value odd = regularRecord("3", "/c");
    odd.setObject(Value::integer(3), "fileSizeKey");
    records.append(odd);
    engine::WatchedTable table(StoredTable::normalise(records, &computerId, 1));
    for (std::size_t position = 0; position < table.count(); ++position)
        table.markSeen(position, &computerId);
    table.append(regularRecord("4", "/d"));
    const Value expected = table.records();
    table.rowsStored(2);
    EXPECT_EQ(table.storedVersion(), 2u);
    const auto& stored = *table.storedTable();
    EXPECT_EQ(stored.version, 2u);
    EXPECT_EQ(stored.records.list().description(), expected.description());
    for (std::size_t row = 0; row < expected.count(); ++row)
        EXPECT_EQ(stored.records.record(row).keys(), expected.at(row).keys()) << row;
    EXPECT_EQ(table.records().description(), expected.description());
    // Nothing is left to store, and the next pass starts from the stored list as if it had read it.
    for (const auto& row : table.rows())
        EXPECT_FALSE(row.isWritersRecord());
    ASSERT_EQ(stored.entries.size(), 4u);
    EXPECT_EQ(stored.view(1).record().description(), [&] {
        Value unseen = Value::dictionary();
        for (const char* key : { "FileIDKey", "BaseSystemFileIDKey", "BaseSystemFilePathKey", "removeKey",
                 "changeTypeKey", "oldPathKey", "isFilekey", "fileSizeKey", "computerIDKey", "filemodifiedDateKey" })
            unseen.setObject(key == std::string("removeKey") ? Value("1") : *seen.find(key), key);
        return unseen.description();
    }());
}

namespace {

// The entries a pass would make of `stored`'s records if it read them from the store.
void expectNormalisedAsRead(const StoredTable& stored, const Value& computerId)
{
    ASSERT_EQ(stored.entries.size(), stored.records.count());
    for (std::size_t row = 0; row < stored.records.count(); ++row) {
        SCOPED_TRACE(row);
        const auto again = [&] {
            StoredRecords one = StoredRecords::sharing(stored.records);
            one.appendText(storedText(stored.records.record(row)));
            return StoredTable::normalise(std::move(one), &computerId, 1)->entries[0];
        }();
        const engine::TableEntry& entry = stored.entries[row];
        EXPECT_EQ(entry.row, row);
        EXPECT_EQ(entry.form, engine::EntryForm::Unseen);
        EXPECT_EQ(entry.fileNumber, again.fileNumber);
        EXPECT_EQ(entry.hasFileNumber, again.hasFileNumber);
        EXPECT_EQ(entry.kilobytes, again.kilobytes);
        EXPECT_EQ(entry.hasKilobytes, again.hasKilobytes);
        EXPECT_EQ(entry.storedAsSeen, again.storedAsSeen);
    }
}

}

// A table stored again, that only its own table holds, is updated where it lies: the same object, now the list
// stored, normalised as a pass reading it would normalise it. One that anything else holds is left as it was.
TEST(StoredRecords, ATableStoredAgainIsUpdatedWhereItLiesUnlessAnotherHoldsIt)
{
    const Value computerId("C-1");
    StoredRecords records;
    for (int number = 1; number <= 5; ++number)
        records.appendText(storedText(regularRecord(std::to_string(number), "/f" + std::to_string(number))));
    engine::WatchedTable table(StoredTable::normalise(records, &computerId, 1));
    const auto seeAll = [&] {
        table.reload(table.storedTable());
        for (std::size_t position = 0; position < table.count(); ++position)
            table.markSeen(position, &computerId);
    };
    seeAll();
    table.rowsStored(2);
    const StoredTable* first = table.storedTable().get();

    // An edit, the server's identifier of another entry, and a new entry.
    seeAll();
    Value edited = table.at(1).record();
    edited.setObject(Value("9"), "fileSizeKey");
    table.replace(1, edited);
    table.setFileID(3, Value("F-new"));
    table.append(regularRecord("6", "/f6"));
    Value expected = table.records();
    table.rowsStored(3);
    EXPECT_EQ(table.storedTable().get(), first);
    EXPECT_EQ(table.storedTable()->version, 3u);
    EXPECT_EQ(table.storedTable()->records.list().description(), expected.description());
    for (std::size_t row = 0; row < expected.count(); ++row)
        EXPECT_EQ(table.storedTable()->records.record(row).keys(), expected.at(row).keys()) << row;
    expectNormalisedAsRead(*table.storedTable(), computerId);
    for (const auto& row : table.rows())
        EXPECT_FALSE(row.isWritersRecord());

    // Held elsewhere (as a pass's index holds it), the stored table is made afresh instead.
    seeAll();
    const std::shared_ptr<const StoredTable> held = table.storedTable();
    const std::string heldList = held->records.list().description();
    table.replace(0, regularRecord("7", "/f7"));
    expected = table.records();
    table.rowsStored(4);
    EXPECT_NE(table.storedTable(), held);
    EXPECT_EQ(held->records.list().description(), heldList);
    EXPECT_EQ(held->version, 3u);
    EXPECT_EQ(table.storedTable()->records.list().description(), expected.description());
    expectNormalisedAsRead(*table.storedTable(), computerId);
}

// The server's identifier given to a record a pass built (after a first sync, every record) is part of the table's
// record from then on, where setting "FileIDKey" puts it, while the change record that the same record went out as
// stays as it was reported. A record put in its place later has none of it; nil raises as setting the key does.
TEST(StoredRecords, AServerIdentifierOfABuiltRecordJoinsTheTableRecordAndLeavesTheChangeRecordAsItWas)
{
    engine::WatchedTable table;
    const Value created = regularRecord("1", "/f1");
    Value withoutFileID = regularRecord("2", "/f2");
    withoutFileID.removeObjectForKey("FileIDKey");
    const Value changes = Value::array({ created, withoutFileID });
    table.append(created);
    table.append(withoutFileID);
    table.setFileID(0, Value("F-1"));
    table.setFileID(1, Value("F-2"));

    Value expected = created;
    expected.setObject(Value("F-1"), "FileIDKey");
    EXPECT_EQ(table.at(0).record().description(), expected.description());
    EXPECT_EQ(table.at(0).record().keys(), expected.keys());
    EXPECT_EQ(table.at(0).text(RecordKey::FileID), "F-1");
    EXPECT_EQ(table.at(0).find("FileIDKey")->description(), Value("F-1").description());
    EXPECT_EQ(table.at(1).record().keys().back(), "FileIDKey");
    EXPECT_EQ(table.records().at(1).find("FileIDKey")->description(), Value("F-2").description());
    EXPECT_EQ(changes.description(), Value::array({ created, withoutFileID }).description());
    for (const auto& row : table.rows())
        EXPECT_TRUE(row.isWritersRecord());

    table.replace(0, regularRecord("3", "/f3"));
    EXPECT_EQ(table.at(0).record().description(), regularRecord("3", "/f3").description());

    EXPECT_THROW(table.setFileID(1, std::nullopt), platform::Exception);
    EXPECT_EQ(table.at(1).text(RecordKey::FileID), "F-2");
}

// A table read and normalised for this table alone is updated where it lies when it is stored, like one the table
// stored itself; one handed in only to be read is made afresh.
TEST(StoredRecords, ATableReadForThisTableAloneIsUpdatedWhereItLiesWhenStored)
{
    const Value computerId("C-1");
    const auto readTable = [&] {
        StoredRecords records;
        for (int number = 1; number <= 3; ++number)
            records.appendText(storedText(regularRecord(std::to_string(number), "/f" + std::to_string(number))));
        auto table = StoredTable::of(std::move(records), &computerId, 1);
        table->normaliseEntries(false);
        return table;
    };
    const auto storeEverySeen = [&](engine::WatchedTable& table) {
        for (std::size_t position = 0; position < table.count(); ++position)
            table.markSeen(position, &computerId);
        Value expected = table.records();
        table.rowsStored(2);
        EXPECT_EQ(table.storedTable()->records.list().description(), expected.description());
        expectNormalisedAsRead(*table.storedTable(), computerId);
    };

    engine::WatchedTable owner;
    auto made = readTable();
    const StoredTable* madeAddress = made.get();
    owner.reload(made, made);
    made.reset();
    storeEverySeen(owner);
    EXPECT_EQ(owner.storedTable().get(), madeAddress);

    engine::WatchedTable reader;
    const std::shared_ptr<const StoredTable> shared = readTable();
    reader.reload(shared);
    storeEverySeen(reader);
    EXPECT_NE(reader.storedTable(), shared);
}

// A stored record that already holds what the rename process makes of it, in another key order (a first sync stores
// its records in the order of "Created" records), stands for itself once seen: the first report after a first sync
// does not write every row again. A record whose computer identifier or "removeKey" differs is written.
TEST(StoredRecords, ARecordHoldingItsSeenFormInAnotherKeyOrderIsNotWrittenAgainOnceSeen)
{
    const Value computerId("C-1");
    const auto createdOrder = [](const std::string& number, const std::string& remove, const std::string& computer) {
        return Value::dictionary({ { "BaseSystemFileIDKey", number }, { "BaseSystemFilePathKey", "/f" + number },
            { "removeKey", remove }, { "changeTypeKey", "Created" }, { "oldPathKey", "" }, { "isFilekey", "1" },
            { "fileSizeKey", "3" }, { "FileIDKey", "F-" + number }, { "computerIDKey", computer },
            { "filemodifiedDateKey", "2026-11-24 10:00:00" } });
    };
    StoredRecords records;
    records.appendText(storedText(createdOrder("1", "0", "C-1")));
    records.appendText(storedText(createdOrder("2", "1", "C-1")));
    records.appendText(storedText(createdOrder("3", "0", "C-2")));
    engine::WatchedTable table(StoredTable::normalise(records, &computerId, 1));
    for (std::size_t position = 0; position < table.count(); ++position)
        table.markSeen(position, &computerId);

    const auto rows = table.rows();
    EXPECT_FALSE(rows[0].isWritersRecord());
    EXPECT_TRUE(rows[1].isWritersRecord());
    EXPECT_TRUE(rows[2].isWritersRecord());
    // The table's record is the rename process's, in its key order, and equal to the stored one.
    EXPECT_EQ(table.at(0).record().keys().back(), "removeKey");
    EXPECT_EQ(table.at(0).record(), createdOrder("1", "0", "C-1"));
}
