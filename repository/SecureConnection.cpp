#include "repository/SecureConnection.h"

#include "commands/Command.h"
#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"

#include <QDateTime>
#include <QFile>

#include <ctime>
#include <memory>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <vector>

using namespace std::chrono_literals;

namespace {

constexpr auto toolLimit = 30s;
constexpr auto connectionLimit = 30s;
constexpr int httpsPort = 443;
constexpr qint64 largestFile = qint64{1024} * 1024;

template <auto free> struct Freeing
{
    template <typename Thing> void operator()(Thing *thing) const { free(thing); }
};
using Certificate = std::unique_ptr<X509, Freeing<X509_free>>;
using Key = std::unique_ptr<EVP_PKEY, Freeing<EVP_PKEY_free>>;
using Memory = std::unique_ptr<BIO, Freeing<BIO_free>>;

QStringList ask(Waiter &waiter, const QList<QStringList> &questions)
{
    QStringList answers;
    const auto results = runCommands(waiter, DevicePaths::getVYXinfo(), questions, toolLimit);
    for (qsizetype number = 0; number < questions.size(); ++number) {
        const CommandResult &result = results.at(number);
        if (!result.succeeded() && !waiter.mustEnd()) {
            logWarning("The question '%1' to %2 failed: %3", questions.at(number).join(' '),
                       DevicePaths::getVYXinfo(), result.errorText.trimmed());
        }
        const qsizetype end = result.output.indexOf('\0');
        answers << QString::fromLocal8Bit(end < 0 ? result.output : result.output.left(end));
    }
    return answers;
}

QStringList trustListQuestion()
{
    return {"PKI", "STATUS", "DM"};
}

Memory memoryOf(const QByteArray &text)
{
    return Memory(BIO_new_mem_buf(text.constData(), static_cast<int>(text.size())));
}

std::vector<Certificate> certificatesIn(const QByteArray &text)
{
    std::vector<Certificate> found;
    const Memory memory = memoryOf(text);
    while (X509 *one = PEM_read_bio_X509(memory.get(), nullptr, nullptr, nullptr)) {
        found.emplace_back(one);
    }
    return found;
}

/// A key with a pass phrase is none: nobody is asked for it.
Key keyIn(const QByteArray &text)
{
    const auto noPhrase = [](char *, int, int, void *) { return -1; };
    return Key(PEM_read_bio_PrivateKey(memoryOf(text).get(), nullptr, noPhrase, nullptr));
}

bool isValid(const X509 *certificate)
{
    return certificate != nullptr && X509_cmp_current_time(X509_get0_notBefore(certificate)) < 0 &&
           X509_cmp_current_time(X509_get0_notAfter(certificate)) > 0;
}

QString dateOf(const ASN1_TIME *time)
{
    std::tm parts = {};
    if (time == nullptr || ASN1_TIME_to_tm(time, &parts) != 1) {
        return {};
    }
    return QDateTime::fromSecsSinceEpoch(timegm(&parts)).toString("dd.MM.yyyy");
}

/// Nothing when it cannot be read.
std::optional<QByteArray> contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? std::optional(file.read(largestFile)) : std::nullopt;
}

int endsEarly(void *waiter, curl_off_t, curl_off_t, curl_off_t, curl_off_t)
{
    return static_cast<const Waiter *>(waiter)->mustEnd() ? 1 : 0;
}

/// What became of a connection for no request.
struct Attempt
{
    HttpResult result;
    bool connected = false;
};

Attempt attemptTo(const Waiter &waiter, const HttpSettings &settings)
{
    const HttpTransfer transfer({.url = settings.baseUrl}, settings);
    CURL *const handle = transfer.handle();
    curl().easy_setopt(handle, CURLOPT_CONNECT_ONLY, 1L);
    curl().easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
    curl().easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, endsEarly);
    curl().easy_setopt(handle, CURLOPT_XFERINFODATA, &waiter);
    const CURLcode code = curl().easy_perform(handle);
    curl_off_t connectTime = 0;
    curl().easy_getinfo(handle, CURLINFO_CONNECT_TIME_T, &connectTime);
    return {transfer.resultOf(code), connectTime > 0};
}

} // namespace

bool isTlsFailure(int code)
{
    switch (code) {
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_INVALIDCERTSTATUS:
        return true;
    default:
        return false;
    }
}

void logTlsFailure(const QString &text)
{
    logError("Request got %1 ssl error(s)", 1);
    logError("Ssl error %1: %2", 0, text);
}

QString SecureConnection::trustListStatus(Waiter &waiter)
{
    return ask(waiter, {trustListQuestion()}).first();
}

