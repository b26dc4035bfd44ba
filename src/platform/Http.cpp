#include "platform/Http.h"

#include <strings.h>

namespace platform::http {

namespace {

bool sameFieldName(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

// The value of the first field named `name` in a const or mutable header list.
template<typename HeaderList>
auto findField(HeaderList& headers, std::string_view name) -> decltype(&headers.front().second)
{
    for (auto& [field, value] : headers) {
        if (sameFieldName(field, name))
            return &value;
    }
    return nullptr;
}

}

const std::string* findHeader(const Headers& headers, std::string_view name)
{
    return findField(headers, name);
}

void Request::setValue(std::string value, std::string_view field)
{
    if (std::string* existing = findField(headers, field))
        *existing = std::move(value);
    else
        headers.emplace_back(std::string(field), std::move(value));
}

void Request::addValue(std::string_view value, std::string_view field)
{
    if (std::string* existing = findField(headers, field))
        existing->append(",").append(value);
    else
        headers.emplace_back(std::string(field), std::string(value));
}

std::string Response::description() const
{
    Value fields = Value::dictionary();
    for (const auto& [field, value] : allHeaderFields)
        fields.setObject(Value(value), field);
    return "{ URL: " + url + " } { Status Code: " + std::to_string(statusCode) + ", Headers " + fields.description()
        + " }";
}

std::string describe(const Response& response)
{
    return response.description();
}

std::string describe(const std::optional<Response>& response)
{
    return response ? response->description() : "(null)";
}

}
