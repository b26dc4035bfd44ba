#include "rest/DownloadConnection.h"

namespace rest {

std::shared_ptr<DownloadConnection> DownloadConnection::initWithRequest(const platform::http::Request& request,
    std::shared_ptr<URLConnectionDelegate> delegate, bool startImmediately, std::optional<platform::Value> tag)
{
    std::shared_ptr<DownloadConnection> connection(new DownloadConnection(request, std::move(delegate)));
    // Set before the connection starts, so that the delegate's first callback already sees it.
    connection->tag = std::move(tag);
    return started(std::move(connection), startImmediately);
}

std::shared_ptr<DownloadConnection> DownloadConnection::initWithRequest(const platform::http::Request& request,
    std::shared_ptr<URLConnectionDelegate> delegate, std::optional<platform::Value> tag)
{
    return initWithRequest(request, std::move(delegate), true, std::move(tag));
}

}
