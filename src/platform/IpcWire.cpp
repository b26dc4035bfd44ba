#include "platform/IpcWire.h"

#include <sys/stat.h>

#include <bit>
#include <cstring>
#include <string>

namespace platform::ipc {

namespace {

    constexpr std::uint8_t magic[4] = { 'K', 'I', 'P', 'C' };
    constexpr std::uint8_t wireVersion = 1;
    constexpr std::uint8_t messageFrame = 1;

    // One byte before every value says its type. The numbers are part of the wire format: never reuse one.
    enum class Tag : std::uint8_t {
        Null = 0x00,
        False = 0x01,
        True = 0x02,
        Int64 = 0x03,
        UInt64 = 0x04,
        Double = 0x05,
        Date = 0x06,
        Data = 0x07,
        String = 0x08,
        Uuid = 0x09,
        FileDescriptor = 0x0A,
        SharedMemory = 0x0B,
        Array = 0x0C,
        Dictionary = 0x0D,
        Endpoint = 0x0E,
    };

    std::string hexByte(std::uint8_t byte)
    {
        static const char digits[] = "0123456789abcdef";
        return std::string("0x") + digits[byte >> 4] + digits[byte & 0xF];
    }

    // The limits that bound the work a message can cause, checked the same way when encoding and decoding.
    void checkNesting(std::size_t depth)
    {
        if (depth > limits::maxDepth)
            throw WireError("containers nest deeper than " + std::to_string(limits::maxDepth) + " levels");
    }

    void countValue(std::size_t& values)
    {
        if (++values > limits::maxValues)
            throw WireError("the message holds more than " + std::to_string(limits::maxValues) + " values");
    }

    class Reader {
    public:
        Reader(std::span<const std::uint8_t> bytes, std::vector<OwnedFd>& descriptors)
            : m_bytes(bytes)
            , m_descriptors(descriptors)
            , m_used(descriptors.size(), false)
        {
        }

        Object message()
        {
            Object message = value(1);
            if (message.type() != Type::Dictionary)
                throw WireError(std::string("the message is a ") + typeName(message.type()) + ", not a dictionary");
            if (m_position != m_bytes.size())
                throw WireError(std::to_string(m_bytes.size() - m_position) + " bytes follow the message");
            for (std::size_t i = 0; i < m_used.size(); ++i) {
                if (!m_used[i])
                    throw WireError("descriptor " + std::to_string(i) + " is announced but used by no value");
            }
            return message;
        }

    private:
        std::span<const std::uint8_t> take(std::size_t count)
        {
            if (count > m_bytes.size() - m_position)
                throw WireError("a value runs past the end of the frame");
            auto bytes = m_bytes.subspan(m_position, count);
            m_position += count;
            return bytes;
        }

        template<typename Integer>
        Integer integer()
        {
            Integer result = 0;
            auto bytes = take(sizeof(Integer));
            for (std::size_t i = 0; i < sizeof(Integer); ++i)
                result |= static_cast<Integer>(static_cast<Integer>(bytes[i]) << (8 * i));
            return result;
        }

        std::string text(const char* what)
        {
            auto bytes = take(integer<std::uint32_t>());
            std::string result(bytes.begin(), bytes.end());
            if (result.find('\0') != std::string::npos)
                throw WireError(std::string("a ") + what + " holds a NUL character");
            return result;
        }

        // The count of a container, checked against the bytes left (every element takes at least one byte) before
        // anything is allocated for it.
        std::size_t elementCount()
        {
            const std::size_t count = integer<std::uint32_t>();
            if (count > m_bytes.size() - m_position)
                throw WireError("a container announces " + std::to_string(count) + " elements that cannot fit the frame");
            return count;
        }

        OwnedFd descriptorAt(std::uint16_t index)
        {
            if (index >= m_descriptors.size())
                throw WireError("descriptor index " + std::to_string(index) + " is beyond the "
                    + std::to_string(m_descriptors.size()) + " descriptors of the frame");
            if (m_used[index])
                throw WireError("descriptor " + std::to_string(index) + " is used twice");
            m_used[index] = true;
            return std::move(m_descriptors[index]);
        }

