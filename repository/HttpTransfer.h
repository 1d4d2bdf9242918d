#pragma once

#include "repository/CurlLibrary.h"
#include "repository/DigestingFile.h"
#include "repository/DownloadFile.h"

#include <QByteArray>
#include <QString>

#include <array>
#include <chrono>
#include <memory>

/// The device's side of TLS, as PEM texts, and whom it trusts.
struct TlsIdentity
{
    QByteArray certificate;
    QByteArray key;
    QByteArray authorities;
    QByteArray revocationList; ///< path of a file; empty for none

    bool isComplete() const { return !certificate.isEmpty() && !key.isEmpty() && !authorities.isEmpty(); }
};

/// What all requests to one server share.
struct HttpSettings
{
    QByteArray baseUrl;
    QByteArray authorization = {}; ///< value of the header; empty for none
    TlsIdentity identity = {};
    /// How long a request may go without any progress, for each that is under way with it.
    std::chrono::milliseconds inactivityLimit = std::chrono::seconds(30);
    /// How long a window of time is over which the rate of a transfer is averaged.
    std::chrono::milliseconds rateWindow = std::chrono::seconds(60);
};

/// One request. Files are read and written where the transfer runs, and are nobody else's until its end.
struct HttpRequest
{
    enum Method { Get, Put, Delete, Head, PropFind };

    Method method = Get;
    QByteArray url;
    std::shared_ptr<DigestingFile> source = {}; ///< of a Put
    std::shared_ptr<DownloadFile> target = {};  ///< of a Get; without one the answer is read and forgotten
    bool asksServer = false;                    ///< for nothing but whether it is there
};

/// How a request has ended.
struct HttpResult
{
    int status = 0;       ///< of the last answer; 0 when there was none
    qint64 size = -1;     ///< that was announced for the body; -1 when it was not
    int code = CURLE_OK;  ///< the library's; the answer is whole when it is CURLE_OK
    QString text;         ///< what went wrong; empty after a success
    bool wasSent = false; ///< the server may have seen something of it
    bool givenUp = false; ///< with everything else, since the server is gone
};

bool isHttpSuccess(int status);

/// One attempt to carry out a request, on a handle of libcurl. Lives in the thread of the transfers.
class HttpTransfer
{
public:
    using Clock = std::chrono::steady_clock;

    /// The settings must outlive the transfer.
    HttpTransfer(HttpRequest request, const HttpSettings &settings);
    ~HttpTransfer();

    HttpTransfer(const HttpTransfer &) = delete;
    HttpTransfer &operator=(const HttpTransfer &) = delete;

    CURL *handle() const { return easy; }
    /// Take no connection that stands already.
    void connectAnew() const;

    /// The bytes of bodies that have moved since the last call, as far as this side can see them.
    qint64 takeMoved();
    /// True when nothing of it has moved for the limit of inactivity; time that is shared with others counts
    /// by its share. To be asked again and again.
    bool isSilent(size_t shares);

    /// True when it is slower than 1,000 bytes per second and share; then it has a reason to fail.
    bool isTooSlow(size_t shares);

    HttpResult resultOf(CURLcode code) const;

private:
    static size_t readBody(char *buffer, size_t size, size_t count, void *self);
    static int seekBody(void *self, curl_off_t offset, int origin);
    static size_t takeBody(char *bytes, size_t size, size_t count, void *self);
    static curl_socket_t openSocket(void *self, curlsocktype purpose, curl_sockaddr *address);

    template <typename Value> void set(CURLoption option, Value value) const;
    void setIdentity() const;
    void setMethod();
    int status() const;
    bool take(QByteArrayView bytes);
    void noteMoved(qint64 bytes);
    void logProgress(const char *format, qint64 done, qint64 total) const;

    HttpRequest request;
    const HttpSettings &settings;
    CURL *easy;
    curl_slist *headers = nullptr;
    std::array<char, CURL_ERROR_SIZE> errorText = {};
    QString reason; ///< why this side has ended it
    qint64 size = 0;
    qint64 done = 0;
    qint64 queued = 0; ///< bytes that the kernel has still to send
    qint64 moved = 0;
    qint64 movedInWindow = 0;
    Clock::duration idle = {};
    Clock::time_point looked = Clock::now();
    Clock::time_point windowStart = {};
};
