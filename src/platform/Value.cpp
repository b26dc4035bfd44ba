#include "platform/Value.h"

#include "platform/DateFormat.h"
#include "platform/Utf8.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <limits>
#include <unordered_map>

namespace platform {

// ---------------------------------------------------------------- Number

Number Number::boolean(bool value) { return Number(NumberType::Boolean, std::int64_t { value ? 1 : 0 }); }
Number Number::fromChar(std::int8_t value) { return Number(NumberType::Char, std::int64_t { value }); }
Number Number::fromShort(std::int16_t value) { return Number(NumberType::Short, std::int64_t { value }); }
Number Number::fromInt(std::int32_t value) { return Number(NumberType::Int, std::int64_t { value }); }
Number Number::fromLongLong(std::int64_t value) { return Number(NumberType::LongLong, value); }
Number Number::fromUnsignedLongLong(std::uint64_t value) { return Number(value); }
Number Number::fromFloat(float value) { return Number(NumberType::Float, static_cast<double>(value)); }
Number Number::fromDouble(double value) { return Number(NumberType::Double, value); }

const char* Number::objCType() const
{
    switch (m_type) {
    case NumberType::Boolean:
    case NumberType::Char:
        return "c";
    case NumberType::Short:
        return "s";
    case NumberType::Int:
        return "i";
    case NumberType::LongLong:
        return "q";
    case NumberType::UnsignedLongLong:
        return "Q";
    case NumberType::Float:
        return "f";
    case NumberType::Double:
        return "d";
    }
    return "q";
}

bool Number::boolValue() const
{
    if (isFloatingPoint())
        return m_real != 0.0;
    if (isUnsigned())
        return m_unsigned != 0;
    return m_signed != 0;
}

std::int64_t Number::int64Value() const
{
    if (isFloatingPoint()) {
        // Out-of-range and NaN conversions are undefined in C++; saturate instead.
        if (std::isnan(m_real))
            return 0;
        if (m_real >= 9.2233720368547758e18)
            return INT64_MAX;
        if (m_real <= -9.2233720368547758e18)
            return INT64_MIN;
        return static_cast<std::int64_t>(m_real);
    }
    if (isUnsigned())
        return static_cast<std::int64_t>(m_unsigned);
    return m_signed;
}

std::uint64_t Number::uint64Value() const
{
    if (isFloatingPoint()) {
        if (std::isnan(m_real) || m_real <= -1.0)
            return static_cast<std::uint64_t>(int64Value());
        if (m_real >= 1.8446744073709552e19)
            return UINT64_MAX;
        return static_cast<std::uint64_t>(m_real);
    }
    if (isUnsigned())
        return m_unsigned;
    return static_cast<std::uint64_t>(m_signed);
}

double Number::doubleValue() const
{
    if (isFloatingPoint())
        return m_real;
    if (isUnsigned())
        return static_cast<double>(m_unsigned);
    return static_cast<double>(m_signed);
}

std::string Number::stringValue() const
{
    char buffer[64];
    if (isFloatingPoint()) {
        if (std::isnan(m_real))
            return "nan";
        if (std::isinf(m_real))
            return m_real > 0 ? "inf" : "-inf";
        const auto result = m_type == NumberType::Float
            ? std::to_chars(buffer, buffer + sizeof buffer, static_cast<float>(m_real))
            : std::to_chars(buffer, buffer + sizeof buffer, m_real);
        return std::string(buffer, result.ptr);
    }
    const auto result = isUnsigned() ? std::to_chars(buffer, buffer + sizeof buffer, m_unsigned)
                                     : std::to_chars(buffer, buffer + sizeof buffer, m_signed);
    return std::string(buffer, result.ptr);
}

bool Number::operator==(const Number& other) const
{
    if (isFloatingPoint() || other.isFloatingPoint())
        return doubleValue() == other.doubleValue();
    if (isUnsigned() != other.isUnsigned()) {
        const Number& signedOne = isUnsigned() ? other : *this;
        const Number& unsignedOne = isUnsigned() ? *this : other;
        return signedOne.m_signed >= 0 && static_cast<std::uint64_t>(signedOne.m_signed) == unsignedOne.m_unsigned;
    }
    if (isUnsigned())
        return m_unsigned == other.m_unsigned;
    return m_signed == other.m_signed;
}

// ---------------------------------------------------------------- Value: construction and kinds

Value::Value() = default;
Value::Value(std::string text) : m_storage(std::move(text)) { }
Value::Value(std::string_view text) : m_storage(std::string(text)) { }
Value::Value(const char* text)
{
    if (!text)
        Exception::raiseInvalidArgument("*** -[NSPlaceholderString initWithUTF8String:]: NULL cString");
    m_storage = std::string(text);
}
Value::Value(Number number) : m_storage(number) { }

Value Value::date(double secondsSince1970)
{
    Value value;
    value.m_storage = DateValue { secondsSince1970 };
    return value;
}

Value Value::data(Bytes bytes)
{
    Value value;
    value.m_storage = DataStore(std::move(bytes));
    return value;
}

Value Value::array(std::initializer_list<Value> elements) { return arrayOf(Array(elements)); }

Value Value::arrayOf(Array elements)
{
    Value value;
    value.m_storage = ArrayStore(std::move(elements));
    return value;
}

Value Value::dictionary(std::initializer_list<Entry> entries) { return dictionaryOf(Entries(entries)); }

Value Value::dictionaryOf(Entries entries)
{
    // A repeated key keeps its first position and takes its last value, as setObject does; the index keeps a
    // large dictionary (a JSON object with many members) linear to build.
    // The index's keys view the strings in `unique`, which never reallocates (its capacity is reserved up front).
    Entries unique;
    unique.reserve(entries.size());
    std::unordered_map<std::string_view, std::size_t> positions;
    positions.reserve(entries.size());
    for (auto& [key, element] : entries) {
        if (const auto found = positions.find(key); found != positions.end()) {
            unique[found->second].second = std::move(element);
            continue;
        }
        unique.emplace_back(std::move(key), std::move(element));
        positions.emplace(unique.back().first, unique.size() - 1);
    }
    Value value;
    value.m_storage = DictionaryStore(std::move(unique));
    return value;
}

const char* Value::className() const
{
    switch (kind()) {
    case Kind::Null:
        return "NSNull";
    case Kind::String:
        return "NSString";
    case Kind::Number:
        return "NSNumber";
    case Kind::Date:
        return "NSDate";
    case Kind::Data:
        return "NSData";
    case Kind::Array:
        return "NSArray";
    case Kind::Dictionary:
        return "NSDictionary";
    }
    return "NSObject";
}

void Value::raiseWrongKind(const char* operation) const
{
    Exception::raiseInvalidArgument(std::string("-[") + className() + " " + operation
        + "]: unrecognized selector sent to instance");
}

const std::string* Value::stringIf() const { return std::get_if<std::string>(&m_storage); }
const Number* Value::numberIf() const { return std::get_if<Number>(&m_storage); }

const std::string& Value::string() const
{
    if (const auto* text = stringIf())
        return *text;
    raiseWrongKind("length");
}

const Number& Value::number() const
{
    if (const auto* value = numberIf())
        return *value;
    raiseWrongKind("doubleValue");
}

double Value::dateValue() const
{
    if (const auto* value = std::get_if<DateValue>(&m_storage))
        return value->seconds;
    raiseWrongKind("timeIntervalSince1970");
}

const Bytes& Value::bytes() const
{
    if (const auto* value = std::get_if<DataStore>(&m_storage))
        return value->get();
    raiseWrongKind("bytes");
}

std::size_t Value::count() const
{
    if (const auto* array = std::get_if<ArrayStore>(&m_storage))
        return array->get().size();
    if (const auto* dictionary = std::get_if<DictionaryStore>(&m_storage))
        return dictionary->get().size();
    raiseWrongKind("count");
}

// ---------------------------------------------------------------- Arrays

const Array& Value::elements() const
{
    if (const auto* array = std::get_if<ArrayStore>(&m_storage))
        return array->get();
    raiseWrongKind("objectAtIndex:");
}

Array& Value::mutableElements()
{
    auto* array = std::get_if<ArrayStore>(&m_storage);
    if (!array)
        raiseWrongKind("addObject:");
    return array->mutate();
}

[[noreturn]] static void raiseIndexBeyondBounds(std::size_t index, std::size_t count,
    const char* selector = "objectAtIndex:")
{
    Exception::raiseRange(std::string("*** -[__NSArrayM ") + selector + "]: index " + std::to_string(index)
        + " beyond bounds" + (count == 0 ? std::string(" for empty array") : " [0 .. " + std::to_string(count - 1) + "]"));
}

const Value& Value::at(std::size_t index) const
{
    const auto& array = elements();
    if (index >= array.size())
        raiseIndexBeyondBounds(index, array.size());
    return array[index];
}

Value& Value::mutableAt(std::size_t index)
{
    if (index >= elements().size())
        raiseIndexBeyondBounds(index, elements().size());
    return mutableElements()[index];
}

void Value::append(Value element) { mutableElements().push_back(std::move(element)); }

void Value::append(const std::optional<Value>& element)
{
    if (!element)
        Exception::raiseInvalidArgument("*** -[__NSArrayM insertObject:atIndex:]: object cannot be nil");
    append(*element);
}

void Value::insert(const std::optional<Value>& element, std::size_t index)
{
    if (!element)
        Exception::raiseInvalidArgument("*** -[__NSArrayM insertObject:atIndex:]: object cannot be nil");
    if (index > elements().size())
        raiseIndexBeyondBounds(index, elements().size(), "insertObject:atIndex:");
    auto& array = mutableElements();
    array.insert(array.begin() + static_cast<std::ptrdiff_t>(index), *element);
}

void Value::removeAt(std::size_t index)
{
    if (index >= elements().size())
        raiseIndexBeyondBounds(index, elements().size());
    auto& array = mutableElements();
    array.erase(array.begin() + static_cast<std::ptrdiff_t>(index));
}

void Value::replaceAt(std::size_t index, const std::optional<Value>& element)
{
    if (!element)
        Exception::raiseInvalidArgument("*** -[__NSArrayM replaceObjectAtIndex:withObject:]: object cannot be nil");
    mutableAt(index) = *element;
}

void Value::removeAllElements() { mutableElements().clear(); }

void Value::reserve(std::size_t capacity) { mutableElements().reserve(capacity); }

// ---------------------------------------------------------------- Dictionaries

const Entries& Value::entries() const
{
    if (const auto* dictionary = std::get_if<DictionaryStore>(&m_storage))
        return dictionary->get();
    raiseWrongKind("objectForKey:");
}

void Value::reserveEntries(std::size_t capacity) { mutableEntries().reserve(capacity); }

Entries& Value::mutableEntries()
{
    auto* dictionary = std::get_if<DictionaryStore>(&m_storage);
    if (!dictionary)
        raiseWrongKind("setObject:forKey:");
    return dictionary->mutate();
}

const Value* Value::find(std::string_view key) const
{
    for (const auto& [entryKey, value] : entries()) {
        if (entryKey == key)
            return &value;
    }
    return nullptr;
}

std::optional<Value> Value::objectForKey(std::string_view key) const
{
    if (const auto* value = find(key))
        return *value;
    return std::nullopt;
}

void Value::setObject(Value value, std::string_view key)
{
    auto& target = mutableEntries();
    for (auto& [entryKey, existing] : target) {
        if (entryKey == key) {
            existing = std::move(value);
            return;
        }
    }
    target.emplace_back(std::string(key), std::move(value));
}

void Value::setObject(const std::optional<Value>& value, std::string_view key)
{
    if (!value) {
        Exception::raiseInvalidArgument("*** -[__NSDictionaryM setObject:forKey:]: object cannot be nil (key: "
            + std::string(key) + ")");
    }
    setObject(*value, key);
}

void Value::removeObjectForKey(std::string_view key)
{
    if (!find(key))
        return;
    auto& target = mutableEntries();
    target.erase(std::find_if(target.begin(), target.end(), [&](const Entry& entry) { return entry.first == key; }));
}

std::vector<std::string> Value::keys() const
{
    std::vector<std::string> result;
    result.reserve(entries().size());
    for (const auto& entry : entries())
        result.push_back(entry.first);
    return result;
}

const std::string* stringForKey(const Value& dictionary, std::string_view key)
{
    if (!dictionary.isDictionary())
        return nullptr;
    const auto* value = dictionary.find(key);
    return value ? value->stringIf() : nullptr;
}

// ---------------------------------------------------------------- Equality

bool Value::operator==(const Value& other) const
{
    if (kind() != other.kind())
        return false;
    switch (kind()) {
    case Kind::Null:
        return true;
    case Kind::String:
        return string() == other.string();
    case Kind::Number:
        return number() == other.number();
    case Kind::Date:
        return dateValue() == other.dateValue();
    case Kind::Data:
        return bytes() == other.bytes();
    case Kind::Array:
        return std::get<ArrayStore>(m_storage).sharesWith(std::get<ArrayStore>(other.m_storage))
            || elements() == other.elements();
    case Kind::Dictionary: {
        if (std::get<DictionaryStore>(m_storage).sharesWith(std::get<DictionaryStore>(other.m_storage)))
            return true;
        const auto& mine = entries();
        const auto& theirs = other.entries();
        if (mine.size() != theirs.size())
            return false;
        // Keys are unique, so finding every key of one in the other proves the key sets equal. Dictionaries built
        // the same way hold their keys in the same order, which the positional test catches without a search.
        for (std::size_t i = 0; i < mine.size(); ++i) {
            const auto& [key, value] = mine[i];
            const Value* match = theirs[i].first == key ? &theirs[i].second : other.find(key);
            if (!match || !(*match == value))
                return false;
        }
        return true;
    }
    }
    return false;
}

// ---------------------------------------------------------------- Description

// A string needs quotes in a collection's description unless it is non-empty and made only of ASCII letters and
// digits: "1.0", "user_id" and paths print quoted, as the framework prints them.
static bool needsQuotes(std::string_view text)
{
    if (text.empty())
        return true;
    return !std::all_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9');
    });
}

