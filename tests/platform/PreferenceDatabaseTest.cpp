// The service's own domain in its SQLite database: what is stored reads back exactly, a store writes only the rows
// that differ, another connection's store is seen by the next read, the former JSON file is imported once, and a
// damaged file, a read-only folder or a full disk lose nothing and stop nothing.

#include "platform/PreferenceDatabase.h"
#include "platform/PreferenceJson.h"
#include "platform/UserDefaults.h"

#include "helpers/TableVersions.h"
#include "support/LogCapture.h"
#include "support/Process.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <fstream>
#include <random>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using platform::PreferenceDatabase;
using platform::UserDefaults;
using platform::Value;
using testsupport::LogCapture;
using testsupport::TempDir;

namespace {

constexpr const char* serviceDomain = "Ulmaridon.SyncFilesXpcService";

Value recordNumber(int i, const std::string& fileID = "7")
{
    const std::string number = std::to_string(i);
    return Value::dictionary({ { "FileIDKey", fileID }, { "BaseSystemFileIDKey", number },
        { "BaseSystemFilePathKey", "/home/ann/Korbanhold/f" + number }, { "removeKey", "1" } });
}

Value tableOf(int count)
{
    platform::Array records;
    for (int i = 0; i < count; ++i)
        records.push_back(recordNumber(i));
    return Value::arrayOf(std::move(records));
}

std::filesystem::path databaseIn(const TempDir& folder) { return folder / (std::string(serviceDomain) + ".sqlite"); }

void writeFile(const std::filesystem::path& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

// Stores a table of 100 records, runs `scenario` in a child process (its exit status says whether what it checks
// held), and checks that the stored table is still the one of 100 records. The status of the child, or -1.
int storedTableSurvivesAChild(const TempDir& folder, const std::function<int()>& scenario)
{
    {
        UserDefaults store(serviceDomain, folder.path());
        store.setObject(tableOf(100), "FileWatchedDataKey");
    }
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(scenario());
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return -1;
    ::chmod(folder.string().c_str(), 0700);
    UserDefaults store(serviceDomain, folder.path());
    EXPECT_EQ(*store.objectForKey("FileWatchedDataKey"), tableOf(100));
    return WEXITSTATUS(status);
}

// Makes `folder` read-only for this process, which is a child meant for it: a read-only bind mount in a mount
// namespace of its own (permissions do not bind root), or the folder's permissions. False when neither can be had.
bool makeReadOnly(const TempDir& folder)
{
    const std::string path = folder.string();
    const bool mounted = ::geteuid() == 0 && ::unshare(CLONE_NEWNS) == 0
        && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
        && ::mount(path.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) == 0
        && ::mount(nullptr, path.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0;
    return mounted || (::geteuid() != 0 && ::chmod(path.c_str(), 0500) == 0);
}

// True when a line starting with "Could not write preference domain" is logged while the object lives.
class WriteFailureLine {
public:
    WriteFailureLine()
    {
        platform::setLogSink([this](std::string_view text) {
            m_logged = m_logged || text.starts_with("Could not write preference domain Ulmaridon.SyncFilesXpcService");
        });
    }
    ~WriteFailureLine() { platform::setLogSink({}); }
    bool logged() const { return m_logged; }

private:
    bool m_logged = false;
};

std::filesystem::path legacyFileIn(const TempDir& folder)
{
    return folder / (std::string(serviceDomain) + ".json");
}

// Every row of the database's tables in order, as text: equal dumps are equal databases.
std::string dumpOf(const std::filesystem::path& file)
{
    sqlite3* db = nullptr;
    std::string dump;
    if (sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK)
        return "cannot open " + file.string();
    for (const char* query : { "SELECT id, present FROM domain_state ORDER BY id",
             "SELECT position, key, quote(value) FROM domain_keys ORDER BY position",
             "SELECT key, ord, value FROM list_rows ORDER BY key, ord" }) {
        sqlite3_stmt* statement = nullptr;
        sqlite3_prepare_v2(db, query, -1, &statement, nullptr);
        while (sqlite3_step(statement) == SQLITE_ROW) {
            for (int column = 0; column < sqlite3_column_count(statement); ++column) {
                const auto* text = sqlite3_column_text(statement, column);
                dump += text ? reinterpret_cast<const char*>(text) : "NULL";
                dump += '|';
            }
            dump += '\n';
        }
        sqlite3_finalize(statement);
        dump += "--\n";
    }
    sqlite3_close(db);
    return dump;
}

// A domain file whose table of `count` records takes many of the pieces the import reads at a time, with text that
// needs escapes, UTF-8 of every length, written raw and escaped, and tagged dates and data. `end` closes it.
std::string legacyTableText(int count, const std::string& end = "]}")
{
    std::string text = R"({"FileWatchedDataKey":[)";
    for (int i = 0; i < count; ++i) {
        const std::string number = std::to_string(i);
        text += (i ? "," : "") + std::string(R"({"FileIDKey":")") + number
            + R"(","BaseSystemFilePathKey":"/home/ann/Korbanhold/é€😀 \u00e9\ud83d\ude00\/\"q\"\\\n\t\u0001 )" + number
            + R"(","when":{"$date":1700000000.25},"bytes":{"$data":"AAEC"},"size":)" + number + "}";
    }
    return text + end;
}

// What the whole-file reader makes of a domain file: nothing when it is a domain, else the reason it is not one.
std::string reasonTheWholeReaderGives(const std::string& text)
{
    try {
        const Value domain = platform::readPreferenceJson(text);
        return domain.isDictionary() ? "" : "it holds " + std::string(domain.className()) + " instead of a dictionary";
    } catch (const std::exception& error) {
        return error.what();
    }
}

bool anyLineContains(const LogCapture& log, const std::string& text)
{
    for (const auto& line : log.lines())
        if (line.find(text) != std::string::npos)
            return true;
    return false;
}

}

