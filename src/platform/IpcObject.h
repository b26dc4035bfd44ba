#pragma once

// platform::ipc::Object: a value of the IPC layer, the unit that messages are made of.
//
// Types that travel between processes: dictionary (text keys, unique), array, bool, int64, uint64, double, string,
// date (signed nanoseconds since 1970), data, UUID (16 bytes), file descriptor, shared memory (a descriptor of a
// memory file and a size), endpoint (the name of a service one can connect to), and null.
// Types that stay in their process: connection (a handle of an open connection) and error (the events a
// connection delivers when it is interrupted, becomes invalid or is about to be terminated).
//
// Objects have value semantics; arrays and dictionaries share their storage between copies until one of them is
// changed. Descriptors are shared between copies and closed when the last copy goes.

#include "platform/OwnedFd.h"

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace platform::ipc {

class Connection;
class Object;

using Bytes = std::vector<std::uint8_t>;
using Uuid = std::array<std::uint8_t, 16>;
using Array = std::vector<Object>;
using Dictionary = std::map<std::string, Object, std::less<>>;

enum class Type : std::uint8_t {
    Null,
    Bool,
    Int64,
    UInt64,
    Double,
    Date,
    Data,
    String,
    Uuid,
    FileDescriptor,
    SharedMemory,
    Array,
    Dictionary,
    Endpoint,
    Connection,
    Error,
};

// The name of a type, for messages: "dictionary", "uint64", "shared memory" ...
const char* typeName(Type type);

// The events a connection delivers to its event handler instead of a message.
enum class ErrorEvent : std::uint8_t {
    // The peer went away; a connection made by service name may be used again and connects anew.
    ConnectionInterrupted,
    // The connection is over: cancelled, refused, or its peer gone for good. It is the last event delivered.
    ConnectionInvalid,
    // The serving process is about to exit.
    TerminationImminent,
};

// The key under which an error event carries its description text.
inline constexpr const char* errorDescriptionKey = "XPCErrorDescription";

struct SharedMemory {
    std::shared_ptr<const OwnedFd> descriptor;
    std::uint64_t size = 0;
    bool operator==(const SharedMemory&) const = default;
};

class Object {
public:
    // The null object.
    Object();

    static Object boolean(bool value);
    static Object int64(std::int64_t value);
    static Object uint64(std::uint64_t value);
    static Object real(double value);
    static Object date(std::int64_t nanosecondsSince1970);
    static Object data(Bytes bytes);
    // A string holds the text up to its first NUL character, as a C string would.
    static Object string(std::string_view text);
    static Object uuid(const Uuid& bytes);
    // A descriptor value holding a duplicate of `fd` (the caller keeps its own); absent when `fd` cannot be
    // duplicated.
    static std::optional<Object> fileDescriptor(int fd);
    static Object fileDescriptor(OwnedFd fd);
    // Shared memory holding a copy of `bytes` in a new memory file; absent when the system refuses one.
    static std::optional<Object> sharedMemory(std::span<const std::uint8_t> bytes);
    static Object sharedMemory(OwnedFd memoryFile, std::uint64_t size);
    static Object array(Array elements = {});
    static Object dictionary(Dictionary entries = {});
    static Object endpoint(std::string serviceName);
    static Object connection(std::shared_ptr<Connection> connection);
    static Object error(ErrorEvent event, Dictionary entries = {});

    Type type() const;

    // Scalar access. Each gives the type's zero value when the object is of another type.
    bool boolValue() const;
    std::int64_t int64Value() const;
    std::uint64_t uint64Value() const;
    double doubleValue() const;
    std::int64_t dateValue() const;

    // Typed access: null when the object is of another type.
    const Bytes* dataIf() const;
    const std::string* stringIf() const;
    const Uuid* uuidIf() const;
    const SharedMemory* sharedMemoryIf() const;
    const Array* arrayIf() const;
    // The entries of a dictionary or of an error event.
    const Dictionary* dictionaryIf() const;
    const std::string* endpointIf() const;
    std::shared_ptr<Connection> connectionIf() const;
    std::optional<ErrorEvent> errorEventIf() const;

    // The descriptor that a file-descriptor value holds, without giving it away; -1 for other types.
    int descriptor() const;
    // A new descriptor for the file that a file-descriptor value holds (the caller owns it); empty for other types
    // or when the system refuses a duplicate.
    OwnedFd duplicateDescriptor() const;
    // The bytes of shared memory, read through its descriptor; absent for other types or when they cannot be read.
    std::optional<Bytes> sharedMemoryBytes() const;

    // Arrays.
    void append(Object element);
    // Dictionaries: sets or replaces the value for `key` (the text up to its first NUL).
    void set(std::string_view key, Object value);
    // Dictionaries and error events: the value for `key`, or null when there is none.
    const Object* find(std::string_view key) const;
    // Dictionaries and error events: the string for `key`, or null when there is none or it is not a string.
    const std::string* stringForKey(std::string_view key) const;
    // Elements of an array, entries of a dictionary, 0 for every other type.
    std::size_t count() const;

    // Deep equality. Descriptor and connection values are equal when they share the same descriptor or connection.
    bool operator==(const Object& other) const;

private:
    struct DateValue {
        std::int64_t nanoseconds;
        bool operator==(const DateValue&) const = default;
    };
    struct EndpointValue {
        std::string serviceName;
        bool operator==(const EndpointValue&) const = default;
    };
    struct ErrorValue {
        ErrorEvent event;
        std::shared_ptr<const Dictionary> entries;
        bool operator==(const ErrorValue& other) const { return event == other.event && *entries == *other.entries; }
    };
    using Storage = std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, DateValue, Bytes,
        std::string, Uuid, std::shared_ptr<const OwnedFd>, SharedMemory, std::shared_ptr<Array>,
        std::shared_ptr<Dictionary>, EndpointValue, std::shared_ptr<Connection>, ErrorValue>;

    template<typename Alternative>
    static Object make(Alternative alternative);

    Storage m_storage;
};

}
