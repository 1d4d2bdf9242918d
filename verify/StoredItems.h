#pragma once

#include "catalogue/SavedItem.h"
#include "outcome/OperationSummary.h"
#include "staging/OperationContext.h"
#include "staging/SavedState.h"

#include <QList>
#include <QMap>
#include <QSet>
#include <QString>

#include <optional>

class RepositorySession;

/// An item that a checksum file promises.
struct StoredItem
{
    SavedItem item;
    QString identity; ///< of its line
    QString digest;
    QString entry;
    qint64 size = -1; ///< bytes of the entry; -1 when they are not known

    /// What it counts in sums.
    quint64 bytes() const { return size > 0 ? static_cast<quint64>(size) : 0; }
};

/// What the repository says that it holds, beside what can be seen of it.
struct StoredItems
{
    SavedState state;
    QList<StoredItem> items;
    QList<FailedItem> refused;    ///< lines that name no item of their module, or no module
    QSet<QString> withoutPromise; ///< entries whose lines have no digest
    /// The entries that are there, with their sizes; nothing when the repository cannot list them.
    std::optional<QMap<QString, qint64>> entries;

    /// Fetch it, with events served. Nothing when the repository cannot be used or does not say what it
    /// holds; the report tells why.
    static std::optional<StoredItems> fetch(const OperationContext &context, RepositorySession &session);

    /// The names of all entries that somebody promises or that the service itself uses.
    QSet<QString> knownEntries() const;

private:
    void takeLines();
};

/// "file", "directory" or "database".
QString kindName(RestorableItemKind kind);
