// Temporary files that writers killed in the middle of a write leave behind are removed when a store opens the
// folder; those of writers that still run are not.
#include "platform/PreferenceFiles.h"
#include "platform/UserDefaults.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

using platform::UserDefaults;

namespace {

void touch(const std::filesystem::path& path) { std::ofstream(path) << "{\"half\": "; }

// When this process started, in clock ticks since boot: field 22 of /proc/self/stat, counted after the command
// name's closing parenthesis.
std::string ownStartTime()
{
    std::ifstream stat("/proc/self/stat");
    const std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::string field;
    for (int number = 3; number <= 22; ++number)
        fields >> field;
    return field;
}

// A pid that no process has: a child that has been waited for.
pid_t goneProcess()
{
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(0);
    ::waitpid(child, nullptr, 0);
    return child;
}

}

TEST(PreferenceTemporaryFiles, FilesOfWritersThatAreGoneAreRemovedWhenTheStoreOpensTheFolder)
{
    testsupport::TempDir folder;
    const std::string gone = std::to_string(goneProcess());
    const std::string self = std::to_string(::getpid());
    UserDefaults("Test.Writer", folder.path()).setPersistentDomain(platform::Value::dictionary(), "Domain");

    touch(folder / (".Domain.json." + gone + "-12345.0.tmp"));
    touch(folder / (".Domain.json." + gone + ".7.tmp")); // an older writer's name, without its start time
    touch(folder / (".Domain.json." + self + "-1.3.tmp")); // this pid, but a process started at another time
    touch(folder / (".Domain.json." + self + ".4.tmp")); // this pid, older form: this process may be writing it
    touch(folder / (".Domain.json." + self + "-" + ownStartTime() + ".5.tmp")); // this very process is writing it
    touch(folder / ".notes.tmp"); // not a writer's name
    touch(folder / "Other.json");

    testsupport::LogCapture log;
    UserDefaults store("Test.Reader", folder.path());
    EXPECT_FALSE(std::filesystem::exists(folder / (".Domain.json." + gone + "-12345.0.tmp")));
    EXPECT_FALSE(std::filesystem::exists(folder / (".Domain.json." + gone + ".7.tmp")));
    EXPECT_FALSE(std::filesystem::exists(folder / (".Domain.json." + self + "-1.3.tmp")));
    EXPECT_TRUE(std::filesystem::exists(folder / (".Domain.json." + self + ".4.tmp")));
    EXPECT_TRUE(std::filesystem::exists(folder / (".Domain.json." + self + "-" + ownStartTime() + ".5.tmp")));
    EXPECT_TRUE(std::filesystem::exists(folder / ".notes.tmp"));
    EXPECT_TRUE(std::filesystem::exists(folder / "Other.json"));
    EXPECT_TRUE(std::filesystem::exists(folder / "Domain.json"));
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0], "Removed 3 temporary files left in " + folder.string() + " by writers that are gone");
}
