#include "platform/Json.h"

#include "platform/JsonEncoding.h"

#include "platform/Utf8.h"

#include <boost/json/basic_parser_impl.hpp>

#include <charconv>
#include <utility>
#include <cmath>
#include <vector>

namespace platform {

JsonError::JsonError(std::string reason)
    : Exception("NSInvalidArgumentException", std::move(reason))
{
}

Error JsonError::error() const { return Error { cocoaErrorDomain, jsonErrorCode, reason() }; }

// ---------------------------------------------------------------- Reading

namespace {

using boost::system::error_code;

// Builds the Value straight from the parser's events. Reals are converted from their own text with
// std::from_chars, because the parser's conversion of Boost 1.81 can be one unit in the last place off, and a value
// must read back exactly as it was written. With a receiver, the elements of the lists at the top of the document go
// to it as they are completed, and each such list is added as an empty one.
class ValueBuilder {
public:
    explicit ValueBuilder(JsonListReceiver* receiver) : m_receiver(receiver) { }

    static constexpr std::size_t max_array_size = -1;
    static constexpr std::size_t max_object_size = -1;
    static constexpr std::size_t max_string_size = -1;
    static constexpr std::size_t max_key_size = -1;

    bool on_document_begin(error_code&) { return true; }
    bool on_document_end(error_code&) { return true; }

    bool on_array_begin(error_code&)
    {
        const bool atTop = m_open.empty() || (m_open.size() == 1 && m_open.front().isObject);
        if (!m_receiver || !atTop)
            return open(false);
        m_receiver->beginList(m_open.empty() ? std::nullopt : std::optional<std::string_view>(m_open.front().key));
        open(false);
        m_open.back().toReceiver = true;
        return true;
    }
    bool on_array_end(std::size_t, error_code&)
    {
        Array elements = std::move(m_open.back().elements);
        m_open.pop_back();
        return add(Value::arrayOf(std::move(elements)));
    }
    bool on_object_begin(error_code&) { return open(true); }
    bool on_object_end(std::size_t, error_code&)
    {
        // A repeated key keeps its first place and its last value.
        Entries entries = std::move(m_open.back().entries);
        m_open.pop_back();
        return add(Value::dictionaryOf(std::move(entries)));
    }

    bool on_key_part(std::string_view part, std::size_t, error_code&)
    {
        m_text += part;
        return true;
    }
    bool on_key(std::string_view part, std::size_t, error_code&)
    {
        m_text += part;
        m_open.back().key = takeText();
        return true;
    }
    bool on_string_part(std::string_view part, std::size_t, error_code&)
    {
        m_text += part;
        return true;
    }
    bool on_string(std::string_view part, std::size_t, error_code&)
    {
        m_text += part;
        return add(Value(takeText()));
    }

    bool on_number_part(std::string_view part, error_code&)
    {
        m_text += part;
        return true;
    }
    bool on_int64(std::int64_t value, std::string_view, error_code&)
    {
        m_text.clear();
        return add(Value::integer(value));
    }
    bool on_uint64(std::uint64_t value, std::string_view, error_code&)
    {
        m_text.clear();
        return add(Value::unsignedInteger(value));
    }
    bool on_double(double parsed, std::string_view part, error_code& error)
    {
        m_text += part;
        const std::string text = takeText();
        double value = 0;
        const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
        // Out of range means too small (the parser's value, zero or nearly, stands) or too large, which no JSON
        // value stands for.
        if (result.ec == std::errc::result_out_of_range)
            value = parsed;
        if (!std::isfinite(value)) {
            error = boost::json::error::exponent_overflow;
            return false;
        }
        return add(Value::real(value));
    }
    bool on_bool(bool value, error_code&) { return add(Value::boolean(value)); }
    bool on_null(error_code&) { return add(Value::null()); }
    bool on_comment_part(std::string_view, error_code&) { return true; }
    bool on_comment(std::string_view, error_code&) { return true; }

    Value take() { return std::move(m_result); }

private:
    // An array or object being read; only the member that matches its kind is used.
    struct Container {
        bool isObject = false;
        bool toReceiver = false; // its elements go to the receiver

        Array elements;
        Entries entries;
        std::string key;
    };

    bool open(bool isObject)
    {
        m_open.emplace_back();
        m_open.back().isObject = isObject;
        return true;
    }

    std::string takeText()
    {
        std::string text = std::move(m_text);
        m_text.clear();
        return text;
    }

    bool add(Value value)
    {
        if (m_open.empty()) {
            m_result = std::move(value);
            return true;
        }
        auto& container = m_open.back();
        if (container.toReceiver)
            m_receiver->element(std::move(value));
        else if (container.isObject)
            container.entries.emplace_back(std::move(container.key), std::move(value));
        else
            container.elements.push_back(std::move(value));
        return true;
    }

