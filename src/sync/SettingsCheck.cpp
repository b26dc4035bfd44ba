#include "sync/SettingsCheck.h"

#include "platform/Log.h"
#include "sync/RecordKeys.h"

#include <climits>

namespace engine {

using platform::Value;

namespace {

    std::string kindOf(const Value& value)
    {
        if (value.isString())
            return "a string of " + std::to_string(value.string().size()) + " bytes";
        if (value.isNumber())
            return "a number";
        if (value.isNull())
            return "the null object";
        if (value.isArray())
            return "an array";
        if (value.isDictionary())
            return "a dictionary";
        if (value.isDate())
            return "a date";
        return "data";
    }

    std::optional<std::string> unlessString(const Value& value, std::string_view expected)
    {
        if (value.isString())
            return std::nullopt;
        return "expected " + std::string(expected) + ", found " + kindOf(value);
    }

    // The longest folder path that leaves room for "/Korbanhold" and the terminating NUL within PATH_MAX.
    constexpr std::size_t longestFolderPath = PATH_MAX - 1 - std::string_view("/Korbanhold").size();

    std::optional<std::string> unlessPath(const Value& value)
    {
        if (value.isString() && fitsFolderPath(value.string()))
            return std::nullopt;
        return "expected the path of a folder, a string of at most " + std::to_string(longestFolderPath)
            + " bytes, found " + kindOf(value);
    }

    std::optional<std::string> unlessArray(const Value& value)
    {
        if (value.isArray())
            return std::nullopt;
        return "expected an array of shared-file records, found " + kindOf(value);
    }

}

bool fitsFolderPath(std::string_view path) { return path.size() <= longestFolderPath; }

SettingsCheck& SettingsCheck::processWide()
{
    static SettingsCheck check;
    return check;
}

void SettingsCheck::check(std::string_view domain, const std::optional<Value>& settings)
{
    const auto checkKey = [&](std::string_view key, auto&& problemOf) {
        const Value* value = settings ? settings->find(key) : nullptr;
        report(domain, key, value ? problemOf(*value) : std::nullopt);
    };
    if (domain == domains::fileWatcher) {
        checkKey(settings::fileWatcherStatus, [](const Value& value) { return unlessString(value, "a string, \"1\" or \"0\""); });
    } else if (domain == domains::korbanhold) {
        checkKey(settings::korbanholdPath, unlessPath);
        checkKey(settings::computerId, [](const Value& value) { return unlessString(value, "a string, the computer's id"); });
        checkKey(settings::userId, [](const Value& value) { return unlessString(value, "a string, the user's id"); });
    } else if (domain == domains::sharedFiles) {
        checkKey(settings::sharedFileData, unlessArray);
    }
}

void SettingsCheck::report(std::string_view domain, std::string_view key, const std::optional<std::string>& problem)
{
    const std::string setting = std::string(domain) + " " + std::string(key);
    std::lock_guard lock(m_mutex);
    if (!problem) {
        m_reported.erase(setting);
        return;
    }
    if (!m_reported.insert(setting).second)
        return;
    platform::log("The setting %@ of %@ cannot be used: %@", key, domain, *problem);
}

}
