#pragma once

#include <QDir>
#include <QFile>

/// AddressSanitizer keeps what was freed for a while: how much a process holds says nothing then.
#ifdef __SANITIZE_ADDRESS__
constexpr bool freedMemoryIsKept = true;
#else
constexpr bool freedMemoryIsKept = false;
#endif

/// Write a file and make the directories above it; a test that cannot do so is over.
inline void writeFile(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size()) {
        qFatal("cannot write %s", qPrintable(path));
    }
}

inline QByteArray readFile(const QString &path, const QByteArray &withoutFile = {})
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : withoutFile;
}
