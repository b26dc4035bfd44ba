#include "platform/IpcServiceSocket.h"

#include "platform/IpcSocket.h"
#include "platform/helpers/IpcTestSupport.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace platform::ipc;
using platform::OwnedFd;
using testing::HasSubstr;

namespace {

constexpr const char* service = "Ulmaridon.SyncFilesXpcService";

mode_t modeOf(const std::filesystem::path& path)
{
    struct stat status {};
    ::lstat(path.c_str(), &status);
    return status.st_mode;
}

std::string listenError()
{
    try {
        listenForService(service);
    } catch (const ListenError& error) {
        return error.what();
    }
    return "";
}

}

TEST(IpcServiceSocket, TheRuntimeFolderIsCreatedForItsUserAloneAndTheSocketIs0600)
{
    testsupport::TempDir parent;
    const auto folder = parent / "runtime";
    testsupport::ScopedEnvironment runtime("KORBANHOLD_RUNTIME_DIR", folder.string());
    const ServiceSocket listening = listenForService(service);
    ASSERT_TRUE(listening.socket);
    EXPECT_TRUE(listening.lock);
    EXPECT_EQ(modeOf(folder) & 07777, 0700u);
    const auto path = folder / "Ulmaridon.SyncFilesXpcService.sock";
    EXPECT_TRUE(S_ISSOCK(modeOf(path)));
    EXPECT_EQ(modeOf(path) & 07777, 0600u);
    EXPECT_EQ(serviceSocketPath(service), path);
}

TEST(IpcServiceSocket, WithoutItsOwnVariableTheFolderIsKorbanholdUnderTheUsersRuntimeFolder)
{
    testsupport::ScopedEnvironment runtime("KORBANHOLD_RUNTIME_DIR", std::nullopt);
    testsupport::ScopedEnvironment xdg("XDG_RUNTIME_DIR", "/run/user/1000");
    EXPECT_EQ(serviceSocketPath(service), "/run/user/1000/korbanhold/Ulmaridon.SyncFilesXpcService.sock");
}

TEST(IpcServiceSocket, WithoutAnyRuntimeFolderTheServiceCannotListen)
{
    testsupport::ScopedEnvironment runtime("KORBANHOLD_RUNTIME_DIR", std::nullopt);
    testsupport::ScopedEnvironment xdg("XDG_RUNTIME_DIR", std::nullopt);
    EXPECT_THAT(listenError(), HasSubstr("neither KORBANHOLD_RUNTIME_DIR nor XDG_RUNTIME_DIR is set"));
}

TEST(IpcServiceSocket, AFolderOpenToOtherUsersIsRefused)
{
    ipctest::ScopedRuntimeFolder folder;
    ::chmod(folder.path().c_str(), 0755);
    EXPECT_EQ(listenError(), "cannot listen at " + folder.path().string()
            + ": the runtime folder is open to other users (mode 0755, not 0700)");
    EXPECT_FALSE(std::filesystem::exists(serviceSocketPath(service)));
}

TEST(IpcServiceSocket, AFolderOwnedByAnotherUserIsRefused)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "giving a folder to another user needs root";
    ipctest::ScopedRuntimeFolder folder;
    ASSERT_EQ(::chown(folder.path().c_str(), 65534, 65534), 0);
    EXPECT_THAT(listenError(), HasSubstr("the runtime folder is owned by uid 65534, not by uid 0"));
}

TEST(IpcServiceSocket, ALinkInPlaceOfTheFolderIsRefused)
{
    testsupport::TempDir parent;
    std::filesystem::create_directory_symlink(parent.path(), parent / "link");
    testsupport::ScopedEnvironment runtime("KORBANHOLD_RUNTIME_DIR", (parent / "link").string());
    EXPECT_THAT(listenError(), HasSubstr("the runtime folder is not a folder"));
}

TEST(IpcServiceSocket, ASocketLeftBehindByAServiceThatIsGoneIsReplaced)
{
    ipctest::ScopedRuntimeFolder folder;
    {
        const ServiceSocket first = listenForService(service);
    }
    ASSERT_TRUE(std::filesystem::exists(serviceSocketPath(service)));
    const ServiceSocket second = listenForService(service);
    int error = 0;
    EXPECT_TRUE(connectUnixSocket(serviceSocketPath(service).string(), error)) << error;
}

TEST(IpcServiceSocket, ASocketOfARunningServiceIsLeftAlone)
{
    ipctest::ScopedRuntimeFolder folder;
    const ServiceSocket running = listenForService(service);
    EXPECT_THAT(listenError(), HasSubstr("another process is already listening there"));
    int error = 0;
    EXPECT_TRUE(connectUnixSocket(serviceSocketPath(service).string(), error)) << "the running service still answers";
}

// A service that holds its lock is running, even when its socket does not answer (it is busy, or has not listened
// yet): its socket is left alone. Before the lock, a failed connection counted as a service that was gone.
TEST(IpcServiceSocket, ASocketWhoseLockIsHeldIsLeftAloneEvenWhenNobodyAnswers)
{
    ipctest::ScopedRuntimeFolder folder;
    {
        const ServiceSocket gone = listenForService(service);
    }
    const OwnedFd heldLock(::open(serviceLockPath(service).c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(::flock(heldLock.get(), LOCK_EX | LOCK_NB), 0);
    struct stat before {};
    ASSERT_EQ(::lstat(serviceSocketPath(service).c_str(), &before), 0);

    EXPECT_THAT(listenError(), HasSubstr("another process is already listening there"));
    struct stat after {};
    ASSERT_EQ(::lstat(serviceSocketPath(service).c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino) << "the socket file was not replaced";
}

TEST(IpcServiceSocket, AFileThatIsNotASocketInTheWayIsRefused)
{
    ipctest::ScopedRuntimeFolder folder;
    testsupport::writeFile(serviceSocketPath(service), "keep me");
    EXPECT_THAT(listenError(), HasSubstr("a file that is not a socket is in the way"));
    EXPECT_EQ(testsupport::readFile(serviceSocketPath(service)), "keep me");
}
