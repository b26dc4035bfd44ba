#include "sync/StoredRecords.h"

#include "platform/PreferenceJson.h"

#include <cstring>

namespace engine {

using platform::Value;

namespace {

    constexpr std::size_t blockSize = std::size_t { 1 } << 20;
    // Offsets are 32 bits, counted over whole blocks.
    constexpr std::size_t maxBlocks = (std::size_t { 1 } << 32) / blockSize - 1;
    // A text's length is kept before it, seven bits a byte, low bits first; a length below blockSize takes three.
    constexpr std::size_t maxLengthBytes = 3;
    constexpr std::size_t maxTextSize = blockSize - maxLengthBytes;

    std::size_t writeLength(char* out, std::size_t length)
    {
        std::size_t bytes = 0;
        do {
            const auto low = static_cast<unsigned char>(length & 0x7F);
            length >>= 7;
            out[bytes++] = static_cast<char>(length ? (low | 0x80) : low);
        } while (length);
        return bytes;
    }

    std::string_view readText(const char* at)
    {
        std::size_t length = 0;
        for (unsigned shift = 0;; shift += 7) {
            const auto byte = static_cast<unsigned char>(*at++);
            length |= std::size_t { byte & 0x7Fu } << shift;
            if (!(byte & 0x80))
                break;
        }
        return { at, length };
    }

}

struct StoredRecords::Arena {
    std::vector<std::unique_ptr<char[]>> blocks;
    std::size_t used = blockSize; // in the last block; a full one makes the first text start a block
};

StoredRecords::StoredRecords()
    : m_arena(std::make_shared<Arena>())
{
    // The record the rename process makes: the stored fields in their order, then the computer and the mark.
    Shape seen {};
    for (std::size_t field = 0; field < storedFieldCount; ++field)
        seen[field] = static_cast<RecordKey>(field);
    seen[storedFieldCount] = RecordKey::ComputerID;
    seen[storedFieldCount + 1] = RecordKey::Remove;
    m_shapes.push_back(seen);
}

StoredRecords StoredRecords::sharing(const StoredRecords& other)
{
    StoredRecords records;
    records.m_arena = other.m_arena;
    records.m_shapes = other.m_shapes;
    return records;
}

std::string_view StoredRecords::textOf(const TextRef& ref) const
{
    if (ref == 0)
        return std::string_view("", 0);
    const std::size_t offset = ref - 1;
    return readText(m_arena->blocks[offset / blockSize].get() + offset % blockSize);
}

bool StoredRecords::fitsArena(std::string_view text) const
{
    // A record's texts may each start a block.
    return text.size() <= maxTextSize && m_arena->blocks.size() + fieldCount < maxBlocks;
}

StoredRecords::TextRef StoredRecords::keep(std::size_t field, std::string_view text, const TextRef* like)
{
    if (text.empty())
        return {};
    if (like && textOf(*like) == text)
        return *like;
    if (!m_rows.empty() && m_rows.back().shape != oddShape && textOf(m_rows.back().texts[field]) == text)
        return m_rows.back().texts[field];
    Arena& arena = *m_arena;
    if (arena.used + maxLengthBytes + text.size() > blockSize) {
        arena.blocks.push_back(std::make_unique<char[]>(blockSize));
        arena.used = 0;
    }
    const auto ref = static_cast<TextRef>((arena.blocks.size() - 1) * blockSize + arena.used + 1);
    char* out = arena.blocks.back().get() + arena.used;
    const std::size_t lengthBytes = writeLength(out, text.size());
    std::memcpy(out + lengthBytes, text.data(), text.size());
    arena.used += lengthBytes + text.size();
    return ref;
}

std::uint8_t StoredRecords::shapeOf(const Shape& order)
{
    for (std::size_t shape = 0; shape < m_shapes.size(); ++shape)
        if (m_shapes[shape] == order)
            return static_cast<std::uint8_t>(shape);
    if (m_shapes.size() >= oddShape)
        return oddShape;
    m_shapes.push_back(order);
    return static_cast<std::uint8_t>(m_shapes.size() - 1);
}

void StoredRecords::appendOdd(const Value& record)
{
    Row row;
    row.texts[0] = static_cast<TextRef>(m_odd.size());
    m_odd.push_back(record);
    m_rows.push_back(row);
}

void StoredRecords::append(const Value& record) { appendValue(record, nullptr); }

void StoredRecords::appendReplacing(const Value& record, const StoredRecords& other, std::size_t row)
{
    appendValue(record, row < other.count() && other.isRegular(row) ? &other.m_rows[row] : nullptr);
}

void StoredRecords::appendValue(const Value& record, const Row* like)
{
    // Regular: ten distinct record keys, each with a string short enough for a block, and an arena with room.
    bool regular = record.isDictionary() && record.count() == fieldCount;
    Shape order {};
    std::array<const std::string*, fieldCount> texts {};
    for (std::size_t position = 0; regular && position < fieldCount; ++position) {
        const auto& [key, value] = record.entries()[position];
        const RecordKey field = recordKeyOf(key);
        const auto index = static_cast<std::size_t>(field);
        regular = field != RecordKey::Other && !texts[index] && value.isString() && fitsArena(value.string());
        if (regular) {
            order[position] = field;
            texts[index] = &value.string();
        }
    }
    const std::uint8_t shape = regular ? shapeOf(order) : oddShape;
    if (shape == oddShape) {
        appendOdd(record);
        return;
    }
    Row row;
    row.shape = shape;
    for (std::size_t field = 0; field < fieldCount; ++field)
        row.texts[field] = keep(field, *texts[field], like ? &like->texts[field] : nullptr);
    m_rows.push_back(row);
}

bool StoredRecords::appendPlainText(std::string_view text)
{
    std::size_t at = 0;
    const auto take = [&](char c) {
        if (at < text.size() && text[at] == c) {
            ++at;
            return true;
        }
        return false;
    };
    // A string without escapes, of printable ASCII.
    const auto plainString = [&](std::string_view& out) {
        if (!take('"'))
            return false;
        const std::size_t start = at;
        while (at < text.size() && text[at] != '"') {
            const char c = text[at];
            if (c < 0x20 || c > 0x7E || c == '\\')
                return false;
            ++at;
        }
        out = text.substr(start, at - start);
        return take('"');
    };
    Shape order {};
    std::array<std::string_view, fieldCount> texts {};
    std::array<bool, fieldCount> seen {};
    if (!take('{'))
        return false;
    for (std::size_t position = 0; position < fieldCount; ++position) {
        std::string_view key;
        std::string_view value;
        if ((position > 0 && !take(',')) || !plainString(key) || !take(':') || !plainString(value))
            return false;
        const RecordKey field = recordKeyOf(key);
        const auto index = static_cast<std::size_t>(field);
        if (field == RecordKey::Other || seen[index] || !fitsArena(value))
            return false;
        seen[index] = true;
        order[position] = field;
        texts[index] = value;
    }
    if (!take('}') || at != text.size())
        return false;
    const std::uint8_t shape = shapeOf(order);
    if (shape == oddShape)
        return false;
    Row row;
    row.shape = shape;
    for (std::size_t field = 0; field < fieldCount; ++field)
        row.texts[field] = keep(field, texts[field]);
    m_rows.push_back(row);
    return true;
}

void StoredRecords::appendText(std::string_view text)
{
    if (!appendPlainText(text))
        append(platform::readPreferenceJson(text, { .allowFragments = true }));
}

void StoredRecords::appendCopy(const StoredRecords& other, std::size_t row)
{
    if (!other.isRegular(row)) {
        appendOdd(other.odd(row));
        return;
    }
    m_rows.push_back(other.m_rows[row]);
}

bool StoredRecords::appendSeenForm(const StoredRecords& other, std::size_t row, std::string_view computerId)
{
    if (!other.isRegular(row) || !fitsArena(computerId))
        return false;
    Row seen = other.m_rows[row];
    seen.shape = seenShape;
    seen.texts[static_cast<std::size_t>(RecordKey::ComputerID)] = keep(static_cast<std::size_t>(RecordKey::ComputerID), computerId);
    seen.texts[static_cast<std::size_t>(RecordKey::Remove)] = keep(static_cast<std::size_t>(RecordKey::Remove), "0");
    m_rows.push_back(seen);
    return true;
}

void StoredRecords::moveLastTo(std::size_t row)
{
    m_rows[row] = m_rows.back();
    m_rows.pop_back();
}

std::string_view StoredRecords::text(std::size_t row, RecordKey key) const
{
    return textOf(m_rows[row].texts[static_cast<std::size_t>(key)]);
}

std::optional<Value> StoredRecords::find(std::size_t row, RecordKey key) const
{
    if (isRegular(row)) {
        if (key == RecordKey::Other)
            return std::nullopt;
        return Value(text(row, key));
    }
    const Value& record = odd(row);
    const Value* value = record.isDictionary() ? record.find(nameOf(key)) : nullptr;
    return value ? std::optional(*value) : std::nullopt;
}

Value StoredRecords::record(std::size_t row) const
{
    if (!isRegular(row))
        return odd(row);
    platform::Entries entries;
    entries.reserve(fieldCount);
    for (const RecordKey key : m_shapes[m_rows[row].shape])
        entries.emplace_back(std::string(nameOf(key)), Value(text(row, key)));
    return Value::dictionaryOf(std::move(entries));
}

Value StoredRecords::list() const
{
    platform::Array records;
    records.reserve(count());
    for (std::size_t row = 0; row < count(); ++row)
        records.push_back(record(row));
    return Value::arrayOf(std::move(records));
}

}
