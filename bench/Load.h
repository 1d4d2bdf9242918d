#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

class TestDevice;

/// Modules with data that are the same in every run: per 20 modules 84 MB in 810 files, 30 of them databases,
/// the others plain files, plain directories and zipped ones. Each module is a group of its own, or all are
/// one.
class Load
{
public:
    /// `scale` times 20 modules.
    Load(const TestDevice &device, int scale) : device(device), modules(20 * scale) {}

    enum class Groups { OneForEach, One };

    /// Install the modules and write their data.
    void make(TestDevice &target, Groups groups = Groups::OneForEach);

    /// Change every hundredth file for one per cent, every twentieth for five; other ones in another round.
    /// In a database one row changes.
    void change(int percent, int round) const;

    /// Remove all data of all modules.
    void removeAll() const;

    /// The digest of each file, a line each; of a database that of its dump.
    QByteArray digests() const;

    qint64 size() const;
    qsizetype fileCount() const { return files.size(); }
    /// The paths of all databases.
    QList<QString> databases() const;

private:
    void add(const QString &module, const QString &item, qsizetype size);
    void addDatabase(const QString &module, const QString &name);

    const TestDevice &device;
    int modules;
    QList<QString> files; ///< their paths
};