TEST(PreferenceDatabase, TheServiceDomainIsADatabaseAndReadsBackExactlyInAnotherObject)
{
    TempDir folder;
    // Odd records keep what they are: numbers with their type, null, a date, a nested list, a missing key.
    Value table = tableOf(3);
    table.append(Value::dictionary({ { "BaseSystemFileIDKey", Value::integer(12) }, { "FileIDKey", Value::null() },
        { "fileSizeKey", Value::real(0.5) }, { "when", Value::date(1.7e9) }, { "list", Value::array({ "a", Value::boolean(true) }) } }));
    table.append(Value("not a record"));
    {
        UserDefaults store(serviceDomain, folder.path());
        store.setObject(table, "FileWatchedDataKey");
        store.setObject(Value("x"), "AnotherKey");
        EXPECT_TRUE(store.synchronize());
    }
    EXPECT_TRUE(std::filesystem::is_regular_file(databaseIn(folder)));
    EXPECT_FALSE(std::filesystem::exists(folder / (std::string(serviceDomain) + ".json")));
    UserDefaults reader("korbanhold", folder.path());
    const auto domain = reader.persistentDomainForName(serviceDomain);
    ASSERT_TRUE(domain);
    EXPECT_EQ(domain->keys(), (std::vector<std::string> { "FileWatchedDataKey", "AnotherKey" }));
    EXPECT_EQ(domain->find("FileWatchedDataKey")->description(), table.description());
    EXPECT_EQ(reader.persistentDomainNames(), std::vector<std::string> { serviceDomain });
    EXPECT_EQ(reader.pathOf(serviceDomain), databaseIn(folder));
}

