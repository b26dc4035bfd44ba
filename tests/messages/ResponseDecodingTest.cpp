#include "ExpectedKeys.h"

#include "messages/DataParser.h"
#include "messages/ResponseKeys.h"
#include "messages/WireCodec.h"
#include "platform/Exception.h"
#include "platform/Json.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

using namespace messages;
using namespace messages::testing;
using platform::Value;

namespace {

template<typename Reply>
void expectFields(const char* record, Reply (*decoder)(const ReplyValue&),
    const std::vector<ExpectedField<Reply>>& expected, ErrorRule rule)
{
    expectDecodedKeys<Reply>(record, [&](const Value& reply) { return decoder(reply); }, expected, rule);
}

// The batch decoder, given one element: the one record it makes from a reply array holding just that element.
SyncFilesInTableAndCloudResponseData decodeOneResult(const Value& element)
{
    const auto results = DataParser::parseSyncFilesInTableAndCloudResponseData(Value::array({ element }));
    EXPECT_EQ(results.size(), 1u);
    return results.empty() ? SyncFilesInTableAndCloudResponseData {} : results.front();
}

}

TEST(ResponseDecoding, EveryReplyRecordIsFilledFromExactlyItsKeysAndLeftAbsentWithoutThem)
{
    expectFields("UserRegistrationResponseData", DataParser::parseUserRegistrationReponseData, {
        { "ReturnStatus", &UserRegistrationResponseData::returnStatus },
        { "ReturnVal", &UserRegistrationResponseData::returnValue },
        { "UserID", &UserRegistrationResponseData::userId },
        { "CloudComputerID", &UserRegistrationResponseData::cloudComputerId },
    }, ErrorFromReply);
    expectFields("RegisterComputerResponseData", DataParser::parseRegisterComputerResponseData, {
        { "ComputerID", &RegisterComputerResponseData::computerId },
        { "ReturnStatus", &RegisterComputerResponseData::returnStatus },
    }, ErrorFromReply);
    expectFields("SendActivationMailResponseData", DataParser::parseSendActivationMailResponseData, {
        { "ReturnStatus", &SendActivationMailResponseData::returnStatus },
        { "ReturnMsg", &SendActivationMailResponseData::returnMsg },
    }, ErrorFromReply);
    expectFields("OneTimeSyncOwnersSharedFoldersResponseData",
        DataParser::parseOneTimeSyncOwnersSharedFoldersResponseData, {
        { "ReturnStatus", &OneTimeSyncOwnersSharedFoldersResponseData::returnStatus },
    }, ErrorFromReply);
    expectFields("TransferFilesFromCloudToBaseSystemResponseData",
        DataParser::parseTransferFilesFromCloudToBaseSystemResponseData, {
        { "ReturnStatus", &TransferFilesFromCloudToBaseSystemResponseData::returnStatus },
    }, ErrorFromReply);
    expectFields("GetTopFileUploadResponseData", DataParser::parseGetTopFileUploadResponseData, {
        { "Attachment", &GetTopFileUploadResponseData::attachment },
        { "FileName", &GetTopFileUploadResponseData::fileName },
        { "FileUploadID", &GetTopFileUploadResponseData::fileUploadId },
        { "IsFile", &GetTopFileUploadResponseData::isFile },
        { "ReturnStatus", &GetTopFileUploadResponseData::returnStatus },
        { "ServerPath", &GetTopFileUploadResponseData::serverPath },
        { "ToComputerID", &GetTopFileUploadResponseData::toComputerId },
        { "TransitUploadPath", &GetTopFileUploadResponseData::transitUploadPath },
        { "UploadProcessed", &GetTopFileUploadResponseData::uploadProcessed },
    }, ErrorFromReply);
    expectFields("CheckUserMailActivationStatusResponseData",
        DataParser::parseCheckUserMailActivationStatusResponseData, {
        { "ReturnStatus", &CheckUserMailActivationStatusResponseData::returnStatus },
        { "ReturnVal", &CheckUserMailActivationStatusResponseData::returnValue },
    }, ErrorFromReply);
    expectFields("UpdateFileUploadResponseData", DataParser::parseUpdateFileUploadResponseData, {
        { "ReturnStatus", &UpdateFileUploadResponseData::returnStatus },
    }, ErrorFromReply);
    expectFields("GetTopFileRequestResponseData", DataParser::parseGetTopFileRequestResponseData, {
        { "FilePath", &GetTopFileRequestResponseData::filePath },
        { "FileRequestID", &GetTopFileRequestResponseData::fileRequestID },
        { "ReturnStatus", &GetTopFileRequestResponseData::returnStatus },
        { "TransitDownloadPath", &GetTopFileRequestResponseData::TransitDownloadPath },
        { "FromShared", &GetTopFileRequestResponseData::sharedFlag },
        { "FileID", &GetTopFileRequestResponseData::ownerFileID },
        { "ByteStartPos", &GetTopFileRequestResponseData::byteStartPos },
    }, ErrorFromReply);
    expectFields("UpdateFileRequestResponseData", DataParser::parseUpdateFileRequestResponseData, {
        { "ReturnStatus", &UpdateFileRequestResponseData::ReturnStatus },
    }, ErrorFromReply);
    expectDecodedKeys<SyncFilesInTableAndCloudResponseData>("SyncFilesInTableAndCloudResponseData", decodeOneResult, {
        { "FileID", &SyncFilesInTableAndCloudResponseData::fileId },
        { "ReturnStatus", &SyncFilesInTableAndCloudResponseData::returnStatus },
        { "BaseSystemFileID", &SyncFilesInTableAndCloudResponseData::baseSystemFileID },
    }, NoError);
    expectFields("UpdateComputerStatusResponseData", DataParser::parseUpdateComputerStatusResponseData, {
        { "ReturnStatus", &UpdateComputerStatusResponseData::returnStatus },
        { "VersionNumber", &UpdateComputerStatusResponseData::VersionNumber },
    }, ErrorFromReply);
    expectFields("OneTimeSyncFilesResponseData", DataParser::parseOneTimeSyncFilesResponseData, {
        { "ReturnStatus", &OneTimeSyncFilesResponseData::returnStatus },
    }, ErrorFromReply);
    expectFields("SendPasswordToMailIdResponseData", DataParser::parseSendPasswordToMailIdResponseData, {
        { "ReturnStatus", &SendPasswordToMailIdResponseData::returnStatus },
        { "ReturnMsg", &SendPasswordToMailIdResponseData::returnMsg },
    }, ErrorFromReply);
    expectFields("LogErrorResponseData", DataParser::parseLogErrorResponseData, {
        { "ReturnStatus", &LogErrorResponseData::returnStatus },
    }, ErrorFromReply);
    expectFields("UpdateFileExistResponseData", DataParser::parseUpdateFileExistResponseData, {
        { "ReturnStatus", &UpdateFileExistResponseData::returnStatus },
    }, ErrorFromReply);
    expectFields("UpdateFileSendReceivedResponseData", DataParser::parseUpdateFileSendReceivedResponseData, {
        { "ReturnStatus", &UpdateFileSendReceivedResponseData::returnStatus },
    }, ErrorFromReply);
    expectFields("IsFileExistsInCloudResponseData", DataParser::parseIsFileExistsInCloudResponseData, {
        { "IsExists", &IsFileExistsInCloudResponseData::isExists },
        { "ReturnStatus", &IsFileExistsInCloudResponseData::returnStatus },
    }, ErrorFromReply);
    expectFields("UpdateFileReceivedResponseData", DataParser::parseUpdateFileReceivedResponseData, {
        { "ReturnStatus", &UpdateFileReceivedResponseData::ReturnStatus },
    }, ErrorFromReply);
    expectFields("DeleteReceivedFileFromTransferResponseData",
        DataParser::parseDeleteReceivedFileFromTransferResponseData, {
        { "ReturnStatus", &DeleteReceivedFileFromTransferResponseData::ReturnStatus },
    }, ErrorFromReply);
    expectFields("InsertFileResponseData", DataParser::parseInsertFileResponseData, {
        { "FileID", &InsertFileResponseData::fileID },
        { "ReturnStatus", &InsertFileResponseData::returnStatus },
    }, ErrorFromReply);
    expectFields("InsertSharedFilesTransferResponseData", DataParser::parseInsertSharedFilesTransferResponseData, {
        { "ReturnStatus", &InsertSharedFilesTransferResponseData::returnStatus },
    }, ErrorFromReply);
    expectFields("UpdateBSUploadStreamStartedResponseData", DataParser::parseUpdateBSUploadStreamStartedResponseData, {
        { "ReturnStatus", &UpdateBSUploadStreamStartedResponseData::returnStatus },
    }, ErrorFromReply);
    expectFields("UpdateBSDownloadStreamStartedResponseData",
        DataParser::parseUpdateBSDownloadStreamStartedResponseData, {
        { "ReturnStatus", &UpdateBSDownloadStreamStartedResponseData::returnStatus },
    }, ErrorFromReply);
    expectFields("UpdateBSDownloadStreamFailedResponseData",
        DataParser::parseUpdateBSDownloadStreamFailedResponseData, {
        { "ReturnStatus", &UpdateBSDownloadStreamFailedResponseData::returnStatus },
    }, ErrorFromReply);
    expectFields("CheckFileExistsInDownloadsResponseData", DataParser::parseCheckFileExistsInDownloadsResponseData, {
        { "ByteStartPos", &CheckFileExistsInDownloadsResponseData::byteStartPos },
        { "ReturnStatus", &CheckFileExistsInDownloadsResponseData::returnStatus },
    }, ErrorNeverRead);
    expectFields("UpdateBSUploadStreamFailedResponseData", DataParser::parseUpdateBSUploadStreamFailedResponseData, {
        { "ReturnStatus", &UpdateBSUploadStreamFailedResponseData::returnStatus },
    }, ErrorFromReply);
    expectFields("CheckFileExistsInTransfersResponseData", DataParser::parseCheckFileExistsInTransfersResponseData, {
        { "ByteStartPos", &CheckFileExistsInTransfersResponseData::byteStartPos },
        { "ReturnStatus", &CheckFileExistsInTransfersResponseData::returnStatus },
    }, ErrorNeverRead);
    expectFields("UpdateBSSendStreamStartedResponseData", DataParser::parseUpdateBSSendStreamstartedResponseData, {
        { "ReturnStatus", &UpdateBSSendStreamStartedResponseData::returnStatus },
    }, ErrorNeverRead);
    expectFields("UpdateBSSendStreamFailedResponseData", DataParser::parseUpdateBSSendStreamFailedResponseData, {
        { "ReturnStatus", &UpdateBSSendStreamFailedResponseData::returnStatus },
    }, ErrorNeverRead);
    expectFields("UpdateBSReceiveStreamStartedResponseData",
        DataParser::parseUpdateBSReceiveStreamStartedResponseData, {
        { "ReturnStatus", &UpdateBSReceiveStreamStartedResponseData::returnStatus },
    }, ErrorNeverRead);
    expectFields("UpdateBSReceiveStreamFailedResponseData", DataParser::parseUpdateBSReceiveStreamFailedResponseData, {
        { "ReturnStatus", &UpdateBSReceiveStreamFailedResponseData::returnStatus },
    }, ErrorNeverRead);
    expectFields("GetTopFileDeleteResponseData", DataParser::parseGetTopFileResponseData, {
        { "DeleteRequestID", &GetTopFileDeleteResponseData::deleteRequestID },
        { "FilePath", &GetTopFileDeleteResponseData::filePath },
        { "ReturnStatus", &GetTopFileDeleteResponseData::returnStatus },
    }, ErrorNeverRead);
    expectFields("UpdateBSFileDeleteResponseData", DataParser::parseUpdateBSFileDeleteResponseData, {
        { "ReturnStatus", &UpdateBSFileDeleteResponseData::returnStatus },
    }, ErrorNeverRead);
}

