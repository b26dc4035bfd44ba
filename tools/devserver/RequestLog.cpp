#include "devserver/RequestLog.h"

namespace devserver {

RequestLog::RequestLog(sqlite::Database& db)
    : m_insert(db.prepare("INSERT INTO requests (method_path, headers, body, http_status, reply_body, fault) "
                          "VALUES (?1, ?2, ?3, ?4, ?5, ?6)"))
{
}

void RequestLog::record(const LoggedRequest& request)
{
    m_insert.bind(1, request.methodPath).bind(2, request.headers).bindBlob(3, request.body);
    m_insert.bind(4, std::int64_t { request.httpStatus }).bindBlob(5, request.replyBody).bind(6, request.fault);
    m_insert.run();
}

}
