#pragma once

#include "catalogue/SavedItem.h"
#include "restorable/RestorableObject.h"
#include "staging/Artefacts.h"
#include "staging/DirectoryArchive.h"
#include "staging/ModuleData.h"

#include <QString>

class RememberedDigests;
class Waiter;

/// Stages the files and directories of one module, in a thread beside: makes their checksum lines and the
/// archives of zipped directories that are wanted. An item that yields no digest gets a line with an empty
/// one.
class FileStaging
{
public:
    /// The lines are appended to `lines`. All must outlive the object.
    FileStaging(QString module, const Artefacts &artefacts, RememberedDigests &remembered,
                ChecksumLines &lines, const Waiter &waiter);

    void stage(const RestorableFile &item);

private:
    void stageFile(const RestorableFile &item);
    void stageZippedDirectory(const RestorableFile &item);
    void stageDirectory(const RestorableFile &item);
    void stageDirectoryEntry(const RestorableFile &item, const QByteArray &name);
    QString digestOf(const Descriptor &file, const QString &path);
    QString archive(const SavedItem &item);
    DirectoryArchive archiveIfWanted(const SavedItem &item, const Descriptor &directory);

    QString module;
    ModuleData data;
    const Artefacts &artefacts;
    RememberedDigests &remembered;
    ChecksumLines &lines;
    const Waiter &waiter;
};