TEST(PreferenceDatabase, AStoreWritesOnlyTheRowsThatDiffer)
{
    TempDir folder;
    PreferenceDatabase database(databaseIn(folder), folder / "unused.json");
    Value table = tableOf(2000);
    database.write(Value::dictionary({ { "FileWatchedDataKey", table } }));
    EXPECT_EQ(database.rowsWritten(), 2000u);

    table.replaceAt(500, recordNumber(500, "changed"));
    table.removeAt(1200);
    table.insert(recordNumber(9999), 700);
    table.append(recordNumber(10000));
    database.write(Value::dictionary({ { "FileWatchedDataKey", table } }));
    EXPECT_EQ(database.rowsWritten(), 2000u + 3u + 1u); // three rows written, one removed

    PreferenceDatabase reader(databaseIn(folder), folder / "unused.json");
    EXPECT_EQ(reader.read()->find("FileWatchedDataKey")->description(), table.description());
}

// Collects the elements readList() hands over.
class CollectedElements : public platform::ListElementReader {
public:
    void expect(std::size_t count) override { elements.reserve(count); }
    void storedText(std::string_view text) override
    {
        elements.append(platform::readPreferenceJson(text, { .allowFragments = true }));
    }
    void value(const Value& element) override { elements.append(element); }
    Value elements = Value::array();
};

// The version of the table as `database` holds it now.
std::uint64_t tableVersion(PreferenceDatabase& database)
{
    CollectedElements elements;
    return database.readList("FileWatchedDataKey", 0, elements).version;
}

// The rows of a list as its writer knows them: `table` of 2,000 records with one replaced, one removed, one inserted
// and one appended, told against the list as read.
std::vector<platform::ListRow> rowsOfOneChangeOfEachKind(Value& table)
{
    std::vector<platform::ListRow> rows;
    for (std::size_t index = 0; index < 2000; ++index) {
        if (index == 700)
            rows.push_back({ platform::ListRow::newElement });
        if (index == 1200)
            continue;
        rows.push_back({ index, index == 500 });
    }
    rows.push_back({ platform::ListRow::newElement });
    table.replaceAt(500, recordNumber(500, "changed"));
    table.removeAt(1200);
    table.insert(recordNumber(9999), 700);
    table.append(recordNumber(10000));
    return rows;
}

TEST(PreferenceDatabase, AStoreByRowsWritesTheRowsItIsToldChangedAndNoOther)
{
    TempDir folder;
    PreferenceDatabase database(databaseIn(folder), folder / "unused.json");
    Value table = tableOf(2000);
    database.write(Value::dictionary({ { "FileWatchedDataKey", table }, { "Other", "x" } }));
    const std::uint64_t read = tableVersion(database);
    const auto before = database.rowsWritten();
    const auto rows = rowsOfOneChangeOfEachKind(table);
    std::size_t asked = 0;
    const auto recordAt = [&](std::size_t p) {
        ++asked;
        return table.at(p);
    };

    const std::uint64_t stored = database.writeListRows("FileWatchedDataKey", read, rows, recordAt);
    EXPECT_EQ(asked, 3u); // only the records written
    EXPECT_EQ(database.rowsWritten() - before, 4u); // three rows written, one removed
    EXPECT_NE(stored, read);
    // The list this object stored is known as it is: a reader told its version reads no element again.
    CollectedElements again;
    const auto unchanged = database.readList("FileWatchedDataKey", stored, again);
    EXPECT_EQ(unchanged.kind, platform::StoredList::Kind::Unchanged);
    EXPECT_EQ(again.elements.count(), 0u);

    // Told against the version it returned, the next store by rows writes one row again.
    std::vector<platform::ListRow> next;
    for (std::size_t index = 0; index < table.count(); ++index)
        next.push_back({ index, index == 3 });
    table.replaceAt(3, recordNumber(3, "server"));
    const auto second = database.rowsWritten();
    database.writeListRows("FileWatchedDataKey", stored, next, recordAt);
    EXPECT_EQ(database.rowsWritten() - second, 1u);

    PreferenceDatabase reader(databaseIn(folder), folder / "unused.json");
    const auto domain = reader.read();
    EXPECT_EQ(domain->find("FileWatchedDataKey")->description(), table.description());
    EXPECT_EQ(domain->keys(), (std::vector<std::string> { "FileWatchedDataKey", "Other" }));
    CollectedElements elements;
    EXPECT_EQ(reader.readList("FileWatchedDataKey", 0, elements).kind, platform::StoredList::Kind::Elements);
    EXPECT_EQ(elements.elements.description(), table.description());
}

