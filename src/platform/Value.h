#pragma once

// platform::Value: the dynamic value that stands for the framework objects the service handles everywhere:
// records, preference domains, JSON bodies and IPC messages.
//
// Kinds: the null object, string (UTF-8), number (keeping its type code), date (seconds since 1970), data (bytes),
// array, and dictionary with text keys that keeps insertion order.
//
// "Absent" (nil) is not a Value: it is the empty std::optional<Value>, or a null pointer from find(). The null
// object, absent and the empty string are three different things. Inserting an absent value into an array or a
// dictionary raises platform::Exception, as the framework does.
//
// Values have value semantics: a copy never aliases the original. Arrays, dictionaries and data share their storage
// between copies until one of them is changed (copy-on-write), so copying a 100,000-record table costs one
// reference count, and changing one record of it copies the outer list of handles once.

#include "platform/CopyOnWrite.h"
#include "platform/Exception.h"

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace platform {

enum class NumberType : std::uint8_t {
    Boolean, // "c", the shared true and false objects
    Char, // "c"
    Short, // "s"
    Int, // "i"
    LongLong, // "q"
    UnsignedLongLong, // "Q"
    Float, // "f"
    Double, // "d"
};

// A number with the type code it was made with, like the framework's number object.
class Number {
public:
    static Number boolean(bool value);
    static Number fromChar(std::int8_t value);
    static Number fromShort(std::int16_t value);
    static Number fromInt(std::int32_t value);
    static Number fromLongLong(std::int64_t value);
    static Number fromUnsignedLongLong(std::uint64_t value);
    static Number fromFloat(float value);
    static Number fromDouble(double value);

    NumberType type() const { return m_type; }
    // The type code: "c" (boolean and char), "s", "i", "q", "Q", "f", "d".
    const char* objCType() const;
    bool isBoolean() const { return m_type == NumberType::Boolean; }
    bool isUnsigned() const { return m_type == NumberType::UnsignedLongLong; }
    bool isFloatingPoint() const { return m_type == NumberType::Float || m_type == NumberType::Double; }

    bool boolValue() const;
    std::int64_t int64Value() const;
    std::uint64_t uint64Value() const;
    double doubleValue() const;
    // The number as its description prints it: integers in decimal, booleans as 1 or 0, reals in their shortest
    // exact form.
    std::string stringValue() const;

    // Equality by numeric value, whatever the type codes (true equals 1, 2 equals 2.0).
    bool operator==(const Number& other) const;

private:
    NumberType m_type { NumberType::LongLong };
    union {
        std::int64_t m_signed;
        std::uint64_t m_unsigned;
        double m_real;
    };
    Number(NumberType type, std::int64_t value) : m_type(type), m_signed(value) { }
    Number(std::uint64_t value) : m_type(NumberType::UnsignedLongLong), m_unsigned(value) { }
    Number(NumberType type, double value) : m_type(type), m_real(value) { }
};

class Value;
using Bytes = std::vector<std::uint8_t>;
using Array = std::vector<Value>;
using Entry = std::pair<std::string, Value>;
using Entries = std::vector<Entry>;

class Value {
public:
    enum class Kind : std::uint8_t { Null, String, Number, Date, Data, Array, Dictionary };

    // The null object.
    Value();
    Value(std::string text);
    Value(std::string_view text);
    Value(const char* text);
    Value(Number number);

    static Value null() { return {}; }
    static Value boolean(bool value) { return Number::boolean(value); }
    static Value integer(std::int64_t value) { return Number::fromLongLong(value); }
    static Value unsignedInteger(std::uint64_t value) { return Number::fromUnsignedLongLong(value); }
    static Value real(double value) { return Number::fromDouble(value); }
    // A date, as seconds since 1 January 1970 UTC.
    static Value date(double secondsSince1970);
    static Value data(Bytes bytes);
    static Value array(std::initializer_list<Value> elements = {});
    static Value arrayOf(Array elements);
    static Value dictionary(std::initializer_list<Entry> entries = {});
    static Value dictionaryOf(Entries entries);

    Kind kind() const { return static_cast<Kind>(m_storage.index()); }
    bool isNull() const { return kind() == Kind::Null; }
    bool isString() const { return kind() == Kind::String; }
    bool isNumber() const { return kind() == Kind::Number; }
    bool isDate() const { return kind() == Kind::Date; }
    bool isData() const { return kind() == Kind::Data; }
    bool isArray() const { return kind() == Kind::Array; }
    bool isDictionary() const { return kind() == Kind::Dictionary; }
    // The framework's class name of this kind, for messages: "NSString", "NSNull", "NSArray" ...
    const char* className() const;

    // Typed access that does not raise: null when the value is of another kind.
    const std::string* stringIf() const;
    const Number* numberIf() const;

    // Typed access that raises platform::Exception when the value is of another kind, as a message sent to an
    // object that does not understand it raises (for example a string operation on the null object).
    const std::string& string() const;
    const Number& number() const;
    double dateValue() const;
    const Bytes& bytes() const;

    // Arrays and dictionaries: the number of elements or entries. Raises for other kinds.
    std::size_t count() const;

    // --- Arrays. Every operation raises when the value is not an array.
    const Array& elements() const;
    // The element at `index`; raises NSRangeException when out of range.
    const Value& at(std::size_t index) const;
    // A writable reference to the element at `index` (the array's storage is made unique first).
    Value& mutableAt(std::size_t index);
    void append(Value element);
    // Raises when `element` is absent.
    void append(const std::optional<Value>& element);
    // Raises when `element` is absent or `index` is beyond the end.
    void insert(const std::optional<Value>& element, std::size_t index);
    void removeAt(std::size_t index);
    void replaceAt(std::size_t index, const std::optional<Value>& element);
    void removeAllElements();
    void reserve(std::size_t capacity);

    // --- Dictionaries. Every operation raises when the value is not a dictionary.
    // Room for `capacity` entries, so that a record built key by key holds no unused room.
    void reserveEntries(std::size_t capacity);
    const Entries& entries() const;
    // The value for `key`, or null (absent) when there is none.
    const Value* find(std::string_view key) const;
    std::optional<Value> objectForKey(std::string_view key) const;
    // Sets or replaces the value for `key`; a new key is appended at the end of the insertion order.
    void setObject(Value value, std::string_view key);
    // Raises NSInvalidArgumentException when `value` is absent.
    void setObject(const std::optional<Value>& value, std::string_view key);
    void removeObjectForKey(std::string_view key);
    std::vector<std::string> keys() const;

    // Equality as the framework's isEqual: a string never equals a number, numbers compare by value, containers
    // compare deeply (dictionaries regardless of insertion order).
    bool operator==(const Value& other) const;

    // The framework's old-style description, as "%@" prints it: strings bare at top level and quoted inside
    // collections when they need it, "( ... )" for arrays, "{ key = value; }" for dictionaries, "<null>".
    std::string description() const;
    // The start of the description: a collection stops describing its elements once `limit` bytes are written, so
    // the text is the full description's first bytes and at most one element's description longer than `limit`.
    // The cost follows what is written, not the size of the collection.
    std::string description(std::size_t limit) const;
    // The description(limit) of a list of `count` elements, made one at a time by `elementAt` only as far as the
    // description reaches.
    static std::string describeList(
        std::size_t count, const std::function<Value(std::size_t)>& elementAt, std::size_t limit);

private:
    struct DateValue {
        double seconds;
    };
    using DataStore = CopyOnWrite<Bytes>;
    using ArrayStore = CopyOnWrite<Array>;
    using DictionaryStore = CopyOnWrite<Entries>;
    using Storage = std::variant<std::monostate, std::string, Number, DateValue, DataStore, ArrayStore, DictionaryStore>;

    Array& mutableElements();
    Entries& mutableEntries();
    [[noreturn]] void raiseWrongKind(const char* operation) const;
    void describe(std::string& out, int indent, bool nested, std::size_t limit) const;
    template<typename ElementAt>
    static void describeArray(
        std::string& out, int indent, bool nested, std::size_t count, const ElementAt& elementAt, std::size_t limit);

    Storage m_storage;
};

// Reads `key` of `dictionary` as a string, or absent when the key is missing or holds another kind.
const std::string* stringForKey(const Value& dictionary, std::string_view key);

}
