#pragma once

// Conversion between framework objects and IPC values, in both directions, for every message the connection
// wrapper receives or sends.
//
// From IPC, objectWithXPCObject() dispatches on the value's type; each conversion gives an absent result for what it
// cannot convert, and dictionaries drop such entries. A list raises when an element that converts to nothing is
// followed by another element (see arrayWithContentsOfXPCObject).
//
// To IPC, newXPCObject() gives a new value, or absent for an object that cannot convert itself (the null object);
// dictionaries and lists leave such objects out.

#include "platform/IpcObject.h"
#include "platform/Value.h"
#include "service/FileHandle.h"
#include "service/Object.h"

#include <optional>

namespace service::XPCParse {

// Dispatches by type: dictionary, array, date, data (shared memory gives nothing), string, UUID, file descriptor,
// then bool, uint64, int64 and double as numbers; every other type (null, connection, endpoint, error) gives nothing.
std::optional<Object> objectWithXPCObject(const platform::ipc::Object& xpcObject);

// Every entry whose key is UTF-8 text and whose value converts; the others are dropped.
Object dictionaryWithContentsOfXPCObject(const platform::ipc::Object& xpcObject);
// Every element, each inserted at its own index. An element that converts to nothing leaves a gap, so the next
// element's index lies beyond the end of the list and its insertion raises NSRangeException; a trailing element that
// converts to nothing is simply left out.
Object arrayWithContentsOfXPCObject(const platform::ipc::Object& xpcObject);
// bool to a boolean, uint64 to an unsigned 64-bit number, int64 to a signed one, double to a double.
std::optional<platform::Value> numberWithXPCObject(const platform::ipc::Object& xpcObject);
// Absent when the text is not valid UTF-8.
std::optional<platform::Value> stringWithXPCObject(const platform::ipc::Object& xpcObject);
// Nanoseconds since 1970 divided by 1,000,000,000 as seconds since 1970.
platform::Value dateWithXPCObject(const platform::ipc::Object& xpcObject);
// A copy of the bytes of a data value; absent for every other type, shared memory included.
std::optional<platform::Value> dataWithXPCObject(const platform::ipc::Object& xpcObject);
// A handle on a duplicate of the value's descriptor; absent when there is none to duplicate.
std::optional<FileHandle> fileHandleWithXPCObject(const platform::ipc::Object& xpcObject);

std::optional<platform::ipc::Object> newXPCObject(const Object& object);

}