TEST(PreferenceDatabase, AStoreByRowsAfterAnotherProcessStoredWritesTheWholeListItWasGiven)
{
    TempDir folder;
    PreferenceDatabase database(databaseIn(folder), folder / "unused.json");
    Value table = tableOf(2000);
    database.write(Value::dictionary({ { "FileWatchedDataKey", table } }));
    const std::uint64_t read = tableVersion(database);
    {
        PreferenceDatabase other(databaseIn(folder), folder / "unused.json");
        other.write(Value::dictionary({ { "FileWatchedDataKey", tableOf(3) } }));
    }
    // The rows name elements of the list this writer read, not of the one now stored: the last writer's whole
    // list wins, as a store of the whole domain does, its kept elements given by the writer.
    const auto rows = rowsOfOneChangeOfEachKind(table);
    database.writeListRows("FileWatchedDataKey", read, rows, [&](std::size_t p) { return table.at(p); });
    PreferenceDatabase reader(databaseIn(folder), folder / "unused.json");
    EXPECT_EQ(reader.read()->find("FileWatchedDataKey")->description(), table.description());
}

// A list stored by rows where there is none yet (a first sync's table) goes after the domain's other keys, as
// setting a new key puts it, and is then known as stored; in a database without the domain it makes the domain. New
// rows alone replace the list whatever another process stored since it was read.
TEST(PreferenceDatabase, AListStoredByRowsForTheFirstTimeGoesAfterTheOtherKeys)
{
    const Value table = tableOf(300);
    const std::vector<platform::ListRow> allNew(table.count(), platform::ListRow {});
    const auto recordAt = [&](std::size_t p) { return table.at(p); };
    {
        TempDir folder;
        PreferenceDatabase database(databaseIn(folder), folder / "unused.json");
        database.write(Value::dictionary({ { "Other", "x" }, { "Last", "y" } }));
        const std::uint64_t stored
            = database.writeListRows("FileWatchedDataKey", tableVersion(database), allNew, recordAt);
        CollectedElements again;
        EXPECT_EQ(database.readList("FileWatchedDataKey", stored, again).kind, platform::StoredList::Kind::Unchanged);
        PreferenceDatabase reader(databaseIn(folder), folder / "unused.json");
        const auto domain = reader.read();
        EXPECT_EQ(domain->keys(), (std::vector<std::string> { "Other", "Last", "FileWatchedDataKey" }));
        EXPECT_EQ(domain->find("FileWatchedDataKey")->description(), table.description());
        EXPECT_EQ(domain->find("Last")->description(), Value("y").description());
    }
    {
        TempDir folder;
        PreferenceDatabase database(databaseIn(folder), folder / "unused.json");
        database.writeListRows("FileWatchedDataKey", tableVersion(database), allNew, recordAt);
        PreferenceDatabase reader(databaseIn(folder), folder / "unused.json");
        const auto domain = reader.read();
        ASSERT_TRUE(domain);
        EXPECT_EQ(domain->keys(), (std::vector<std::string> { "FileWatchedDataKey" }));
        EXPECT_EQ(domain->find("FileWatchedDataKey")->description(), table.description());
    }
    {
        TempDir folder;
        PreferenceDatabase database(databaseIn(folder), folder / "unused.json");
        const std::uint64_t read = tableVersion(database);
        {
            PreferenceDatabase other(databaseIn(folder), folder / "unused.json");
            other.write(Value::dictionary({ { "FileWatchedDataKey", tableOf(3) }, { "Other", "x" } }));
        }
        database.writeListRows("FileWatchedDataKey", read, allNew, recordAt);
        PreferenceDatabase reader(databaseIn(folder), folder / "unused.json");
        const auto domain = reader.read();
        EXPECT_EQ(domain->keys(), (std::vector<std::string> { "FileWatchedDataKey", "Other" }));
        EXPECT_EQ(domain->find("FileWatchedDataKey")->description(), table.description());
    }
}

