#pragma once

// JSON to and from platform::Value, with the framework serialiser's rules: objects become dictionaries (insertion
// order kept), integers keep their sign ("q", or "Q" beyond the signed range), reals are doubles ("d"), true and
// false are boolean numbers, null is the null object. Writing accepts only what JSON can hold (no dates, no data,
// no NaN or infinity, UTF-8 text only) and escapes "/" as "\/", as the framework does.

#include "platform/Error.h"
#include "platform/Exception.h"
#include "platform/Value.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

// Raised by readJson and writeJson; carries the error that a completion hands on.
class JsonError : public Exception {
public:
    explicit JsonError(std::string reason);
    Error error() const;
};

struct JsonReadOptions {
    // Accept a top-level value that is neither an object nor an array.
    bool allowFragments = false;
    // Deeper documents are refused rather than risking the stack.
    unsigned maxDepth = 256;
};

// Reads a JSON text in UTF-8, UTF-16 or UTF-32, with or without a byte-order mark (JsonEncoding.h).
Value readJson(std::string_view bytes, const JsonReadOptions& options = {});

// Receives the elements of the lists at the top of a document that a JsonStreamReader reads: the lists that are
// members of the top-level object, or the top-level value itself when it is a list.
class JsonListReceiver {
public:
    // A list begins: the member named `key`, or the top-level list (no key).
    virtual void beginList(std::optional<std::string_view> key) = 0;
    // The next element of the list that began last.
    virtual void element(Value element) = 0;

protected:
    ~JsonListReceiver() = default;
};

// Reads a JSON text given in pieces, with readJson's rules and errors. With a receiver, the elements of the lists at
// the top of the document (JsonListReceiver) go to it as they are read instead of being kept, and the document
// holds an empty list in their place: a document whose bulk is such a list is read in memory for one element.
// Text in UTF-16 or UTF-32 is kept until the end and read then.
class JsonStreamReader {
public:
    explicit JsonStreamReader(const JsonReadOptions& options = {}, JsonListReceiver* receiver = nullptr);
    ~JsonStreamReader();
    JsonStreamReader(const JsonStreamReader&) = delete;
    JsonStreamReader& operator=(const JsonStreamReader&) = delete;

    // The next piece of the text. Raises JsonError as soon as the text read so far cannot be JSON, and whatever the
    // receiver raises; the reader is of no further use then.
    void write(std::string_view bytes);
    // The end of the text: the document, or JsonError.
    Value finish();

private:
    class Parser;
    void start(std::string_view bytes);
    void parse(std::string_view text, bool more);

    std::unique_ptr<Parser> m_parser;
    JsonReadOptions m_options;
    bool m_encodingKnown = false;
    // Held back: the first bytes until there are enough to tell the encoding, or all of a text that is not UTF-8.
    bool m_holdAll = false;
    std::string m_held;
};

struct JsonWriteOptions {
    // Two-space indentation and " : " between key and value, as the framework's pretty-printed option writes.
    bool prettyPrinted = false;
    // Accept a top-level value that is neither a dictionary nor an array.
    bool allowFragments = false;
    // Write "/" as "\/" as the framework's serialiser does; text meant for people reads better without it.
    bool escapeSlashes = true;
};

std::string writeJson(const Value& value, const JsonWriteOptions& options = {});

// True when writeJson would succeed with the default options.
bool isValidJsonObject(const Value& value);

}
