#pragma once

#include "saverestorectl/JobSummary.h"
#include "saverestorectl/RepositoryChanges.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

/// A page for people about operations that have ended: one HTML file that refers to nothing else.
struct ReportPage
{
    struct Job
    {
        JobSummary summary;
        std::optional<RepositoryChanges> repository; ///< if it was looked at before and after
    };

    QString host;
    QString repository;
    QString version;
    QList<Job> jobs; ///< the last one is shown first

    QByteArray toHtml() const;
};
