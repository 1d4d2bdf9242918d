#pragma once

#include <QString>
#include <QStringList>

/// What the command is asked for.
struct CommandLine
{
    QString command; ///< empty for help or the version
    QStringList files;
    QStringList modules;
    QStringList priorities;
    QString page; ///< file of `monitor --html`
    bool json = false;
    bool dryRun = false;
    bool repair = false;
    bool full = false;
    bool once = false;
    bool strict = false;
    bool verbose = false;
    bool namesOnly = false;

    /// What is to be printed instead of doing anything: help or the version.
    QString answer;
    /// Why it cannot be understood; empty when it can.
    QString error;

    /// The arguments without the name of the program.
    static CommandLine parse(const QStringList &arguments);
};