    JsonListReceiver* m_receiver;
    std::vector<Container> m_open;
    std::string m_text;
    Value m_result;
};

}

class JsonStreamReader::Parser : public boost::json::basic_parser<ValueBuilder> {
public:
    Parser(const boost::json::parse_options& options, JsonListReceiver* receiver)
        : basic_parser(options, receiver)
    {
    }
};

JsonStreamReader::JsonStreamReader(const JsonReadOptions& options, JsonListReceiver* receiver)
    : m_options(options)
{
    boost::json::parse_options parseOptions;
    parseOptions.max_depth = options.maxDepth;
    m_parser = std::make_unique<Parser>(parseOptions, receiver);
}

JsonStreamReader::~JsonStreamReader() = default;

void JsonStreamReader::write(std::string_view bytes)
{
    if (m_holdAll) {
        m_held += bytes;
        return;
    }
    if (m_encodingKnown) {
        parse(bytes, true);
        return;
    }
    // The encoding shows in the first four bytes.
    if (m_held.empty() && bytes.size() >= 4) {
        start(bytes);
        return;
    }
    m_held += bytes;
    if (m_held.size() >= 4)
        start(std::exchange(m_held, {}));
}

void JsonStreamReader::start(std::string_view bytes)
{
    m_encodingKnown = true;
    if (const auto mark = utf8MarkLength(bytes)) {
        parse(bytes.substr(*mark), true);
        return;
    }
    m_holdAll = true;
    m_held = bytes;
}

void JsonStreamReader::parse(std::string_view text, bool more)
{
    error_code error;
    const std::size_t used = m_parser->write_some(more, text.empty() ? "" : text.data(), text.size(), error);
    if (!error && used < text.size())
        error = boost::json::error::extra_data;
    if (error)
        throw JsonError("The data couldn't be read because it isn't in the correct format. (" + error.message() + ")");
}

Value JsonStreamReader::finish()
{
    if (m_encodingKnown && !m_holdAll) {
        parse({}, false);
    } else {
        std::string transcoded;
        parse(jsonTextAsUtf8(m_held, transcoded), false);
        m_held = {};
    }
    Value value = m_parser->handler().take();
    if (!m_options.allowFragments && !value.isDictionary() && !value.isArray())
        throw JsonError("JSON text did not start with array or object and option to allow fragments not set.");
    return value;
}

Value readJson(std::string_view bytes, const JsonReadOptions& options)
{
    JsonStreamReader reader(options);
    reader.write(bytes);
    return reader.finish();
}

// ---------------------------------------------------------------- Writing

namespace {

class Writer {
public:
    explicit Writer(const JsonWriteOptions& options) : m_pretty(options.prettyPrinted), m_escapeSlashes(options.escapeSlashes) { }

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

    std::string take() { return std::exchange(m_out, std::string()); }
    std::size_t size() const { return m_out.size(); }
    void reserve(std::size_t size) { m_out.reserve(size); }

    // A container in three steps, so that an array can also be written one element at a time (JsonArrayWriter).
    void open(char opening)
    {
        m_out += opening;
        if (m_pretty)
            m_out += '\n';
    }

    void beginItem(bool first, int depth)
    {
        if (!first)
            m_out += m_pretty ? ",\n" : ",";
        indent(depth + 1);
    }

    void close(char closing, int depth)
    {
        if (m_pretty) {
            // The framework leaves an empty line inside an empty container: "{\n\n}".
            m_out += '\n';
            indent(depth);
        }
        m_out += closing;
    }

private:
    template<typename Items, typename WriteItem>
    void writeContainer(char opening, char closing, const Items& items, int depth, WriteItem writeItem)
    {
        open(opening);
        bool first = true;
        for (const auto& item : items) {
            beginItem(first, depth);
            first = false;
            writeItem(item);
        }
        close(closing, depth);
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
                m_out += m_escapeSlashes ? "\\/" : "/";
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
    bool m_escapeSlashes;
    std::string m_out;
};

}

std::string writeJson(const Value& value, const JsonWriteOptions& options)
{
    if (!options.allowFragments && !value.isArray() && !value.isDictionary())
        throw JsonError("Invalid top-level type in JSON write");
    Writer writer(options);
    writer.write(value, 0);
    return writer.take();
}

// The text is written in pieces of about a mebibyte and joined once at the end into a text of exactly its size: a
// text grown by doubling would, at its last growth, hold its old and its new storage, up to twice the final size.
class JsonArrayWriter::Text {
public:
    static constexpr std::size_t pieceSize = std::size_t(1) << 20;

    explicit Text(const JsonWriteOptions& options) : writer(options) { writer.open('['); }
    Writer writer;
    std::vector<std::string> pieces;
    bool empty = true;
};

JsonArrayWriter::JsonArrayWriter(const JsonWriteOptions& options) : m_text(std::make_unique<Text>(options)) { }

JsonArrayWriter::~JsonArrayWriter() = default;

void JsonArrayWriter::append(const Value& element)
{
    m_text->writer.beginItem(m_text->empty, 0);
    m_text->empty = false;
    m_text->writer.write(element, 1);
    if (m_text->writer.size() >= Text::pieceSize) {
        m_text->pieces.push_back(m_text->writer.take());
        // Room for the piece and the element that ends it, so that a piece is not grown by doubling either.
        m_text->writer.reserve(Text::pieceSize + Text::pieceSize / 16);
    }
}

std::string JsonArrayWriter::finish()
{
    m_text->writer.close(']', 0);
    std::vector<std::string>& pieces = m_text->pieces;
    pieces.push_back(m_text->writer.take());
    std::size_t size = 0;
    for (const std::string& piece : pieces)
        size += piece.size();
    std::string text;
    text.reserve(size);
    for (std::string& piece : pieces) {
        text += piece;
        std::string().swap(piece);
    }
    return text;
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