// ---------------------------------------------------------------- Decoding rules

TEST(ResponseDecoding, RegisterComputerReplyGivesIdAndStatusAsTextAndNoErrorWhenTheReplyHasNone)
{
    const auto record = DataParser::parseRegisterComputerResponseData(
        Value::dictionary({ { "ComputerID", "42" }, { "ReturnStatus", "1" } }));
    ASSERT_TRUE(record.computerId.has_value());
    ASSERT_TRUE(record.returnStatus.has_value());
    EXPECT_TRUE(record.computerId->isString());
    EXPECT_EQ(*record.computerId, Value("42"));
    EXPECT_TRUE(record.returnStatus->isString());
    EXPECT_EQ(*record.returnStatus, Value("1"));
    EXPECT_FALSE(record.error.has_value());
}

TEST(ResponseDecoding, TopFileRequestReplyPutsFileIdInOwnerFileIdAndFromSharedInSharedFlag)
{
    const auto record = DataParser::parseGetTopFileRequestResponseData(
        Value::dictionary({ { "FileID", "77" }, { "FromShared", "True" } }));
    EXPECT_EQ(record.ownerFileID, Value("77"));
    EXPECT_EQ(record.sharedFlag, Value("True"));
    EXPECT_FALSE(record.filePath.has_value());
}

