#pragma once

// watch::StatusFlag: the file watcher's status in its preference domain, as the watcher reads and raises it.
//
// Raising writes the whole domain as { <key>: "1" }, as SyncFile writes it, so every other key of the domain goes.
// Every writer replaces the domain file by a new one (an atomic rename), so a file that is not the one the watcher
// wrote or saw last was written by another process: a pass, a report, or someone raising the status by hand.

#include "platform/PreferenceFiles.h"
#include "platform/UserDefaults.h"

#include <optional>
#include <string>

namespace watch {

class StatusFlag {
public:
    StatusFlag(platform::UserDefaults& store, std::string domain, std::string key);

    // The domain holds "1" under the key.
    bool raised();
    void raise();
    // True when another process wrote (or removed) the domain since the last raise() or call of this.
    bool writtenByOthers();

private:
    std::optional<platform::FileIdentity> currentVersion() const;

    platform::UserDefaults& m_store;
    const std::string m_domain;
    const std::string m_key;
    const std::filesystem::path m_path;
    std::optional<platform::FileIdentity> m_seen;
};

}
