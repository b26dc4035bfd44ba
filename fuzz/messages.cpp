// Feeds arbitrary bytes, parsed as JSON, to every reply decoder and every request-body reader of the server
// methods, and checks what comes out: nothing but the bare-value decoders may raise, and only when the reply holds
// "ReturnStatus"; every decoded record encodes and decodes back to itself; the batch decoder's round trip through
// JSON text, made element by element, keeps every element and key and gives what the trip of the whole reply
// gives; every request record a server reads encodes to a body JSON can carry.

#include "messages/Operations.h"
#include "platform/Json.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

using namespace messages;

namespace {

void require(bool condition)
{
    if (!condition)
        std::abort();
}

// Encoding a decoded record (or list of records) and decoding that again gives the same record. The JSON reader
// can give a number that is not equal to itself (it reads 0e400 as NaN); a record holding one cannot be compared.
template<typename RecordOrList>
void requireStableThroughEncoding(const RecordOrList& decoded)
{
    const platform::Value encoded = encode(decoded);
    if (!(encoded == encoded))
        return;
    require(encode(decode<RecordOrList>(encoded)) == encoded);
}

// The keys present in each element, which the batch decoder's round trip through JSON text must keep. (Values are
// not compared: the JSON reader rounds some long numbers differently on a second reading.)
std::vector<std::vector<std::string>> keysOfEach(const platform::Value& array)
{
    std::vector<std::vector<std::string>> keys;
    for (const platform::Value& element : array.elements())
        keys.push_back(element.keys());
    return keys;
}

// The batch reply decoded after a trip of the whole reply through pretty-printed JSON text.
template<typename Response>
Response afterTheWholeTrip(const platform::Value& json)
{
    try {
        return decode<Response>(platform::readJson(platform::writeJson(json, { .prettyPrinted = true })));
    } catch (const platform::JsonError&) {
        return {};
    }
}

template<typename Operation>
void exercise(const Operation& operation, const platform::Value& json)
{
    using Query = typename Operation::QueryRecord;
    using Response = typename Operation::ResponseRecord;

    // A request body as a server reads it, then the client's encoder over the record.
    const Query query = decode<Query>(json);
    requireStableThroughEncoding(query);
    require(platform::isValidJsonObject(operation.encoder(query)));

    if constexpr (std::is_same_v<Response, ReplyValue>) {
        const bool holdsStatus = json.isDictionary() && json.find("ReturnStatus");
        try {
            const ReplyValue result = operation.decoder(json);
            require(!holdsStatus && !result);
        } catch (const platform::Exception&) {
            require(holdsStatus);
        }
    } else if constexpr (IsRecordList<Response>::value) {
        const Response results = operation.decoder(json);
        // The round trip through JSON text keeps every element and key it can write; a reply it cannot write
        // leaves nothing.
        const Response expected = platform::isValidJsonObject(json) ? decode<Response>(json) : Response {};
        require(keysOfEach(encode(results)) == keysOfEach(encode(expected)));
        requireStableThroughEncoding(results);
        // The trip is made one element at a time: every value is the one the trip of the whole reply gives.
        require(encode(results).description() == encode(afterTheWholeTrip<Response>(json)).description());
    } else if constexpr (!std::is_same_v<Response, StreamedReply>) {
        requireStableThroughEncoding(operation.decoder(json));
    }
}

}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    platform::Value json;
    try {
        json = platform::readJson(
            std::string_view(reinterpret_cast<const char*>(data), size), { .allowFragments = true });
    } catch (const platform::JsonError&) {
        return 0;
    }
    forEachOperation([&](const auto& operation) { exercise(operation, json); });
    return 0;
}
