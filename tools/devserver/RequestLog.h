#pragma once

// The request log: every request of the service's paths (and of unknown paths) with the reply it got.

#include "devserver/Sqlite.h"

#include <string_view>

namespace devserver {

// One request and its reply. The texts are those of the exchange itself, not copies: bodies can be large.
struct LoggedRequest {
    std::string_view methodPath;
    // The request headers as a JSON object.
    std::string_view headers;
    std::string_view body;
    // 0 when no reply was sent (the connection was dropped or the reply withheld).
    int httpStatus = 0;
    std::string_view replyBody;
    std::string_view fault;
};

class RequestLog {
public:
    explicit RequestLog(sqlite::Database& db);

    void record(const LoggedRequest& request);

private:
    sqlite::Statement m_insert;
};

}
