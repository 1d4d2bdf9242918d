#pragma once

#include "repository/Repository.h"

#include <QList>
#include <QMap>
#include <QString>

class RepositorySession;

/// The files in which a repository says what it holds, fetched many at once, each to its place below the
/// restore directory.
class ControlFiles
{
public:
    /// The session must outlive the object.
    explicit ControlFiles(RepositorySession &session) : session(session) {}

    /// Have these fetched by the next `fetch`; one that was asked for before is not fetched again.
    void askForList(); ///< with the repository's format
    void askForVersion(const QString &module);
    void askForChecksums(const QString &module);
    void askForAttributes(const QString &module);

    /// Fetch what was asked for, with events served.
    void fetch();

    /// What became of an entry that was asked for.
    RequestOutcome outcome(const QString &entry) const { return outcomes.value(entry); }
    /// True when the repository has been fetched to be of a format that this service does not know.
    bool hasNewerFormat() const;

private:
    void ask(const QString &entry, qint64 largest);

    RepositorySession &session;
    QList<RepositoryRequest> asked;
    QMap<QString, RequestOutcome> outcomes;
};
