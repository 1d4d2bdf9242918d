#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

/// A module that the device runs, as modules.conf describes it.
struct ModuleDefinition
{
    QString name;
    QString version;
    QString release;
    QString program; ///< a path, or a name to be looked up beside the ApplicationManager
    QStringList arguments;
};

/// The modules of a modules.conf, in the order of its lines.
///
/// Each line holds name, version, release and command, separated by tabs; the command is split at single
/// spaces. Empty lines and lines that start with "#" are skipped. A line that has not four fields, a name
/// that is not plain or was used before is left out; the number of each such line, from 1, is added to
/// `rejectedLines`.
QList<ModuleDefinition> parseModulesConfiguration(const QByteArray &content, QList<int> &rejectedLines);
