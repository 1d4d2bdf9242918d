#pragma once

#include "platform/Beneath.h"

#include <QByteArrayList>
#include <QString>

/// How much there is of something, and what of it a save leaves out.
struct DataSize
{
    Beneath::State state = Beneath::State::Open;
    quint64 bytes = 0;
    quint64 files = 0;
    /// Names with why they are left out: the first ones, and how many there are.
    QStringList leftOut = {};
    qsizetype leftOutCount = 0;
    /// Not all could be looked at.
    bool isPartial = false;

    void leaveOut(const QByteArray &name, const char *why);
};

/// The data of one module, looked at as a save reads them. Nothing outside of its directory is opened.
class DeviceData
{
public:
    explicit DeviceData(const QString &module);

    Beneath::State rootState() const { return data.rootState(); }

    DataSize file(const QString &path) const;
    /// The directory file by file: without hidden files and what is in subdirectories.
    DataSize directory(const QString &path) const;
    /// All that is in the directory.
    DataSize archive(const QString &path) const;
    /// A database with what is beside it.
    DataSize database(const QString &name) const;
    /// True for a file that begins as a database of SQLite, or for an empty one.
    bool isDatabase(const QString &path) const;

private:
    QString root;
    Beneath data;
};
