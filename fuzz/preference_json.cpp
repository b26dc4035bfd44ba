// Domain files and `korbanhold defaults` input are outside input: any bytes must give a value or a clear error,
// and every value read must be written back and read again as the same value. A domain file read piece by piece,
// its lists handed over element by element (as the service's database imports it), must give what the whole file
// gives, or the same error.

#include "platform/PreferenceJson.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <string_view>

using platform::Value;

namespace {

// Reals may come back one unit in the last place away (the JSON parser of Boost 1.81 does not round every decimal
// text correctly), and a real with a whole value comes back as an integer, as the framework's serialiser writes it
// without a fraction. Everything else must be exactly the same, kinds and key order included.
bool closeEnough(double a, double b)
{
    return a == b || std::fabs(a - b) <= 4e-16 * std::fmax(std::fabs(a), std::fabs(b));
}

bool same(const Value& a, const Value& b)
{
    if (a.kind() != b.kind())
        return false;
    switch (a.kind()) {
    case Value::Kind::Number:
        if (a.number().isFloatingPoint() || b.number().isFloatingPoint())
            return closeEnough(a.number().doubleValue(), b.number().doubleValue());
        return a.number() == b.number();
    case Value::Kind::Date:
        return closeEnough(a.dateValue(), b.dateValue());
    case Value::Kind::Array:
        if (a.count() != b.count())
            return false;
        for (std::size_t i = 0; i < a.count(); ++i) {
            if (!same(a.at(i), b.at(i)))
                return false;
        }
        return true;
    case Value::Kind::Dictionary:
        if (a.count() != b.count())
            return false;
        for (std::size_t i = 0; i < a.count(); ++i) {
            if (a.entries()[i].first != b.entries()[i].first || !same(a.entries()[i].second, b.entries()[i].second))
                return false;
        }
        return true;
    default:
        return a == b;
    }
}

// Puts the elements handed over back into their lists.
class CollectedLists : public platform::PreferenceListReceiver {
public:
    void beginList(std::optional<std::string_view> key) override
    {
        m_list = &m_lists[key ? std::optional<std::string>(*key) : std::nullopt];
        m_list->clear();
    }
    void element(const Value& element) override { m_list->push_back(element); }

    Value document(const platform::StreamedPreferences& streamed) const
    {
        if (!streamed.listsStreamed)
            return streamed.value;
        if (streamed.value.isArray())
            return Value::arrayOf(m_lists.at(std::nullopt));
        Value whole = streamed.value;
        if (whole.isDictionary()) {
            for (const auto& [key, member] : streamed.value.entries()) {
                if (member.isArray())
                    whole.setObject(Value::arrayOf(m_lists.at(key)), key);
            }
        }
        return whole;
    }

private:
    std::map<std::optional<std::string>, platform::Array> m_lists;
    platform::Array* m_list = nullptr;
};

// The outcome of reading a domain file: its value, or the error's text.
struct Outcome {
    std::optional<Value> value;
    std::string error;
};

Outcome readWhole(std::string_view text)
{
    try {
        return { platform::readPreferenceJson(text), {} };
    } catch (const platform::JsonError& error) {
        return { std::nullopt, error.what() };
    }
}

Outcome readInPieces(std::string_view text, std::size_t pieceSize)
{
    CollectedLists lists;
    try {
        platform::PreferenceStreamReader reader(lists);
        for (std::size_t offset = 0; offset < text.size(); offset += pieceSize)
            reader.write(text.substr(offset, pieceSize));
        return { lists.document(reader.finish()), {} };
    } catch (const platform::JsonError& error) {
        return { std::nullopt, error.what() };
    }
}

bool sameValue(const Outcome& a, const Outcome& b)
{
    if (a.value.has_value() != b.value.has_value())
        return false;
    // Equal values, and their members in the same order.
    return !a.value || (*a.value == *b.value && a.value->description() == b.value->description());
}

// Read in one piece, the text gives the same value or the same error. Read in pieces of a size the input chooses (so
// that pieces end inside tokens, escapes and UTF-8 sequences), it gives the same value or an error too; the parser
// may then name a malformed escape differently.
void requireTheSameOutcome(std::string_view text)
{
    const Outcome whole = readWhole(text);
    const Outcome onePiece = readInPieces(text, std::max<std::size_t>(text.size(), 1));
    if (!sameValue(whole, onePiece) || whole.error != onePiece.error)
        std::abort();
    const std::size_t pieceSize = text.empty() ? 1 : 1 + static_cast<unsigned char>(text.back()) % 17;
    if (!sameValue(whole, readInPieces(text, pieceSize)))
        std::abort();
}

}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    requireTheSameOutcome(text);
    platform::JsonReadOptions readOptions;
    readOptions.allowFragments = true;
    platform::JsonWriteOptions writeOptions;
    writeOptions.allowFragments = true;
    Value value;
    std::string written;
    try {
        value = platform::readPreferenceJson(text, readOptions);
        written = platform::writePreferenceJson(value, writeOptions);
    } catch (const platform::JsonError&) {
        return 0; // not JSON, a malformed tag, or a number too large for a double
    }
    if (!same(platform::readPreferenceJson(written, readOptions), value))
        std::abort();
    return 0;
}
