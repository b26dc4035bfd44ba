#include "messages/Operations.h"
#include "platform/Json.h"

#include <gtest/gtest.h>

#include <type_traits>

using namespace messages;
using platform::Value;

namespace {

// A record with every property of its key list set to a text naming its key.
template<typename Record>
Record everyPropertySet()
{
    Record record;
    std::apply([&](const auto&... key) { ((record.*key.property = "value of " + std::string(key.key)), ...); },
        KeyList<Record>::keys);
    return record;
}

}

TEST(WireCodec, EveryRequestBodyReadsBackIntoTheRecordItWasWrittenFrom)
{
    forEachOperation([](const auto& operation) {
        using Query = typename std::decay_t<decltype(operation)>::QueryRecord;
        SCOPED_TRACE(operation.selector);
        Query query;
        if constexpr (IsRecordList<Query>::value)
            query = { everyPropertySet<typename Query::value_type>(), {} };
        else
            query = everyPropertySet<Query>();
        const std::string body = platform::writeJson(encode(query));
        const Query decoded = decode<Query>(platform::readJson(body));
        EXPECT_EQ(platform::writeJson(encode(decoded)), body);
    });
}

TEST(WireCodec, BatchBodyAsSentIsTheSyncDataArrayAndReadsBackAsTheListOfChanges)
{
    std::vector<SyncFilesInTableAndCloudQuery> changes(2);
    changes[0].fullPath = "/a";
    changes[1].changeType = "Deleted";
    const Value sent = *QueryParser::parseSyncFilesInTableAndCloudQuery(changes).find(syncDataKey);
    const auto received =
        decode<std::vector<SyncFilesInTableAndCloudQuery>>(platform::readJson(platform::writeJson(sent)));
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(received[0].fullPath, "/a");
    EXPECT_FALSE(received[0].changeType.has_value());
    EXPECT_EQ(received[1].changeType, "Deleted");
}

TEST(WireCodec, RequestTextPropertiesReadFromABodyTakeTextOnly)
{
    const auto query = decode<RegisterComputerQuery>(platform::readJson(R"({"UserID": 5, "KorbanholdPath": "/k"})"));
    EXPECT_FALSE(query.userId.has_value());
    EXPECT_EQ(query.korbanholdPath, "/k");
}

TEST(WireCodec, ReplyRecordWritesPresentPropertiesIncludingErrorAndLeavesAbsentOnesOut)
{
    InsertFileResponseData reply;
    reply.returnStatus = Value("1");
    reply.error = Value::dictionary({ { "Message", "m" } });
    const Value json = encode(reply);
    EXPECT_EQ(json.keys(), (std::vector<std::string> { "ReturnStatus", "error" }));
    EXPECT_EQ(platform::writeJson(json), R"({"ReturnStatus":"1","error":{"Message":"m"}})");
}

TEST(WireCodec, SharedTransferReplyWrittenByAServerIsReadBackWhole)
{
    GetSharedFilesTransferDataResponseData sent;
    sent.fileToTransferArray.resize(2);
    sent.fileToTransferArray[0].fullPathfromFileTable = Value("/from");
    sent.fileToTransferArray[1].isFile = Value::boolean(false);
    sent.RecFileFromTransferArray.resize(1);
    sent.RecFileFromTransferArray[0].fullPathFromFileTable = Value("/From");
    sent.SharedfoldersWithStatusArray.resize(1);
    sent.SharedfoldersWithStatusArray[0].fileId = Value("4");
    sent.ReturnStatus = Value("1");

    const Value json = platform::readJson(platform::writeJson(encode(sent)));
    EXPECT_EQ(json.keys(), (std::vector<std::string> { "FileToTransfer", "OwnerComputers", "RecFileFromTransfer",
                               "ReturnStatus", "SharedfoldersWithStatus" }));
    const auto received = DataParser::parseGetSharedFilesTransferDataResponseData(json);
    EXPECT_EQ(encode(received), encode(sent));
    ASSERT_EQ(received.fileToTransferArray.size(), 2u);
    EXPECT_EQ(received.fileToTransferArray[0].fullPathfromFileTable, Value("/from"));
    EXPECT_TRUE(received.OwnerComputersArray.empty());
}

TEST(WireCodec, BareStatusReplyWrittenByAServerMakesTheBareDecoderRaise)
{
    BareStatusReply reply;
    reply.ReturnStatus = Value("1");
    EXPECT_EQ(platform::writeJson(encode(reply)), R"({"ReturnStatus":"1"})");
    EXPECT_THROW(DataParser::parseUploadFileWithStreamResponseData(encode(reply)), platform::Exception);
}
