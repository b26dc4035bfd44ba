#include "devserver/Exchange.h"

#include "platform/Json.h"

#include <httplib.h>

namespace devserver {

Reply jsonReply(const platform::Value& value, int status)
{
    return { status, "application/json", platform::writeJson(value) };
}

Reply errorReply(int status, std::string_view message)
{
    return jsonReply(platform::Value::dictionary({ { "ReturnStatus", "1" },
                         { "error", platform::Value::dictionary({ { "Message", message } }) } }),
        status);
}

platform::Value jsonBody(const httplib::Request& request)
{
    try {
        return platform::readJson(request.body);
    } catch (const platform::JsonError& error) {
        throw BadRequest("the request body is not JSON: " + error.reason());
    }
}

}