TEST(ResponseDecoding, DecodersThatDoNotReadErrorLeaveItAbsentEvenWhenTheReplyCarriesOne)
{
    const Value reply =
        Value::dictionary({ { "ReturnStatus", "0" }, { "error", Value::dictionary({ { "a", "b" } }) } });
    EXPECT_FALSE(DataParser::parseUpdateBSSendStreamstartedResponseData(reply).error.has_value());
    EXPECT_FALSE(DataParser::parseUpdateBSSendStreamFailedResponseData(reply).error.has_value());
    EXPECT_FALSE(DataParser::parseUpdateBSReceiveStreamStartedResponseData(reply).error.has_value());
    EXPECT_FALSE(DataParser::parseUpdateBSReceiveStreamFailedResponseData(reply).error.has_value());
    EXPECT_FALSE(DataParser::parseGetTopFileResponseData(reply).error.has_value());
    EXPECT_FALSE(DataParser::parseUpdateBSFileDeleteResponseData(reply).error.has_value());
    EXPECT_FALSE(DataParser::parseCheckFileExistsInDownloadsResponseData(reply).error.has_value());
    EXPECT_FALSE(DataParser::parseCheckFileExistsInTransfersResponseData(reply).error.has_value());
    // The status beside it is still read.
    EXPECT_EQ(DataParser::parseGetTopFileResponseData(reply).returnStatus, Value("0"));
}

