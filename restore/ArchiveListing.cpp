#include "restore/ArchiveListing.h"

#include "catalogue/ItemNames.h"

#include <QDir>

#include <algorithm>

namespace {

/// The C string that starts with the quote at `position`, which is moved behind its end. Nothing when it has
/// none.
std::optional<QString> quotedString(const QByteArray &line, qsizetype &position)
{
    static const QByteArray escapes = "abtnvfr\"\\?";
    static const QByteArray characters = "\a\b\t\n\v\f\r\"\\?";
    QByteArray text;
    for (++position; position < line.size(); ++position) {
        const char character = line.at(position);
        if (character == '"') {
            ++position;
            return QString::fromUtf8(text);
        }
        if (character != '\\') {
            text += character;
            continue;
        }
        bool octal = false;
        const int code = line.mid(position + 1, 3).toInt(&octal, 8);
        if (octal && position + 3 < line.size()) {
            text += static_cast<char>(code);
            position += 3;
            continue;
        }
        const qsizetype escape = position + 1 < line.size() ? escapes.indexOf(line.at(position + 1)) : -1;
        if (escape < 0) {
            return std::nullopt;
        }
        text += characters.at(escape);
        ++position;
    }
    return std::nullopt;
}

QString withoutOuterSlashes(QString path)
{
    while (path.startsWith('/')) {
        path.remove(0, 1);
    }
    while (path.endsWith('/')) {
        path.chop(1);
    }
    return path;
}

std::optional<ArchiveMember> parseLine(const QByteArray &line)
{
    qsizetype position = line.indexOf('"');
    if (position < 1) {
        return std::nullopt;
    }
    ArchiveMember member;
    member.type = QLatin1Char(line.at(0));
    const auto path = quotedString(line, position);
    if (!path) {
        return std::nullopt;
    }
    member.path = withoutOuterSlashes(*path);
    const bool link = member.type == 'l' || member.type == 'h';
    if (!link) {
        return position == line.size() ? std::optional(member) : std::nullopt;
    }
    position = line.indexOf('"', position);
    const auto target = position < 0 ? std::nullopt : quotedString(line, position);
    if (!target) {
        return std::nullopt;
    }
    member.linkTarget = *target;
    return member;
}

bool isBelow(const QString &path, const QString &directory)
{
    return !path.split('/').contains("..") && !ItemNames::isOwn(path.mid(directory.size())) &&
           (path == directory || path.startsWith(directory + "/"));
}

bool memberStaysInside(const ArchiveMember &member, const QString &directory)
{
    static const QString accepted = "-dlhp";
    if (!accepted.contains(member.type) || !isBelow(member.path, directory)) {
        return false;
    }
    if (member.type == 'h') {
        return isBelow(withoutOuterSlashes(member.linkTarget), directory);
    }
    if (member.type == 'l') {
        const QString base = "/" + member.path.section('/', 0, -2);
        const QString target = QDir::cleanPath(QDir(base).filePath(member.linkTarget));
        return isBelow(withoutOuterSlashes(target), directory);
    }
    return true;
}

} // namespace

QStringList archiveListingArguments(const QString &archive)
{
    return {"--numeric-owner", "--quoting-style=c", "-tvzf", archive};
}

std::optional<QList<ArchiveMember>> parseArchiveListing(const QByteArray &listing)
{
    QList<ArchiveMember> members;
    for (const QByteArray &line : listing.split('\n')) {
        if (line.isEmpty()) {
            continue;
        }
        const auto member = parseLine(line);
        if (!member) {
            return std::nullopt;
        }
        members << *member;
    }
    return members;
}

bool staysInside(const QList<ArchiveMember> &members, const QString &directory)
{
    const QString inside = withoutOuterSlashes(directory);
    return std::all_of(members.cbegin(), members.cend(),
                       [&](const ArchiveMember &member) { return memberStaysInside(member, inside); });
}