// A store of many rows empties the write-ahead log once its pages are in the database, so that a process that opens
// the database after this one ended without closing it has no log to copy in again; a reader using the log is not
// waited for, and the log is then left as it is.
TEST(PreferenceDatabase, AStoreThatLeavesALargeLogEmptiesItUnlessAReaderUsesIt)
{
    TempDir folder;
    const std::filesystem::path log = databaseIn(folder).string() + "-wal";
    PreferenceDatabase database(databaseIn(folder), folder / "unused.json");
    database.write(Value::dictionary({ { "FileWatchedDataKey", tableOf(30000) } }));
    EXPECT_EQ(std::filesystem::file_size(log), 0u);
    CollectedElements elements;
    EXPECT_EQ(database.readList("FileWatchedDataKey", 0, elements).kind, platform::StoredList::Kind::Elements);
    EXPECT_EQ(elements.elements.count(), 30000u);

    sqlite3* reader = nullptr;
    ASSERT_EQ(sqlite3_open(databaseIn(folder).c_str(), &reader), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(reader, "BEGIN; SELECT count(*) FROM list_rows;", nullptr, nullptr, nullptr), SQLITE_OK);
    const auto start = std::chrono::steady_clock::now();
    database.write(Value::dictionary({ { "FileWatchedDataKey", tableOf(60000) } }));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_GT(std::filesystem::file_size(log), 0u);
    sqlite3_exec(reader, "COMMIT", nullptr, nullptr, nullptr);
    sqlite3_close(reader);
}

TEST(PreferenceDatabase, ElementsInsertedWhereNoGapIsLeftRewriteTheList)
{
    TempDir folder;
    PreferenceDatabase database(databaseIn(folder), folder / "unused.json");
    Value table = tableOf(3);
    database.write(Value::dictionary({ { "FileWatchedDataKey", table } }));
    std::uint64_t version = tableVersion(database);
    // Each store puts a new element right after the first one: the gap halves every time, until it is gone.
    for (int round = 0; round < 20; ++round) {
        std::vector<platform::ListRow> rows;
        const Value before = table;
        for (std::size_t index = 0; index < before.count(); ++index) {
            rows.push_back({ index });
            if (index == 0)
                rows.push_back({ platform::ListRow::newElement });
        }
        table.insert(recordNumber(100 + round), 1);
        version = database.writeListRows("FileWatchedDataKey", version, rows, [&](std::size_t p) { return table.at(p); });
    }
    PreferenceDatabase reader(databaseIn(folder), folder / "unused.json");
    EXPECT_EQ(reader.read()->find("FileWatchedDataKey")->description(), table.description());
}

TEST(PreferenceDatabase, AnotherConnectionsStoreIsSeenByTheNextReadAndAnUnchangedDomainIsNotReadAgain)
{
    TempDir folder;
    UserDefaults service(serviceDomain, folder.path());
    UserDefaults other("korbanhold", folder.path());
    service.setObject(tableOf(10), "FileWatchedDataKey");
    ASSERT_EQ(service.objectForKey("FileWatchedDataKey")->count(), 10u);
    const auto loads = service.parseCount();
    service.objectForKey("FileWatchedDataKey");
    EXPECT_EQ(service.parseCount(), loads);

    other.setPersistentDomain(Value::dictionary({ { "FileWatchedDataKey", tableOf(4) } }), serviceDomain);
    EXPECT_EQ(service.objectForKey("FileWatchedDataKey")->count(), 4u);
    other.removePersistentDomainForName(serviceDomain);
    EXPECT_FALSE(service.objectForKey("FileWatchedDataKey"));
    EXPECT_FALSE(other.persistentDomainForName(serviceDomain));
}

