#pragma once

// The request log: every request of the service's paths (and of unknown paths) with the reply it got.

#include "devserver/Sqlite.h"

#include <string>

namespace devserver {

struct LoggedRequest {
    std::string methodPath;
    // The request headers as a JSON object.
    std::string headers;
    std::string body;
    // 0 when no reply was sent (the connection was dropped or the reply withheld).
    int httpStatus = 0;
    std::string replyBody;
    std::string fault;
};

class RequestLog {
public:
    explicit RequestLog(sqlite::Database& db);

    void record(const LoggedRequest& request);

private:
    sqlite::Statement m_insert;
};

}
