// Feeds arbitrary bytes to the REST client as a reply body: through the JSON request's completion step (which must
// end in status 0 with the parsed reply or status 5 with a JSON error, never anything else) and, on success, through
// the façade's completion step of every server method (whose decoders may raise only where the bare-value decoders
// meet "ReturnStatus", and whose callback must then get the record with status 0).

#include "messages/Operations.h"
#include "platform/Log.h"
#include "rest/FacadeCompletion.h"
#include "rest/JsonRequest.h"

#include <cstdint>
#include <cstdlib>
#include <type_traits>

using namespace messages;

namespace {

void require(bool condition)
{
    if (!condition)
        std::abort();
}

template<typename Operation>
void complete(const Operation& operation, const rest::TransportObject& reply)
{
    using Response = typename Operation::ResponseRecord;
    if constexpr (!std::is_same_v<Response, StreamedReply>) {
        int calls = 0;
        const auto step = rest::completionStep<Response>(
            operation.decoder, [&](const rest::Outcome<Response>& object, rest::TransportStatus status) {
                ++calls;
                require(status == rest::TransportSucceeded && std::holds_alternative<Response>(object));
            });
        const platform::Value& json = std::get<platform::Value>(reply);
        const bool holdsStatus = json.isDictionary() && json.find("ReturnStatus");
        try {
            step(reply, rest::TransportSucceeded);
            require(calls == 1);
        } catch (const platform::Exception&) {
            require(std::is_same_v<Response, ReplyValue> && holdsStatus && calls == 0);
        }
    }
}

}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // The completion steps log every reply; a fuzzing run would drown in them.
    [[maybe_unused]] static const bool silenced = (platform::setLogSink([](std::string_view) {}), true);
    const platform::Bytes body(data, data + size);
    int calls = 0;
    const std::string url = "http://127.0.0.1:1/KorbanholdRestService/x";
    rest::finishJsonRequest(url, std::nullopt, body, [&](const rest::TransportObject& object, rest::TransportStatus status) {
        ++calls;
        if (status == rest::TransportReplyNotJson) {
            const auto* error = std::get_if<platform::Error>(&object);
            require(error && error->domain == platform::cocoaErrorDomain);
            return;
        }
        require(status == rest::TransportSucceeded);
        const auto* json = std::get_if<platform::Value>(&object);
        require(json && (json->isDictionary() || json->isArray()));
        forEachOperation([&](const auto& operation) { complete(operation, object); });
    });
    require(calls == 1);
    return 0;
}
