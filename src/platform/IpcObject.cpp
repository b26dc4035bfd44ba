#include "platform/IpcObject.h"

#include "platform/Exception.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

namespace platform::ipc {

const char* typeName(Type type)
{
    switch (type) {
    case Type::Null:
        return "null";
    case Type::Bool:
        return "bool";
    case Type::Int64:
        return "int64";
    case Type::UInt64:
        return "uint64";
    case Type::Double:
        return "double";
    case Type::Date:
        return "date";
    case Type::Data:
        return "data";
    case Type::String:
        return "string";
    case Type::Uuid:
        return "uuid";
    case Type::FileDescriptor:
        return "file descriptor";
    case Type::SharedMemory:
        return "shared memory";
    case Type::Array:
        return "array";
    case Type::Dictionary:
        return "dictionary";
    case Type::Endpoint:
        return "endpoint";
    case Type::Connection:
        return "connection";
    case Type::Error:
        return "error";
    }
    return "unknown";
}

static std::string_view upToFirstNul(std::string_view text) { return text.substr(0, text.find('\0')); }

template<typename Alternative>
Object Object::make(Alternative alternative)
{
    Object object;
    object.m_storage = std::move(alternative);
    return object;
}

Object::Object() = default;

Object Object::boolean(bool value) { return make(value); }
Object Object::int64(std::int64_t value) { return make(value); }
Object Object::uint64(std::uint64_t value) { return make(value); }
Object Object::real(double value) { return make(value); }
Object Object::date(std::int64_t nanosecondsSince1970) { return make(DateValue { nanosecondsSince1970 }); }
Object Object::data(Bytes bytes) { return make(std::move(bytes)); }
Object Object::string(std::string_view text) { return make(std::string(upToFirstNul(text))); }
Object Object::uuid(const Uuid& bytes) { return make(bytes); }

std::optional<Object> Object::fileDescriptor(int fd)
{
    OwnedFd duplicate = OwnedFd::duplicate(fd);
    if (!duplicate)
        return std::nullopt;
    return fileDescriptor(std::move(duplicate));
}

Object Object::fileDescriptor(OwnedFd fd) { return make(std::shared_ptr<const OwnedFd>(new OwnedFd(std::move(fd)))); }

std::optional<Object> Object::sharedMemory(std::span<const std::uint8_t> bytes)
{
    OwnedFd memoryFile(::memfd_create("korbanhold-ipc", MFD_CLOEXEC));
    if (!memoryFile)
        return std::nullopt;
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t count = ::write(memoryFile.get(), bytes.data() + written, bytes.size() - written);
        if (count <= 0)
            return std::nullopt;
        written += static_cast<std::size_t>(count);
    }
    return sharedMemory(std::move(memoryFile), bytes.size());
}

Object Object::sharedMemory(OwnedFd memoryFile, std::uint64_t size)
{
    return make(SharedMemory { std::shared_ptr<const OwnedFd>(new OwnedFd(std::move(memoryFile))), size });
}

Object Object::array(Array elements) { return make(std::make_shared<Array>(std::move(elements))); }
Object Object::dictionary(Dictionary entries) { return make(std::make_shared<Dictionary>(std::move(entries))); }
Object Object::endpoint(std::string serviceName) { return make(EndpointValue { std::move(serviceName) }); }
Object Object::connection(std::shared_ptr<Connection> connection) { return make(std::move(connection)); }

Object Object::error(ErrorEvent event, Dictionary entries)
{
    return make(ErrorValue { event, std::make_shared<const Dictionary>(std::move(entries)) });
}

Type Object::type() const
{
    static_assert(std::variant_size_v<Storage> == static_cast<std::size_t>(Type::Error) + 1);
    return static_cast<Type>(m_storage.index());
}

template<typename Alternative>
static Alternative valueOr(const auto& storage, Alternative fallback)
{
    const auto* value = std::get_if<Alternative>(&storage);
    return value ? *value : fallback;
}

bool Object::boolValue() const { return valueOr(m_storage, false); }
std::int64_t Object::int64Value() const { return valueOr<std::int64_t>(m_storage, 0); }
std::uint64_t Object::uint64Value() const { return valueOr<std::uint64_t>(m_storage, 0); }
double Object::doubleValue() const { return valueOr(m_storage, 0.0); }
std::int64_t Object::dateValue() const { return valueOr(m_storage, DateValue { 0 }).nanoseconds; }

