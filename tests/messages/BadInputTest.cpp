#include "messages/Operations.h"
#include "platform/Json.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <vector>

using namespace messages;
using platform::Value;

namespace {

// Replies of shapes that no decoder expects at the top level.
std::vector<ReplyValue> wrongShapes()
{
    return {
        std::nullopt,
        Value::null(),
        Value("ReturnStatus"),
        Value::integer(1),
        Value::boolean(true),
        platform::readJson(R"([{"ReturnStatus": "1", "FileID": "7"}])"),
        Value::array(),
    };
}

// True when a decoder's result holds nothing from the reply: every property absent, every list empty.
template<typename Result>
bool holdsNothing(const Result& result)
{
    if constexpr (std::is_same_v<Result, ReplyValue>) {
        return !result.has_value();
    } else if constexpr (IsRecordList<Result>::value) {
        return result.empty();
    } else if constexpr (std::is_same_v<Result, GetSharedFilesTransferDataResponseData>) {
        return result.fileToTransferArray.empty() && result.OwnerComputersArray.empty()
            && result.RecFileFromTransferArray.empty() && result.SharedfoldersWithStatusArray.empty()
            && !result.ReturnStatus.has_value();
    } else {
        bool errorAbsent = true;
        if constexpr (requires { result.error; })
            errorAbsent = !result.error.has_value();
        return errorAbsent && encode(result).count() == 0;
    }
}

}

TEST(BadReplies, EveryDecoderGivenAReplyOfTheWrongShapeGivesAnEmptyResultWithoutFailing)
{
    forEachOperation([](const auto& operation) {
        using Result = typename std::decay_t<decltype(operation)>::ResponseRecord;
        if constexpr (!std::is_same_v<Result, StreamedReply>) {
            SCOPED_TRACE(operation.selector);
            for (const ReplyValue& reply : wrongShapes()) {
                SCOPED_TRACE(reply ? reply->description() : "absent");
                // The batch decoder reads arrays; wrong shapes for it are tried below.
                if (IsRecordList<Result>::value && reply && reply->isArray())
                    continue;
                EXPECT_TRUE(holdsNothing(operation.decoder(reply)));
            }
        }
    });
}

TEST(BadReplies, BatchReplyThatIsAnObjectOrTextGivesNoRecords)
{
    for (const Value& reply : { platform::readJson(R"({"FileID": "7", "ReturnStatus": "1"})"), Value("[]"),
             Value::integer(3), Value::null() }) {
        SCOPED_TRACE(reply.description());
        EXPECT_TRUE(DataParser::parseSyncFilesInTableAndCloudResponseData(reply).empty());
    }
    EXPECT_TRUE(DataParser::parseSyncFilesInTableAndCloudResponseData(std::nullopt).empty());
}

TEST(BadReplies, BatchReplyElementsThatAreNotObjectsGiveRecordsWithEveryPropertyAbsent)
{
    const auto results = DataParser::parseSyncFilesInTableAndCloudResponseData(
        platform::readJson(R"([1, "FileID", null, [{"FileID": "7"}], {"FileID": "8"}])"));
    ASSERT_EQ(results.size(), 5u);
    for (std::size_t index = 0; index < 4; ++index) {
        EXPECT_FALSE(results[index].fileId.has_value()) << index;
        EXPECT_FALSE(results[index].returnStatus.has_value()) << index;
        EXPECT_FALSE(results[index].baseSystemFileID.has_value()) << index;
    }
    EXPECT_EQ(results[4].fileId, Value("8"));
}

TEST(BadReplies, SharedTransferMembersThatAreNotArraysGiveEmptyLists)
{
    const auto record = DataParser::parseGetSharedFilesTransferDataResponseData(platform::readJson(R"({
        "FileToTransfer": {"FullPath": "/a"},
        "OwnerComputers": "none",
        "RecFileFromTransfer": 3,
        "SharedfoldersWithStatus": null,
        "ReturnStatus": ["1"]
    })"));
    EXPECT_TRUE(record.fileToTransferArray.empty());
    EXPECT_TRUE(record.OwnerComputersArray.empty());
    EXPECT_TRUE(record.RecFileFromTransferArray.empty());
    EXPECT_TRUE(record.SharedfoldersWithStatusArray.empty());
    // The status is kept as found, whatever its kind.
    EXPECT_EQ(record.ReturnStatus, Value::array({ "1" }));
}

TEST(BadReplies, SharedTransferElementsOfTheWrongKindGiveRecordsWithEveryFieldAbsent)
{
    const auto record = DataParser::parseGetSharedFilesTransferDataResponseData(platform::readJson(R"({
        "FileToTransfer": [1, "x", null, [], {"FullPath": "/a"}],
        "OwnerComputers": [true],
        "RecFileFromTransfer": [[{"SavedFileID": "1"}]],
        "SharedfoldersWithStatus": ["FileID"]
    })"));
    ASSERT_EQ(record.fileToTransferArray.size(), 5u);
    for (std::size_t index = 0; index < 4; ++index)
        EXPECT_TRUE(holdsNothing(record.fileToTransferArray[index])) << index;
    EXPECT_EQ(record.fileToTransferArray[4].fullPath, Value("/a"));
    ASSERT_EQ(record.OwnerComputersArray.size(), 1u);
    EXPECT_TRUE(holdsNothing(record.OwnerComputersArray[0]));
    ASSERT_EQ(record.RecFileFromTransferArray.size(), 1u);
    EXPECT_TRUE(holdsNothing(record.RecFileFromTransferArray[0]));
    ASSERT_EQ(record.SharedfoldersWithStatusArray.size(), 1u);
    EXPECT_TRUE(holdsNothing(record.SharedfoldersWithStatusArray[0]));
}

TEST(BadReplies, BareValueDecodersGivenAReplyThatIsNotAnObjectReturnAbsentWithoutRaising)
{
    for (const ReplyValue& reply : wrongShapes()) {
        SCOPED_TRACE(reply ? reply->description() : "absent");
        EXPECT_FALSE(DataParser::parseUploadFileWithStreamResponseData(reply).has_value());
        EXPECT_FALSE(DataParser::parseUpdateSendFileToTransferResponseData(reply).has_value());
    }
}

TEST(BadReplies, DeeplyNestedValuesAreKeptAsFoundWithoutBeingWalked)
{
    std::string text = R"({"ReturnStatus": )";
    text += std::string(200, '[') + std::string(200, ']') + "}";
    const auto record = DataParser::parseLogErrorResponseData(platform::readJson(text));
    ASSERT_TRUE(record.returnStatus.has_value());
    EXPECT_TRUE(record.returnStatus->isArray());
}
