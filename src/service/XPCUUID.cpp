#include "service/XPCUUID.h"

#include "platform/Log.h"

#include <uuid/uuid.h>

#include <functional>

namespace service {

XPCUUID XPCUUID::uuid()
{
    platform::ipc::Uuid bytes;
    uuid_generate_random(bytes.data());
    return XPCUUID(bytes);
}

std::optional<XPCUUID> XPCUUID::uuidWithXPCObject(const platform::ipc::Object& xpcObject)
{
    const auto* bytes = xpcObject.uuidIf();
    if (!bytes)
        return std::nullopt;
    return XPCUUID(*bytes);
}

XPCUUID::XPCUUID(const platform::ipc::Uuid& uuidRef)
    : m_uuidRef(uuidRef)
{
}

platform::ipc::Object XPCUUID::newXPCObject() const { return platform::ipc::Object::uuid(m_uuidRef); }

std::string XPCUUID::string() const
{
    char text[37];
    uuid_unparse_upper(m_uuidRef.data(), text);
    return text;
}

std::string XPCUUID::description() const { return platform::format("<%@ %@>", "XPCUUID", string()); }

std::size_t XPCUUID::hash() const { return std::hash<std::string>()(description()); }

}
