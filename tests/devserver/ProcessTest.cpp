// The server as a program: its command line, its listening line, its ending, and what it keeps across restarts.

#include "devserver/DevServerTest.h"
#include "support/SourceTree.h"
#include "support/TempDir.h"

#include <sqlite3.h>

#include <csignal>
#include <fstream>
#include <regex>
#include <sstream>

using namespace devservertest;
using platform::Value;

TEST(ServerProgram, PrintsExactlyOneListeningLineWithTheServiceBaseUrl)
{
    DevServerProcess server;
    EXPECT_TRUE(std::regex_match(
        server.listeningLine(), std::regex("listening on http://127\\.0\\.0\\.1:[0-9]+/KorbanholdRestService/")))
        << server.listeningLine();
    EXPECT_GT(server.port(), 0);
    EXPECT_EQ(postBatch(server, {}).status, 200);
}

TEST(ServerProgram, EndsCleanlyOnSigterm)
{
    DevServerProcess server;
    EXPECT_EQ(server.stop(SIGTERM).exitCode, 0);
}

TEST(ServerProgram, EndsCleanlyOnSigintEvenWithARequestHeldBack)
{
    DevServerProcess server({ "--db", ":memory:", "--fault", "kind=withhold" });
    std::thread client([&] { send({ .url = server.methodUrl(batchMethod), .body = "[]" }); });
    // Give the request time to arrive and be held back.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(server.stop(SIGINT).exitCode, 0);
    client.join();
}

TEST(ServerProgram, RefusesAPortThatIsTaken)
{
    DevServerProcess first;
    const auto result = runServerProgram({ "--db", ":memory:", "--port", std::to_string(first.port()) });
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.standardError.find("cannot listen on 127.0.0.1:" + std::to_string(first.port())), std::string::npos)
        << result.standardError;
}

TEST(ServerProgram, KeepsItsDatabaseUnderXdgStateHomeByDefault)
{
    testsupport::TempDir state;
    {
        testsupport::ProcessOptions options;
        options.environment = { { "XDG_STATE_HOME", state.string() } };
        DevServerProcess server({}, options);
        postBatch(server, { { "Created", "h\\a" } });
    }
    EXPECT_TRUE(std::filesystem::exists(state / "korbanhold/devserver.sqlite"));
}

TEST(ServerProgram, PrintsTheSchemaThatItsDocumentationShows)
{
    const auto result = runServerProgram({ "--print-schema" });
    ASSERT_EQ(result.exitCode, 0);
    const auto& schema = result.standardOutput;
    EXPECT_NE(schema.find("CREATE TABLE IF NOT EXISTS files"), std::string::npos);
    std::ifstream file(testsupport::sourceTreeFile("docs/devserver.md"));
    std::stringstream text;
    text << file.rdbuf();
    EXPECT_NE(text.str().find(schema), std::string::npos) << "docs/devserver.md does not quote the schema as it is";
}

class Persistence : public ::testing::Test {
protected:
    testsupport::TempDir folder;
    std::string database = (folder / "server.sqlite").string();
};

TEST_F(Persistence, TheFileTablesAndTheRequestLogSurviveARestartWithTheSameDatabase)
{
    std::map<std::string, long long> before;
    {
        DevServerProcess server({ "--db", database });
        postBatch(server, { { "Created", "h\\a" }, { "Created", "h\\a\\x.txt" } });
        before = fileTable(server, "7");
        ASSERT_EQ(server.stop(SIGTERM).exitCode, 0);
    }
    DevServerProcess server({ "--db", database });
    EXPECT_EQ(fileTable(server, "7"), before);
    EXPECT_EQ(get(server.adminUrl("requests")).json().count(), 1u);
    // Ids go on from where they were.
    postBatch(server, { { "Created", "h\\b" } });
    EXPECT_GT(fileTable(server, "7").at("h\\b"), before.at("h\\a\\x.txt"));
}

TEST_F(Persistence, TheDatabaseIsInWalMode)
{
    {
        DevServerProcess server({ "--db", database });
    }
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(db, "PRAGMA journal_mode", -1, &statement, nullptr);
    ASSERT_EQ(sqlite3_step(statement), SQLITE_ROW);
    EXPECT_STREQ(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)), "wal");
    sqlite3_finalize(statement);
    sqlite3_close(db);
}

TEST_F(Persistence, ADatabaseOfAnotherSchemaVersionIsRefused)
{
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(database.c_str(), &db), SQLITE_OK);
    sqlite3_exec(db, "PRAGMA user_version = 99", nullptr, nullptr, nullptr);
    sqlite3_close(db);
    const auto result = runServerProgram({ "--db", database, "--port", "0" });
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.standardError.find("schema version 99"), std::string::npos) << result.standardError;
}
