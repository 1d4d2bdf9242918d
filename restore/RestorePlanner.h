#pragma once

#include "catalogue/ChecksumComparison.h"
#include "catalogue/FileAttributes.h"
#include "catalogue/SavedEntries.h"
#include "catalogue/SavedItem.h"
#include "catalogue/SavedVersion.h"
#include "outcome/ItemListing.h"
#include "repository/ControlFiles.h"

#include <QList>
#include <QMap>
#include <QSet>
#include <QString>
#include <QStringList>

#include <optional>

struct OperationContext;
class StagingArea;

/// An item of which the device's data differ from those saved.
struct PlannedItem
{
    SavedItem item;
    QString digest; ///< of the file, the uncompressed archive or the database, as the repository promises it
    QString entry;  ///< under which the repository holds it
    QString source; ///< where the archive or dump lies that is to be fetched; of a plain file nothing
    std::optional<FileAttributes> attributes; ///< of a file or database, when they were saved
    bool isNew = false;                       ///< there is nothing of it on the device
    quint64 bytes = 0;                        ///< of what is on the device, as far as they are known
};

/// What a restore is to put back of one module.
struct ModulePlan
{
    SavedVersion version;     ///< of which the data were saved
    QList<PlannedItem> items; ///< in the order of their identities
    bool complete = true;     ///< false when something that differs is not among them
};

using RestorePlan = QMap<QString, ModulePlan>;

/// Finds out what a restore has to put back: fetches what was saved last, stages the device's present data,
/// and compares.
///
/// A module of which nothing is saved, or of which it is not known what, is left out with a warning.
class RestorePlanner
{
public:
    /// All must outlive the planner.
    RestorePlanner(const OperationContext &context, RepositorySession &session, StagingArea &staging);

    /// False when there is no list of saved modules, or the repository's format is not known; the user has
    /// been told.
    bool getFromRepository();

    const RestorePlan &plan() const { return modulePlans; }

    /// Why an item is kept that could be restored.
    static const char *const lowerPriority;

    /// What becomes of each item, whether it is in the plan or not.
    const PreviewList &preview() const { return previewed; }

private:
    void askFor(const QString &module);
    std::optional<QStringList> takeModulesList();
    void takeSavedState(const QString &module);
    bool takeVersion(const QString &module);
    bool takeAttributes(const QString &module);
    bool takeLines(const QString &module, bool here);
    bool isHere(const QString &module) const;
    void planModule(const QString &module);
    void planLine(const QString &module, const ChecksumLine &line, const ChecksumEntry &entry);
    void leaveOut(const QString &module, const QString &why);
    std::optional<PlannedItem> planItem(const SavedItem &item, const QString &digest, const QString &entry);
    std::optional<FileAttributes> attributesOf(const SavedItem &item) const;
    void stage();
    void noteFailure(const QString &text);

    const OperationContext &context;
    ControlFiles files;
    StagingArea &staging;
    LinesByModule savedLines;
    QMap<QString, AttributesByKey> savedAttributes;
    ChecksumSize savedSize; ///< of these
    std::optional<SavedEntries> saved;
    bool entriesKnown =
        true; ///< the checksum files of all listed modules are known, and so are their entries
    RestorePlan modulePlans;
    PreviewList previewed;
    QString failure; ///< text of the last failed request
};
