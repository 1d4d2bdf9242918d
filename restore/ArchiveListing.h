#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

/// One member of a tar archive.
struct ArchiveMember
{
    QChar type;         ///< as in the first column of the listing: "-", "d", "l", "h", "p", ...
    QString path;       ///< without leading and trailing slashes
    QString linkTarget; ///< of a symbolic or hard link
};

/// Arguments for GNU tar to list an archive in the form that `parseArchiveListing` reads.
QStringList archiveListingArguments(const QString &archive);

/// The members in tar's verbose listing with names quoted as C strings. Nothing when a line has another form.
std::optional<QList<ArchiveMember>> parseArchiveListing(const QByteArray &listing);

/// True when every member is the directory or lies below it, and no link leads out of it. Devices are never
/// accepted. The directory is an absolute path.
bool staysInside(const QList<ArchiveMember> &members, const QString &directory);
