#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

/// URLs of a repository on a server.
namespace RepositoryUrl {

/// True when the text designates a server, and one that is reached with TLS: by its scheme, in upper or lower
/// case. Any other text is a directory.
bool isDistant(const QString &text);
bool isSecure(const QString &text);

/// The text without user name and password, for logs, pop-ups and answers on the bus; "(unreadable URL)" when
/// it cannot be told which part is which.
QString forDisplay(const QString &text);

/// What is wrong with a base URL, empty when nothing is.
QString problem(const QString &text);

/// The base URL as it is requested: without user information and without a slash at the end.
QUrl base(const QString &text);

/// The URL of an entry directly below the base URL. The name is percent-encoded where a URL needs it.
QUrl entry(const QString &text, const QString &name);

/// The value of an Authorization header for the user information of the URL, empty when it has none.
QByteArray authorization(const QString &text);

} // namespace RepositoryUrl
