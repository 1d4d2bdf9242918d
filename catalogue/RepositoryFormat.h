#pragma once

#include <QByteArray>
#include <QString>

/// The version of what a repository's names and files mean. It grows when a service that knows only the one
/// before would take something wrongly, or could spoil it.
constexpr int repositoryFormat = 1;

/// The most bytes of a format file.
constexpr qint64 largestFormatFile = 64;

/// What the format file of this service's repositories says.
QByteArray formatText();

/// True when this service knows the format that the file tells. One without content tells of none, as what a
/// server may keep of an entry when its machine crashes: then, as without the file, it is version 1.
bool isKnownFormat(const QString &path);
