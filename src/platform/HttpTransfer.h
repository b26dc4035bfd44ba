#pragma once

// One task's exchange as a libcurl easy handle: the request's options, the callbacks that collect the reply, the
// time limits and the result. Used only on the HTTP I/O thread (HttpEngine).

#include "platform/HttpSession.h"

#include <curl/curl.h>

#include <chrono>

namespace platform::http {

class Transfer {
public:
    using Clock = std::chrono::steady_clock;

    explicit Transfer(std::shared_ptr<Task> task);
    ~Transfer();
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    // Sets up the easy handle. Answers the error that ends the task before anything is sent (a URL that is not
    // plain HTTP, an upload file that cannot be opened, a download file that cannot be made), or nothing.
    std::optional<Error> prepare();

    const std::shared_ptr<Task>& task() const { return m_task; }
    CURL* handle() const { return m_easy; }
    // Host and port of the request's URL: the unit of the session's connection limit.
    const std::string& hostKey() const { return m_hostKey; }
    // When the task times out: its wait-for-data limit after the last activity, or its whole-task limit, whichever
    // comes first.
    Clock::time_point deadline() const;

    // The task's result once libcurl has finished with `code`.
    Result result(CURLcode code);
    // The task's result when it ends early with `error` (cancelled, timed out); it keeps the reply's head if that
    // has arrived.
    Result failure(Error error);

private:
    std::optional<Error> prepareURL();
    void prepareHeaders();
    std::optional<Error> prepareBody();
    std::optional<Error> prepareDownloadFile();
    // The reply's head, if it has arrived (the collected header fields are moved into it).
    std::optional<Response> response();

    static std::size_t onReplyBytes(char* bytes, std::size_t size, std::size_t count, void* transfer);
    static std::size_t onHeaderLine(char* bytes, std::size_t size, std::size_t count, void* transfer);
    static std::size_t onUploadBytes(char* buffer, std::size_t size, std::size_t count, void* transfer);
    std::size_t readUploadFile(char* buffer, std::size_t capacity);

    const std::shared_ptr<Task> m_task;
    CURL* const m_easy;
    CURLU* const m_url;
    curl_slist* m_headerList = nullptr;
    std::string m_hostKey;

    const Clock::time_point m_created;
    Clock::time_point m_lastActivity;
    Clock::duration m_idleLimit;
    Clock::duration m_totalLimit;

    int m_uploadFile = -1;
    int m_downloadFile = -1;
    std::filesystem::path m_downloadPath;

    Headers m_replyHeaders;
    Bytes m_replyBody;
    // The most bytes of reply (head and body) held in memory, and how many are held; beyond the limit the task
    // fails with URLErrorDataLengthExceedsMaximum.
    const std::size_t m_replyLimit;
    std::size_t m_replyBytes = 0;
    bool m_replyTooLarge = false;
    // Counts `length` more bytes of reply; false (with one log line) when they go past the limit.
    bool holdReplyBytes(std::size_t length);
};

// The most bytes of one reply held in memory: $KORBANHOLD_MAX_REPLY_BYTES when it is a positive number, else
// defaultMaxReplyBytes.
inline constexpr std::size_t defaultMaxReplyBytes = 256u * 1024 * 1024;
std::size_t maxReplyBytes();

}