        Object value(std::size_t depth)
        {
            countValue(m_values);
            const std::uint8_t tag = integer<std::uint8_t>();
            switch (static_cast<Tag>(tag)) {
            case Tag::Null:
                return Object();
            case Tag::False:
                return Object::boolean(false);
            case Tag::True:
                return Object::boolean(true);
            case Tag::Int64:
                return Object::int64(integer<std::int64_t>());
            case Tag::UInt64:
                return Object::uint64(integer<std::uint64_t>());
            case Tag::Double:
                return Object::real(std::bit_cast<double>(integer<std::uint64_t>()));
            case Tag::Date:
                return Object::date(integer<std::int64_t>());
            case Tag::Data: {
                auto bytes = take(integer<std::uint32_t>());
                return Object::data(Bytes(bytes.begin(), bytes.end()));
            }
            case Tag::String:
                return Object::string(text("string"));
            case Tag::Uuid: {
                Uuid uuid;
                auto bytes = take(uuid.size());
                std::copy(bytes.begin(), bytes.end(), uuid.begin());
                return Object::uuid(uuid);
            }
            case Tag::FileDescriptor:
                return Object::fileDescriptor(descriptorAt(integer<std::uint16_t>()));
            case Tag::SharedMemory:
                return sharedMemory();
            case Tag::Array:
            case Tag::Dictionary:
                checkNesting(depth);
                return static_cast<Tag>(tag) == Tag::Array ? array(depth) : dictionary(depth);
            case Tag::Endpoint:
                return Object::endpoint(text("endpoint name"));
            }
            throw WireError("unknown value type " + hexByte(tag));
        }

        Object sharedMemory()
        {
            OwnedFd memoryFile = descriptorAt(integer<std::uint16_t>());
            const std::uint64_t size = integer<std::uint64_t>();
            struct stat status {};
            if (::fstat(memoryFile.get(), &status) != 0 || !S_ISREG(status.st_mode)
                || static_cast<std::uint64_t>(status.st_size) < size)
                throw WireError("shared memory of " + std::to_string(size) + " bytes is not backed by a file that large");
            return Object::sharedMemory(std::move(memoryFile), size);
        }

        Object array(std::size_t depth)
        {
            const std::size_t count = elementCount();
            // Nothing is reserved for the announced count: an element costs far more in memory than its smallest
            // encoding (one byte), so memory must follow the elements that actually decode, not the count.
            Array elements;
            for (std::size_t i = 0; i < count; ++i)
                elements.push_back(value(depth + 1));
            return Object::array(std::move(elements));
        }

        Object dictionary(std::size_t depth)
        {
            const std::size_t count = elementCount();
            Dictionary entries;
            for (std::size_t i = 0; i < count; ++i) {
                std::string key = text("key");
                if (entries.contains(key))
                    throw WireError("the key \"" + key + "\" appears twice in one dictionary");
                Object element = value(depth + 1);
                entries.emplace(std::move(key), std::move(element));
            }
            return Object::dictionary(std::move(entries));
        }

        std::span<const std::uint8_t> m_bytes;
        std::size_t m_position = 0;
        std::vector<OwnedFd>& m_descriptors;
        std::vector<bool> m_used;
        std::size_t m_values = 0;
    };

    class Writer {
    public:
        Frame frame(const Object& message)
        {
            if (message.type() != Type::Dictionary)
                throw WireError(std::string("a message must be a dictionary, not a ") + typeName(message.type()));
            m_bytes.resize(frameHeaderSize);
            value(message, 1);
            const std::size_t bodySize = m_bytes.size() - frameHeaderSize;
            if (bodySize > limits::maxBodySize)
                throw WireError("the message takes " + std::to_string(bodySize) + " bytes, more than the limit of "
                    + std::to_string(limits::maxBodySize));
            if (m_descriptors.size() > limits::maxDescriptors)
                throw WireError("the message carries " + std::to_string(m_descriptors.size())
                    + " descriptors, more than the limit of " + std::to_string(limits::maxDescriptors));
            std::copy(std::begin(magic), std::end(magic), m_bytes.begin());
            m_bytes[4] = wireVersion;
            m_bytes[5] = messageFrame;
            put<std::uint16_t>(static_cast<std::uint16_t>(m_descriptors.size()), 6);
            put<std::uint32_t>(static_cast<std::uint32_t>(bodySize), 8);
            return Frame { std::move(m_bytes), std::move(m_descriptors), message };
        }

    private:
        template<typename Integer>
        void put(Integer value, std::size_t at)
        {
            for (std::size_t i = 0; i < sizeof(Integer); ++i)
                m_bytes[at + i] = static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> (8 * i));
        }

        template<typename Integer>
        void append(Integer value)
        {
            m_bytes.resize(m_bytes.size() + sizeof(Integer));
            put(value, m_bytes.size() - sizeof(Integer));
        }

        void tag(Tag tag) { append(static_cast<std::uint8_t>(tag)); }

        void sized(std::span<const std::uint8_t> bytes)
        {
            if (bytes.size() > limits::maxBodySize)
                throw WireError("a value of " + std::to_string(bytes.size()) + " bytes exceeds the frame limit");
            append(static_cast<std::uint32_t>(bytes.size()));
            m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
        }

        void text(std::string_view text) { sized({ reinterpret_cast<const std::uint8_t*>(text.data()), text.size() }); }

        void descriptor(int fd)
        {
            if (m_descriptors.size() >= limits::maxDescriptors)
                throw WireError("the message carries more than " + std::to_string(limits::maxDescriptors) + " descriptors");
            append(static_cast<std::uint16_t>(m_descriptors.size()));
            m_descriptors.push_back(fd);
        }