static void appendQuoted(std::string& out, std::string_view text)
{
    out += '"';
    const bool valid = isValidUtf8(text);
    std::size_t position = 0;
    while (position < text.size()) {
        const char c = text[position];
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
            ++position;
        } else if (c == '\n') {
            out += "\\n";
            ++position;
        } else if (c == '\t') {
            out += "\\t";
            ++position;
        } else if (static_cast<unsigned char>(c) < 0x80 || !valid) {
            out += c;
            ++position;
        } else {
            // Non-ASCII characters print as UTF-16 escapes.
            std::uint32_t codePoint = decodeUtf8(text, position);
            char buffer[24];
            if (codePoint > 0xFFFF) {
                codePoint -= 0x10000;
                std::snprintf(buffer, sizeof buffer, "\\U%04x\\U%04x", 0xD800 + (codePoint >> 10),
                    0xDC00 + (codePoint & 0x3FF));
            } else {
                std::snprintf(buffer, sizeof buffer, "\\U%04x", codePoint);
            }
            out += buffer;
        }
    }
    out += '"';
}

static void appendText(std::string& out, std::string_view text, bool nested)
{
    if (nested && needsQuotes(text))
        appendQuoted(out, text);
    else
        out += text;
}

// A date prints in UTC, "2001-01-01 00:00:00 +0000"; one beyond the calendar, or not a number, prints as the plain
// count of seconds.
static void appendDate(std::string& out, double seconds)
{
    char buffer[64];
    const auto parts = calendarTime(seconds, TimeZone::Utc);
    if (parts && std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S +0000", &*parts) > 0)
        out += buffer;
    else
        out += Number::fromDouble(seconds).stringValue() + " seconds since 1970";
}

static void appendIndent(std::string& out, int indent) { out.append(static_cast<std::size_t>(indent) * 4, ' '); }

// A collection inside a collection starts with the indentation of its own level, after whatever its parent already
// wrote, so the framework's text reads "key =     (" and an array's dictionaries open further right than they
// close. Log lines keep that look.
static void appendNestedIndent(std::string& out, int indent, bool nested)
{
    if (nested)
        appendIndent(out, indent);
}

void Value::describe(std::string& out, int indent, bool nested, std::size_t limit) const
{
    switch (kind()) {
    case Kind::Null:
        out += "<null>";
        return;
    case Kind::String:
        appendText(out, string(), nested);
        return;
    case Kind::Number:
        out += number().stringValue();
        return;
    case Kind::Date:
        appendDate(out, dateValue());
        return;
    case Kind::Data: {
        static const char digits[] = "0123456789abcdef";
        out += '<';
        const auto& data = bytes();
        for (std::size_t i = 0; i < data.size(); ++i) {
            if (i > 0 && i % 4 == 0)
                out += ' ';
            out += digits[data[i] >> 4];
            out += digits[data[i] & 0xF];
        }
        out += '>';
        return;
    }
    case Kind::Array: {
        const auto& array = elements();
        describeArray(out, indent, nested, array.size(), [&](std::size_t i) -> const Value& { return array[i]; }, limit);
        return;
    }
    case Kind::Dictionary: {
        // Keys print sorted, as the framework sorts the keys of a dictionary it describes.
        std::vector<const Entry*> sorted;
        for (const auto& entry : entries())
            sorted.push_back(&entry);
        std::sort(sorted.begin(), sorted.end(), [](const Entry* a, const Entry* b) { return a->first < b->first; });
        appendNestedIndent(out, indent, nested);
        out += "{\n";
        for (const auto* entry : sorted) {
            if (out.size() >= limit)
                return;
            appendIndent(out, indent + 1);
            appendText(out, entry->first, true);
            out += " = ";
            entry->second.describe(out, indent + 1, true, limit);
            out += ";\n";
        }
        appendIndent(out, indent);
        out += '}';
        return;
    }
    }
}

template<typename ElementAt>
void Value::describeArray(
    std::string& out, int indent, bool nested, std::size_t count, const ElementAt& elementAt, std::size_t limit)
{
    appendNestedIndent(out, indent, nested);
    out += "(\n";
    for (std::size_t i = 0; i < count; ++i) {
        if (out.size() >= limit)
            return;
        appendIndent(out, indent + 1);
        elementAt(i).describe(out, indent + 1, true, limit);
        if (i + 1 < count)
            out += ',';
        out += '\n';
    }
    appendIndent(out, indent);
    out += ')';
}

std::string Value::describeList(
    std::size_t count, const std::function<Value(std::size_t)>& elementAt, std::size_t limit)
{
    std::string out;
    describeArray(out, 0, false, count, elementAt, limit);
    return out;
}

std::string Value::description() const { return description(std::numeric_limits<std::size_t>::max()); }

std::string Value::description(std::size_t limit) const
{
    std::string out;
    describe(out, 0, false, limit);
    return out;
}

}
