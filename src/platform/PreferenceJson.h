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

#include <string>
#include <string_view>

namespace platform {

// Raises JsonError when the text is not JSON or a tag is malformed.
Value readPreferenceJson(std::string_view text, const JsonReadOptions& options = {});

// Raises JsonError when the value holds something no JSON can carry (a real that is not finite, text that is not
// UTF-8), or is not a dictionary or array and fragments are not allowed.
std::string writePreferenceJson(const Value& value, const JsonWriteOptions& options = {});

}
