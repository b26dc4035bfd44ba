#include "platform/IpcWire.h"

#include "platform/helpers/RawFrames.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

using namespace platform::ipc;
using platform::OwnedFd;
using ipctest::dictionaryHolding;
using ipctest::rawFrame;

namespace {

OwnedFd openDevNull() { return OwnedFd(::open("/dev/null", O_RDONLY | O_CLOEXEC)); }

// Sends a frame through the decoder as the receiving side would: descriptors duplicated as the kernel passes them.
Object roundTrip(const Object& message)
{
    Frame frame = encodeFrame(message);
    std::vector<OwnedFd> descriptors;
    for (int fd : frame.descriptors)
        descriptors.push_back(OwnedFd::duplicate(fd));
    return decodeFrame(frame.bytes, std::move(descriptors));
}

std::string decodeError(const Bytes& frame, std::vector<OwnedFd> descriptors = {})
{
    try {
        decodeFrame(frame, std::move(descriptors));
    } catch (const WireError& error) {
        return error.what();
    }
    return "";
}

Object nested(std::size_t depth)
{
    Object object = Object::array();
    for (std::size_t i = 1; i < depth; ++i)
        object = Object::array({ object });
    return object;
}

int openDescriptorCount()
{
    int count = 0;
    for (int fd = 0; fd < 4096; ++fd)
        count += ::fcntl(fd, F_GETFD) != -1;
    return count;
}

}

TEST(IpcWire, EveryTravellingTypeComesBackEqual)
{
    Object message = Object::dictionary();
    message.set("null", Object());
    message.set("false", Object::boolean(false));
    message.set("true", Object::boolean(true));
    message.set("int64", Object::int64(-42));
    message.set("uint64", Object::uint64(18446744073709551615ull));
    message.set("double", Object::real(-0.25));
    message.set("date", Object::date(-1500000000123456789));
    message.set("data", Object::data({ 0, 1, 2, 255 }));
    message.set("string", Object::string("zoë"));
    message.set("uuid", Object::uuid({ 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16 }));
    message.set("endpoint", Object::endpoint("Ulmaridon.SyncFilesXpcService"));
    message.set("list", Object::array({ Object::int64(1), Object::array({ Object::string("x") }), Object::dictionary() }));
    EXPECT_EQ(roundTrip(message), message);
}

TEST(IpcWire, DescriptorsTravelBesideTheBytesAndStillReachTheirFile)
{
    int pipeEnds[2];
    ASSERT_EQ(::pipe2(pipeEnds, O_CLOEXEC), 0);
    OwnedFd readEnd(pipeEnds[0]), writeEnd(pipeEnds[1]);
    Object message = Object::dictionary();
    message.set("pipe", *Object::fileDescriptor(writeEnd.get()));
    message.set("memory", *Object::sharedMemory(Bytes { 'h', 'i' }));

    Object received = roundTrip(message);
    ASSERT_EQ(received.find("pipe")->type(), Type::FileDescriptor);
    EXPECT_NE(received.find("pipe")->descriptor(), writeEnd.get());
    ASSERT_EQ(::write(received.find("pipe")->descriptor(), "x", 1), 1);
    char byte = 0;
    ASSERT_EQ(::read(readEnd.get(), &byte, 1), 1);
    EXPECT_EQ(byte, 'x');
    EXPECT_EQ(received.find("memory")->sharedMemoryBytes(), (Bytes { 'h', 'i' }));
}

TEST(IpcWire, AStringStopsAtItsFirstNulCharacterAsACStringDoes)
{
    EXPECT_EQ(*Object::string(std::string("ab\0cd", 5)).stringIf(), "ab");
}

TEST(IpcWire, OnlyDictionariesAreMessages)
{
    EXPECT_THROW(encodeFrame(Object::array()), WireError);
    EXPECT_EQ(decodeError(rawFrame({ 0x02 })), "the message is a bool, not a dictionary");
}

TEST(IpcWire, ConnectionsAndErrorEventsCannotLeaveTheirProcess)
{
    Object message = Object::dictionary();
    message.set("error", Object::error(ErrorEvent::ConnectionInvalid));
    EXPECT_THROW(encodeFrame(message), WireError);
}

TEST(IpcWire, AFrameWithAnUnknownMagicIsRefused)
{
    Bytes frame = rawFrame({ 0x0D, 0, 0, 0, 0 });
    frame[0] = 'X';
    EXPECT_EQ(decodeError(frame), "the frame does not start with the magic \"KIPC\"");
}

TEST(IpcWire, AFrameOfUnknownTypeIsRefused)
{
    Bytes frame = rawFrame({ 0x0D, 0, 0, 0, 0 });
    frame[5] = 7;
    EXPECT_EQ(decodeError(frame), "unknown frame type 0x07");
}

TEST(IpcWire, AValueOfUnknownTypeIsRefused)
{
    EXPECT_EQ(decodeError(rawFrame(dictionaryHolding({ 0x7F }))), "unknown value type 0x7f");
}

TEST(IpcWire, AnOversizedFrameIsRefusedFromItsHeaderAlone)
{
    Bytes header = rawFrame({});
    const std::uint32_t size = limits::maxBodySize + 1;
    std::memcpy(header.data() + 8, &size, 4);
    EXPECT_THROW(decodeFrameHeader(std::span<const std::uint8_t, frameHeaderSize>(header.data(), frameHeaderSize)), WireError);
}

TEST(IpcWire, TooManyAnnouncedDescriptorsAreRefusedFromTheHeaderAlone)
{
    Bytes header = rawFrame({}, limits::maxDescriptors + 1);
    EXPECT_THROW(decodeFrameHeader(std::span<const std::uint8_t, frameHeaderSize>(header.data(), frameHeaderSize)), WireError);
}

