#include "repository/HttpTransfer.h"

#include "commands/LargeStream.h"
#include "platform/logger/VYXLogger.h"

#include <algorithm>
#include <cstdio>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <utility>

namespace {

constexpr qint64 leastBytesPerSecond = 1000;
constexpr qint64 longestAnswer = qint64{1024} * 1024;
constexpr long bufferSize = 16L * 1024;

/// The library copies none of it: the text has to outlive the handle.
curl_blob blobOf(const QByteArray &text)
{
    return {const_cast<char *>(text.constData()), static_cast<size_t>(text.size()), CURL_BLOB_NOCOPY};
}

} // namespace

bool isHttpSuccess(int status)
{
    return status >= 200 && status <= 299;
}

HttpTransfer::HttpTransfer(HttpRequest request, const HttpSettings &settings)
    : request(std::move(request)), settings(settings), easy(curl().easy_init())
{
    set(CURLOPT_URL, this->request.url.constData());
    set(CURLOPT_PRIVATE, this);
    set(CURLOPT_ERRORBUFFER, errorText.data());
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_PROXY, "");
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_QUICK_EXIT, 1L);
    set(CURLOPT_PATH_AS_IS, 1L);
    set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
    set(CURLOPT_PIPEWAIT, 1L);
    set(CURLOPT_BUFFERSIZE, bufferSize);
    set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(settings.inactivityLimit.count()));
    set(CURLOPT_OPENSOCKETFUNCTION, openSocket);
    set(CURLOPT_OPENSOCKETDATA, this);
    set(CURLOPT_WRITEFUNCTION, takeBody);
    set(CURLOPT_WRITEDATA, this);
    setIdentity();
    setMethod();
    headers = curl().slist_append(headers, "Expect:");
    if (!settings.authorization.isEmpty()) {
        headers = curl().slist_append(headers, ("Authorization: " + settings.authorization).constData());
    }
    set(CURLOPT_HTTPHEADER, headers);
}

HttpTransfer::~HttpTransfer()
{
    curl().easy_cleanup(easy);
    curl().slist_free_all(headers);
}

template <typename Value> void HttpTransfer::set(CURLoption option, Value value) const
{
    curl().easy_setopt(easy, option, value);
}

/// Nobody is trusted but the authorities of the device; without any, nobody.
void HttpTransfer::setIdentity() const
{
    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    set<const char *>(CURLOPT_CAPATH, nullptr);
    set<const char *>(CURLOPT_CAINFO, nullptr);
    const TlsIdentity &identity = settings.identity;
    if (!identity.isComplete()) {
        return;
    }
    curl_blob certificate = blobOf(identity.certificate);
    curl_blob key = blobOf(identity.key);
    curl_blob authorities = blobOf(identity.authorities);
    set(CURLOPT_SSLCERT_BLOB, &certificate);
    set(CURLOPT_SSLKEY_BLOB, &key);
    set(CURLOPT_KEYPASSWD, "");
    set(CURLOPT_CAINFO_BLOB, &authorities);
    if (!identity.revocationList.isEmpty()) {
        set(CURLOPT_CRLFILE, identity.revocationList.constData());
    }
}

void HttpTransfer::setMethod()
{
    switch (request.method) {
    case HttpRequest::Get:
        set(CURLOPT_HTTPGET, 1L);
        if (request.target) {
            request.target->restart();
        }
        return;
    case HttpRequest::Put:
        size = request.source->size();
        request.source->seek(0);
        set(CURLOPT_UPLOAD, 1L);
        set(CURLOPT_UPLOAD_BUFFERSIZE, size >= largeStream ? long{largePortion} : bufferSize);
        set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(size));
        set(CURLOPT_READFUNCTION, readBody);
        set(CURLOPT_READDATA, this);
        set(CURLOPT_SEEKFUNCTION, seekBody);
        set(CURLOPT_SEEKDATA, this);
        return;
    case HttpRequest::Delete:
        set(CURLOPT_CUSTOMREQUEST, "DELETE");
        return;
    case HttpRequest::Head:
        set(CURLOPT_NOBODY, 1L);
        return;
    case HttpRequest::PropFind:
        set(CURLOPT_CUSTOMREQUEST, "PROPFIND");
        headers = curl().slist_append(headers, "Depth: 1");
        request.target->restart();
        return;
    }
}

void HttpTransfer::connectAnew() const
{
    set(CURLOPT_FRESH_CONNECT, 1L);
}

size_t HttpTransfer::readBody(char *buffer, size_t size, size_t count, void *self)
{
    auto &transfer = *static_cast<HttpTransfer *>(self);
    const qint64 left = transfer.size - transfer.request.source->pos();
    const qint64 read =
        transfer.request.source->read(buffer, std::min(left, static_cast<qint64>(size * count)));
    if (read < 0) {
        transfer.reason = "The file could not be read";
        return CURL_READFUNC_ABORT;
    }
    transfer.noteMoved(read);
    transfer.logProgress("PUT progess: %1%", transfer.request.source->pos(), transfer.size);
    return static_cast<size_t>(read);
}

