#pragma once

// The preference domains as the `korbanhold` commands show them: the store over the preferences folder that every
// program of the product uses, and for one domain its file and what reading it gave.

#include "platform/UserDefaults.h"
#include "platform/Value.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace korbanhold {

// The store over the preferences folder that the environment names (docs/preferences.md).
platform::UserDefaults preferencesStore();

struct DomainFile {
    std::filesystem::path path;
    bool exists = false;
    // Absent when there is no file, or when the file is not a valid domain.
    std::optional<platform::Value> domain;

    // The file is there but reads as absent; the store has logged why, on stderr.
    bool notValid() const { return exists && !domain; }
    // The value of `key`, or nothing when the domain or the key is absent.
    const platform::Value* find(std::string_view key) const { return domain ? domain->find(key) : nullptr; }
};

DomainFile readDomainFile(platform::UserDefaults& store, std::string_view name);

}
