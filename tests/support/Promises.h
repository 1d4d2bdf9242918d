#pragma once

#include "catalogue/SavedEntries.h"
#include "restorable/KnownModules.h"
#include "tests/support/TestDevice.h"

#include <QCryptographicHash>
#include <QDirIterator>

using Files = QMap<QString, QByteArray>;

/// All files below a directory, by their paths below it.
inline Files filesBelow(const QString &directory)
{
    Files files;
    QDirIterator all(directory, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (all.hasNext()) {
        const QString path = all.next();
        files.insert(path.mid(directory.size()), readFile(path));
    }
    return files;
}

inline void putFiles(const QString &directory, const Files &files)
{
    QDir(directory).removeRecursively();
    QDir().mkpath(directory);
    for (auto file = files.cbegin(); file != files.cend(); ++file) {
        writeFile(directory + file.key(), file.value());
    }
}

/// What an entry's line is compared with: the digest of a plain file or an archive, the rows of a dump.
inline QByteArray meaningOf(const ChecksumLine &line, QByteArray content)
{
    static QHash<QByteArray, QByteArray> known;
    QByteArray &meaning = known[line.kind().toUtf8() + content];
    if (meaning.isEmpty()) {
        const QTemporaryDir place;
        const bool dump = line.kind() == "database";
        if (!line.isPlainFile()) {
            writeFile(place.filePath("e"), content);
            const char *const rows = "zcat < e > s; grep -q ^PRAGMA s || sqlite3 d 'CREATE TABLE t(k INTEGER "
                                     "PRIMARY KEY, v)'; sqlite3 -bail d < s && sqlite3 d 'SELECT v FROM t'";
            content = TestDevice::shell("cd " + place.path() + "; " + (dump ? rows : "zcat < e"));
        }
        meaning = dump ? content : QCryptographicHash::hash(content, QCryptographicHash::Md5).toHex();
    }
    return meaning;
}

/// The first line of a listed module on this device whose entry does not hold what it promises: the content,
/// or, for a dump, rows that were saved.
inline QString untrueLine(const Files &held)
{
    LinesByModule lines;
    for (const QString &module :
         QString::fromUtf8(held["modules-list.sav"]).split('\n', Qt::SkipEmptyParts)) {
        lines[module] = parseChecksumLines(held[module + ".cksum"]);
    }
    const SavedEntries names(lines);
    for (auto module = lines.cbegin(); module != lines.cend(); ++module) {
        for (const ChecksumLine &line : KnownModules::isInstalled(module.key()) ? *module : ChecksumLines()) {
            const QByteArray meaning = meaningOf(line, held[names.entry(module.key(), line)]);
            if (!line.digest().isEmpty() && meaning != line.digest().toUtf8() && meaning != "old\n" &&
                meaning != "new\n") {
                return module.key() + ":" + line.key();
            }
        }
    }
    return {};
}

inline Files uncompressed(Files entries)
{
    entries.removeIf([](const auto &entry) { return entry.key().endsWith(".gz"); });
    return entries;
}
