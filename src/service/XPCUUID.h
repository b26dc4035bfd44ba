#pragma once

// XPCUUID: the UUID object that IPC UUID values convert to and from. Its text is the canonical upper-case form
// ("68753A44-4D6F-1226-9C60-0050E4C00067"); two UUIDs are equal exactly when their descriptions are.

#include "platform/IpcObject.h"

#include <cstddef>
#include <optional>
#include <string>

namespace service {

class XPCUUID {
public:
    // A new random UUID.
    static XPCUUID uuid();
    // The UUID that an IPC UUID value holds; absent for a value of another type.
    static std::optional<XPCUUID> uuidWithXPCObject(const platform::ipc::Object& xpcObject);

    explicit XPCUUID(const platform::ipc::Uuid& uuidRef);

    const platform::ipc::Uuid& uuidRef() const { return m_uuidRef; }
    // A new IPC UUID value holding the same 16 bytes.
    platform::ipc::Object newXPCObject() const;
    // The canonical text, upper case.
    std::string string() const;
    // "<XPCUUID " + string + ">".
    std::string description() const;

    bool isEqual(const XPCUUID& other) const { return description() == other.description(); }
    bool operator==(const XPCUUID& other) const { return isEqual(other); }
    std::size_t hash() const;

private:
    platform::ipc::Uuid m_uuidRef;
};

}
