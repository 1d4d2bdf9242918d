#pragma once

#include "saverestorectl/RepositoryItem.h"

#include <QList>
#include <QString>

/// What has become of the repository's items between two looks at it.
struct RepositoryChanges
{
    struct Change
    {
        QString module;
        QString item;
        QString before; ///< digest; empty when it was not there, or had none
        QString after;  ///< the same of now
        quint64 size = 0;
    };

    qsizetype same = 0; ///< items with the same digest
    QList<Change> changed;

    static RepositoryChanges between(const QList<RepositoryItem> &before, const QList<RepositoryItem> &after);
};
