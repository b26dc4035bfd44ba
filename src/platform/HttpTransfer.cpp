#include "platform/HttpTransfer.h"

#include "platform/Log.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform::http {

namespace {

// Time limits as the steady clock counts them; a limit too large to count is as good as none.
Transfer::Clock::duration clockDuration(Seconds limit)
{
    constexpr Seconds longest { 100.0 * 365 * 24 * 3600 };
    return std::chrono::duration_cast<Transfer::Clock::duration>(std::clamp(limit, Seconds { 0 }, longest));
}

std::string trimmed(std::string_view text)
{
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos)
        return {};
    const auto last = text.find_last_not_of(" \t\r\n");
    return std::string(text.substr(first, last - first + 1));
}

bool writeAll(int fd, const char* bytes, std::size_t length)
{
    while (length > 0) {
        const ssize_t written = ::write(fd, bytes, length);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        bytes += written;
        length -= static_cast<std::size_t>(written);
    }
    return true;
}

}

std::size_t maxReplyBytes()
{
    const char* text = std::getenv("KORBANHOLD_MAX_REPLY_BYTES");
    char* end = nullptr;
    const unsigned long long limit = text && *text ? std::strtoull(text, &end, 10) : 0;
    return end && *end == '\0' && limit > 0 ? static_cast<std::size_t>(limit) : defaultMaxReplyBytes;
}

Transfer::Transfer(std::shared_ptr<Task> task)
    : m_task(std::move(task))
    , m_easy(curl_easy_init())
    , m_url(curl_url())
    , m_created(Clock::now())
    , m_lastActivity(m_created)
    , m_replyLimit(maxReplyBytes())
{
    const Configuration& configuration = m_task->m_session->configuration();
    m_idleLimit = clockDuration(std::min(m_task->m_request.timeoutInterval, configuration.timeoutIntervalForRequest));
    m_totalLimit = clockDuration(configuration.timeoutIntervalForResource);
}

Transfer::~Transfer()
{
    curl_easy_cleanup(m_easy);
    curl_url_cleanup(m_url);
    curl_slist_free_all(m_headerList);
    if (m_uploadFile >= 0)
        ::close(m_uploadFile);
    if (m_downloadFile >= 0)
        ::close(m_downloadFile);
    // A download that did not finish leaves nothing behind; a finished one is removed after its report.
    if (!m_downloadPath.empty()) {
        std::error_code ignored;
        std::filesystem::remove(m_downloadPath, ignored);
    }
}

