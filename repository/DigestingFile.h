#pragma once

#include "commands/StreamDigest.h"

#include <QFile>

/// A file that is read to be stored elsewhere, and the digest of the bytes that were read. It can be read
/// from its beginning again, as for a transfer that is repeated.
class DigestingFile : public QFile
{
    Q_OBJECT

public:
    DigestingFile() = default;

    /// Open a regular file for reading, unbuffered; anything else is not opened. Nor is what lies outside of
    /// the directory `within`, if one is given.
    bool openRegular(const QString &path, const QString &within = {});

    /// MD5 of the bytes read since the beginning, 32 lower-case hexadecimal digits; empty when they were not
    /// read in their order.
    QString digest();

protected:
    qint64 readData(char *data, qint64 size) override;

private:
    void restart();

    StreamDigest stream;
    qint64 hashed = 0;
    bool inOrder = true;
};
