#include "service/XPCParse.h"

#include "platform/Utf8.h"

#include <cmath>
#include <limits>
#include <string_view>

namespace service::XPCParse {

using platform::ipc::Type;
using XPCObject = platform::ipc::Object;

namespace {

    constexpr double nanosecondsPerSecond = 1'000'000'000.0;

    // The framework's shared true object: a boolean number holding true. (A char number holding 1 is not it.)
    bool isSharedTrue(const platform::Number& number) { return number.isBoolean() && number.boolValue(); }

    XPCObject newXPCObject(const platform::Number& number)
    {
        if (isSharedTrue(number))
            return XPCObject::boolean(true);
        // This test repeats the one above and so can never match: a false boolean falls through to the double
        // below and travels as 0.0. Peers have always received false that way; keep both tests as they are.
        if (isSharedTrue(number))
            return XPCObject::boolean(false);
        const std::string_view type = number.objCType();
        if (type == "Q")
            return XPCObject::uint64(number.uint64Value());
        if (type == "q")
            return XPCObject::int64(number.int64Value());
        return XPCObject::real(number.doubleValue());
    }

    // Seconds times 1,000,000,000, truncated toward zero. A product that no signed 64-bit count can hold (or NaN)
    // gives the smallest count, as the processor's conversion does.
    std::int64_t nanosecondsSince1970(double seconds)
    {
        const double nanoseconds = seconds * nanosecondsPerSecond;
        constexpr double limit = 9223372036854775808.0; // 2^63
        if (!(nanoseconds >= -limit && nanoseconds < limit))
            return std::numeric_limits<std::int64_t>::min();
        return static_cast<std::int64_t>(nanoseconds);
    }

    XPCObject newXPCObject(const Object::Dictionary& entries)
    {
        XPCObject dictionary = XPCObject::dictionary();
        for (const auto& [key, object] : entries) {
            if (auto converted = XPCParse::newXPCObject(object))
                dictionary.set(key, std::move(*converted));
        }
        return dictionary;
    }

    XPCObject newXPCObject(const Object::Array& elements)
    {
        XPCObject array = XPCObject::array();
        for (const auto& element : elements) {
            if (auto converted = XPCParse::newXPCObject(element))
                array.append(std::move(*converted));
        }
        return array;
    }

    std::optional<XPCObject> newXPCObject(const platform::Value& value)
    {
        switch (value.kind()) {
        case platform::Value::Kind::String:
            return XPCObject::string(value.string());
        case platform::Value::Kind::Number:
            return newXPCObject(value.number());
        case platform::Value::Kind::Date:
            return XPCObject::date(nanosecondsSince1970(value.dateValue()));
        case platform::Value::Kind::Data:
            return XPCObject::data(value.bytes());
        case platform::Value::Kind::Array:
        case platform::Value::Kind::Dictionary:
            return XPCParse::newXPCObject(Object(value));
        case platform::Value::Kind::Null:
            break;
        }
        // The null object cannot convert itself.
        return std::nullopt;
    }

    // The platform makes a descriptor value from a duplicate of the handle's descriptor.
    std::optional<XPCObject> newXPCObject(const FileHandle& handle) { return XPCObject::fileDescriptor(handle.fileDescriptor()); }

}

std::optional<Object> objectWithXPCObject(const XPCObject& xpcObject)
{
    switch (xpcObject.type()) {
    case Type::Dictionary:
        return dictionaryWithContentsOfXPCObject(xpcObject);
    case Type::Array:
        return arrayWithContentsOfXPCObject(xpcObject);
    case Type::Date:
        return dateWithXPCObject(xpcObject);
    case Type::Data:
    case Type::SharedMemory:
        if (auto data = dataWithXPCObject(xpcObject))
            return *data;
        return std::nullopt;
    case Type::String:
        if (auto text = stringWithXPCObject(xpcObject))
            return *text;
        return std::nullopt;
    case Type::Uuid:
        return XPCUUID::uuidWithXPCObject(xpcObject);
    case Type::FileDescriptor:
        return fileHandleWithXPCObject(xpcObject);
    case Type::Bool:
    case Type::UInt64:
    case Type::Int64:
    case Type::Double:
        return numberWithXPCObject(xpcObject);
    case Type::Null:
    case Type::Endpoint:
    case Type::Connection:
    case Type::Error:
        break;
    }
    return std::nullopt;
}

Object dictionaryWithContentsOfXPCObject(const XPCObject& xpcObject)
{
    Object dictionary = Object::dictionary();
    if (const auto* entries = xpcObject.dictionaryIf()) {
        for (const auto& [key, value] : *entries) {
            auto object = objectWithXPCObject(value);
            if (object && platform::isValidUtf8(key))
                dictionary.set(key, std::move(*object));
        }
    }
    return dictionary;
}

Object arrayWithContentsOfXPCObject(const XPCObject& xpcObject)
{
    Object list = Object::array();
    if (const auto* elements = xpcObject.arrayIf()) {
        for (std::size_t index = 0; index < elements->size(); ++index) {
            if (auto object = objectWithXPCObject((*elements)[index]))
                list.insert(std::move(*object), index);
        }
    }
    return list;
}

std::optional<platform::Value> numberWithXPCObject(const XPCObject& xpcObject)
{
    switch (xpcObject.type()) {
    case Type::Bool:
        return platform::Value::boolean(xpcObject.boolValue());
    case Type::UInt64:
        return platform::Value::unsignedInteger(xpcObject.uint64Value());
    case Type::Int64:
        return platform::Value::integer(xpcObject.int64Value());
    case Type::Double:
        return platform::Value::real(xpcObject.doubleValue());
    default:
        return std::nullopt;
    }
}

std::optional<platform::Value> stringWithXPCObject(const XPCObject& xpcObject)
{
    const auto* text = xpcObject.stringIf();
    if (!text || !platform::isValidUtf8(*text))
        return std::nullopt;
    return platform::Value(*text);
}

platform::Value dateWithXPCObject(const XPCObject& xpcObject)
{
    return platform::Value::date(static_cast<double>(xpcObject.dateValue()) / nanosecondsPerSecond);
}

std::optional<platform::Value> dataWithXPCObject(const XPCObject& xpcObject)
{
    const auto* bytes = xpcObject.dataIf();
    if (!bytes)
        return std::nullopt;
    return platform::Value::data(*bytes);
}

std::optional<FileHandle> fileHandleWithXPCObject(const XPCObject& xpcObject)
{
    platform::OwnedFd duplicate = xpcObject.duplicateDescriptor();
    if (!duplicate)
        return std::nullopt;
    return FileHandle(std::move(duplicate));
}

std::optional<XPCObject> newXPCObject(const Object& object)
{
    if (const auto* value = object.valueIf())
        return newXPCObject(*value);
    if (const auto* handle = object.fileHandleIf())
        return newXPCObject(*handle);
    if (const auto* uuid = object.uuidIf())
        return uuid->newXPCObject();
    if (const auto* elements = object.arrayIf())
        return newXPCObject(*elements);
    return newXPCObject(*object.dictionaryIf());
}

}
