#include "platform/Json.h"

#include "platform/Utf8.h"

#include <boost/json/monotonic_resource.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>

#include <cmath>

namespace platform {

JsonError::JsonError(std::string reason)
    : Exception("NSInvalidArgumentException", std::move(reason))
{
}

Error JsonError::error() const { return Error { cocoaErrorDomain, jsonErrorCode, reason() }; }

// ---------------------------------------------------------------- Reading

static Value fromBoost(const boost::json::value& json)
{
    switch (json.kind()) {
    case boost::json::kind::null:
        return Value::null();
    case boost::json::kind::bool_:
        return Value::boolean(json.get_bool());
    case boost::json::kind::int64:
        return Value::integer(json.get_int64());
    case boost::json::kind::uint64:
        return Value::unsignedInteger(json.get_uint64());
    case boost::json::kind::double_:
        return Value::real(json.get_double());
    case boost::json::kind::string: {
        const auto& text = json.get_string();
        return Value(std::string_view(text.data(), text.size()));
    }
    case boost::json::kind::array: {
        Array elements;
        elements.reserve(json.get_array().size());
        for (const auto& element : json.get_array())
            elements.push_back(fromBoost(element));
        return Value::arrayOf(std::move(elements));
    }
    case boost::json::kind::object: {
        Value dictionary = Value::dictionary();
        for (const auto& member : json.get_object())
            dictionary.setObject(fromBoost(member.value()), std::string_view(member.key().data(), member.key().size()));
        return dictionary;
    }
    }
    return Value::null();
}

Value readJson(std::string_view text, const JsonReadOptions& options)
{
    boost::json::parse_options parseOptions;
    parseOptions.max_depth = options.maxDepth;
    boost::json::monotonic_resource resource;
    boost::system::error_code error;
    const boost::json::value json = boost::json::parse(text, error, &resource, parseOptions);
    if (error)
        throw JsonError("The data couldn't be read because it isn't in the correct format. (" + error.message() + ")");
    if (!options.allowFragments && !json.is_object() && !json.is_array())
        throw JsonError("JSON text did not start with array or object and option to allow fragments not set.");
    return fromBoost(json);
}

// ---------------------------------------------------------------- Writing

namespace {

class Writer {
public:
    explicit Writer(bool pretty) : m_pretty(pretty) { }

    void write(const Value& value, int depth)
    {
        switch (value.kind()) {
        case Value::Kind::Null:
            m_out += "null";
            return;
        case Value::Kind::String:
            writeString(value.string());
            return;
        case Value::Kind::Number:
            writeNumber(value.number());
            return;
        case Value::Kind::Date:
            throw JsonError("Invalid type in JSON write (__NSDate)");
        case Value::Kind::Data:
            throw JsonError("Invalid type in JSON write (NSConcreteData)");
        case Value::Kind::Array:
            writeContainer('[', ']', value.elements(), depth, [&](const Value& element) { write(element, depth + 1); });
            return;
        case Value::Kind::Dictionary:
            writeContainer('{', '}', value.entries(), depth, [&](const Entry& entry) {
                writeString(entry.first);
                m_out += m_pretty ? " : " : ":";
                write(entry.second, depth + 1);
            });
            return;
        }
    }

    std::string take() { return std::move(m_out); }

private:
    template<typename Items, typename WriteItem>
    void writeContainer(char open, char close, const Items& items, int depth, WriteItem writeItem)
    {
        m_out += open;
        if (m_pretty)
            m_out += '\n';
        bool first = true;
        for (const auto& item : items) {
            if (!first)
                m_out += m_pretty ? ",\n" : ",";
            first = false;
            indent(depth + 1);
            writeItem(item);
        }
        if (m_pretty) {
            // The framework leaves an empty line inside an empty container: "{\n\n}".
            m_out += '\n';
            indent(depth);
        }
        m_out += close;
    }

    void indent(int depth)
    {
        if (m_pretty)
            m_out.append(static_cast<std::size_t>(depth) * 2, ' ');
    }

    void writeNumber(const Number& number)
    {
        if (number.isBoolean()) {
            m_out += number.boolValue() ? "true" : "false";
            return;
        }
        if (number.isFloatingPoint() && !std::isfinite(number.doubleValue()))
            throw JsonError("Invalid number value (" + number.stringValue() + ") in JSON write");
        m_out += number.stringValue();
    }

    void writeString(std::string_view text)
    {
        if (!isValidUtf8(text))
            throw JsonError("Invalid string value (not UTF-8) in JSON write");
        static const char digits[] = "0123456789abcdef";
        m_out += '"';
        for (const char c : text) {
            switch (c) {
            case '"':
                m_out += "\\\"";
                break;
            case '\\':
                m_out += "\\\\";
                break;
            case '/':
                m_out += "\\/";
                break;
            case '\n':
                m_out += "\\n";
                break;
            case '\r':
                m_out += "\\r";
                break;
            case '\t':
                m_out += "\\t";
                break;
            case '\b':
                m_out += "\\b";
                break;
            case '\f':
                m_out += "\\f";
                break;
            default:
                if (static_cast<unsigned char>(c) < 0x20) {
                    m_out += "\\u00";
                    m_out += digits[(c >> 4) & 0xF];
                    m_out += digits[c & 0xF];
                } else {
                    m_out += c;
                }
            }
        }
        m_out += '"';
    }

    bool m_pretty;
    std::string m_out;
};

}

std::string writeJson(const Value& value, const JsonWriteOptions& options)
{
    if (!options.allowFragments && !value.isArray() && !value.isDictionary())
        throw JsonError("Invalid top-level type in JSON write");
    Writer writer(options.prettyPrinted);
    writer.write(value, 0);
    return writer.take();
}

bool isValidJsonObject(const Value& value)
{
    try {
        writeJson(value);
        return true;
    } catch (const JsonError&) {
        return false;
    }
}

}