TEST(ResponseDecoding, BatchReplyOfOneObjectGivesOneRecordWithItsThreeTexts)
{
    const auto results = DataParser::parseSyncFilesInTableAndCloudResponseData(Value::array(
        { Value::dictionary({ { "FileID", "7" }, { "ReturnStatus", "1" }, { "BaseSystemFileID", "9" } }) }));
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].fileId, Value("7"));
    EXPECT_EQ(results[0].returnStatus, Value("1"));
    EXPECT_EQ(results[0].baseSystemFileID, Value("9"));
}

TEST(ResponseDecoding, NumericReturnStatusIsStoredAsTheNumberUnchanged)
{
    const Value reply = platform::readJson(R"({"ReturnStatus": 1})");
    const auto record = DataParser::parseLogErrorResponseData(reply);
    ASSERT_TRUE(record.returnStatus.has_value());
    EXPECT_TRUE(record.returnStatus->isNumber());
    EXPECT_FALSE(record.returnStatus->isString());
    EXPECT_EQ(record.returnStatus->number().int64Value(), 1);
    EXPECT_NE(*record.returnStatus, Value("1"));
}

TEST(ResponseDecoding, UploadWithStreamReplyHoldingAStatusRaises)
{
    const Value reply = Value::dictionary({ { "ReturnStatus", "1" } });
    EXPECT_THROW(DataParser::parseUploadFileWithStreamResponseData(reply), platform::Exception);
}

