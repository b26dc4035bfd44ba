#include "messages/QueryParser.h"

#include "messages/QueryKeys.h"
#include "messages/WireCodec.h"

namespace messages {

// An absent record gives a dictionary with no keys.
template<typename Query>
static platform::Value encodeQuery(const std::optional<Query>& query)
{
    return query ? encode(*query) : platform::Value::dictionary();
}

platform::Value QueryParser::parseUserRegistrationQuery(const std::optional<UserRegistrationQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseRegisterComputerQuery(const std::optional<RegisterComputerQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseSendActivationMailQuery(const std::optional<SendActivationMailQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseOneTimeSyncOwnersSharedFoldersQuery(
    const std::optional<OneTimeSyncOwnersSharedFoldersQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseGetTopFileUploadQuery(const std::optional<GetTopFileUploadQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseCheckUserMailActivationStatusQuery(
    const std::optional<CheckUserMailActivationStatusQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseUpdateFileUploadQuery(const std::optional<UpdateFileUploadQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parsegetTopFileRequestQuery(const std::optional<GetTopFileRequestQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseUpdateFileRequestQuery(const std::optional<UpdateFileRequestQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseSyncFilesInTableAndCloudQuery(
    const std::optional<std::vector<SyncFilesInTableAndCloudQuery>>& records)
{
    platform::Value body = platform::Value::dictionary();
    body.setObject(records ? encode(*records) : platform::Value::array(), syncDataKey);
    return body;
}

platform::Value QueryParser::parseUpdateComputerStatusQuery(const std::optional<UpdateComputerStatusQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseOneTimeSyncFilesQuery(const std::optional<OneTimeSyncFilesQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseTransferFilesFromColudToBaseSystemQuery(
    const std::optional<TransferFilesFromCloudToBaseSystemQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseSendPasswordToMailIdQuery(const std::optional<SendPasswordToMailIdQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseLogErrorQuery(const std::optional<LogErrorQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseGetSharedFilesTransferDataQuery(
    const std::optional<GetSharedFilesTransferDataQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseUpdateFileExistDataQuery(const std::optional<UpdateFileExistQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseUpdateFileSendReceivedQuery(const std::optional<UpdateFileSendReceivedQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseUploadWithStreamQuery(const std::optional<UploadFileWithStreamQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseUpdateSendFileToTransferQuery(
    const std::optional<UpdateSendFileToTransferQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseIsFileExistsInCloudQuery(const std::optional<IsFileExistsInCloudQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseUpdateFileReceivedQuery(const std::optional<UpdateFileReceivedQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseDeleteReceivedFileFromTransferQuery(
    const std::optional<DeleteReceivedFileFromTransferQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseInsertFileQuery(const std::optional<InsertFileQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseInsertSharedFilesTransferQuery(
    const std::optional<InsertSharedFilesTransferQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseUpdateBSUploadStreamStartedQuery(
    const std::optional<UpdateBSUploadStreamStartedQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseUpdateBSUploadStreamFailedQuery(
    const std::optional<UpdateBSUploadStreamFailedQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseUpdateBSDownloadStreamStartedQuery(
    const std::optional<UpdateBSDownloadStreamStartedQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseUpdateBSDownloadStreamFailedQuery(
    const std::optional<UpdateBSDownloadStreamFailedQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseCheckFileExistsInDownloadsQuery(
    const std::optional<CheckFileExistsInDownloadsQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseCheckFileExistsInTransfersQuery(
    const std::optional<CheckFileExistsInTransfersQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseUpdateBSSendStreamStartedQuery(
    const std::optional<UpdateBSSendStreamStartedQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseUpdateBSSendStreamFailedQuery(
    const std::optional<UpdateBSSendStreamFailedQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseUpdateBSReceiveStreamStartedQuery(
    const std::optional<UpdateBSReceiveStreamStartedQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseUpdateBSReceiveStreamFailedQuery(
    const std::optional<UpdateBSReceiveStreamFailedQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseGetTopFileDeleteRequestQuery(
    const std::optional<GetTopFileDeleteRequestQuery>& query)
{
    return encodeQuery(query);
}

platform::Value QueryParser::parseUpdateBSFileDeletedQuery(const std::optional<UpdateBSFileDeletedQuery>& query)
{
    return encodeQuery(query);
}
}
