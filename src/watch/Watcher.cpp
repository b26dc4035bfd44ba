#include "watch/Watcher.h"

#include "watch/InotifyLimits.h"

#include "platform/IpcClient.h"
#include "platform/IpcListener.h"
#include "platform/Log.h"

#include <poll.h>
#include <system_error>
#include <unistd.h>

namespace watch {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

Watcher::Watcher(platform::UserDefaults& store, WatcherOptions options)
    : m_store(store)
    , m_options(std::move(options))
    , m_status(store, m_options.statusDomain, m_options.statusKey)
    , m_tree(m_options.queueLimit)
    , m_policy(m_options.timing, RaisePolicy::Clock::now())
{
    m_state.pid = ::getpid();
    m_state.started = stateTimeNow();
}

std::optional<fs::path> Watcher::syncedFolder()
{
    const auto settings = m_store.persistentDomainForName(m_options.settingsDomain);
    const platform::Value* path = settings ? settings->find(m_options.pathKey) : nullptr;
    const std::string* text = path ? path->stringIf() : nullptr;
    if (!text)
        return std::nullopt;
    return fs::path(*text + "/Korbanhold");
}

void Watcher::run(int stopDescriptor)
{
    auto now = RaisePolicy::Clock::now();
    m_folder = syncedFolder();
    // What changed while no watcher ran is not known: the first pass looks at everything.
    startWatching(now, true);
    auto nextSettingsCheck = now + 1s;
    for (;;) {
        pollfd descriptors[] = { { stopDescriptor, POLLIN, 0 }, { m_tree.descriptor(), POLLIN, 0 } };
        const auto wait = m_policy.raiseWaiting() ? m_options.timing.coalesce : m_policy.busy() ? 200ms : 1000ms;
        ::poll(descriptors, 2, static_cast<int>(wait.count()));
        now = RaisePolicy::Clock::now();
        if (descriptors[0].revents != 0)
            break;
        if (descriptors[1].revents & POLLIN)
            readEvents(now);
        if (now >= nextSettingsCheck) {
            followSettings(now);
            nextSettingsCheck = now + 1s;
        }
        act(now);
        updateState(false);
    }
    if (!m_options.stateFile.empty()) {
        std::error_code ignored;
        fs::remove(m_options.stateFile, ignored);
    }
}

void Watcher::followSettings(Time now)
{
    auto folder = syncedFolder();
    if (folder != m_folder) {
        m_folder = std::move(folder);
        startWatching(now, true);
        return;
    }
    // The folder was replaced or one above it moved; or it is there at last; or the system may take more watches.
    const bool lost = m_tree.watching() && !m_tree.rootInPlace();
    const bool appeared = !m_tree.watching() && m_tree.shortage() == Shortage::none && m_folder
        && fs::is_directory(*m_folder);
    const bool retry = m_tree.shortage() != Shortage::none && now >= m_nextRetry;
    if (lost || appeared || retry)
        startWatching(now, lost || appeared);
}

void Watcher::startWatching(Time now, bool changed)
{
    const WatcherState before = m_state;
    m_state.reason.clear();
    if (!m_folder) {
        m_tree.clear();
        m_state.mode = "waiting";
        m_state.reason = m_options.pathKey + " is not set in " + m_options.settingsDomain;
    } else if (m_tree.watch(*m_folder)) {
        m_state.mode = "watching";
    } else if (m_tree.shortage() == Shortage::none) {
        m_state.mode = "waiting";
        m_state.reason = "the synced folder is not there";
    }
    const Shortage shortage = m_tree.shortage();
    if (shortage != Shortage::none) {
        m_state.mode = "polling";
        m_state.reason = shortage == Shortage::watches ? "the inotify watch limit is reached"
                                                       : "the inotify instance limit is reached";
        if (shortage != m_reportedShortage) {
            const std::size_t unwatched = m_tree.unwatchedFolders();
            platform::log("%@", shortageMessage(shortage, inotifyLimit(shortage), *m_folder,
                                    m_tree.watchedFolders() + unwatched, unwatched, m_options.timing.poll));
        }
        m_nextRetry = now + m_options.timing.rescan;
    }
    m_reportedShortage = shortage;
    m_policy.setPolling(shortage != Shortage::none);
    m_state.syncedFolder = m_folder ? m_folder->string() : std::string();
    if (m_state.mode != before.mode || m_state.reason != before.reason || m_state.syncedFolder != before.syncedFolder) {
        if (m_state.mode == "watching")
            platform::log("Watching %@ folders of %@", m_tree.watchedFolders(), m_state.syncedFolder);
        else
            platform::log("Not watching %@: %@", m_state.syncedFolder, m_state.reason);
    }
    if (changed)
        noteChange(now);
    updateState(true);
}

void Watcher::readEvents(Time now)
{
    const Activity activity = m_tree.readEvents();
    if (activity.changes > 0) {
        m_changesSinceRaise += activity.changes;
        noteChange(now);
    }
    if (activity.overflowed) {
        platform::log("The inotify queue overflowed and changes of %@ were lost: raising the status and watching "
                      "every folder again",
            m_state.syncedFolder);
        startWatching(now, true);
    } else if (activity.rootLost) {
        startWatching(now, true);
    }
}

void Watcher::noteChange(Time now)
{
    m_policy.changed(now);
    m_state.lastEvent = stateTimeNow();
}

void Watcher::act(Time now)
{
    const bool raised = m_status.raised();
    if (m_status.writtenByOthers() || (m_policy.awaitingPass() && !raised))
        m_policy.writtenByOthers(now, raised);
    switch (m_policy.next(now, raised)) {
    case RaisePolicy::Action::none:
        return;
    case RaisePolicy::Action::raise:
        m_status.raise();
        m_policy.raised(now);
        if (m_changesSinceRaise > 0)
            platform::log("Raised %@: %@ changes seen since the last raise", m_options.statusKey, m_changesSinceRaise);
        else
            platform::log("Raised %@ with no change seen since the last raise (at the start, to confirm a raise "
                          "that was overwritten, or to be safe)",
                m_options.statusKey);
        m_changesSinceRaise = 0;
        m_state.lastRaise = stateTimeNow();
        updateState(true);
        return;
    case RaisePolicy::Action::callSyncFile: {
        const auto sent = platform::ipc::sendMessage(m_options.serviceName, platform::ipc::makeInvocation("SyncFile"));
        m_policy.syncFileCalled(now, static_cast<bool>(sent));
        if (sent)
            platform::log("No pass took up the raised status: called SyncFile");
        else
            platform::log("No pass took up the raised status, and SyncFile cannot reach the service at %@: %@",
                sent.where, sent.reason);
        return;
    }
    }
}

void Watcher::updateState(bool atOnce)
{
    if (m_options.stateFile.empty())
        return;
    m_state.foldersWatched = m_tree.watchedFolders();
    m_state.foldersUnwatched = m_tree.unwatchedFolders();
    const auto now = RaisePolicy::Clock::now();
    if (m_state == m_written || (!atOnce && now < m_stateWritten + 1s))
        return;
    try {
        writeWatcherState(m_options.stateFile, m_state);
        m_written = m_state;
        m_stateWritten = now;
    } catch (const std::system_error& error) {
        platform::log("The state file %@ cannot be written: %@", m_options.stateFile.string(),
            std::string_view(error.what()));
        m_options.stateFile.clear();
    }
}

}