TEST(ResponseDecoding, UploadWithStreamReplyWithoutAStatusGivesAnAbsentResult)
{
    const Value reply = Value::dictionary({ { "error", Value::dictionary() }, { "Other", "x" } });
    EXPECT_FALSE(DataParser::parseUploadFileWithStreamResponseData(reply).has_value());
}

TEST(ResponseDecoding, SendFileToTransferReplyRaisesWhenItHoldsAStatusOfAnyKindAndIsAbsentOtherwise)
{
    for (const Value& status : { Value("1"), Value::integer(0), Value::null(), Value::boolean(true) }) {
        SCOPED_TRACE(status.description());
        const Value reply = Value::dictionary({ { "ReturnStatus", status } });
        EXPECT_THROW(DataParser::parseUpdateSendFileToTransferResponseData(reply), platform::Exception);
    }
    EXPECT_FALSE(DataParser::parseUpdateSendFileToTransferResponseData(Value::dictionary()).has_value());
}

TEST(ResponseDecoding, BareStatusFailureNamesTheStatusThatCannotTakeAnError)
{
    try {
        DataParser::parseUploadFileWithStreamResponseData(Value::dictionary({ { "ReturnStatus", "1" } }));
        FAIL() << "no exception";
    } catch (const platform::Exception& exception) {
        EXPECT_EQ(exception.name(), "NSInvalidArgumentException");
        EXPECT_NE(exception.reason().find("setError:"), std::string::npos);
        EXPECT_NE(exception.reason().find("NSString"), std::string::npos);
    }
}

TEST(ResponseDecoding, NullObjectInAReplyIsStoredAsTheNullObjectNotAsAbsent)
{
    const auto record = DataParser::parseInsertFileResponseData(platform::readJson(R"({"FileID": null})"));
    ASSERT_TRUE(record.fileID.has_value());
    EXPECT_TRUE(record.fileID->isNull());
    EXPECT_FALSE(record.returnStatus.has_value());
}

TEST(ResponseDecoding, ValuesOfAnyKindAreKeptAsFound)
{
    const Value reply = platform::readJson(R"({"ReturnStatus": [1, "2"], "ReturnVal": {"a": true}, "UserID": 1.5})");
    const auto record = DataParser::parseUserRegistrationReponseData(reply);
    EXPECT_EQ(record.returnStatus, *reply.find("ReturnStatus"));
    EXPECT_EQ(record.returnValue, *reply.find("ReturnVal"));
    EXPECT_EQ(record.userId, Value::real(1.5));
}

TEST(ResponseDecoding, BatchReplyKeepsReplyOrderAndMakesOneRecordPerElement)
{
    const auto results = DataParser::parseSyncFilesInTableAndCloudResponseData(platform::readJson(
        R"([{"FileID": "3"}, {"FileID": "1"}, {}, {"FileID": "2", "Extra": 1}])"));
    ASSERT_EQ(results.size(), 4u);
    EXPECT_EQ(results[0].fileId, Value("3"));
    EXPECT_EQ(results[1].fileId, Value("1"));
    EXPECT_FALSE(results[2].fileId.has_value());
    EXPECT_EQ(results[3].fileId, Value("2"));
}

