// The service's status file: what each record writes, that a file keeps an earlier process's records, and that the
// skipped names stay few and each once.

#include "sync/ServiceStatus.h"

#include "support/TempDir.h"

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <unistd.h>

namespace status = engine::status;
namespace json = boost::json;

namespace {

class ServiceStatus : public ::testing::Test {
protected:
    ServiceStatus() { status::recordTo(file); }
    json::object written() const { return status::read(file); }

    testsupport::TempDir folder;
    std::filesystem::path file = folder / "state" / "status.json";
};

}

TEST_F(ServiceStatus, APassAndItsStoredReportAreWrittenWithTheProcessAndThePassNumber)
{
    status::passEnded(3);
    status::reportStored(3);
    const auto contents = written();
    const auto pass = contents.at("lastPass").as_object();
    const auto stored = contents.at("lastStored").as_object();
    EXPECT_EQ(contents.at("pid").as_int64(), ::getpid());
    EXPECT_EQ(pass.at("pid").as_int64(), ::getpid());
    EXPECT_EQ(pass.at("records").to_number<int>(), 3);
    EXPECT_EQ(stored.at("pass"), pass.at("pass"));
    EXPECT_EQ(stored.at("records").to_number<int>(), 3);
    EXPECT_GT(stored.at("at").to_number<double>(), 1.7e9);
}

TEST_F(ServiceStatus, AFailedReportKeepsItsErrorAndURLAndBelongsToTheLastPassWithRecords)
{
    status::passEnded(2);
    const auto reported = written().at("lastPass").at("pass");
    status::passEnded(0);
    status::reportFailed("Could not connect to the server.", "http://h:1/KorbanholdRestService/x");
    const auto failed = written().at("lastFailed").as_object();
    EXPECT_EQ(failed.at("pass"), reported);
    EXPECT_EQ(failed.at("error"), "Could not connect to the server.");
    EXPECT_EQ(failed.at("url"), "http://h:1/KorbanholdRestService/x");
}

TEST_F(ServiceStatus, AnEarlierProcesssRecordsStayUntilReplaced)
{
    testsupport::writeFile(file, R"({"pid":1,"lastStored":{"pid":1,"pass":9,"at":0,"records":4}})");
    status::recordTo(file);
    status::passEnded(0);
    const auto contents = written();
    EXPECT_EQ(contents.at("lastStored").at("pid"), 1);
    EXPECT_EQ(contents.at("lastPass").at("pid").as_int64(), ::getpid());
}

TEST_F(ServiceStatus, SkippedNamesAreTheLatestOnesEachOnce)
{
    for (std::size_t index = 0; index < status::skippedNamesKept + 5; ++index)
        status::nameSkipped("/k/name" + std::to_string(index) + "#");
    status::nameSkipped("/k/name10#");
    EXPECT_FALSE(written().contains("skippedNames")) << "written before the pass ended";
    status::passEnded(0);
    const auto names = written().at("skippedNames").as_array();
    ASSERT_EQ(names.size(), status::skippedNamesKept);
    EXPECT_EQ(names.front(), "/k/name5#");
    EXPECT_EQ(names.back(), "/k/name10#");
    EXPECT_EQ(std::count(names.begin(), names.end(), json::value("/k/name10#")), 1);
}

TEST_F(ServiceStatus, TheModeAndAWaitingRetryAreWrittenAndTheRetryGoesOnceItHasRaised)
{
    status::modeChosen("guarded");
    status::retryScheduled(4.0);
    auto contents = written();
    EXPECT_EQ(contents.at("mode"), "guarded");
    EXPECT_GT(contents.at("retryPending").at("at").to_number<double>(), 1.7e9);
    status::retryCleared();
    contents = written();
    EXPECT_FALSE(contents.contains("retryPending"));
    EXPECT_EQ(contents.at("mode"), "guarded");
}
