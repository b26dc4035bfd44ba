#pragma once

// Where the REST web service is, and URLs as the URL system's string parser makes them.
//
// The base URL is "http://" + host + "/KorbanholdRestService/", the host (with its port) taken from
// $KORBANHOLD_SERVER on every call, "localhost:8080" when it is unset or empty.

#include <optional>
#include <string>
#include <string_view>

namespace rest {

std::string baseURL();

// `text` as a URL, or nothing when it holds a character that URLs are not written with: anything but letters,
// digits, "-._~:/?#[]@!$&'()*+,;=" and "%" followed by two hexadecimal digits. Spaces, control characters and
// every non-ASCII character (such as U+FFFC) make no URL; nothing is escaped on the caller's behalf.
std::optional<std::string> urlWithString(std::string_view text);

// The absolute URL of a server method: the base URL followed by `path` as it is (no slash inserted, no escaping),
// parsed by urlWithString.
std::optional<std::string> absoluteURL(std::string_view path);

// The path of a URL: what follows the scheme and authority, up to a "?" or "#", with its percent escapes decoded.
// Nothing when `text` is not a URL.
std::optional<std::string> pathOfURL(std::string_view text);

}