bool SecureConnection::needsSetUp() const
{
    const auto certificates = certificatesIn(loaded.certificate);
    return !loaded.isComplete() || certificates.empty() || !isValid(certificates.front().get());
}

void SecureConnection::setUp(Waiter &waiter, const QUrl &url,
                             const std::function<void(const QString &)> &trustList)
{
    loaded = {};
    const QStringList answers =
        ask(waiter, {{"PKI", "CERT"}, {"PKI", "CA"}, {"PKI", "CERT_PKEY"}, trustListQuestion()});
    certificatePath = answers.at(0);
    authoritiesPath = answers.at(1);
    keyPath = answers.at(2);
    trustList(answers.at(3));
    if (waiter.mustEnd()) {
        return;
    }
    logDebug("Certificate: %1", certificatePath);
    logDebug("Certificate PKEY: %1", keyPath);
    logDebug("Certificate CA: %1", authoritiesPath);
    if (!loadCertificate() || !loadAuthorities() || !loadKey()) {
        loaded = {};
        return;
    }
    tryConnection(waiter, url);
}

bool SecureConnection::loadCertificate()
{
    const auto text = contentOf(certificatePath);
    if (!text) {
        logError("Could not open Ssl Certificate (%1)", certificatePath);
        return false;
    }
    const auto found = certificatesIn(*text);
    const X509 *const certificate = found.empty() ? nullptr : found.front().get();
    if (!isValid(certificate)) {
        logError("Invalid local certificate (%1). Dates: (%2 - %3)", certificatePath,
                 dateOf(certificate != nullptr ? X509_get0_notBefore(certificate) : nullptr),
                 dateOf(certificate != nullptr ? X509_get0_notAfter(certificate) : nullptr));
        return false;
    }
    logDebug("Valid local certificate");
    loaded.certificate = *text;
    return true;
}

bool SecureConnection::loadAuthorities()
{
    const auto text = contentOf(authoritiesPath);
    if (!text) {
        logError("Could not open Ssl Certificate CA (%1)", authoritiesPath);
        return false;
    }
    const auto authorities = certificatesIn(*text);
    if (authorities.empty()) {
        logError("Invalid CA Certificate");
        return false;
    }
    logDebug("Valid CA Certificate");
    for (const Certificate &authority : authorities) {
        if (!isValid(authority.get())) {
            logError("Invalid CA Certificate");
            return false;
        }
    }
    loaded.authorities = *text;
    if (text->contains("BEGIN X509 CRL")) {
        loaded.revocationList = QFile::encodeName(authoritiesPath);
    }
    return true;
}

bool SecureConnection::loadKey()
{
    const auto text = contentOf(keyPath);
    if (!text) {
        logError("Could not open Ssl Certificate PKEY (%1)", keyPath);
        return false;
    }
    const Key key = keyIn(*text);
    if (!key || EVP_PKEY_base_id(key.get()) != EVP_PKEY_RSA) {
        logError("Invalid local private key");
        return false;
    }
    const auto certificates = certificatesIn(loaded.certificate);
    if (X509_check_private_key(certificates.front().get(), key.get()) != 1) {
        logError("The local private key (%1) does not belong to the local certificate (%2)", keyPath,
                 certificatePath);
        return false;
    }
    logDebug("Valid local PKey");
    loaded.key = *text;
    return true;
}

void SecureConnection::tryConnection(Waiter &waiter, const QUrl &url)
{
    const QString host = url.host();
    logDebug("Try to connect to host with HTTPS/SSL (%1:%2)", host, url.port(httpsPort));
    if (!curl().fault.isEmpty()) {
        logError("Could not encrypt connection to '%1' (%2)", host, curl().fault);
        return;
    }
    Attempt attempt;
    waiter.runBeside([&, settings = HttpSettings{.baseUrl = url.toEncoded(),
                                                 .identity = loaded,
                                                 .inactivityLimit = connectionLimit}] {
        attempt = attemptTo(waiter, settings);
    });
    if (waiter.mustEnd()) {
        return;
    }
    const HttpResult &result = attempt.result;
    if (attempt.connected) {
        logDebug("Ssl connection Ok");
        logDebug("Connected to '%1' with local certificate", host);
    } else {
        logError("Could not connect to '%1' with local certificate (%2)", host, result.text);
    }
    if (result.code == CURLE_OK) {
        logDebug("Ssl encrypted Ok");
        logDebug("Encrypt connection to '%1'", host);
        return;
    }
    if (result.code == CURLE_PEER_FAILED_VERIFICATION) {
        logError("SSL host verify error: %1", result.text);
    }
    if (isTlsFailure(result.code)) {
        logTlsFailure(result.text);
    }
    logError("Ssl socket error: %1", result.code);
    logError("Could not encrypt connection to '%1' (%2)", host, result.text);
}
