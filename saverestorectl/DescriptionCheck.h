#pragma once

#include "restorable/DescriptionFault.h"
#include "restorable/RestorableObject.h"

#include <QList>
#include <QString>
#include <QStringList>

/// Something that is not as it should be in a restorable.xml, or in the data that it lists.
struct Finding
{
    int line; ///< 0: the file as a whole
    bool isError;
    QString name; ///< for programs
    QString text;
    QString meaning;
};

/// What an item of a description is on this device.
struct ItemOnDevice
{
    int line = 0;
    RestorableItemKind kind = FileItem;
    QString path = {};
    QString priority = {};
    bool zipped = false;
    /// "saved", "missing", "refused", "unreadable" by whoever looks, or "unknown" without a module.
    QString state = {};
    quint64 bytes = 0;
    quint64 files = 0;
};

struct DataSize;

/// A restorable.xml as the service reads it, and what it has saved on this device.
class DescriptionCheck
{
public:
    /// With an empty module the data are not looked at: it is not known whose they are.
    explicit DescriptionCheck(QString module);

    void run(const QString &file);

    /// In the order of their lines.
    const QList<Finding> &findings() const { return found; }
    const QList<ItemOnDevice> &items() const { return saved; }
    qsizetype errors() const;

    /// The module whose description the file is by its place, ".../module/<Module>/restorable.xml"; empty
    /// when that does not tell.
    static QString moduleOf(const QString &file);

private:
    void lookAtDatabase(const RestorableDatabase &database);
    void lookAtFile(const RestorableFile &file);
    void add(const DescriptionFault &fault);
    void enter(ItemOnDevice item, const DataSize &size);
    void warn(int line, const QString &name, const QString &text, const QString &meaning);

    QString module;
    QList<Finding> found;
    QList<ItemOnDevice> saved;
};
