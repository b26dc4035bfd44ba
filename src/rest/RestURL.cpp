#include "rest/RestURL.h"

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

}

std::string baseURL()
{
    const char* server = std::getenv("KORBANHOLD_SERVER");
    const std::string_view host = server && *server ? std::string_view(server) : defaultServer;
    return "http://" + std::string(host) + "/KorbanholdRestService/";
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