const Bytes* Object::dataIf() const { return std::get_if<Bytes>(&m_storage); }
const std::string* Object::stringIf() const { return std::get_if<std::string>(&m_storage); }
const Uuid* Object::uuidIf() const { return std::get_if<Uuid>(&m_storage); }
const SharedMemory* Object::sharedMemoryIf() const { return std::get_if<SharedMemory>(&m_storage); }

const Array* Object::arrayIf() const
{
    const auto* array = std::get_if<std::shared_ptr<Array>>(&m_storage);
    return array ? array->get() : nullptr;
}

const Dictionary* Object::dictionaryIf() const
{
    if (const auto* dictionary = std::get_if<std::shared_ptr<Dictionary>>(&m_storage))
        return dictionary->get();
    if (const auto* error = std::get_if<ErrorValue>(&m_storage))
        return error->entries.get();
    return nullptr;
}

const std::string* Object::endpointIf() const
{
    const auto* endpoint = std::get_if<EndpointValue>(&m_storage);
    return endpoint ? &endpoint->serviceName : nullptr;
}

std::shared_ptr<Connection> Object::connectionIf() const
{
    return valueOr<std::shared_ptr<Connection>>(m_storage, nullptr);
}

std::optional<ErrorEvent> Object::errorEventIf() const
{
    const auto* error = std::get_if<ErrorValue>(&m_storage);
    return error ? std::optional(error->event) : std::nullopt;
}

int Object::descriptor() const
{
    const auto* descriptor = std::get_if<std::shared_ptr<const OwnedFd>>(&m_storage);
    return descriptor ? (*descriptor)->get() : -1;
}

OwnedFd Object::duplicateDescriptor() const { return OwnedFd::duplicate(descriptor()); }

std::optional<Bytes> Object::sharedMemoryBytes() const
{
    const auto* memory = sharedMemoryIf();
    if (!memory)
        return std::nullopt;
    Bytes bytes(memory->size);
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = ::pread(memory->descriptor->get(), bytes.data() + done, bytes.size() - done,
            static_cast<off_t>(done));
        if (count <= 0)
            return std::nullopt;
        done += static_cast<std::size_t>(count);
    }
    return bytes;
}

// Containers are shared between copies; a change first gives this object storage of its own.
template<typename Container>
static Container& unshared(std::shared_ptr<Container>& storage)
{
    if (storage.use_count() > 1)
        storage = std::make_shared<Container>(*storage);
    return *storage;
}

void Object::append(Object element)
{
    auto* array = std::get_if<std::shared_ptr<Array>>(&m_storage);
    if (!array)
        Exception::raiseInvalidArgument(std::string("append to an IPC ") + typeName(type()));
    unshared(*array).push_back(std::move(element));
}

void Object::set(std::string_view key, Object value)
{
    auto* dictionary = std::get_if<std::shared_ptr<Dictionary>>(&m_storage);
    if (!dictionary)
        Exception::raiseInvalidArgument(std::string("set a key of an IPC ") + typeName(type()));
    unshared(*dictionary).insert_or_assign(std::string(upToFirstNul(key)), std::move(value));
}

const Object* Object::find(std::string_view key) const
{
    const auto* entries = dictionaryIf();
    if (!entries)
        return nullptr;
    const auto found = entries->find(key);
    return found == entries->end() ? nullptr : &found->second;
}

const std::string* Object::stringForKey(std::string_view key) const
{
    const auto* value = find(key);
    return value ? value->stringIf() : nullptr;
}

std::size_t Object::count() const
{
    if (const auto* array = arrayIf())
        return array->size();
    if (const auto* dictionary = std::get_if<std::shared_ptr<Dictionary>>(&m_storage))
        return (*dictionary)->size();
    return 0;
}

bool Object::operator==(const Object& other) const
{
    if (type() != other.type())
        return false;
    switch (type()) {
    case Type::Array:
        return *arrayIf() == *other.arrayIf();
    case Type::Dictionary:
        return *dictionaryIf() == *other.dictionaryIf();
    default:
        // Scalars and error events compare by value; descriptors, shared memory and connections by the shared
        // object they hold.
        return m_storage == other.m_storage;
    }
}

}
