#include "devserver/Exchange.h"

#include "devserver/WireRecords.h"
#include "platform/Json.h"

#include <httplib.h>

namespace devserver {

Reply jsonReply(const platform::Value& value, int status)
{
    return { status, "application/json", platform::writeJson(value) };
}

platform::Value errorValue(std::string_view message)
{
    return platform::Value::dictionary({ { "Message", message } });
}

Reply errorReply(int status, std::string_view message)
{
    // The two keys of the plainest reply record of the protocol.
    return jsonReply(messages::encode(messages::BareStatusReply { platform::Value("1"), errorValue(message) }), status);
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
