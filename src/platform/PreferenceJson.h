#pragma once

// The JSON form of preference values: the text of a domain file, and what `korbanhold defaults` reads and prints.
//
// It is the JSON of platform::Value (see Json.h) plus a tagged form for the value kinds that JSON lacks:
//   a date      {"$date": <seconds since 1970-01-01 UTC, a JSON number>}
//   data        {"$data": "<standard Base64 with padding>"}
// An object with exactly one member named "$date", "$data" or "$dictionary" is always a tag. A dictionary that
// would look like one (a single key that is one of these three names) is written wrapped as
//   {"$dictionary": {<the dictionary>}}
// so that every value reads back as the kind it was written as. A tag whose content does not fit (a "$date" that is
// not a number, "$data" that is not Base64, a "$dictionary" that is not an object) is an error, like any other
// malformed text. docs/preferences.md describes the form for people who edit domain files by hand.

#include "platform/Json.h"
#include "platform/Value.h"

#include <exception>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

// Raises JsonError when the text is not JSON or a tag is malformed.
Value readPreferenceJson(std::string_view text, const JsonReadOptions& options = {});

// Raises JsonError when the value holds something no JSON can carry (a real that is not finite, text that is not
// UTF-8), or is not a dictionary or array and fragments are not allowed.
std::string writePreferenceJson(const Value& value, const JsonWriteOptions& options = {});

// Receives the elements of the lists at the top of a preference document that a PreferenceStreamReader reads, each as
// the value it stands for (its tags read).
class PreferenceListReceiver {
public:
    // A list begins: the member of the top-level dictionary named `key`, or the top-level list (no key). A key that
    // comes again begins its list again: its earlier elements are to be forgotten.
    virtual void beginList(std::optional<std::string_view> key) = 0;
    virtual void element(const Value& element) = 0;

protected:
    ~PreferenceListReceiver() = default;
};

// A preference document as PreferenceStreamReader::finish() gives it.
struct StreamedPreferences {
    // What readPreferenceJson gives for the whole text, except that when `listsStreamed`, each list at its top stands
    // as an empty list: its elements went to the receiver. Otherwise (the document was a "$dictionary" tag) the value
    // holds its lists itself and what the receiver got is to be forgotten.
    Value value;
    bool listsStreamed = true;
};

// Reads a preference document given in pieces, as readPreferenceJson reads it whole, with the same result and the
// same error, but hands the elements of the lists at its top to `receiver` as they are read (JsonStreamReader), so
// that a domain whose bulk is one list is read in memory for one element. An element whose tag is malformed is not
// handed over; its error is raised at the end unless a later member of the same name replaced its list, as the
// whole reader would.
class PreferenceStreamReader : private JsonListReceiver {
public:
    explicit PreferenceStreamReader(PreferenceListReceiver& receiver, const JsonReadOptions& options = {});

    // Raises JsonError when the text so far is not JSON, and whatever the receiver raises.
    void write(std::string_view bytes) { m_json.write(bytes); }
    StreamedPreferences finish();

private:
    void beginList(std::optional<std::string_view> key) override;
    void element(Value element) override;

    PreferenceListReceiver& m_receiver;
    JsonReadOptions m_options;
    JsonStreamReader m_json;
    // The key of the list being read; absent for the top-level list.
    std::optional<std::string> m_listKey;
    // The error of the first malformed tag in each list that has one.
    std::map<std::optional<std::string>, std::exception_ptr> m_errors;
};

}
