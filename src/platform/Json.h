#pragma once

// JSON to and from platform::Value, with the framework serialiser's rules: objects become dictionaries (insertion
// order kept), integers keep their sign ("q", or "Q" beyond the signed range), reals are doubles ("d"), true and
// false are boolean numbers, null is the null object. Writing accepts only what JSON can hold (no dates, no data,
// no NaN or infinity, UTF-8 text only) and escapes "/" as "\/", as the framework does.

#include "platform/Error.h"
#include "platform/Exception.h"
#include "platform/Value.h"

#include <memory>
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

struct JsonWriteOptions {
    // Two-space indentation and " : " between key and value, as the framework's pretty-printed option writes.
    bool prettyPrinted = false;
    // Accept a top-level value that is neither a dictionary nor an array.
    bool allowFragments = false;
    // Write "/" as "\/" as the framework's serialiser does; text meant for people reads better without it.
    bool escapeSlashes = true;
};

std::string writeJson(const Value& value, const JsonWriteOptions& options = {});

// Writes an array one element at a time into one text, exactly as writeJson writes the whole array: a long list
// need not exist as one value beside its text. append raises JsonError as writeJson would, and the text is then of
// no use.
class JsonArrayWriter {
public:
    explicit JsonArrayWriter(const JsonWriteOptions& options = {});
    ~JsonArrayWriter();
    JsonArrayWriter(const JsonArrayWriter&) = delete;
    JsonArrayWriter& operator=(const JsonArrayWriter&) = delete;

    void append(const Value& element);
    // The text with the array closed; the writer is then spent.
    std::string finish();

private:
    class Text;
    std::unique_ptr<Text> m_text;
};

// True when writeJson would succeed with the default options.
bool isValidJsonObject(const Value& value);

}
