#include "ServerFixture.h"

#include "platform/Json.h"
#include "support/Eventually.h"
#include "support/HttpClient.h"

#include <algorithm>

#include <sys/inotify.h>
#include <unistd.h>

namespace synctest {

using platform::Value;

FileReplacements::FileReplacements(const std::string& folder)
    : m_fd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
{
    EXPECT_GE(inotify_add_watch(m_fd, folder.c_str(), IN_MOVED_TO), 0) << folder;
}

FileReplacements::~FileReplacements()
{
    ::close(m_fd);
}

std::size_t FileReplacements::count(const std::string& name)
{
    alignas(inotify_event) char buffer[8192];
    for (ssize_t length; (length = ::read(m_fd, buffer, sizeof buffer)) > 0;) {
        for (char* at = buffer; at < buffer + length;) {
            auto* event = reinterpret_cast<inotify_event*>(at);
            if (event->len > 0)
                ++m_counts[event->name];
            at += sizeof(inotify_event) + event->len;
        }
    }
    return m_counts[name];
}

ServerFixture::ServerFixture()
    : serverVariable("KORBANHOLD_SERVER", "127.0.0.1:" + std::to_string(server.port()))
{
    service->talksToServer = true;
}

ServerFixture::~ServerFixture() = default;

std::vector<Value> ServerFixture::bodiesOf(const std::string& methodPath) const
{
    Value rows = admin("requests?method=" + methodPath);
    std::vector<Value> bodies;
    for (const Value& row : rows.elements())
        bodies.push_back(platform::readJson(row.find("body")->string()));
    return bodies;
}

Value ServerFixture::admin(const std::string& route) const
{
    return testsupport::get(server.adminUrl(route)).json();
}

void ServerFixture::addFault(const std::string& kind, const std::string& methodPath, int ms) const
{
    Value fault = Value::dictionary({ { "kind", Value(kind) }, { "path", Value(methodPath) } });
    if (kind == "delay")
        fault.setObject(Value::integer(ms), "ms");
    auto result = testsupport::postJson(server.adminUrl("faults"), fault);
    ASSERT_EQ(result.status, 200) << result.body;
}

bool ServerFixture::waitForReplies(std::size_t count)
{
    // A request that ends with the HTTP layer's "unknown" error ends without a completion, and says so.
    auto ended = [](const std::string& line) {
        return line.starts_with("response ") || line == "network error"
            || line == "error code at rest connector strt async task......";
    };
    bool replied = testsupport::eventually([&] {
        auto lines = log.lines();
        return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), ended)) >= count;
    });
    testsupport::MainQueueThread::drain();
    if (!replied)
        ADD_FAILURE() << "fewer than " << count << " replies; the log:\n" << ::testing::PrintToString(log.lines());
    return replied;
}

Value ServerFixture::sharedFolderRecord(const std::string& relative) const
{
    return record({ { "FileName", path(relative) }, { "FileID", fileNumber(relative) }, { "OwnerFileID", "0" },
        { "UserComputerMapID", "M-1" }, { "Blocked", "0" }, { "MyFile", "1" }, { "IsFile", "False" } });
}

void ServerFixture::makeActiveSharedFolder(const std::string& relative) const
{
    makeFolder(relative);
    storeSharedList(Value::array({ sharedFolderRecord(relative) }));
}

std::optional<Value> ServerFixture::storedSharedList() const
{
    auto domain = readDomain("Ulmaridon.SharedFilesXpcService");
    return domain ? domain->objectForKey("SharedFileDataKey") : std::nullopt;
}

void ServerFixture::storeSharedList(const Value& list) const
{
    writeDomain("Ulmaridon.SharedFilesXpcService", Value::dictionary({ { "SharedFileDataKey", list } }));
}

}
