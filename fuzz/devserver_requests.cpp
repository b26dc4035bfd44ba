// Arbitrary request bodies for the devserver's methods: the first byte picks the method, the rest is the body.
// A body may be refused (BadRequest), never crash the server or corrupt its database.

#include "devserver/MethodTable.h"
#include "devserver/Store.h"

#include <httplib.h>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static devserver::Store store(":memory:");
    static const auto paths = devserver::methodPaths();
    if (size == 0)
        return 0;
    httplib::Request request;
    request.method = "POST";
    request.body.assign(reinterpret_cast<const char*>(data) + 1, size - 1);
    try {
        devserver::findMethod(paths[data[0] % paths.size()])(store, request);
    } catch (const devserver::BadRequest&) {
    }
    return 0;
}
