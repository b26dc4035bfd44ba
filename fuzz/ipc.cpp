// Feeds arbitrary bytes to the IPC frame decoder as one frame that came with as many descriptors as its header
// announces (each a duplicate of /dev/null, so that descriptor values decode too). Every message that decodes must
// encode again, and goes through the conversion to framework objects and back.
#include "platform/Exception.h"
#include "platform/IpcWire.h"
#include "service/XPCParse.h"

#include <fcntl.h>

#include <cstdint>
#include <cstdlib>

using namespace platform::ipc;
using platform::OwnedFd;

static std::vector<OwnedFd> announcedDescriptors(const uint8_t* data, size_t size)
{
    std::vector<OwnedFd> descriptors;
    if (size < frameHeaderSize)
        return descriptors;
    const std::size_t count = data[6] | data[7] << 8;
    for (std::size_t i = 0; i < count && i < limits::maxDescriptors; ++i)
        descriptors.emplace_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    return descriptors;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Object message;
    try {
        message = decodeFrame({ data, size }, announcedDescriptors(data, size));
    } catch (const WireError&) {
        return 0;
    }
    encodeFrame(message);
    try {
        if (auto object = service::XPCParse::objectWithXPCObject(message)) {
            object->description();
            if (!service::XPCParse::newXPCObject(*object))
                std::abort();
        }
    } catch (const platform::Exception&) {
        // A list whose element converts to nothing before the last one raises, as it should.
    }
    return 0;
}
