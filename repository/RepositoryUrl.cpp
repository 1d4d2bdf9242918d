#include "repository/RepositoryUrl.h"

#include <QRegularExpression>

namespace RepositoryUrl {

bool isDistant(const QString &text)
{
    return text.contains("http");
}

bool isSecure(const QString &text)
{
    return text.contains("https");
}

QString forDisplay(const QString &text)
{
    static const QRegularExpression userInformation("(://)[^/?#]*@");
    return QString(text).replace(userInformation, "\\1");
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
