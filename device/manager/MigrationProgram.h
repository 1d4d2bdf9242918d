#pragma once

#include <QString>
#include <QStringList>

class QObject;

/// Run the installed migration program of a module without waiting for it; its outcome is logged. It is
/// killed after 60 s, or with `owner`. False, with a log line, when the module has no such program.
bool startMigration(const QString &module, const QStringList &arguments, QObject *owner);
