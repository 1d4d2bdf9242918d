#pragma once

#include "catalogue/ChecksumFile.h"
#include "restorable/RestorableObject.h"

#include <QString>

class Waiter;

/// Stages the files and directories of one module: writes their checksum lines and makes the archives of
/// zipped directories. An item that yields no digest gets a line with an empty one.
class FileStaging
{
public:
    FileStaging(QString module, ChecksumAppender &checksums, Waiter &waiter);

    void stage(const RestorableFile &item);

private:
    void stageFile(const RestorableFile &item);
    void stageZippedDirectory(const RestorableFile &item);
    void stageDirectory(const RestorableFile &item);
    void stageDirectoryEntry(const RestorableFile &item, const QString &directory, const QString &entry);
    bool archiveDirectory(const QString &source, const QString &archive);
    bool compressArchive(const QString &archive, bool wanted);

    QString module;
    QString dataDirectory;
    ChecksumAppender &checksums;
    Waiter &waiter;
};
