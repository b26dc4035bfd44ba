#pragma once

// service::Object: a framework object as IPC messages carry it. Most objects are platform values (string, number,
// date, data, the null object); the two framework objects that platform::Value has no kind for, a file handle and a
// UUID, are objects of their own; and lists and dictionaries may hold any of these.
//
// A platform value made into an Object keeps its leaves as they are and turns its lists and dictionaries into
// Object lists and dictionaries, so that each kind of container has one representation. value() turns an Object
// back into one platform value when it holds neither a file handle nor a UUID.

#include "platform/Value.h"
#include "service/FileHandle.h"
#include "service/XPCUUID.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace service {

class Object {
public:
    using Array = std::vector<Object>;
    // Entries in insertion order; keys are unique.
    using Dictionary = std::vector<std::pair<std::string, Object>>;

    Object(platform::Value value);
    Object(FileHandle handle);
    Object(XPCUUID uuid);
    static Object array(Array elements = {});
    // Later entries replace earlier ones with the same key.
    static Object dictionary(Dictionary entries = {});

    // Typed access: null when the object is something else. valueIf() gives the leaf values only, never a list or
    // dictionary.
    const platform::Value* valueIf() const;
    const FileHandle* fileHandleIf() const;
    const XPCUUID* uuidIf() const;
    const Array* arrayIf() const;
    const Dictionary* dictionaryIf() const;

    // Dictionaries: the object for `key`, or null (absent) when there is none or this is not a dictionary.
    const Object* find(std::string_view key) const;
    // Dictionaries: sets or replaces the object for `key`, keeping the insertion order of the keys.
    void set(std::string key, Object object);
    // Lists: inserts `element` at `index`; raises NSRangeException when `index` is beyond the end of the list.
    void insert(Object element, std::size_t index);

    // The whole object as one platform value; absent when it holds a file handle or a UUID.
    std::optional<platform::Value> value() const;
    // As "%@" prints the object. Inside lists and dictionaries, file handles and UUIDs print as quoted text.
    std::string description() const;

    bool operator==(const Object& other) const;

private:
    using Storage = std::variant<platform::Value, FileHandle, XPCUUID, std::shared_ptr<Array>, std::shared_ptr<Dictionary>>;

    explicit Object(Storage storage) : m_storage(std::move(storage)) { }
    // The object as a platform value that prints the same: file handles and UUIDs become their descriptions.
    platform::Value describable() const;

    Storage m_storage;
};

}
