#pragma once

// The guard against acting on a synced folder that is missing or suddenly empty. While the table lists items, a
// pass that finds the folder missing (or its setting absent), or finds it empty without a person's confirmation,
// reports nothing and stores nothing. Such a state lasts as long as the drive stays unmounted or the folder stays
// away, so it is logged once when it starts and once when it ends, not on every pass.

#include <optional>
#include <string>

namespace engine {

// Why the synced folder at `base` cannot be walked: its setting is absent (`base` absent), it does not exist, it is
// not a folder, or it cannot be opened; nothing when it can be walked.
std::optional<std::string> missingRootReason(const std::optional<std::string>& base);

// The file whose presence confirms that the next pass may delete every item of the table when it finds the synced
// folder empty: "confirm-delete-all" in the runtime folder of the service's socket. `korbanhold sync
// --confirm-delete-all` creates it; the next pass that walks the folder removes it, whether it needed it or not.
std::optional<std::string> deleteAllConfirmationPath();
// Removes the confirmation at `path` (deleteAllConfirmationPath(), which an engine resolves once: a pass reads no
// environment while other threads may change it); true when there was one.
bool consumeDeleteAllConfirmation(const std::optional<std::string>& path);

class RootGuard {
public:
    // The pass holds back for `reason`: logged when it differs from the reason of the passes before.
    void holdBack(const std::string& reason);
    // The pass goes on: logged when passes were held back until now.
    void goOn();

private:
    std::optional<std::string> m_reason;
};

}
