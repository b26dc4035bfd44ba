// `korbanhold table`, run as a real process over a temporary preferences folder.

#include "platform/PreferenceJson.h"
#include "platform/UserDefaults.h"

#include "helpers/TableVersions.h"

#include "support/Process.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

using platform::UserDefaults;
using platform::Value;
using testsupport::ProcessResult;
using testsupport::TempDir;

namespace {

const std::string serviceDomain = "Ulmaridon.SyncFilesXpcService";

class TableCommand : public ::testing::Test {
protected:
    ProcessResult table()
    {
        testsupport::ProcessOptions options;
        options.environment = { { "KORBANHOLD_PREFERENCES_DIR", folder.string() } };
        return testsupport::runProcess(testsupport::builtProgram("tools/korbanhold"), { "table" }, options);
    }

    void storeServiceDomain(const Value& domain)
    {
        UserDefaults(serviceDomain, folder.path()).setPersistentDomain(domain, serviceDomain);
    }

    // The service's domain is a database (docs/preferences.md).
    std::filesystem::path serviceDomainFile() const { return folder.path() / (serviceDomain + ".sqlite"); }

    TempDir folder;
};

}

TEST_F(TableCommand, PrintsTheStoredTableAsPrettyJsonWithPlainSlashes)
{
    const Value entry = Value::dictionary({ { "BaseSystemFileIDKey", Value("1234") },
        { "BaseSystemFilePathKey", Value("/home/ann/Korbanhold/a.txt") }, { "FileIDKey", Value("7") } });
    storeServiceDomain(Value::dictionary({ { "FileWatchedDataKey", Value::array({ entry }) } }));

    const auto result = table();
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    EXPECT_EQ(result.standardError, "");
    EXPECT_EQ(result.standardOutput,
        "[\n"
        "  {\n"
        "    \"BaseSystemFileIDKey\" : \"1234\",\n"
        "    \"BaseSystemFilePathKey\" : \"/home/ann/Korbanhold/a.txt\",\n"
        "    \"FileIDKey\" : \"7\"\n"
        "  }\n"
        "]\n");
}

TEST_F(TableCommand, PrintsEveryEntryInTheStoredOrder)
{
    storeServiceDomain(Value::dictionary({ { "FileWatchedDataKey",
        Value::array({ Value::dictionary({ { "BaseSystemFileIDKey", Value("9") } }),
            Value::dictionary({ { "BaseSystemFileIDKey", Value("3") } }) }) } }));

    const auto result = table();
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    const auto nine = result.standardOutput.find("\"9\"");
    const auto three = result.standardOutput.find("\"3\"");
    ASSERT_NE(nine, std::string::npos) << result.standardOutput;
    ASSERT_NE(three, std::string::npos) << result.standardOutput;
    EXPECT_LT(nine, three);
}

TEST_F(TableCommand, PrintsAnEmptyListWhenTheServiceHasNoDomainYet)
{
    const auto result = table();
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    EXPECT_EQ(result.standardOutput, "[]\n");
    EXPECT_EQ(result.standardError, "");
}

TEST_F(TableCommand, PrintsAnEmptyListWhenTheDomainHoldsNoTable)
{
    storeServiceDomain(Value::dictionary({ { "SomethingElse", Value("x") } }));
    const auto result = table();
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    EXPECT_EQ(result.standardOutput, "[]\n");
}

TEST_F(TableCommand, PrintsAnEmptyListForAnEmptyTable)
{
    storeServiceDomain(Value::dictionary({ { "FileWatchedDataKey", Value::array() } }));
    const auto result = table();
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    EXPECT_EQ(result.standardOutput, "[]\n");
}

TEST_F(TableCommand, ACorruptDomainFileFailsWithStatusOneAndSaysWhichFile)
{
    testsupport::writeFile(serviceDomainFile(), "{\"FileWatchedDataKey\": [");
    const auto result = table();
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_NE(result.standardError.find(serviceDomainFile().string()), std::string::npos) << result.standardError;
    EXPECT_NE(result.standardError.find("cannot be read"), std::string::npos) << result.standardError;
}

TEST_F(TableCommand, ATableThatIsNotAListFailsWithStatusOne)
{
    storeServiceDomain(Value::dictionary({ { "FileWatchedDataKey", Value("not a table") } }));
    const auto result = table();
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_NE(result.standardError.find("FileWatchedDataKey"), std::string::npos) << result.standardError;
    EXPECT_NE(result.standardError.find("is not a list"), std::string::npos) << result.standardError;
}

TEST_F(TableCommand, ReadsAWholeTableWhileAnotherProcessStoresNewOnes)
{
    // About 2 s: 30 runs of `korbanhold table` while a writer stores versions of a table of 60 to 100 records.
    testsupport::ProcessOptions options;
    options.environment = { { "KORBANHOLD_PREFERENCES_DIR", folder.string() } };
    storeServiceDomain(testsupport::tableVersion(1));
    testsupport::Process writer(testsupport::builtProgram("tests/helpers/table_store"), {}, options);
    std::int64_t lastGeneration = 0;
    for (int read = 0; read < 30; ++read) {
        const auto result = table();
        ASSERT_EQ(result.exitCode, 0) << result.standardError;
        const std::int64_t generation
            = testsupport::generationOfTable(platform::readPreferenceJson(result.standardOutput));
        ASSERT_GE(generation, lastGeneration) << "a torn or older table:\n" << result.standardOutput.substr(0, 2000);
        lastGeneration = generation;
    }
    EXPECT_FALSE(writer.hasEnded()) << "the writer failed";
    EXPECT_GT(lastGeneration, 1) << "the writer stored nothing while the table was read";
}
