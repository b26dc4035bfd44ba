#pragma once

// Where the REST web service is, and URLs as the URL system's string parser makes them.
//
// The base URL is "http://" + host + "/KorbanholdRestService/", the host (with its port) taken from
// $KORBANHOLD_SERVER on every call, "localhost:8080" when it is unset or empty. The variable holds "host[:port]" or
// the URL "http://host[:port]/"; the programs check it when they start (configuredServer), so that a wrong one is
// an error naming the variable rather than requests to a URL that cannot work.

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace rest {

// $KORBANHOLD_SERVER holds neither "host[:port]" nor "http://host[:port]/". what() says so, naming the variable.
class ServerSettingError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// "host[:port]" from `text` when it is one, or the URL "http://host[:port]" (with or without its closing slash);
// nothing for anything else. A host is a name or an IPv4 address of letters, digits, "-" and ".", or an IPv6
// address in brackets; a port is 1 to 65535.
std::optional<std::string> serverAddress(std::string_view text);

// The server's "host[:port]" from $KORBANHOLD_SERVER, "localhost:8080" when it is unset or empty. Raises
// ServerSettingError when the variable holds anything else.
std::string configuredServer();

// The base URL of the configured server. A $KORBANHOLD_SERVER that configuredServer refuses is used as it stands.
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
