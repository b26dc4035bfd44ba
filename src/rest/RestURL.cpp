#include "rest/RestURL.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace rest {

namespace {

constexpr std::string_view defaultServer = "localhost:8080";

bool isHexDigit(char character)
{
    return std::isxdigit(static_cast<unsigned char>(character)) != 0;
}

bool isURLCharacter(char character)
{
    constexpr std::string_view punctuation = "-._~:/?#[]@!$&'()*+,;=";
    const auto byte = static_cast<unsigned char>(character);
    return byte < 0x80 && (std::isalnum(byte) || punctuation.find(character) != std::string_view::npos);
}

int hexValue(char digit)
{
    return std::isdigit(static_cast<unsigned char>(digit)) ? digit - '0' : std::tolower(digit) - 'a' + 10;
}

std::string percentDecoded(std::string_view text)
{
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (text[index] == '%') {
            decoded.push_back(static_cast<char>(hexValue(text[index + 1]) * 16 + hexValue(text[index + 2])));
            index += 2;
        } else {
            decoded.push_back(text[index]);
        }
    }
    return decoded;
}

// The URL without its scheme ("http:") and authority ("//host:port"), when it has them.
std::string_view withoutSchemeAndAuthority(std::string_view url)
{
    const auto colon = url.find(':');
    if (colon != std::string_view::npos && colon > 0 && url.substr(0, colon).find('/') == std::string_view::npos
        && std::isalpha(static_cast<unsigned char>(url.front())))
        url.remove_prefix(colon + 1);
    if (url.starts_with("//")) {
        const auto pathStart = url.find('/', 2);
        url.remove_prefix(pathStart == std::string_view::npos ? url.size() : pathStart);
    }
    return url;
}

bool isHostName(std::string_view host)
{
    if (host.starts_with('[') && host.ends_with(']') && host.size() > 2)
        return host.substr(1, host.size() - 2).find_first_not_of("0123456789abcdefABCDEF:.") == std::string_view::npos;
    return !host.empty() && host.front() != '-' && host.front() != '.'
        && std::ranges::all_of(host, [](char character) {
               const auto byte = static_cast<unsigned char>(character);
               return byte < 0x80 && (std::isalnum(byte) || character == '-' || character == '.');
           });
}

bool isPort(std::string_view port)
{
    if (port.empty() || port.size() > 5 || port.front() == '0'
        || port.find_first_not_of("0123456789") != std::string_view::npos)
        return false;
    return std::stoi(std::string(port)) <= 65535;
}

std::string_view environmentServer()
{
    const char* server = std::getenv("KORBANHOLD_SERVER");
    return server && *server ? std::string_view(server) : defaultServer;
}

}

std::optional<std::string> serverAddress(std::string_view text)
{
    if (text.starts_with("http://")) {
        text.remove_prefix(7);
        if (text.ends_with('/'))
            text.remove_suffix(1);
    }
    // The port follows the last colon that is not inside an IPv6 address's brackets.
    const auto colon = text.rfind(':');
    const bool hasPort = colon != std::string_view::npos && text.find(']', colon) == std::string_view::npos;
    const std::string_view host = hasPort ? text.substr(0, colon) : text;
    if (!isHostName(host) || (hasPort && !isPort(text.substr(colon + 1))))
        return std::nullopt;
    return std::string(text);
}

std::string configuredServer()
{
    const std::string_view server = environmentServer();
    if (auto address = serverAddress(server))
        return std::move(*address);
    throw ServerSettingError("KORBANHOLD_SERVER must be host[:port] or http://host[:port]/, not \""
        + std::string(server) + "\"");
}

std::string baseURL()
{
    const std::string_view server = environmentServer();
    const auto address = serverAddress(server);
    return "http://" + (address ? *address : std::string(server)) + "/KorbanholdRestService/";
}

std::optional<std::string> urlWithString(std::string_view text)
{
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (text[index] == '%') {
            if (index + 2 >= text.size() || !isHexDigit(text[index + 1]) || !isHexDigit(text[index + 2]))
                return std::nullopt;
            index += 2;
        } else if (!isURLCharacter(text[index])) {
            return std::nullopt;
        }
    }
    return std::string(text);
}

std::optional<std::string> absoluteURL(std::string_view path)
{
    return urlWithString(baseURL() + std::string(path));
}

std::optional<std::string> pathOfURL(std::string_view text)
{
    const auto url = urlWithString(text);
    if (!url)
        return std::nullopt;
    std::string_view path = withoutSchemeAndAuthority(*url);
    path = path.substr(0, path.find_first_of("?#"));
    return percentDecoded(path);
}

}