std::optional<Error> Transfer::prepare()
{
    if (!m_easy || !m_url)
        return urlError(URLErrorUnknown);
    if (auto error = prepareURL())
        return error;
    prepareHeaders();
    if (auto error = prepareBody())
        return error;
    if (auto error = prepareDownloadFile())
        return error;

    curl_easy_setopt(m_easy, CURLOPT_PRIVATE, this);
    curl_easy_setopt(m_easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(m_easy, CURLOPT_PROTOCOLS_STR, "http");
    curl_easy_setopt(m_easy, CURLOPT_REDIR_PROTOCOLS_STR, "http");
    curl_easy_setopt(m_easy, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(m_easy, CURLOPT_MAXREDIRS, 16L);
    // One connection per task, closed when the task ends (see HttpSession.h).
    curl_easy_setopt(m_easy, CURLOPT_FORBID_REUSE, 1L);
    curl_easy_setopt(m_easy, CURLOPT_WRITEFUNCTION, &Transfer::onReplyBytes);
    curl_easy_setopt(m_easy, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(m_easy, CURLOPT_HEADERFUNCTION, &Transfer::onHeaderLine);
    curl_easy_setopt(m_easy, CURLOPT_HEADERDATA, this);
    return std::nullopt;
}

std::optional<Error> Transfer::prepareURL()
{
    if (curl_url_set(m_url, CURLUPART_URL, m_task->m_request.url.c_str(), 0) != CURLUE_OK)
        return urlError(URLErrorBadURL);
    char* scheme = nullptr;
    char* host = nullptr;
    char* port = nullptr;
    const bool complete = curl_url_get(m_url, CURLUPART_SCHEME, &scheme, 0) == CURLUE_OK
        && curl_url_get(m_url, CURLUPART_HOST, &host, 0) == CURLUE_OK
        && curl_url_get(m_url, CURLUPART_PORT, &port, CURLU_DEFAULT_PORT) == CURLUE_OK;
    const bool plainHTTP = complete && std::string_view(scheme) == "http";
    if (plainHTTP)
        m_hostKey = std::string(host) + ":" + port;
    curl_free(scheme);
    curl_free(host);
    curl_free(port);
    if (!complete)
        return urlError(URLErrorBadURL);
    if (!plainHTTP)
        return urlError(URLErrorUnsupportedURL);
    curl_easy_setopt(m_easy, CURLOPT_CURLU, m_url);
    return std::nullopt;
}

void Transfer::prepareHeaders()
{
    Headers headers = m_task->m_request.headers;
    for (const auto& [field, value] : m_task->m_session->configuration().additionalHeaders) {
        if (!findHeader(headers, field))
            headers.emplace_back(field, value);
    }
    // Libcurl would otherwise wait for a "100 Continue" before sending a large body.
    if (!findHeader(headers, "Expect"))
        m_headerList = curl_slist_append(m_headerList, "Expect:");
    for (const auto& [field, value] : headers) {
        // "Name;" is how libcurl is told to send a field with an empty value.
        const std::string line = value.empty() ? field + ";" : field + ": " + value;
        m_headerList = curl_slist_append(m_headerList, line.c_str());
    }
    curl_easy_setopt(m_easy, CURLOPT_HTTPHEADER, m_headerList);
}

std::optional<Error> Transfer::prepareBody()
{
    const Request& request = m_task->m_request;
    if (request.httpMethod == "GET" && m_task->m_kind != Task::Kind::Upload) {
        curl_easy_setopt(m_easy, CURLOPT_HTTPGET, 1L);
        return std::nullopt;
    }
    curl_easy_setopt(m_easy, CURLOPT_POST, 1L);
    if (request.httpMethod != "POST")
        curl_easy_setopt(m_easy, CURLOPT_CUSTOMREQUEST, request.httpMethod.c_str());

    if (const auto* path = std::get_if<std::filesystem::path>(&m_task->m_uploadSource)) {
        m_uploadFile = ::open(path->c_str(), O_RDONLY | O_CLOEXEC);
        struct stat status {};
        if (m_uploadFile < 0 || ::fstat(m_uploadFile, &status) != 0 || !S_ISREG(status.st_mode))
            return urlError(URLErrorFileDoesNotExist);
        curl_easy_setopt(m_easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(status.st_size));
        curl_easy_setopt(m_easy, CURLOPT_READFUNCTION, &Transfer::onUploadBytes);
        curl_easy_setopt(m_easy, CURLOPT_READDATA, this);
    } else if (std::holds_alternative<BodyStream>(m_task->m_uploadSource)) {
        // No length: the body goes out in chunks until the stream ends.
        curl_easy_setopt(m_easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(-1));
        curl_easy_setopt(m_easy, CURLOPT_READFUNCTION, &Transfer::onUploadBytes);
        curl_easy_setopt(m_easy, CURLOPT_READDATA, this);
    } else {
        curl_easy_setopt(m_easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.httpBody.size()));
        curl_easy_setopt(m_easy, CURLOPT_POSTFIELDS, request.httpBody.data());
    }
    return std::nullopt;
}

std::optional<Error> Transfer::prepareDownloadFile()
{
    if (m_task->m_kind != Task::Kind::Download)
        return std::nullopt;
    std::error_code error;
    std::string pattern = (std::filesystem::temp_directory_path(error) / "CFNetworkDownload_XXXXXX.tmp").string();
    const int suffixLength = 4;
    m_downloadFile = error ? -1 : ::mkostemps(pattern.data(), suffixLength, O_CLOEXEC);
    if (m_downloadFile < 0)
        return urlError(URLErrorCannotCreateFile);
    m_downloadPath = pattern;
    return std::nullopt;
}

Transfer::Clock::time_point Transfer::deadline() const
{
    return std::min(m_lastActivity + m_idleLimit, m_created + m_totalLimit);
}

Result Transfer::failure(Error error)
{
    Result result = Result::failure(std::move(error));
    result.response = response();
    return result;
}

std::optional<Response> Transfer::response()
{
    long statusCode = 0;
    curl_easy_getinfo(m_easy, CURLINFO_RESPONSE_CODE, &statusCode);
    if (statusCode <= 0)
        return std::nullopt;
    const char* url = nullptr;
    curl_easy_getinfo(m_easy, CURLINFO_EFFECTIVE_URL, &url);
    return Response { url ? url : m_task->m_request.url, statusCode, std::move(m_replyHeaders) };
}

Result Transfer::result(CURLcode code)
{
    if (m_replyTooLarge)
        return failure(urlError(URLErrorDataLengthExceedsMaximum));
    if (code != CURLE_OK)
        return failure(errorForCurlResult(code));
    Result result;
    result.response = response();
    if (m_task->m_kind == Task::Kind::Download) {
        ::close(m_downloadFile);
        m_downloadFile = -1;
        // From here on the file belongs to the report, which removes it after the completion handler.
        result.location = std::exchange(m_downloadPath, {});
    } else {
        result.data = std::move(m_replyBody);
    }
    return result;
}

std::size_t Transfer::onReplyBytes(char* bytes, std::size_t size, std::size_t count, void* context)
{
    auto* self = static_cast<Transfer*>(context);
    const std::size_t length = size * count;
    self->m_lastActivity = Clock::now();
    if (self->m_downloadFile >= 0)
        return writeAll(self->m_downloadFile, bytes, length) ? length : 0;
    if (!self->holdReplyBytes(length))
        return CURL_WRITEFUNC_ERROR;
    Bytes& body = self->m_replyBody;
    // The buffer grows as the body arrives, in powers of two and never beyond the limit: growing copies what came,
    // so the peak of a copy is twice the largest power of two below the limit, and never twice the limit itself.
    if (body.size() + length > body.capacity())
        body.reserve(std::min(self->m_replyLimit, std::bit_ceil(std::max(2 * body.capacity(), body.size() + length))));
    body.insert(body.end(), bytes, bytes + length);
    return length;
}

bool Transfer::holdReplyBytes(std::size_t length)
{
    if (length <= m_replyLimit - m_replyBytes) {
        m_replyBytes += length;
        return true;
    }
    m_replyTooLarge = true;
    m_replyBody = {};
    m_replyHeaders = {};
    log("HTTP: the reply to %@ is larger than %@ bytes (KORBANHOLD_MAX_REPLY_BYTES); the request ends", m_task->m_request.url,
        m_replyLimit);
    return false;
}

std::size_t Transfer::onHeaderLine(char* bytes, std::size_t size, std::size_t count, void* context)
{
    auto* self = static_cast<Transfer*>(context);
    const std::size_t length = size * count;
    self->m_lastActivity = Clock::now();
    if (!self->holdReplyBytes(length))
        return CURL_WRITEFUNC_ERROR;
    const std::string_view line(bytes, length);
    if (line.starts_with("HTTP/")) {
        // A new reply head (after a redirect or an interim reply): only the last one counts.
        self->m_replyHeaders.clear();
    } else if (const auto colon = line.find(':'); colon != std::string_view::npos) {
        self->m_replyHeaders.emplace_back(trimmed(line.substr(0, colon)), trimmed(line.substr(colon + 1)));
    }
    return length;
}

std::size_t Transfer::onUploadBytes(char* buffer, std::size_t size, std::size_t count, void* context)
{
    auto* self = static_cast<Transfer*>(context);
    const std::size_t capacity = size * count;
    self->m_lastActivity = Clock::now();
    if (const auto* stream = std::get_if<BodyStream>(&self->m_task->m_uploadSource))
        return (*stream)(buffer, capacity);
    return self->readUploadFile(buffer, capacity);
}

std::size_t Transfer::readUploadFile(char* buffer, std::size_t capacity)
{
    for (;;) {
        const ssize_t got = ::read(m_uploadFile, buffer, capacity);
        if (got >= 0)
            return static_cast<std::size_t>(got);
        if (errno != EINTR)
            return CURL_READFUNC_ABORT;
    }
}

}
