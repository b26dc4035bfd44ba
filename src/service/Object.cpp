#include "service/Object.h"

#include "platform/Exception.h"

#include <algorithm>

namespace service {

Object::Object(platform::Value value)
{
    if (value.isArray()) {
        Array elements(value.elements().begin(), value.elements().end());
        m_storage = std::make_shared<Array>(std::move(elements));
    } else if (value.isDictionary()) {
        auto entries = std::make_shared<Dictionary>();
        entries->reserve(value.count());
        for (const auto& [key, element] : value.entries())
            entries->emplace_back(key, Object(element));
        m_storage = std::move(entries);
    } else {
        m_storage = std::move(value);
    }
}

Object::Object(FileHandle handle) : m_storage(std::move(handle)) { }

Object::Object(XPCUUID uuid) : m_storage(std::move(uuid)) { }

Object Object::array(Array elements) { return Object(std::make_shared<Array>(std::move(elements))); }

Object Object::dictionary(Dictionary entries)
{
    Object result(std::make_shared<Dictionary>());
    for (auto& [key, object] : entries)
        result.set(std::move(key), std::move(object));
    return result;
}

const platform::Value* Object::valueIf() const { return std::get_if<platform::Value>(&m_storage); }
const FileHandle* Object::fileHandleIf() const { return std::get_if<FileHandle>(&m_storage); }
const XPCUUID* Object::uuidIf() const { return std::get_if<XPCUUID>(&m_storage); }

const Object::Array* Object::arrayIf() const
{
    const auto* array = std::get_if<std::shared_ptr<Array>>(&m_storage);
    return array ? array->get() : nullptr;
}

const Object::Dictionary* Object::dictionaryIf() const
{
    const auto* dictionary = std::get_if<std::shared_ptr<Dictionary>>(&m_storage);
    return dictionary ? dictionary->get() : nullptr;
}

const Object* Object::find(std::string_view key) const
{
    const auto* entries = dictionaryIf();
    if (!entries)
        return nullptr;
    const auto found = std::find_if(entries->begin(), entries->end(), [&](const auto& entry) { return entry.first == key; });
    return found == entries->end() ? nullptr : &found->second;
}

// Lists and dictionaries are shared between copies; a change first gives this object storage of its own.
template<typename Container>
static Container& unshared(std::shared_ptr<Container>& storage)
{
    if (storage.use_count() > 1)
        storage = std::make_shared<Container>(*storage);
    return *storage;
}

// A list operation on a dictionary or a leaf raises, as a message the object does not understand does.
[[noreturn]] static void raiseUnrecognized(const char* selector)
{
    platform::Exception::raiseInvalidArgument(std::string("-[NSObject ") + selector + "]: unrecognized selector sent to instance");
}

void Object::set(std::string key, Object object)
{
    auto* storage = std::get_if<std::shared_ptr<Dictionary>>(&m_storage);
    if (!storage)
        raiseUnrecognized("setObject:forKey:");
    auto& entries = unshared(*storage);
    const auto found = std::find_if(entries.begin(), entries.end(), [&](const auto& entry) { return entry.first == key; });
    if (found != entries.end())
        found->second = std::move(object);
    else
        entries.emplace_back(std::move(key), std::move(object));
}

void Object::insert(Object element, std::size_t index)
{
    auto* storage = std::get_if<std::shared_ptr<Array>>(&m_storage);
    if (!storage)
        raiseUnrecognized("insertObject:atIndex:");
    auto& elements = unshared(*storage);
    if (index > elements.size()) {
        platform::Exception::raiseRange("*** -[__NSArrayM insertObject:atIndex:]: index " + std::to_string(index)
            + " beyond bounds"
            + (elements.empty() ? std::string(" for empty array") : " [0 .. " + std::to_string(elements.size() - 1) + "]"));
    }
    elements.insert(elements.begin() + static_cast<std::ptrdiff_t>(index), std::move(element));
}

std::optional<platform::Value> Object::value() const
{
    if (const auto* value = valueIf())
        return *value;
    if (const auto* elements = arrayIf()) {
        platform::Array values;
        values.reserve(elements->size());
        for (const auto& element : *elements) {
            auto value = element.value();
            if (!value)
                return std::nullopt;
            values.push_back(std::move(*value));
        }
        return platform::Value::arrayOf(std::move(values));
    }
    if (const auto* entries = dictionaryIf()) {
        platform::Entries values;
        values.reserve(entries->size());
        for (const auto& [key, element] : *entries) {
            auto value = element.value();
            if (!value)
                return std::nullopt;
            values.emplace_back(key, std::move(*value));
        }
        return platform::Value::dictionaryOf(std::move(values));
    }
    return std::nullopt;
}

platform::Value Object::describable() const
{
    if (const auto* value = valueIf())
        return *value;
    if (const auto* handle = fileHandleIf())
        return platform::Value(handle->description());
    if (const auto* uuid = uuidIf())
        return platform::Value(uuid->description());
    if (const auto* elements = arrayIf()) {
        platform::Array values;
        for (const auto& element : *elements)
            values.push_back(element.describable());
        return platform::Value::arrayOf(std::move(values));
    }
    platform::Entries values;
    for (const auto& [key, element] : *dictionaryIf())
        values.emplace_back(key, element.describable());
    return platform::Value::dictionaryOf(std::move(values));
}

std::string Object::description() const { return describable().description(); }

bool Object::operator==(const Object& other) const
{
    if (const auto* elements = arrayIf())
        return other.arrayIf() && *elements == *other.arrayIf();
    if (const auto* entries = dictionaryIf()) {
        // Dictionaries are equal when they hold the same keys with equal objects, in whatever order.
        const auto* others = other.dictionaryIf();
        return others && entries->size() == others->size()
            && std::all_of(entries->begin(), entries->end(), [&](const auto& entry) {
                   const Object* match = other.find(entry.first);
                   return match && *match == entry.second;
               });
    }
    return m_storage == other.m_storage;
}

}
