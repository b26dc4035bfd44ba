#pragma once

// The wire format of IPC messages: one frame per message, a fixed header followed by the encoded message
// dictionary; descriptors travel beside the bytes as SCM_RIGHTS ancillary data. docs/ipc-wire-format.md describes
// the format byte by byte.
//
// Every decoder entry point takes outside input: it checks every length against what is there and every limit
// below, and raises WireError (never crashes, never reads out of bounds) when a frame is malformed.

#include "platform/OwnedFd.h"
#include "platform/IpcObject.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <vector>

namespace platform::ipc {

namespace limits {
    // The largest frame body, in bytes.
    inline constexpr std::size_t maxBodySize = 16u * 1024 * 1024;
    // How deep containers may nest; the message dictionary itself is at depth 1.
    inline constexpr std::size_t maxDepth = 32;
    // How many values one message may hold, the message dictionary and every key's value included.
    inline constexpr std::size_t maxValues = 65536;
    // How many descriptors one message may carry.
    inline constexpr std::size_t maxDescriptors = 64;
    // How long a frame may take from its first byte to its last; $KORBANHOLD_IPC_FRAME_TIMEOUT_MS overrides it.
    inline constexpr std::chrono::seconds frameTimeout { 30 };
    // How many peers a server serves at once; beyond them, new connections are refused.
    inline constexpr std::size_t maxConnections = 64;
}

inline constexpr std::size_t frameHeaderSize = 12;

// A malformed frame, or a message that cannot be framed. what() says what is wrong, in one line.
class WireError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct FrameHeader {
    std::uint32_t bodySize = 0;
    std::uint16_t descriptorCount = 0;
};

// Checks a frame header (magic, version, frame type, the limits) and gives its sizes.
FrameHeader decodeFrameHeader(std::span<const std::uint8_t, frameHeaderSize> header);

// Raises WireError unless `received` descriptors are what `header` announces.
void checkDescriptorCount(const FrameHeader& header, std::size_t received);

// Decodes a frame body into its message dictionary. `descriptors` are the descriptors that came with the frame, in
// order; each must be used by exactly one value. Descriptors that end up in no value are closed.
Object decodeFrameBody(std::span<const std::uint8_t> body, std::vector<OwnedFd> descriptors);

// Decodes one whole frame, header and body, from one buffer that holds exactly that frame.
Object decodeFrame(std::span<const std::uint8_t> frame, std::vector<OwnedFd> descriptors);

// An encoded message, ready to send. `message` keeps the descriptors open until the frame has gone.
struct Frame {
    Bytes bytes;
    std::vector<int> descriptors;
    Object message;
};

// Encodes a message dictionary into one frame. Raises WireError when the message is not a dictionary, holds a
// connection or an error event (which cannot leave their process), or breaks a limit.
Frame encodeFrame(const Object& message);

}
