#include "repository/RepositoryUrl.h"

#include <QRegularExpression>

namespace {

bool hasScheme(const QString &text, const QString &scheme)
{
    return text.startsWith(scheme + ":", Qt::CaseInsensitive);
}

} // namespace

namespace RepositoryUrl {

bool isDistant(const QString &text)
{
    return hasScheme(text, "http") || isSecure(text);
}

bool isSecure(const QString &text)
{
    return hasScheme(text, "https");
}

QString forDisplay(const QString &text)
{
    const bool path = text.startsWith('/') || !text.contains(QRegularExpression("://|@"));
    if (!isDistant(text) && path) {
        return text;
    }
    // What stands before an "@" can be a password, wherever a slash in it has moved it to.
    const QUrl url = QUrl(text).adjusted(QUrl::RemoveUserInfo);
    const bool readable = url.isValid() && !url.host().isEmpty() && !url.toString().contains('@');
    return readable ? url.toString() : QString("(unreadable URL)");
}

QString problem(const QString &text)
{
    const QUrl url(text);
    if (!url.isValid() || url.host().isEmpty()) {
        return "The repository's URL is not valid";
    }
    if (url.hasQuery() || url.hasFragment()) {
        return "The repository's URL must have no query and no fragment";
    }
    return {};
}

QUrl base(const QString &text)
{
    QString trimmed = text;
    while (trimmed.endsWith('/')) {
        trimmed.chop(1);
    }
    return QUrl(trimmed).adjusted(QUrl::RemoveUserInfo);
}

QUrl entry(const QString &text, const QString &name)
{
    const QByteArray encoded = QUrl::toPercentEncoding(name, "+!$&'()*,;=:@");
    return QUrl::fromEncoded(base(text).toEncoded() + "/" + encoded, QUrl::StrictMode);
}

QByteArray authorization(const QString &text)
{
    const QUrl url(text);
    if (url.userInfo().isEmpty()) {
        return {};
    }
    const QString credentials = url.userName(QUrl::FullyDecoded) + ":" + url.password(QUrl::FullyDecoded);
    return "Basic " + credentials.toUtf8().toBase64();
}

} // namespace RepositoryUrl
