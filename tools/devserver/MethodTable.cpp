#include "devserver/MethodTable.h"

#include "devserver/Methods.h"
#include "devserver/WireRecords.h"

#include <httplib.h>

#include <algorithm>
#include <type_traits>

namespace devserver {

namespace {

// The request record an answering function takes.
template<typename Function>
struct AnswerTraits;
template<typename Result, typename Query, typename... More>
struct AnswerTraits<Result (*)(Tables&, const Query&, More...)> {
    using QueryRecord = Query;
};
template<auto answer>
using QueryOf = typename AnswerTraits<decltype(answer)>::QueryRecord;

// A JSON request and a JSON reply.
template<auto answer>
Reply answerTask(Store& store, const httplib::Request& request)
{
    const auto query = decodeRequest<QueryOf<answer>>(jsonBody(request));
    return jsonReply(encodeReply(store.transaction([&](Tables& tables) { return answer(tables, query); })));
}

// A JSON request, and the stored bytes as the reply.
template<auto answer>
Reply answerStreamDownload(Store& store, const httplib::Request& request)
{
    const auto query = decodeRequest<QueryOf<answer>>(jsonBody(request));
    return { 200, "application/octet-stream",
        store.transaction([&](Tables& tables) { return answer(tables, query); }) };
}

// A request header named `key`, if there is one, as the text under `key` in `fields`.
void copyHeader(const httplib::Request& request, std::string_view key, platform::Value& fields)
{
    const std::string name(key);
    if (request.has_header(name))
        fields.setObject(platform::Value(request.get_header_value(name)), key);
}

// The request record in headers named like its keys, the file's bytes as the body, and a JSON reply.
template<auto answer>
Reply answerStreamUpload(Store& store, const httplib::Request& request)
{
    using Query = QueryOf<answer>;
    auto fields = platform::Value::dictionary();
    std::apply([&](const auto&... entry) { (copyHeader(request, entry.key, fields), ...); },
        messages::KeyList<Query>::keys);
    const auto query = messages::decode<Query>(&fields);
    return jsonReply(
        encodeReply(store.transaction([&](Tables& tables) { return answer(tables, query, request.body); })));
}

struct Method {
    std::string_view path;
    MethodHandler handler;
};

// How an answer is carried, told by its signature: it takes the body's bytes (stream upload), gives bytes (stream
// download), or gives a reply record (a JSON request and reply).
template<auto answer>
constexpr messages::Transport transportOf()
{
    using Query = QueryOf<answer>;
    if constexpr (std::is_invocable_v<decltype(answer), Tables&, const Query&, std::string_view>)
        return messages::Transport::StreamUpload;
    else if constexpr (std::is_same_v<std::invoke_result_t<decltype(answer), Tables&, const Query&>, std::string>)
        return messages::Transport::StreamDownload;
    else
        return messages::Transport::Task;
}

template<auto answer>
constexpr MethodHandler handlerOf()
{
    if constexpr (transportOf<answer>() == messages::Transport::StreamUpload)
        return &answerStreamUpload<answer>;
    else if constexpr (transportOf<answer>() == messages::Transport::StreamDownload)
        return &answerStreamDownload<answer>;
    else
        return &answerTask<answer>;
}

// Binds an operation to its answer, which must take the operation's request record and be carried as the
// operation is.
template<auto answer, const auto& operation>
Method method()
{
    static_assert(std::is_same_v<QueryOf<answer>, typename std::decay_t<decltype(operation)>::QueryRecord>,
        "the answer takes another request record than the operation sends");
    static_assert(transportOf<answer>() == operation.transport, "the answer is not carried as the operation is");
    return { methodPathOf(operation.path), handlerOf<answer>() };
}

const std::vector<Method>& methods()
{
    namespace o = messages::operations;
    static const std::vector<Method> table {
        method<&registerUser, o::asyncUserRegistration>(),
        method<&registerComputer, o::asyncRegisterComputer>(),
        method<&sendActivationMail, o::asyncSendActivationMail>(),
        method<&oneTimeSyncOwnersSharedFolders, o::asyncOneTimeSyncOwnersSharedFolders>(),
        method<&transferFilesFromCloudToBaseSystem, o::asyncTransferFilesFromCloudToBaseSystem>(),
        method<&getTopFileUpload, o::asyncGetTopFileUpload>(),
        method<&checkUserMailActivationStatus, o::asyncCheckUserMailActivationStatus>(),
        method<&updateFileUpload, o::asyncUpdateFileUpload>(),
        method<&getTopFileRequest, o::asyncGetTopFileRequest>(),
        method<&updateFileRequest, o::asyncUpdateFileRequest>(),
        method<&syncFilesInTableAndCloud, o::asyncSyncFilesInTableAndCloud>(),
        method<&updateComputerStatus, o::asyncUpdateComputerStatus>(),
        method<&oneTimeSyncFiles, o::asyncOneTimeSyncFiles>(),
        method<&sendPasswordToMailId, o::asyncSendPasswordToMailId>(),
        method<&topFileUploadContent, o::asyncGetTopFileUploadWithStream>(),
        method<&receiveFileRequestStream, o::asyncUpdateFileRequestWithStream>(),
        method<&logError, o::asyncLogError>(),
        method<&getSharedFilesTransferData, o::asyncGetSharedFilesTransferData>(),
        method<&updateFileExist, o::asyncUpdateFileExist>(),
        method<&updateFileSendReceived, o::asyncUpdateFileSendReceived>(),
        method<&uploadFileWithStream, o::asyncUploadFileWithStream>(),
        method<&updateSendFileToTransfer, o::asyncupdateSendFileToTransfer>(),
        method<&isFileExistsInCloud, o::asyncIsFileExistsInCloud>(),
        method<&updateFileReceived, o::asyncUpdateFileReceived>(),
        method<&deleteReceivedFileFromTransfer, o::asyncDeleteReceivedFileFromTransfer>(),
        method<&insertFile, o::asyncInsertFile>(),
        method<&insertSharedFilesTransfer, o::asyncInsertSharedFilesTransfer>(),
        method<&updateBSUploadStreamStarted, o::asyncupdateBSUploadStreamStart>(),
        method<&checkFileExistsInDownloads, o::asyncCheckFileExistsInDownloads>(),
        method<&updateBSUploadStreamFailed, o::asyncUpdateBSUploadStreamFailed>(),
        method<&checkFileExistsInTransfers, o::asyncCheckFileExistsInTransfers>(),
        method<&updateBSSendStreamStarted, o::asyncUpdateBSSendStreamStarted>(),
        method<&updateBSSendStreamFailed, o::asyncUpdateBSSendStreamFailed>(),
        method<&updateBSReceiveStreamStarted, o::asyncUpdateBSReceiveStreamStart>(),
        method<&updateBSReceiveStreamFailed, o::asyncUpdateBSReceiveStreamfailed>(),
        method<&updateBSDownloadStreamStarted, o::asyncupdateBSDownloadStreamStart>(),
        method<&updateBSDownloadStreamFailed, o::asyncupdateBSDownloadStreamFailed>(),
        method<&getTopFileDeleteRequest, o::asyncGetTopFileDeleteRequest>(),
        method<&updateBSFileDeleted, o::asyncUpdateBSFileDeleted>(),
    };
    return table;
}

}

std::string_view methodPathOf(std::string_view clientPath)
{
    constexpr std::string_view objectReplacementCharacter = "\uFFFC";
    if (clientPath.ends_with(objectReplacementCharacter))
        clientPath.remove_suffix(objectReplacementCharacter.size());
    return clientPath;
}

MethodHandler findMethod(std::string_view methodPath)
{
    const auto& table = methods();
    const auto found
        = std::find_if(table.begin(), table.end(), [&](const Method& method) { return method.path == methodPath; });
    return found == table.end() ? nullptr : found->handler;
}

std::vector<std::string_view> methodPaths()
{
    std::vector<std::string_view> paths;
    for (const auto& method : methods())
        paths.push_back(method.path);
    return paths;
}

}