TEST(ResponseDecoding, EmptyBatchReplyGivesNoRecords)
{
    EXPECT_TRUE(DataParser::parseSyncFilesInTableAndCloudResponseData(Value::array()).empty());
}

TEST(ResponseDecoding, BatchReplyIsWalkedAfterAJsonRoundTripSoAValueJsonCannotCarryLeavesNothing)
{
    // A reply that JSON text cannot hold does not survive the round trip, and nothing is left to walk.
    const Value reply = Value::array({ Value::dictionary({ { "FileID", "7" }, { "When", Value::date(0) } }) });
    EXPECT_TRUE(DataParser::parseSyncFilesInTableAndCloudResponseData(reply).empty());
}

namespace {

// A batch reply's decoding as the trip of the whole reply through one text gives it.
std::vector<SyncFilesInTableAndCloudResponseData> decodedAfterTheWholeTrip(const Value& reply)
{
    try {
        return decode<std::vector<SyncFilesInTableAndCloudResponseData>>(
            platform::readJson(platform::writeJson(reply, { .prettyPrinted = true })));
    } catch (const platform::JsonError&) {
        return {};
    }
}

Value nestedLists(int depth)
{
    Value value("bottom");
    for (int level = 0; level < depth; ++level)
        value = Value::array({ value });
    return value;
}

}

// The reply makes its trip through JSON text one element at a time; every value comes back as the trip of the whole
// reply brings it back, and what the whole reply's trip refuses (a value JSON cannot carry, a list nested deeper than
// a reader takes) still leaves nothing to walk.
TEST(ResponseDecoding, BatchReplyWalkedElementByElementIsWhatTheWholeTripGives)
{
    const Value result = Value::dictionary({ { "FileID", Value::real(0.1) }, { "ReturnStatus", Value::boolean(true) },
        { "BaseSystemFileID", "a/b \u00e9 \"q\"" }, { "Error", Value::dictionary({ { "code", Value::integer(-7) } }) } });
    const std::vector<Value> replies = {
        Value::array({ result, Value("text"), Value::integer(3), Value(), Value::array({ result }),
            Value::dictionary({ { "FileID", Value::unsignedInteger(18446744073709551615u) } }),
            Value::dictionary({ { "FileID", Value::real(1e300) }, { "ReturnStatus", Value::real(-0.0) } }) }),
        Value::array({ result, Value::dictionary({ { "FileID", Value::real(std::numeric_limits<double>::infinity()) } }) }),
        Value::array({ result, nestedLists(254) }),
        Value::array({ result, nestedLists(255) }),
        Value::array({ result, nestedLists(256) }),
    };
    for (const Value& reply : replies) {
        const auto walked = DataParser::parseSyncFilesInTableAndCloudResponseData(reply);
        const auto expected = decodedAfterTheWholeTrip(reply);
        ASSERT_EQ(walked.size(), expected.size()) << reply.count();
        EXPECT_EQ(encode(walked).description(), encode(expected).description());
    }
    EXPECT_EQ(DataParser::parseSyncFilesInTableAndCloudResponseData(replies[0]).size(), 7u);
    EXPECT_TRUE(DataParser::parseSyncFilesInTableAndCloudResponseData(replies[1]).empty());
}

TEST(ResponseDecoding, BatchReplyValuesComeBackFromTheRoundTripWithTheirKinds)
{
    const auto results = DataParser::parseSyncFilesInTableAndCloudResponseData(platform::readJson(
        R"([{"FileID": 18446744073709551615, "ReturnStatus": true, "BaseSystemFileID": "a\/b"}])"));
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].fileId, Value::unsignedInteger(18446744073709551615u));
    ASSERT_TRUE(results[0].returnStatus.has_value());
    EXPECT_TRUE(results[0].returnStatus->number().isBoolean());
    EXPECT_EQ(results[0].baseSystemFileID, Value("a/b"));
}