        void value(const Object& object, std::size_t depth)
        {
            countValue(m_values);
            switch (object.type()) {
            case Type::Null:
                return tag(Tag::Null);
            case Type::Bool:
                return tag(object.boolValue() ? Tag::True : Tag::False);
            case Type::Int64:
                tag(Tag::Int64);
                return append(object.int64Value());
            case Type::UInt64:
                tag(Tag::UInt64);
                return append(object.uint64Value());
            case Type::Double:
                tag(Tag::Double);
                return append(std::bit_cast<std::uint64_t>(object.doubleValue()));
            case Type::Date:
                tag(Tag::Date);
                return append(object.dateValue());
            case Type::Data:
                tag(Tag::Data);
                return sized(*object.dataIf());
            case Type::String:
                tag(Tag::String);
                return text(*object.stringIf());
            case Type::Uuid:
                tag(Tag::Uuid);
                m_bytes.insert(m_bytes.end(), object.uuidIf()->begin(), object.uuidIf()->end());
                return;
            case Type::FileDescriptor:
                tag(Tag::FileDescriptor);
                return descriptor(object.descriptor());
            case Type::SharedMemory:
                tag(Tag::SharedMemory);
                descriptor(object.sharedMemoryIf()->descriptor->get());
                return append(object.sharedMemoryIf()->size);
            case Type::Array:
            case Type::Dictionary:
                checkNesting(depth);
                return object.type() == Type::Array ? array(*object.arrayIf(), depth) : dictionary(*object.dictionaryIf(), depth);
            case Type::Endpoint:
                tag(Tag::Endpoint);
                return text(*object.endpointIf());
            case Type::Connection:
            case Type::Error:
                break;
            }
            throw WireError(std::string("a ") + typeName(object.type()) + " value cannot leave its process");
        }

        void array(const Array& elements, std::size_t depth)
        {
            tag(Tag::Array);
            append(static_cast<std::uint32_t>(elements.size()));
            for (const auto& element : elements)
                value(element, depth + 1);
        }

        void dictionary(const Dictionary& entries, std::size_t depth)
        {
            tag(Tag::Dictionary);
            append(static_cast<std::uint32_t>(entries.size()));
            for (const auto& [key, element] : entries) {
                text(key);
                value(element, depth + 1);
            }
        }

        Bytes m_bytes;
        std::vector<int> m_descriptors;
        std::size_t m_values = 0;
    };

}

FrameHeader decodeFrameHeader(std::span<const std::uint8_t, frameHeaderSize> header)
{
    if (!std::equal(std::begin(magic), std::end(magic), header.begin()))
        throw WireError("the frame does not start with the magic \"KIPC\"");
    if (header[4] != wireVersion)
        throw WireError("unsupported wire version " + std::to_string(header[4]));
    if (header[5] != messageFrame)
        throw WireError("unknown frame type " + hexByte(header[5]));
    FrameHeader result;
    result.descriptorCount = static_cast<std::uint16_t>(header[6] | header[7] << 8);
    result.bodySize = static_cast<std::uint32_t>(header[8]) | static_cast<std::uint32_t>(header[9]) << 8
        | static_cast<std::uint32_t>(header[10]) << 16 | static_cast<std::uint32_t>(header[11]) << 24;
    if (result.bodySize > limits::maxBodySize)
        throw WireError("a frame body of " + std::to_string(result.bodySize) + " bytes exceeds the limit of "
            + std::to_string(limits::maxBodySize));
    if (result.descriptorCount > limits::maxDescriptors)
        throw WireError("a frame announces " + std::to_string(result.descriptorCount)
            + " descriptors, more than the limit of " + std::to_string(limits::maxDescriptors));
    return result;
}

void checkDescriptorCount(const FrameHeader& header, std::size_t received)
{
    if (header.descriptorCount != received)
        throw WireError("the frame announces " + std::to_string(header.descriptorCount) + " descriptors but "
            + std::to_string(received) + " came with it");
}

Object decodeFrameBody(std::span<const std::uint8_t> body, std::vector<OwnedFd> descriptors)
{
    return Reader(body, descriptors).message();
}

Object decodeFrame(std::span<const std::uint8_t> frame, std::vector<OwnedFd> descriptors)
{
    if (frame.size() < frameHeaderSize)
        throw WireError("the frame stops inside its header");
    const FrameHeader header = decodeFrameHeader(frame.first<frameHeaderSize>());
    checkDescriptorCount(header, descriptors.size());
    const auto body = frame.subspan(frameHeaderSize);
    if (body.size() != header.bodySize)
        throw WireError("the frame announces a body of " + std::to_string(header.bodySize) + " bytes but "
            + std::to_string(body.size()) + " follow its header");
    return decodeFrameBody(body, std::move(descriptors));
}

Frame encodeFrame(const Object& message) { return Writer().frame(message); }

}
