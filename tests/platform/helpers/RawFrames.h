#pragma once

// Frames built byte by byte, for tests that feed a decoder or a server what no encoder would write.

#include "platform/IpcObject.h"

#include <cstdint>

namespace ipctest {

inline platform::ipc::Bytes rawHeader(std::uint32_t bodySize, std::uint16_t descriptors = 0, std::uint8_t frameType = 1)
{
    platform::ipc::Bytes bytes = { 'K', 'I', 'P', 'C', 1, frameType, static_cast<std::uint8_t>(descriptors),
        static_cast<std::uint8_t>(descriptors >> 8) };
    for (int i = 0; i < 4; ++i)
        bytes.push_back(static_cast<std::uint8_t>(bodySize >> (8 * i)));
    return bytes;
}

inline platform::ipc::Bytes rawFrame(const platform::ipc::Bytes& body, std::uint16_t descriptors = 0)
{
    platform::ipc::Bytes bytes = rawHeader(static_cast<std::uint32_t>(body.size()), descriptors);
    bytes.insert(bytes.end(), body.begin(), body.end());
    return bytes;
}

// The body of a dictionary with one entry "k" whose value is the given encoded bytes.
inline platform::ipc::Bytes dictionaryHolding(const platform::ipc::Bytes& value)
{
    platform::ipc::Bytes body = { 0x0D, 1, 0, 0, 0, 1, 0, 0, 0, 'k' };
    body.insert(body.end(), value.begin(), value.end());
    return body;
}

}
