#include "messages/DataParser.h"

#include "messages/ResponseKeys.h"
#include "messages/SharedTransferKeys.h"
#include "messages/WireCodec.h"
#include "platform/Json.h"

#include <string>

namespace messages {

// The batch decoder walks a copy of the reply made by writing it as pretty-printed JSON text and reading that text
// back with the default options. Neither step's failure is examined: a reply that cannot make the trip (absent, not
// a container, or holding something JSON cannot carry) leaves nothing to walk. An element of a list makes the trip
// as a part of the list's text: a scalar is written and read as it stands there, one level less deep than the list.
static ReplyValue throughJsonText(const platform::Value& value, bool asListElement)
{
    try {
        const platform::JsonReadOptions options { .allowFragments = asListElement,
            .maxDepth = platform::JsonReadOptions {}.maxDepth - (asListElement ? 1 : 0) };
        return platform::readJson(
            platform::writeJson(value, { .prettyPrinted = true, .allowFragments = asListElement }), options);
    } catch (const platform::JsonError&) {
        return std::nullopt;
    }
}

// The bare-value decoders read "ReturnStatus" and "error", then hand the error to the status as though the status
// were a record with an `error` to set. No value of a reply has such a property, so whenever "ReturnStatus" is
// present this raises, uncaught, and the caller's completion never runs; otherwise the status, absent, is returned.
static ReplyValue decodeBareReturnStatus(const ReplyValue& reply)
{
    const BareStatusReply read = decode<BareStatusReply>(reply);
    if (read.ReturnStatus) {
        platform::Exception::raiseInvalidArgument(
            std::string("-[") + read.ReturnStatus->className() + " setError:]: unrecognized selector sent to instance");
    }
    return read.ReturnStatus;
}

UserRegistrationResponseData DataParser::parseUserRegistrationReponseData(const ReplyValue& reply)
{
    return decode<UserRegistrationResponseData>(reply);
}

RegisterComputerResponseData DataParser::parseRegisterComputerResponseData(const ReplyValue& reply)
{
    return decode<RegisterComputerResponseData>(reply);
}

SendActivationMailResponseData DataParser::parseSendActivationMailResponseData(const ReplyValue& reply)
{
    return decode<SendActivationMailResponseData>(reply);
}

OneTimeSyncOwnersSharedFoldersResponseData DataParser::parseOneTimeSyncOwnersSharedFoldersResponseData(
    const ReplyValue& reply)
{
    return decode<OneTimeSyncOwnersSharedFoldersResponseData>(reply);
}

TransferFilesFromCloudToBaseSystemResponseData DataParser::parseTransferFilesFromCloudToBaseSystemResponseData(
    const ReplyValue& reply)
{
    return decode<TransferFilesFromCloudToBaseSystemResponseData>(reply);
}

GetTopFileUploadResponseData DataParser::parseGetTopFileUploadResponseData(const ReplyValue& reply)
{
    return decode<GetTopFileUploadResponseData>(reply);
}

CheckUserMailActivationStatusResponseData DataParser::parseCheckUserMailActivationStatusResponseData(
    const ReplyValue& reply)
{
    return decode<CheckUserMailActivationStatusResponseData>(reply);
}

UpdateFileUploadResponseData DataParser::parseUpdateFileUploadResponseData(const ReplyValue& reply)
{
    return decode<UpdateFileUploadResponseData>(reply);
}

GetTopFileRequestResponseData DataParser::parseGetTopFileRequestResponseData(const ReplyValue& reply)
{
    return decode<GetTopFileRequestResponseData>(reply);
}

UpdateFileRequestResponseData DataParser::parseUpdateFileRequestResponseData(const ReplyValue& reply)
{
    return decode<UpdateFileRequestResponseData>(reply);
}

std::vector<SyncFilesInTableAndCloudResponseData> DataParser::parseSyncFilesInTableAndCloudResponseData(
    const ReplyValue& reply)
{
    if (!reply || !reply->isArray())
        return decode<std::vector<SyncFilesInTableAndCloudResponseData>>(
            reply ? throughJsonText(*reply, false) : std::nullopt);
    // A list makes the trip one element at a time: the same copy of each, without a text and a second tree of the
    // whole reply beside the first (100,000 results are some 50 MB of them). One element that cannot make the trip
    // leaves the whole list behind.
    std::vector<SyncFilesInTableAndCloudResponseData> results;
    results.reserve(reply->count());
    for (const platform::Value& element : reply->elements()) {
        const ReplyValue copy = throughJsonText(element, true);
        if (!copy)
            return {};
        results.push_back(decode<SyncFilesInTableAndCloudResponseData>(copy));
    }
    return results;
}

UpdateComputerStatusResponseData DataParser::parseUpdateComputerStatusResponseData(const ReplyValue& reply)
{
    return decode<UpdateComputerStatusResponseData>(reply);
}

OneTimeSyncFilesResponseData DataParser::parseOneTimeSyncFilesResponseData(const ReplyValue& reply)
{
    return decode<OneTimeSyncFilesResponseData>(reply);
}

SendPasswordToMailIdResponseData DataParser::parseSendPasswordToMailIdResponseData(const ReplyValue& reply)
{
    return decode<SendPasswordToMailIdResponseData>(reply);
}

LogErrorResponseData DataParser::parseLogErrorResponseData(const ReplyValue& reply)
{
    return decode<LogErrorResponseData>(reply);
}

GetSharedFilesTransferDataResponseData DataParser::parseGetSharedFilesTransferDataResponseData(
    const ReplyValue& reply)
{
    return decode<GetSharedFilesTransferDataResponseData>(reply);
}

UpdateFileExistResponseData DataParser::parseUpdateFileExistResponseData(const ReplyValue& reply)
{
    return decode<UpdateFileExistResponseData>(reply);
}

UpdateFileSendReceivedResponseData DataParser::parseUpdateFileSendReceivedResponseData(const ReplyValue& reply)
{
    return decode<UpdateFileSendReceivedResponseData>(reply);
}

ReplyValue DataParser::parseUploadFileWithStreamResponseData(const ReplyValue& reply)
{
    return decodeBareReturnStatus(reply);
}

ReplyValue DataParser::parseUpdateSendFileToTransferResponseData(const ReplyValue& reply)
{
    return decodeBareReturnStatus(reply);
}

IsFileExistsInCloudResponseData DataParser::parseIsFileExistsInCloudResponseData(const ReplyValue& reply)
{
    return decode<IsFileExistsInCloudResponseData>(reply);
}

UpdateFileReceivedResponseData DataParser::parseUpdateFileReceivedResponseData(const ReplyValue& reply)
{
    return decode<UpdateFileReceivedResponseData>(reply);
}

DeleteReceivedFileFromTransferResponseData DataParser::parseDeleteReceivedFileFromTransferResponseData(
    const ReplyValue& reply)
{
    return decode<DeleteReceivedFileFromTransferResponseData>(reply);
}

InsertFileResponseData DataParser::parseInsertFileResponseData(const ReplyValue& reply)
{
    return decode<InsertFileResponseData>(reply);
}

InsertSharedFilesTransferResponseData DataParser::parseInsertSharedFilesTransferResponseData(const ReplyValue& reply)
{
    return decode<InsertSharedFilesTransferResponseData>(reply);
}

UpdateBSUploadStreamStartedResponseData DataParser::parseUpdateBSUploadStreamStartedResponseData(
    const ReplyValue& reply)
{
    return decode<UpdateBSUploadStreamStartedResponseData>(reply);
}

UpdateBSDownloadStreamStartedResponseData DataParser::parseUpdateBSDownloadStreamStartedResponseData(
    const ReplyValue& reply)
{
    return decode<UpdateBSDownloadStreamStartedResponseData>(reply);
}

UpdateBSDownloadStreamFailedResponseData DataParser::parseUpdateBSDownloadStreamFailedResponseData(
    const ReplyValue& reply)
{
    return decode<UpdateBSDownloadStreamFailedResponseData>(reply);
}

CheckFileExistsInDownloadsResponseData DataParser::parseCheckFileExistsInDownloadsResponseData(
    const ReplyValue& reply)
{
    return decode<CheckFileExistsInDownloadsResponseData>(reply);
}

UpdateBSUploadStreamFailedResponseData DataParser::parseUpdateBSUploadStreamFailedResponseData(
    const ReplyValue& reply)
{
    return decode<UpdateBSUploadStreamFailedResponseData>(reply);
}

CheckFileExistsInTransfersResponseData DataParser::parseCheckFileExistsInTransfersResponseData(
    const ReplyValue& reply)
{
    return decode<CheckFileExistsInTransfersResponseData>(reply);
}

UpdateBSSendStreamStartedResponseData DataParser::parseUpdateBSSendStreamstartedResponseData(const ReplyValue& reply)
{
    return decode<UpdateBSSendStreamStartedResponseData>(reply);
}

UpdateBSSendStreamFailedResponseData DataParser::parseUpdateBSSendStreamFailedResponseData(const ReplyValue& reply)
{
    return decode<UpdateBSSendStreamFailedResponseData>(reply);
}

UpdateBSReceiveStreamStartedResponseData DataParser::parseUpdateBSReceiveStreamStartedResponseData(
    const ReplyValue& reply)
{
    return decode<UpdateBSReceiveStreamStartedResponseData>(reply);
}

UpdateBSReceiveStreamFailedResponseData DataParser::parseUpdateBSReceiveStreamFailedResponseData(
    const ReplyValue& reply)
{
    return decode<UpdateBSReceiveStreamFailedResponseData>(reply);
}

GetTopFileDeleteResponseData DataParser::parseGetTopFileResponseData(const ReplyValue& reply)
{
    return decode<GetTopFileDeleteResponseData>(reply);
}

UpdateBSFileDeleteResponseData DataParser::parseUpdateBSFileDeleteResponseData(const ReplyValue& reply)
{
    return decode<UpdateBSFileDeleteResponseData>(reply);
}
}
