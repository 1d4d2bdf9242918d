#pragma once

#include "catalogue/ChecksumFile.h"
#include "restorable/RestorableObject.h"
#include "staging/ModuleData.h"

#include <QString>

class Waiter;

/// Stages the files and directories of one module: writes their checksum lines and makes the archives of
/// zipped directories. An item that yields no digest gets a line with an empty one.
class FileStaging
{
public:
    /// The lines are appended to `lines`, which must outlive the object.
    FileStaging(QString module, ChecksumLines &lines, Waiter &waiter);

    void stage(const RestorableFile &item);

private:
    void stageFile(const RestorableFile &item);
    void stageZippedDirectory(const RestorableFile &item);
    void stageDirectory(const RestorableFile &item);
    void stageDirectoryEntry(const RestorableFile &item, const QByteArray &name);
    QString digestOf(const Descriptor &file, const QString &shown);
    QString archive(const QString &path, const QString &target);

    QString module;
    ModuleData data;
    ChecksumLines &lines;
    Waiter &waiter;
};
