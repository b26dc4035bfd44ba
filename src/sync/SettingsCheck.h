#pragma once

// The settings the engine reads from the product's domains, checked for what the engine can use: a status and the
// identifiers are strings, the path of the synced folder's parent is a string that fits a path (PATH_MAX bytes),
// the shared-file list is an array. A setting that cannot be used gets one log line the first time it is seen,
// naming the domain, the key and what was expected; the pass then does with it what it always did (the checks
// change nothing but the log). A setting that is usable again is logged anew if it goes wrong once more.

#include "platform/Value.h"

#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace engine {

// Whether `path` can name the folder that holds the synced folder: "/Korbanhold" appended, it fits PATH_MAX. A
// longer setting names no folder; the pass walks nothing for it and reports nothing with it, rather than copying
// it into every change record.
bool fitsFolderPath(std::string_view path);

class SettingsCheck {
public:
    // The check of this process: every engine object and polling loop shares it, so a setting is logged once per
    // process, not once per loop.
    static SettingsCheck& processWide();

    // Checks the settings of `domain` (one of domains::...) as the pass has just read it; absent is no domain.
    void check(std::string_view domain, const std::optional<platform::Value>& settings);

private:
    // Logs `problem` for domain/key unless it was logged already; no problem forgets an earlier one.
    void report(std::string_view domain, std::string_view key, const std::optional<std::string>& problem);

    std::mutex m_mutex;
    std::set<std::string, std::less<>> m_reported;
};

}
