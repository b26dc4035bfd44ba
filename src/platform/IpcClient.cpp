#include "platform/IpcClient.h"

#include "platform/IpcServiceSocket.h"
#include "platform/IpcSocket.h"
#include "platform/IpcWire.h"

#include <cerrno>
#include <cstring>
#include <poll.h>

namespace platform::ipc {

namespace {

SendResult failed(std::string where, int error)
{
    return { error, std::move(where), std::strerror(error) };
}

}

SendResult sendMessage(std::string_view serviceName, const Object& message)
{
    const Frame frame = encodeFrame(message);
    std::string where;
    try {
        where = serviceSocketPath(serviceName).string();
    } catch (const ListenError& error) {
        return { ENOENT, {}, error.what() };
    }
    int error = 0;
    auto socket = connectUnixSocket(where, error);
    if (error != 0)
        return failed(where, -error);
    std::span<const std::uint8_t> rest(frame.bytes);
    std::span<const int> descriptors(frame.descriptors);
    while (!rest.empty()) {
        const long sent = sendWithDescriptors(socket.get(), rest, descriptors);
        if (sent == -EAGAIN || sent == -EINTR) {
            pollfd writable { socket.get(), POLLOUT, 0 };
            ::poll(&writable, 1, -1);
            continue;
        }
        if (sent < 0)
            return failed(where, static_cast<int>(-sent));
        rest = rest.subspan(static_cast<std::size_t>(sent));
        descriptors = {};
    }
    return { 0, where, {} };
}

}
