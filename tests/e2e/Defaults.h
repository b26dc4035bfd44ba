#pragma once

// The preference domains of a test's service, read and written the way the host application and the file watcher
// do it from outside the service: with `korbanhold defaults`, one process per call, whole files replaced at once.

#include "ServiceProcess.h"

#include "platform/Value.h"

#include <optional>
#include <string>

namespace e2etest {

inline constexpr const char* fileWatcherDomain = "Ulmaridon.FileWatcherXpcService";
inline constexpr const char* settingsDomain = "Ulmaridon.Korbanhold";
inline constexpr const char* sharedFilesDomain = "Ulmaridon.SharedFilesXpcService";
// The service's own defaults, where it keeps the watched-files table.
inline constexpr const char* serviceDomain = "Ulmaridon.SyncFilesXpcService";

inline constexpr const char* statusKey = "FileWatcherStatusKey";
inline constexpr const char* tableKey = "FileWatchedDataKey";
inline constexpr const char* sharedFilesKey = "SharedFileDataKey";

class Defaults {
public:
    explicit Defaults(const ServiceFolders& folders) : m_folders(folders) { }

    // Sets `key` of `domain` to the text `value`, keeping the domain's other keys.
    void write(const std::string& domain, const std::string& key, const std::string& value) const;
    // Sets `key` of `domain` to `value` (any JSON value), keeping the domain's other keys.
    void write(const std::string& domain, const std::string& key, const platform::Value& value) const;
    // Replaces the whole of `domain` by the dictionary `contents`.
    void replace(const std::string& domain, const platform::Value& contents) const;
    // The value of `key` in `domain`; absent when the domain or the key does not exist.
    std::optional<platform::Value> read(const std::string& domain, const std::string& key) const;

    // The file watcher's status as its domain's file holds it now, or "" when there is none.
    std::string status() const;
    // The watched-files table the service has stored (an empty list before its first stored report).
    platform::Value storedTable() const;
    platform::Value sharedFiles() const;

private:
    void run(const std::vector<std::string>& arguments) const;

    const ServiceFolders& m_folders;
};

}
