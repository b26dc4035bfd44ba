#pragma once

// The records of the watched-files table as stored, kept compactly.
//
// Nearly every stored record is regular: a dictionary of the ten record keys (the eight stored fields,
// "computerIDKey" and "removeKey"), each once, each holding a string. Such a record is kept as ten references to
// its texts in an arena of text blocks, and the order of its keys as a shape number: about a hundred bytes a record
// instead of the kilobyte a dictionary value costs. A text equal to the same field's text of the record before it
// is not kept twice, so the computer identifier, the change type and the other repeated texts cost nothing more.
// Any other record (numbers, the null object, a missing or extra key, a text that does not fit a block: the stored table
// is outside input) is kept as its value, and reads exactly as it was stored.
//
// Records are only appended. The arena is shared with the records made from these (sharing()), so that a table
// made after a store keeps the texts of every record it did not change where they are.

#include "platform/Value.h"
#include "sync/TableEntry.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace engine {

class StoredRecords {
public:
    StoredRecords();
    // No records, with the texts of `other` kept in the same arena.
    static StoredRecords sharing(const StoredRecords& other);

    std::size_t count() const { return m_rows.size(); }
    void reserve(std::size_t count) { m_rows.reserve(count); }

    // Appends a record from its stored text (the preference JSON form): regular records of printable ASCII are
    // read straight into their compact form, anything else through the JSON reader. Raises JsonError when the text
    // is not a value.
    void appendText(std::string_view text);
    void append(const platform::Value& record);
    // The same for a record that replaces record `row` of `other` (which shares this arena): the texts it has in
    // common with that record are not kept again.
    void appendReplacing(const platform::Value& record, const StoredRecords& other, std::size_t row);
    // Appends record `row` of `other` (which shares this arena) as it is.
    void appendCopy(const StoredRecords& other, std::size_t row);
    // Appends the record the rename process makes of the regular record `row` of `other` (which shares this
    // arena): its eight stored fields in their order ("FileIDKey" as it is), then "computerIDKey" = `computerId`
    // and "removeKey" = "0". False, appending nothing, when that record is not regular.
    bool appendSeenForm(const StoredRecords& other, std::size_t row, std::string_view computerId);
    // Puts the record appended last in the place of record `row`, which it replaces: a table updated where it lies
    // (WatchedTable::rowsStored). The texts (or the value) of the record replaced stay where they are.
    void moveLastTo(std::size_t row);

    // True when record `row` is kept compactly.
    bool isRegular(std::size_t row) const { return m_rows[row].shape != oddShape; }
    // The text of `key` in a regular record.
    std::string_view text(std::size_t row, RecordKey key) const;
    // The value of `key` in record `row` (a regular record's texts are made values here), or absent.
    std::optional<platform::Value> find(std::size_t row, RecordKey key) const;
    // The value a record that is not regular keeps.
    const platform::Value& odd(std::size_t row) const { return m_odd[m_rows[row].texts[0]]; }
    // Record `row` as a value, exactly as stored.
    platform::Value record(std::size_t row) const;
    // Every record, in order, as a list of values.
    platform::Value list() const;

private:
    static constexpr std::size_t fieldCount = storedFieldCount + 2;
    static constexpr std::uint8_t oddShape = 0xFF;
    static constexpr std::uint8_t seenShape = 0;
    // A text in the arena: one past the offset of its length (counted over all blocks of blockSize bytes), which
    // the text's bytes follow; 0 for the empty text. Four bytes a field rather than eight for an offset and a
    // length: at a million records that is 40 MB.
    using TextRef = std::uint32_t;
    // A regular record: the text of each key (by RecordKey) and the shape of its key order; or, with oddShape, the
    // index of its value in m_odd in texts[0].
    struct Row {
        std::array<TextRef, fieldCount> texts;
        std::uint8_t shape = oddShape;
    };
    using Shape = std::array<RecordKey, fieldCount>;
    struct Arena;

    std::string_view textOf(const TextRef& ref) const;
    // Keeps `text` in the arena, or reuses the same field's text of the last record or of `like`.
    TextRef keep(std::size_t field, std::string_view text, const TextRef* like = nullptr);
    // True when `text` can be kept in the arena, its length included.
    bool fitsArena(std::string_view text) const;
    void appendValue(const platform::Value& record, const Row* like);
    std::uint8_t shapeOf(const Shape& order);
    void appendOdd(const platform::Value& record);
    // Reads a regular record of printable ASCII without escapes; false when the text is anything else.
    bool appendPlainText(std::string_view text);

    std::shared_ptr<Arena> m_arena;
    std::vector<Row> m_rows;
    std::vector<platform::Value> m_odd;
    std::vector<Shape> m_shapes;
};

}