TEST(PreferenceDatabase, TheFormerJsonFileIsImportedOnceAndMovedAside)
{
    TempDir folder;
    const auto json = folder / (std::string(serviceDomain) + ".json");
    writeFile(json, R"({"FileWatchedDataKey":[{"FileIDKey":"3","BaseSystemFileIDKey":"41"}],"other":1})");
    LogCapture log;
    UserDefaults store(serviceDomain, folder.path());
    const auto table = store.objectForKey("FileWatchedDataKey");
    ASSERT_TRUE(table);
    EXPECT_EQ(*table, Value::array({ Value::dictionary({ { "FileIDKey", "3" }, { "BaseSystemFileIDKey", "41" } }) }));
    EXPECT_FALSE(std::filesystem::exists(json));
    EXPECT_TRUE(std::filesystem::exists(json.string() + ".imported"));
    EXPECT_TRUE(anyLineContains(log, "was imported into"));

    UserDefaults later("korbanhold", folder.path());
    EXPECT_EQ(later.persistentDomainForName(serviceDomain)->keys(),
        (std::vector<std::string> { "FileWatchedDataKey", "other" }));
}

TEST(PreferenceDatabase, TheFormerJsonFileImportedPieceByPieceStoresWhatAStoreOfItsWholeDomainStores)
{
    std::string utf16;
    for (const char c : std::string(R"({"L":["a",{"$date":2}],"s":"b"})"))
        utf16 += { c, '\0' };
    const std::vector<std::string> files {
        legacyTableText(2000, R"(],"other":1,"empty":[],"nested":{"k":[1,{"$data":"AAE="}]}})"),
        // A repeated key keeps its first place and its last value, whatever the kinds.
        R"({"T":[1,2,3],"s":"a","T":[4],"U":[5],"s":{"k":[6]},"U":7,"V":8,"V":[9,10]})",
        // A dictionary wrapped in a tag, holding a list and a member named like a tag.
        R"({"$dictionary":{"$date":[1,2],"L":[{"$data":"AAE="}]}})",
        R"({"$dictionary":[1],"$dictionary":{"a":[2]}})",
        "\xEF\xBB\xBF" R"({"L":["é"]})",
        utf16,
        "{}",
    };
    for (const std::string& text : files) {
        SCOPED_TRACE(text.substr(0, 80));
        TempDir imported;
        writeFile(legacyFileIn(imported), text);
        PreferenceDatabase importer(databaseIn(imported), legacyFileIn(imported));
        const auto domain = importer.read();

        TempDir stored;
        const Value whole = platform::readPreferenceJson(text);
        PreferenceDatabase(databaseIn(stored), legacyFileIn(stored)).write(whole);

        EXPECT_EQ(dumpOf(databaseIn(imported)), dumpOf(databaseIn(stored)));
        ASSERT_TRUE(domain);
        EXPECT_EQ(domain->description(), whole.description());
        EXPECT_EQ(PreferenceDatabase(databaseIn(imported), {}).read()->description(), whole.description());
        EXPECT_FALSE(std::filesystem::exists(legacyFileIn(imported)));
        EXPECT_TRUE(std::filesystem::exists(legacyFileIn(imported).string() + ".imported"));
    }
}

