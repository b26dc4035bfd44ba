#pragma once

// DownloadConnection: a URL connection with a tag that tells one connection from another in a delegate that serves
// several. Kept for connection-based transfers; nothing in the service makes one.

#include "rest/URLConnection.h"

#include "platform/Value.h"

namespace rest {

class DownloadConnection : public URLConnection {
public:
    // The connection's tag: any value, or nothing.
    std::optional<platform::Value> tag;

    // A connection as URLConnection::initWithRequest makes it, with `tag` set.
    static std::shared_ptr<DownloadConnection> initWithRequest(const platform::http::Request& request,
        std::shared_ptr<URLConnectionDelegate> delegate, bool startImmediately, std::optional<platform::Value> tag);
    static std::shared_ptr<DownloadConnection> initWithRequest(const platform::http::Request& request,
        std::shared_ptr<URLConnectionDelegate> delegate, std::optional<platform::Value> tag);

private:
    using URLConnection::URLConnection;
};

}
