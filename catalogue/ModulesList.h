#pragma once

#include <QString>
#include <QStringList>

/// The most bytes and modules of a modules list.
constexpr qint64 largestModulesList = qint64{1024} * 1024;
constexpr qsizetype mostModules = 1000;

/// The modules that a repository has something of.
struct ModulesList
{
    QStringList modules; ///< each once, in the order of the list
    QStringList refused; ///< names that cannot be modules
    QString fault;       ///< which bound the list goes beyond; then there are no names
};

/// The names of a modules list, one on each line, up to its first empty line.
ModulesList parseModulesList(const QByteArray &text);

/// The names of a file's list; the fault also says that it cannot be read.
ModulesList readModulesList(const QString &path);