TEST(PreferenceDatabase, AFormerJsonFileThatIsNotValidEvenAtItsEndImportsNothingAndIsMovedAside)
{
    const std::vector<std::string> files {
        legacyTableText(2000, "]"), // cut short
        legacyTableText(2000, "]} x"),
        legacyTableText(2000, R"(,{"$date":"not a number"}]})"),
        legacyTableText(2000, R"(],"FileWatchedDataKey":[{"$data":"not Base64"}]})"),
        "[" + legacyTableText(2000, "]}") + "]",
        R"({"$date":[1]})",
        R"({"$date":1})",
        R"("a string")",
        "",
    };
    for (const std::string& text : files) {
        SCOPED_TRACE(text.substr(text.size() > 80 ? text.size() - 80 : 0));
        TempDir folder;
        const auto json = legacyFileIn(folder);
        writeFile(json, text);
        LogCapture log;
        EXPECT_FALSE(PreferenceDatabase(databaseIn(folder), json).read());
        EXPECT_TRUE(log.contains("Preference domain file " + json.string() + " is not valid and was moved to "
            + json.string() + ".invalid without being imported: " + reasonTheWholeReaderGives(text)))
            << testing::PrintToString(log.lines());
        EXPECT_FALSE(std::filesystem::exists(json));
        EXPECT_TRUE(std::filesystem::exists(json.string() + ".invalid"));
        // Nothing is left of the import: a repaired file put back is imported.
        EXPECT_FALSE(std::filesystem::exists(databaseIn(folder)));
        writeFile(json, R"({"FileWatchedDataKey":[1]})");
        const auto repaired = PreferenceDatabase(databaseIn(folder), json).read();
        ASSERT_TRUE(repaired);
        EXPECT_EQ(*repaired, Value::dictionary({ { "FileWatchedDataKey", Value::array({ Value::integer(1) }) } }));
    }
}

// In a child process that `prepare`s where the database cannot be written, the former file's domain is read from it
// twice, with a log line, and the file stays; back in this process, it is imported. The child's status, 2 when
// `prepare` could not make the database unwritable.
int formerFileReadFromItselfInAChild(const TempDir& folder, const std::function<bool()>& prepare)
{
    const auto json = legacyFileIn(folder);
    const std::string text = legacyTableText(2000);
    writeFile(json, text);
    const Value whole = platform::readPreferenceJson(text);
    const pid_t child = ::fork();
    if (child == 0) {
        if (!prepare())
            ::_exit(2);
        LogCapture log;
        PreferenceDatabase database(databaseIn(folder), json);
        const auto first = database.read();
        const auto second = database.read();
        const bool logged = log.countStartingWith("Could not import preference domain file " + json.string()) == 2;
        ::_exit(first == whole && second == whole && logged && std::filesystem::exists(json) ? 0 : 1);
    }
    int status = 0;
    if (::waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return -1;
    ::chmod(folder.string().c_str(), 0700);
    const auto domain = PreferenceDatabase(databaseIn(folder), json).read();
    EXPECT_TRUE(domain == whole);
    EXPECT_FALSE(std::filesystem::exists(json));
    return WEXITSTATUS(status);
}

TEST(PreferenceDatabase, AFormerJsonFileThatCannotBeImportedOnAFullDiskStaysAndItsDomainIsReadFromIt)
{
    TempDir folder;
    // Files cannot grow past 64 KiB: the import fails once its rows pass that size.
    EXPECT_EQ(formerFileReadFromItselfInAChild(folder, [] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit { 64 * 1024, 64 * 1024 };
        return ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
    }), 0);
}

TEST(PreferenceDatabase, AFormerJsonFileThatCannotBeImportedInAReadOnlyFolderStaysAndItsDomainIsReadFromIt)
{
    TempDir folder;
    const int status = formerFileReadFromItselfInAChild(folder, [&] { return makeReadOnly(folder); });
    if (status == 2)
        GTEST_SKIP() << "no mount namespace here, and permissions do not bind root";
    EXPECT_EQ(status, 0);
}

TEST(PreferenceDatabase, AFileThatIsNotADatabaseIsLoggedMovedAsideAndReadsAsAbsent)
{
    TempDir folder;
    writeFile(databaseIn(folder), std::string(8192, 'x'));
    LogCapture log;
    UserDefaults store(serviceDomain, folder.path());
    EXPECT_FALSE(store.objectForKey("FileWatchedDataKey"));
    EXPECT_EQ(log.countStartingWith("Preference database " + databaseIn(folder).string() + " is not valid"), 1u);
    EXPECT_FALSE(std::filesystem::exists(databaseIn(folder)));
    store.setObject(tableOf(2), "FileWatchedDataKey");
    EXPECT_TRUE(store.synchronize());
    EXPECT_EQ(store.objectForKey("FileWatchedDataKey")->count(), 2u);
}

