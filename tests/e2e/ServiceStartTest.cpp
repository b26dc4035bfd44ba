// How the service starts: it refuses a KORBANHOLD_SERVER that is not a server address, naming the variable.

#include "ServiceProcess.h"

#include "support/Process.h"

#include <gtest/gtest.h>

using e2etest::ServiceFolders;
using e2etest::ServiceProcess;

namespace {

constexpr const char* wrongServer = "http://127.0.0.1:8080/KorbanholdRestService/";

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
