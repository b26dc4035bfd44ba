// `korbanhold defaults`, run as a real process over a temporary preferences folder.

#include "platform/UserDefaults.h"

#include "support/Process.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>

using platform::UserDefaults;
using platform::Value;
using testsupport::ProcessOptions;
using testsupport::ProcessResult;
using testsupport::TempDir;

namespace {

std::size_t lineCount(const std::string& text)
{
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

class DefaultsCommand : public ::testing::Test {
protected:
    // Runs `korbanhold defaults <arguments>` with the temporary folder as the preferences folder.
    ProcessResult defaults(std::vector<std::string> arguments, std::optional<std::string> input = std::nullopt)
    {
        ProcessOptions options;
        options.environment = { { "KORBANHOLD_PREFERENCES_DIR", folder.string() } };
        options.standardInput = std::move(input);
        arguments.insert(arguments.begin(), "defaults");
        return korbanhold(arguments, options);
    }

    static ProcessResult korbanhold(const std::vector<std::string>& arguments, const ProcessOptions& options)
    {
        return testsupport::runProcess(testsupport::builtProgram("tools/korbanhold"), arguments, options);
    }

    // The command failed with `status` and said why in one line on stderr that contains `reason`.
    static void expectFailure(const ProcessResult& result, int status, const std::string& reason)
    {
        EXPECT_EQ(result.exitCode, status) << result.standardError;
        EXPECT_EQ(lineCount(result.standardError), 1u) << result.standardError;
        EXPECT_NE(result.standardError.find(reason), std::string::npos) << result.standardError;
        EXPECT_EQ(result.standardOutput, "");
    }

    std::optional<Value> domain(const std::string& name) const
    {
        return UserDefaults("test", folder.path()).persistentDomainForName(name);
    }

    TempDir folder;
};

}

// ---------------------------------------------------------------- Round trips

TEST_F(DefaultsCommand, AStringWrittenForAKeyReadsBackAsPrettyJson)
{
    const auto written = defaults({ "write", "Ulmaridon.Korbanhold", "korbanholdPathKey", "/home/me" });
    EXPECT_EQ(written.exitCode, 0) << written.standardError;
    EXPECT_EQ(written.standardOutput, "");
    EXPECT_EQ(written.standardError, "");

    const auto read = defaults({ "read", "Ulmaridon.Korbanhold", "korbanholdPathKey" });
    EXPECT_EQ(read.exitCode, 0);
    EXPECT_EQ(read.standardOutput, "\"/home/me\"\n");
    EXPECT_EQ(domain("Ulmaridon.Korbanhold"), Value::dictionary({ { "korbanholdPathKey", Value("/home/me") } }));
}

TEST_F(DefaultsCommand, WritingAKeyKeepsTheOtherKeysOfTheDomain)
{
    ASSERT_EQ(defaults({ "write", "Ulmaridon.Korbanhold", "computerIdKey", "7" }).exitCode, 0);
    ASSERT_EQ(defaults({ "write", "Ulmaridon.Korbanhold", "userIdKey", "9" }).exitCode, 0);
    const auto read = defaults({ "read", "Ulmaridon.Korbanhold" });
    EXPECT_EQ(read.exitCode, 0);
    EXPECT_EQ(read.standardOutput, "{\n  \"computerIdKey\" : \"7\",\n  \"userIdKey\" : \"9\"\n}\n");
}

TEST_F(DefaultsCommand, AJsonValueKeepsItsKind)
{
    ASSERT_EQ(defaults({ "write", "d", "number", "--json", "-42" }).exitCode, 0);
    ASSERT_EQ(defaults({ "write", "d", "list", "--json", R"(["a", {"b": null}])" }).exitCode, 0);
    ASSERT_EQ(defaults({ "write", "d", "flag", "--json", "true" }).exitCode, 0);
    ASSERT_EQ(defaults({ "write", "d", "text", "--json", R"("1")" }).exitCode, 0);
    EXPECT_EQ(domain("d"),
        Value::dictionary({ { "number", Value::integer(-42) },
            { "list", Value::array({ Value("a"), Value::dictionary({ { "b", Value::null() } }) }) },
            { "flag", Value::boolean(true) }, { "text", Value("1") } }));
    EXPECT_EQ(defaults({ "read", "d", "number" }).standardOutput, "-42\n");
}

TEST_F(DefaultsCommand, WritingAWholeDomainReplacesEveryKey)
{
    ASSERT_EQ(defaults({ "write", "Ulmaridon.FileWatcherXpcService", "other", "x" }).exitCode, 0);
    const auto written
        = defaults({ "write", "Ulmaridon.FileWatcherXpcService", "--json", R"({"FileWatcherStatusKey":"1"})" });
    EXPECT_EQ(written.exitCode, 0) << written.standardError;
    EXPECT_EQ(domain("Ulmaridon.FileWatcherXpcService"), Value::dictionary({ { "FileWatcherStatusKey", Value("1") } }));
}

TEST_F(DefaultsCommand, DatesAndDataTravelInTheTaggedForm)
{
    const auto written
        = defaults({ "write", "d", "--json", R"({"when":{"$date":1700000000.5},"bytes":{"$data":"AP8="}})" });
    ASSERT_EQ(written.exitCode, 0) << written.standardError;
    const auto stored = domain("d");
    ASSERT_TRUE(stored);
    EXPECT_EQ(*stored->find("when"), Value::date(1700000000.5));
    EXPECT_EQ(*stored->find("bytes"), Value::data({ 0x00, 0xFF }));
    EXPECT_EQ(defaults({ "read", "d", "when" }).standardOutput, "{\n  \"$date\" : 1700000000.5\n}\n");
}

TEST_F(DefaultsCommand, DomainsListsEveryDomainInByteOrder)
{
    const auto none = defaults({ "domains" });
    EXPECT_EQ(none.exitCode, 0);
    EXPECT_EQ(none.standardOutput, "");
    for (const char* name :
        { "Ulmaridon.Korbanhold", "Ulmaridon.FileWatcherXpcService", "Ulmaridon.SyncFilesXpcService" })
        ASSERT_EQ(defaults({ "write", name, "k", "v" }).exitCode, 0);
    const auto listed = defaults({ "domains" });
    EXPECT_EQ(listed.exitCode, 0);
    EXPECT_EQ(listed.standardOutput,
        "Ulmaridon.FileWatcherXpcService\nUlmaridon.Korbanhold\nUlmaridon.SyncFilesXpcService\n");
}

TEST_F(DefaultsCommand, DeleteRemovesAKeyOrTheWholeDomain)
{
    ASSERT_EQ(defaults({ "write", "d", "--json", R"({"a":"1","b":"2"})" }).exitCode, 0);
    EXPECT_EQ(defaults({ "delete", "d", "a" }).exitCode, 0);
    EXPECT_EQ(domain("d"), Value::dictionary({ { "b", Value("2") } }));
    EXPECT_EQ(defaults({ "delete", "d" }).exitCode, 0);
    EXPECT_EQ(domain("d"), std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(folder / "d.json"));
}

TEST_F(DefaultsCommand, ExportPrintsWhatImportReadsFromAFileOrStandardInput)
{
    const std::string dictionary = R"({"FileWatchedDataKey":[{"BaseSystemFileIDKey":"12","when":{"$date":3}}]})";
    const auto fromInput = defaults({ "import", "first", "-" }, dictionary);
    EXPECT_EQ(fromInput.exitCode, 0) << fromInput.standardError;

    const auto exported = defaults({ "export", "first" });
    EXPECT_EQ(exported.exitCode, 0);
    testsupport::writeFile(folder / "exported.txt", exported.standardOutput);
    const auto fromFile = defaults({ "import", "second", (folder / "exported.txt").string() });
    EXPECT_EQ(fromFile.exitCode, 0) << fromFile.standardError;

    ASSERT_TRUE(domain("first"));
    EXPECT_EQ(domain("second"), domain("first"));
    EXPECT_TRUE(domain("second")->find("FileWatchedDataKey")->at(0).find("when")->isDate());
}

TEST_F(DefaultsCommand, TheServicesOwnDefaultsReadAsItsApplicationDomain)
{
    UserDefaults service("Ulmaridon.SyncFilesXpcService", folder.path());
    const Value table = Value::array({ Value::dictionary({ { "BaseSystemFileIDKey", Value("12") } }) });
    service.setObject(table, "FileWatchedDataKey");
    const auto read = defaults({ "read", "Ulmaridon.SyncFilesXpcService", "FileWatchedDataKey" });
    EXPECT_EQ(read.exitCode, 0);
    EXPECT_EQ(read.standardOutput, "[\n  {\n    \"BaseSystemFileIDKey\" : \"12\"\n  }\n]\n");
}

TEST_F(DefaultsCommand, AWriteRepairsADomainFileThatIsNotValid)
{
    testsupport::writeFile(folder / "d.json", "[1, 2");
    const auto read = defaults({ "read", "d" });
    EXPECT_EQ(read.exitCode, 1);
    EXPECT_NE(read.standardError.find((folder / "d.json").string()), std::string::npos) << read.standardError;
    EXPECT_EQ(defaults({ "write", "d", "k", "v" }).exitCode, 0);
    EXPECT_EQ(domain("d"), Value::dictionary({ { "k", Value("v") } }));
}

TEST_F(DefaultsCommand, DeletingADomainFileThatIsNotValidRemovesIt)
{
    testsupport::writeFile(folder / "d.json", "");
    EXPECT_EQ(defaults({ "delete", "d" }).exitCode, 0);
    EXPECT_FALSE(std::filesystem::exists(folder / "d.json"));
}

// ---------------------------------------------------------------- The preferences folder

TEST_F(DefaultsCommand, WithoutTheOverrideTheFolderIsUnderXdgConfigHome)
{
    ProcessOptions options;
    options.environment = { { "KORBANHOLD_PREFERENCES_DIR", std::nullopt }, { "XDG_CONFIG_HOME", folder.string() } };
    ASSERT_EQ(korbanhold({ "defaults", "write", "d", "k", "v" }, options).exitCode, 0);
    EXPECT_TRUE(std::filesystem::is_regular_file(folder / "korbanhold" / "Preferences" / "d.json"));
}

TEST_F(DefaultsCommand, WithoutXdgConfigHomeTheFolderIsUnderTheHomeFolder)
{
    ProcessOptions options;
    options.environment = { { "KORBANHOLD_PREFERENCES_DIR", std::nullopt }, { "XDG_CONFIG_HOME", std::nullopt },
        { "HOME", folder.string() } };
    ASSERT_EQ(korbanhold({ "defaults", "write", "d", "k", "v" }, options).exitCode, 0);
    EXPECT_TRUE(std::filesystem::is_regular_file(folder / ".config" / "korbanhold" / "Preferences" / "d.json"));
}

// ---------------------------------------------------------------- Exit statuses

TEST_F(DefaultsCommand, AMissingDomainExitsWithOne)
{
    expectFailure(defaults({ "read", "Ulmaridon.Korbanhold" }), 1, "Domain Ulmaridon.Korbanhold does not exist");
    expectFailure(defaults({ "read", "Ulmaridon.Korbanhold", "k" }), 1, "Domain Ulmaridon.Korbanhold does not exist");
    expectFailure(defaults({ "export", "Ulmaridon.Korbanhold" }), 1, "Domain Ulmaridon.Korbanhold does not exist");
    expectFailure(defaults({ "delete", "Ulmaridon.Korbanhold" }), 1, "Domain Ulmaridon.Korbanhold does not exist");
    expectFailure(defaults({ "delete", "Ulmaridon.Korbanhold", "k" }), 1, "Domain Ulmaridon.Korbanhold does not exist");
}

TEST_F(DefaultsCommand, AMissingKeyExitsWithOne)
{
    ASSERT_EQ(defaults({ "write", "d", "k", "v" }).exitCode, 0);
    expectFailure(defaults({ "read", "d", "other" }), 1, "Key other does not exist in domain d");
    expectFailure(defaults({ "delete", "d", "other" }), 1, "Key other does not exist in domain d");
}

TEST_F(DefaultsCommand, AWriteThatFailsExitsWithOne)
{
    testsupport::writeFile(folder / "file", "");
    ProcessOptions options;
    options.environment = { { "KORBANHOLD_PREFERENCES_DIR", (folder / "file" / "Preferences").string() } };
    const auto result = korbanhold({ "defaults", "write", "d", "k", "v" }, options);
    expectFailure(result, 1, "Could not write preference domain d");
}

TEST_F(DefaultsCommand, UsageErrorsExitWithTwo)
{
    expectFailure(korbanhold({}, {}), 2, "subcommand");
    expectFailure(defaults({}), 2, "subcommand");
    expectFailure(defaults({ "read" }), 2, "domain is required");
    expectFailure(defaults({ "read", "d", "k", "extra" }), 2, "extra");
    expectFailure(defaults({ "write", "d", "k" }), 2, "VALUE");
    expectFailure(defaults({ "write", "d" }), 2, "KEY");
    expectFailure(defaults({ "write", "d", "k", "v", "--json", "1" }), 2, "VALUE");
    expectFailure(defaults({ "write", "d", "k", "--json", "{not json" }), 2, "Not valid JSON");
    expectFailure(defaults({ "write", "d", "--json", "[1]" }), 2, "must be a JSON object");
    expectFailure(defaults({ "write", "d", "--json", R"({"x":{"$date":"soon"}})" }), 2, "Not valid JSON");
    expectFailure(defaults({ "read", "../d" }), 2, "Invalid preference domain name");
    expectFailure(defaults({ "write", ".hidden", "k", "v" }), 2, "Invalid preference domain name");
    expectFailure(defaults({ "import", "d", (folder / "missing.json").string() }), 2, "Cannot read");
    expectFailure(defaults({ "import", "d", "-" }, "[]"), 2, "must be a JSON object");
    expectFailure(defaults({ "read", "d", "--unknown" }), 2, "--unknown");
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST_F(DefaultsCommand, HelpExitsWithZero)
{
    const auto help = defaults({ "--help" });
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.standardOutput.find("write"), std::string::npos);
}