TEST(PreferenceDatabase, ATruncatedDatabaseIsLoggedMovedAsideAndReadsAsAbsent)
{
    TempDir folder;
    {
        UserDefaults store(serviceDomain, folder.path());
        store.setObject(tableOf(5000), "FileWatchedDataKey");
    }
    std::filesystem::resize_file(databaseIn(folder), std::filesystem::file_size(databaseIn(folder)) / 2);
    LogCapture log;
    UserDefaults store(serviceDomain, folder.path());
    EXPECT_FALSE(store.objectForKey("FileWatchedDataKey"));
    EXPECT_EQ(log.countStartingWith("Preference database " + databaseIn(folder).string() + " is not valid"), 1u);
    EXPECT_FALSE(std::filesystem::exists(databaseIn(folder)));
}

TEST(PreferenceDatabase, AReadOnlyFolderKeepsTheStoredTableReadableAndFailsTheStoreWithALine)
{
    TempDir folder;
    const int status = storedTableSurvivesAChild(folder, [&] {
        if (!makeReadOnly(folder))
            return 2; // nothing would be read-only here
        WriteFailureLine line;
        UserDefaults store(serviceDomain, folder.path());
        const bool readable = store.objectForKey("FileWatchedDataKey") == tableOf(100);
        store.setObject(tableOf(3), "FileWatchedDataKey");
        const bool failed = !store.synchronize();
        const bool kept = store.objectForKey("FileWatchedDataKey") == tableOf(100);
        return readable && failed && line.logged() && kept ? 0 : 1;
    });
    if (status == 2)
        GTEST_SKIP() << "no mount namespace here, and permissions do not bind root";
    EXPECT_EQ(status, 0);
}

TEST(PreferenceDatabase, AFullDiskFailsTheStoreWithALineAndKeepsTheStoredTable)
{
    TempDir folder;
    // A child process whose files cannot grow past 64 KiB stores a table of half a megabyte.
    const int status = storedTableSurvivesAChild(folder, [&] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit { 64 * 1024, 64 * 1024 };
        ::setrlimit(RLIMIT_FSIZE, &limit);
        WriteFailureLine line;
        UserDefaults store(serviceDomain, folder.path());
        store.setObject(tableOf(5000), "FileWatchedDataKey");
        const bool failed = !store.synchronize();
        const auto table = store.objectForKey("FileWatchedDataKey");
        return failed && line.logged() && table && table->count() == 100 ? 0 : 1;
    });
    EXPECT_EQ(status, 0);
}

TEST(PreferenceDatabase, AStoreKilledAtAnyMomentLeavesTheOldTableOrTheNewOneTwoHundredTimes)
{
    // About 10 s: 200 writer processes, each killed at a random moment of its first 20 ms after its first store.
    TempDir folder;
    testsupport::ProcessOptions options;
    options.environment = { { "KORBANHOLD_PREFERENCES_DIR", folder.string() } };
    const auto program = testsupport::builtProgram("tests/helpers/table_store");
    std::mt19937 random(20261124);
    std::int64_t lastGeneration = 0;
    int advanced = 0;
    for (int kill = 0; kill < 200; ++kill) {
        testsupport::Process writer(program, {}, options);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (writer.standardOutputSoFar().empty() && !writer.hasEnded()
            && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 20000));
        ::kill(writer.pid(), SIGKILL);
        const auto result = writer.wait();
        ASSERT_EQ(result.signal, SIGKILL) << result.standardError;

        UserDefaults reader("korbanhold", folder.path());
        const auto domain = reader.persistentDomainForName(testsupport::tableVersionsDomain);
        const std::int64_t generation = domain ? testsupport::generationOf(*domain) : 0;
        ASSERT_GE(generation, lastGeneration) << "after kill " << kill << ": a torn or older table";
        advanced += generation > lastGeneration;
        lastGeneration = generation;
    }
    // Every writer stored at least once before it was killed.
    EXPECT_EQ(advanced, 200);
}