int HttpTransfer::seekBody(void *self, curl_off_t offset, int origin)
{
    auto &transfer = *static_cast<HttpTransfer *>(self);
    return origin == SEEK_SET && transfer.request.source->seek(offset) ? CURL_SEEKFUNC_OK
                                                                       : CURL_SEEKFUNC_FAIL;
}

size_t HttpTransfer::takeBody(char *bytes, size_t size, size_t count, void *self)
{
    auto &transfer = *static_cast<HttpTransfer *>(self);
    const QByteArrayView body(bytes, static_cast<qsizetype>(size * count));
    transfer.noteMoved(body.size());
    return transfer.take(body) ? size * count : 0;
}

/// What comes with another status than success is not the entry.
bool HttpTransfer::take(QByteArrayView bytes)
{
    done += bytes.size();
    DownloadFile *const target = isHttpSuccess(status()) ? request.target.get() : nullptr;
    if (target == nullptr) {
        if (done > longestAnswer) {
            reason = QString("The server's answer has more than %1 bytes").arg(longestAnswer);
        }
        return reason.isEmpty();
    }
    curl_off_t announced = -1;
    curl().easy_getinfo(easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &announced);
    target->expect(announced);
    if (target->append(bytes)) {
        logProgress("GET progess: %1%", done, announced);
        return true;
    }
    reason = target->isTooLarge() ? "The entry is too large" : "The file could not be written";
    return false;
}

/// No child inherits it. A peer that does not acknowledge what it was sent is gone.
curl_socket_t HttpTransfer::openSocket(void *self, curlsocktype, curl_sockaddr *address)
{
    const auto &transfer = *static_cast<HttpTransfer *>(self);
    const auto limit = static_cast<unsigned>(transfer.settings.inactivityLimit.count());
    const int opened = socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    if (opened >= 0) {
        setsockopt(opened, IPPROTO_TCP, TCP_USER_TIMEOUT, &limit, sizeof limit);
    }
    return opened >= 0 ? opened : CURL_SOCKET_BAD;
}

void HttpTransfer::noteMoved(qint64 bytes)
{
    idle = {};
    moved += bytes;
    movedInWindow += bytes;
    if (windowStart == Clock::time_point()) {
        windowStart = Clock::now();
    }
}

/// Of an upload the kernel takes much at once; what it has sent of that has moved, too.
qint64 HttpTransfer::takeMoved()
{
    curl_socket_t socket = CURL_SOCKET_BAD;
    int left = 0;
    if (request.method == HttpRequest::Put && done == 0 &&
        curl().easy_getinfo(easy, CURLINFO_ACTIVESOCKET, &socket) == CURLE_OK && socket != CURL_SOCKET_BAD &&
        ioctl(socket, SIOCOUTQ, &left) == 0 && std::exchange(queued, left) > left) {
        noteMoved(1);
    }
    return std::exchange(moved, 0);
}

bool HttpTransfer::isSilent(size_t shares)
{
    const auto now = Clock::now();
    idle += (now - std::exchange(looked, now)) / static_cast<qint64>(shares);
    return idle >= settings.inactivityLimit;
}

/// While an answer is waited for, nothing is judged: the limit of inactivity holds then.
bool HttpTransfer::isTooSlow(size_t shares)
{
    const bool isUpload = request.method == HttpRequest::Put;
    const auto window = Clock::now() - windowStart;
    if (windowStart == Clock::time_point() || window < settings.rateWindow) {
        return false;
    }
    const auto seconds = std::chrono::duration<double>(window).count();
    const bool allSent = isUpload && request.source->pos() >= size && done == 0;
    const bool slow = !allSent && static_cast<double>(movedInWindow) * static_cast<double>(shares) <
                                      static_cast<double>(leastBytesPerSecond) * seconds;
    windowStart = Clock::now();
    movedInWindow = 0;
    if (slow) {
        reason = QString("The transfer is slower than %1 bytes per second").arg(leastBytesPerSecond);
    }
    return slow;
}

int HttpTransfer::status() const
{
    long found = 0;
    curl().easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &found);
    return static_cast<int>(found);
}

HttpResult HttpTransfer::resultOf(CURLcode code) const
{
    long requestBytes = 0;
    curl().easy_getinfo(easy, CURLINFO_REQUEST_SIZE, &requestBytes);
    curl_off_t announced = -1;
    curl().easy_getinfo(easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &announced);
    HttpResult result = {
        .status = status(), .size = announced, .code = code, .text = reason, .wasSent = requestBytes > 0};
    if (result.text.isEmpty() && code != CURLE_OK) {
        result.text =
            QString::fromUtf8(errorText.front() != '\0' ? errorText.data() : curl().easy_strerror(code));
    } else if (result.text.isEmpty() && !isHttpSuccess(result.status)) {
        result.text = QString("The requested URL returned error: %1").arg(result.status);
    }
    return result;
}

void HttpTransfer::logProgress(const char *format, qint64 now, qint64 total) const
{
    if (total <= 0) {
        return;
    }
    const double percent = static_cast<double>(now) / static_cast<double>(total) * 100.0;
    const int whole = static_cast<int>(percent);
    if (percent - whole < 0.2 && whole % 10 == 0) {
        logDebug(format, QString::number(percent, 'f', 2));
    }
}
