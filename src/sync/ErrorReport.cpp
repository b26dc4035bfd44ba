// The report of an engine failure to the server's error log. It does not wait for the answer, and the answer
// changes nothing: the completion only logs it.

#include "sync/SyncFilesXpcService.h"

#include "platform/Log.h"
#include "rest/JsonTransport.h"
#include "rest/RestInterface.h"
#include "sync/RecordKeys.h"
#include "sync/WireText.h"

namespace engine {

using platform::Value;

void SyncFilesXpcService::logErrorMethod()
{
    messages::LogErrorQuery query;
    query.errorClass = "FileWatcherServiceXPC";
    query.errorMethod = "initFileWatcher";
    query.errorMessage = "Exception has occured";
    {
        std::lock_guard lock(m_fieldsMutex);
        query.computerId = copiedValue(settingsValue(settings::computerId));
        query.userId = copiedValue(settingsValue(settings::userId));
    }
    rest::RestInterface::asyncLogError(query,
        [](const rest::Outcome<messages::LogErrorResponseData>& object, rest::TransportStatus) {
            // The response record when the server answered, nothing when the request failed.
            const auto* record = std::get_if<messages::LogErrorResponseData>(&object);
            platform::log("Error occured....%@",
                record ? rest::describeObject("LogErrorResponseData", record) : std::string("(null)"));
        });
}

}
