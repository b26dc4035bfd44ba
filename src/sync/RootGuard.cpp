#include "sync/RootGuard.h"

#include "platform/IpcServiceSocket.h"
#include "platform/Log.h"

#include <cerrno>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace engine {

std::optional<std::string> missingRootReason(const std::optional<std::string>& base)
{
    if (!base)
        return std::string("the setting \"korbanholdPathKey\" is absent");
    struct stat status {};
    if (::stat(base->c_str(), &status) != 0)
        return "the synced folder " + *base + " does not exist";
    if (!S_ISDIR(status.st_mode))
        return "the synced folder " + *base + " is not a folder";
    DIR* folder = ::opendir(base->c_str());
    if (!folder)
        return "the synced folder " + *base + " cannot be opened";
    ::closedir(folder);
    return std::nullopt;
}

std::optional<std::string> deleteAllConfirmationPath()
{
    try {
        return (platform::ipc::runtimeFolder() / "confirm-delete-all").string();
    } catch (const std::exception&) {
        // No runtime folder: nobody can have confirmed anything.
        return std::nullopt;
    }
}

bool consumeDeleteAllConfirmation(const std::optional<std::string>& path)
{
    return path && ::unlink(path->c_str()) == 0;
}

void RootGuard::holdBack(const std::string& reason)
{
    if (m_reason == reason)
        return;
    m_reason = reason;
    platform::log("Nothing is synced while %@; the table is kept as it is", std::string_view(reason));
}

void RootGuard::goOn()
{
    if (!m_reason)
        return;
    platform::log("Syncing again (it had stopped because %@)", std::string_view(*m_reason));
    m_reason.reset();
}

}