TEST(IpcWire, AValueWhoseLengthLiesIsRefused)
{
    EXPECT_EQ(decodeError(rawFrame(dictionaryHolding({ 0x08, 0xE8, 0x03, 0, 0, 'a', 'b', 'c' }))),
        "a value runs past the end of the frame");
}

TEST(IpcWire, AContainerAnnouncingMoreElementsThanFitIsRefusedBeforeAllocating)
{
    EXPECT_THAT(decodeError(rawFrame(dictionaryHolding({ 0x0C, 0xFF, 0xFF, 0xFF, 0x7F }))),
        testing::HasSubstr("cannot fit the frame"));
}

TEST(IpcWire, ATruncatedFrameIsRefused)
{
    Bytes frame = encodeFrame(Object::dictionary({ { "key", Object::string("value") } })).bytes;
    frame.resize(frame.size() - 2);
    EXPECT_THAT(decodeError(frame), testing::HasSubstr("follow its header"));
    EXPECT_EQ(decodeError(Bytes(frame.begin(), frame.begin() + 5)), "the frame stops inside its header");
}

TEST(IpcWire, BytesAfterTheMessageAreRefused)
{
    EXPECT_EQ(decodeError(rawFrame({ 0x0D, 0, 0, 0, 0, 0x00 })), "1 bytes follow the message");
}

TEST(IpcWire, NestingUpToTheLimitTravelsAndOneLevelMoreIsRefused)
{
    EXPECT_NO_THROW(roundTrip(Object::dictionary({ { "k", nested(limits::maxDepth - 1) } })));
    Object tooDeep = Object::dictionary({ { "k", nested(limits::maxDepth) } });
    EXPECT_THROW(encodeFrame(tooDeep), WireError);

    Bytes body = { 0x0D, 1, 0, 0, 0, 1, 0, 0, 0, 'k' };
    for (std::size_t i = 0; i < limits::maxDepth; ++i)
        body.insert(body.end(), { 0x0C, 1, 0, 0, 0 });
    body.push_back(0x00);
    EXPECT_EQ(decodeError(rawFrame(body)), "containers nest deeper than 32 levels");
}

TEST(IpcWire, MoreValuesThanTheLimitAreRefused)
{
    Bytes body = { 0x0D, 1, 0, 0, 0, 1, 0, 0, 0, 'k', 0x0C };
    const std::uint32_t count = limits::maxValues;
    for (int i = 0; i < 4; ++i)
        body.push_back(static_cast<std::uint8_t>(count >> (8 * i)));
    body.insert(body.end(), count, 0x00);
    EXPECT_THAT(decodeError(rawFrame(body)), testing::HasSubstr("more than 65536 values"));
}

TEST(IpcWire, ADuplicatedKeyIsRefused)
{
    Bytes body = { 0x0D, 2, 0, 0, 0, 1, 0, 0, 0, 'a', 0x02, 1, 0, 0, 0, 'a', 0x01 };
    EXPECT_EQ(decodeError(rawFrame(body)), "the key \"a\" appears twice in one dictionary");
}

TEST(IpcWire, DescriptorsMustMatchWhatTheFrameAnnouncesAndBeUsedOnce)
{
    std::vector<OwnedFd> one;
    one.push_back(openDevNull());
    const int before = openDescriptorCount();
    EXPECT_THAT(decodeError(rawFrame({ 0x0D, 0, 0, 0, 0 }), std::move(one)), testing::HasSubstr("announces 0 descriptors but 1"));

    std::vector<OwnedFd> unused;
    unused.push_back(openDevNull());
    EXPECT_EQ(decodeError(rawFrame({ 0x0D, 0, 0, 0, 0 }, 1), std::move(unused)),
        "descriptor 0 is announced but used by no value");

    std::vector<OwnedFd> twice;
    twice.push_back(openDevNull());
    Bytes body = { 0x0D, 2, 0, 0, 0, 1, 0, 0, 0, 'a', 0x0A, 0, 0, 1, 0, 0, 0, 'b', 0x0A, 0, 0 };
    EXPECT_EQ(decodeError(rawFrame(body, 1), std::move(twice)), "descriptor 0 is used twice");

    EXPECT_THAT(decodeError(rawFrame(dictionaryHolding({ 0x0A, 3, 0 }))), testing::HasSubstr("beyond the 0 descriptors"));
    EXPECT_EQ(openDescriptorCount(), before - 1) << "every descriptor of a refused frame is closed";
}

TEST(IpcWire, SharedMemoryLargerThanItsFileIsRefused)
{
    std::vector<OwnedFd> descriptors;
    descriptors.push_back(OwnedFd(::memfd_create("test", MFD_CLOEXEC)));
    EXPECT_THAT(decodeError(rawFrame(dictionaryHolding({ 0x0B, 0, 0, 10, 0, 0, 0, 0, 0, 0, 0 }), 1), std::move(descriptors)),
        testing::HasSubstr("not backed by a file that large"));
}

TEST(IpcWire, AMessageBeyondTheSizeLimitCannotBeEncoded)
{
    Object message = Object::dictionary({ { "data", Object::data(Bytes(limits::maxBodySize, 0)) } });
    EXPECT_THROW(encodeFrame(message), WireError);
}

TEST(IpcWire, MoreDescriptorsThanTheLimitCannotBeEncoded)
{
    OwnedFd devNull = openDevNull();
    Object message = Object::dictionary();
    for (std::size_t i = 0; i <= limits::maxDescriptors; ++i)
        message.set("fd" + std::to_string(i), *Object::fileDescriptor(devNull.get()));
    EXPECT_THROW(encodeFrame(message), WireError);
}
