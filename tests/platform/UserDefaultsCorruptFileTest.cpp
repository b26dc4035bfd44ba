// A domain file that is not a valid domain reads as absent, is logged once per version, and is repaired by the next
// write; nothing crashes.

#include "platform/UserDefaults.h"

#include "PreferenceTestSupport.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

using platform::UserDefaults;
using platform::Value;
using testsupport::LogCapture;
using testsupport::TempDir;

namespace {

constexpr const char* domainName = "Ulmaridon.FileWatcherXpcService";

class CorruptDomainFile : public ::testing::Test {
protected:
    std::filesystem::path file() const { return folder / (std::string(domainName) + ".json"); }
    std::string logPrefix() const { return "Preference domain file " + file().string() + " is not valid"; }

    // Puts `contents` in the domain file, reads the domain twice, and checks that both reads are absent and that
    // one log line names the file.
    void expectAbsentWithOneLogLine(const std::string& contents)
    {
        testsupport::writeFile(file(), contents);
        LogCapture log;
        EXPECT_EQ(store.persistentDomainForName(domainName), std::nullopt);
        EXPECT_EQ(store.persistentDomainForName(domainName), std::nullopt);
        EXPECT_EQ(log.lines().size(), 1u);
        EXPECT_EQ(log.countStartingWith(logPrefix()), 1u) << (log.lines().empty() ? "" : log.lines().front());
    }

    TempDir folder;
    UserDefaults store { "Ulmaridon.SyncFilesXpcService", folder.path() };
};

}

TEST_F(CorruptDomainFile, ATruncatedFileReadsAsAbsentWithOneLogLine)
{
    expectAbsentWithOneLogLine(R"({"FileWatcherStatusKey":"1","other":[1,2)");
}

TEST_F(CorruptDomainFile, AFileHoldingAJsonArrayReadsAsAbsentWithOneLogLine)
{
    expectAbsentWithOneLogLine(R"(["FileWatcherStatusKey","1"])");
}

TEST_F(CorruptDomainFile, AnEmptyFileReadsAsAbsentWithOneLogLine) { expectAbsentWithOneLogLine(""); }

TEST_F(CorruptDomainFile, AFileHoldingABareStringReadsAsAbsentWithOneLogLine) { expectAbsentWithOneLogLine(R"("1")"); }

TEST_F(CorruptDomainFile, AFileThatIsNotUtf8ReadsAsAbsentWithOneLogLine)
{
    expectAbsentWithOneLogLine("{\"FileWatcherStatusKey\":\"\xFF\"}");
}

TEST_F(CorruptDomainFile, AMalformedTaggedValueReadsAsAbsentWithOneLogLine)
{
    expectAbsentWithOneLogLine(R"({"when":{"$date":"tomorrow"}})");
}

TEST_F(CorruptDomainFile, AFolderInPlaceOfTheFileReadsAsAbsentWithOneLogLine)
{
    std::filesystem::create_directories(file());
    LogCapture log;
    EXPECT_EQ(store.persistentDomainForName(domainName), std::nullopt);
    EXPECT_EQ(store.persistentDomainForName(domainName), std::nullopt);
    EXPECT_EQ(log.countStartingWith(logPrefix()), 1u);
}

TEST_F(CorruptDomainFile, AnUnchangedBadFileIsNeitherParsedNorLoggedAgain)
{
    testsupport::writeFile(file(), "[]");
    testsupport::waitUntilSettled(file());
    LogCapture log;
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(store.persistentDomainForName(domainName), std::nullopt);
    EXPECT_EQ(store.parseCount(), 1u);
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(CorruptDomainFile, EveryNewBadVersionIsLoggedOnce)
{
    LogCapture log;
    testsupport::writeFile(file(), "[]");
    EXPECT_EQ(store.persistentDomainForName(domainName), std::nullopt);
    // A replacement by rename, as every writer of the product does: a new version of the file.
    testsupport::writeFile(folder / "replacement", "[1, 2]");
    std::filesystem::rename(folder / "replacement", file());
    EXPECT_EQ(store.persistentDomainForName(domainName), std::nullopt);
    EXPECT_EQ(store.persistentDomainForName(domainName), std::nullopt);
    EXPECT_EQ(log.countStartingWith(logPrefix()), 2u);
}

TEST_F(CorruptDomainFile, TheNextValidWriteRepairsTheDomain)
{
    testsupport::writeFile(file(), "{\"FileWatcherStatusKey\":");
    LogCapture log;
    EXPECT_EQ(store.persistentDomainForName(domainName), std::nullopt);
    store.setPersistentDomain(Value::dictionary({ { "FileWatcherStatusKey", Value("0") } }), domainName);
    EXPECT_EQ(store.persistentDomainForName(domainName), Value::dictionary({ { "FileWatcherStatusKey", Value("0") } }));
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(CorruptDomainFile, StandardDefaultsOverABadFileStartAgainFromAnEmptyDomain)
{
    const auto standardFile = folder / "Ulmaridon.SyncFilesXpcService.json";
    testsupport::writeFile(standardFile, "[\"FileWatchedDataKey\"]");
    LogCapture log;
    EXPECT_EQ(store.objectForKey("FileWatchedDataKey"), std::nullopt);
    store.setObject(Value::array(), "FileWatchedDataKey");
    EXPECT_EQ(store.persistentDomainForName("Ulmaridon.SyncFilesXpcService"),
        Value::dictionary({ { "FileWatchedDataKey", Value::array() } }));
    EXPECT_EQ(log.countStartingWith("Preference domain file " + standardFile.string() + " is not valid"), 1u);
}
