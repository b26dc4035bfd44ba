// How the service starts: it refuses a KORBANHOLD_SERVER that is not a server address, naming the variable; it
// tells systemd READY=1 once it serves; and with stderr being the journal it writes its lines there, not to stderr.

#include "ServiceProcess.h"

#include "support/Process.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <poll.h>
#include <unistd.h>

using e2etest::ServiceFolders;
using e2etest::ServiceProcess;

namespace {

constexpr const char* wrongServer = "http://127.0.0.1:8080/KorbanholdRestService/";

testsupport::ProcessOptions withEnvironment(
    testsupport::ProcessOptions options, const std::string& name, const std::optional<std::string>& value)
{
    options.environment.emplace_back(name, value);
    return options;
}

// The service with its stderr appended to `errorFile` (which must exist), so that its device and inode are known
// before it starts.
testsupport::ProcessResult runWithStderrIn(const std::filesystem::path& errorFile, testsupport::ProcessOptions options)
{
    return testsupport::runProcess("/bin/sh",
        { "-c", "exec \"$1\" 2>>\"$2\"", "sh", e2etest::serviceProgram().string(), errorFile.string() }, options);
}

std::string streamOf(const std::filesystem::path& file)
{
    struct stat status {};
    ::stat(file.c_str(), &status);
    return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

}

TEST(ServiceStart, AServerThatIsNoAddressStopsTheServiceWithAnErrorNamingTheVariable)
{
    ServiceFolders folders;
    folders.setServer(wrongServer);
    const auto result = testsupport::runProcess(e2etest::serviceProgram(), {}, folders.options());
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.standardError.find("The service cannot start: KORBANHOLD_SERVER must be host[:port] or "
                                        "http://host[:port]/, not \"" + std::string(wrongServer) + "\""),
        std::string::npos)
        << result.standardError;
    EXPECT_FALSE(std::filesystem::exists(folders.socketPath()));
}

TEST(ServiceStart, AServerGivenAsAnHttpURLIsTaken)
{
    ServiceFolders folders;
    folders.setServer("http://127.0.0.1:9/");
    ServiceProcess service(folders, std::nullopt);
    EXPECT_TRUE(service.listening()) << folders.log();
    EXPECT_EQ(service.stop().exitCode, 0);
}

TEST(ServiceStart, TellsSystemdItIsReadyOnceItServes)
{
    ServiceFolders folders;
    testsupport::TempDir notifyFolder;
    const auto notifyPath = notifyFolder.path() / "notify";
    const int notify = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, notifyPath.c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(notify, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);

    testsupport::Process service(
        e2etest::serviceProgram(), {}, withEnvironment(folders.options(), "NOTIFY_SOCKET", notifyPath.string()));
    pollfd readable { notify, POLLIN, 0 };
    ASSERT_EQ(::poll(&readable, 1, 60'000), 1) << "no notification within 60 s";
    char message[256] {};
    const auto length = ::recv(notify, message, sizeof message - 1, 0);
    ::close(notify);
    EXPECT_EQ(std::string(message, length > 0 ? length : 0), "READY=1");
    // Ready means serving: the socket takes a connection now.
    const int probe = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::strncpy(address.sun_path, folders.socketPath().c_str(), sizeof address.sun_path - 1);
    EXPECT_EQ(::connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::close(probe);
    ::kill(service.pid(), SIGTERM);
    EXPECT_EQ(service.wait().exitCode, 0);
}

TEST(ServiceStart, LinesGoToTheJournalInsteadOfStderrWhenStderrIsTheJournal)
{
    ServiceFolders folders;
    folders.setServer(wrongServer);
    testsupport::TempDir root;
    const auto errorFile = root.path() / "stderr";
    testsupport::writeFile(errorFile, "");

    // JOURNAL_STREAM names another file: stderr is not the journal, and the line is on stderr.
    auto options = withEnvironment(folders.options(), "JOURNAL_STREAM", streamOf(root.path()));
    EXPECT_EQ(runWithStderrIn(errorFile, options).exitCode, 1);
    EXPECT_NE(testsupport::readFile(errorFile).find("The service cannot start"), std::string::npos);

    // JOURNAL_STREAM names stderr's file: the line goes to the journal (absent here), stderr stays as it was.
    testsupport::writeFile(errorFile, "");
    options = withEnvironment(folders.options(), "JOURNAL_STREAM", streamOf(errorFile));
    EXPECT_EQ(runWithStderrIn(errorFile, options).exitCode, 1);
    EXPECT_EQ(testsupport::readFile(errorFile), "");
}
