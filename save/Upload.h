#pragma once

#include "catalogue/FileAttributes.h"
#include "save/CompletedLines.h"
#include "save/UploadPlan.h"
#include "staging/OperationContext.h"
#include "staging/SavedState.h"

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

class RepositorySession;
struct RequestOutcome;
class Waiter;

/// What a save has staged.
struct StagedData
{
    LinesByModule lines;
    QSet<ItemIdentity> damaged;    ///< in the repository: to be stored again
    QStringList migrationPrograms; ///< modules whose migration program is to be stored, too
};

/// The lines, without the digests of these items.
LinesByModule withoutDigests(LinesByModule lines, const QSet<ItemIdentity> &items);

/// Brings what was staged into the repository, in phases:
///
///  1. modules with changes get a checksum file that promises their unchanged items alone; where names of
///     entries change, the digests concerned go first,
///  2. the attributes of files are stored, then new and changed items and migration programs,
///  3. entries that nobody uses any more are removed,
///  4. the whole checksum files are stored, digests of items whose entries have just changed their names
///     last,
///  5. then version files, the format and the modules list, and the digests that depended on who is on it.
///
/// Requests of a phase are submitted together. It is over when the outcome of each is known, and the next one
/// goes on only for the modules for which it has succeeded. An item that fails keeps the line of what the
/// repository holds of it; everything else is completed. Wherever it is cut off, no checksum file promises
/// what the repository does not hold. When the waiter has to end, half a second is spent on promising again
/// what the repository holds of items that were not sent.
class Upload
{
public:
    /// All must outlive the upload.
    Upload(RepositorySession &session, const OperationContext &context, const SavedState &previous,
           StagedData staged);

    void postOnRepository();

    /// Do nothing but report what would be stored and removed.
    void preview();

    /// What could not be done, in order; empty when everything was.
    const QList<EntryFailure> &failures() const { return failed; }

private:
    struct ReadySend
    {
        PlannedSend send;
        QString source; ///< local file
        quint64 bytes = 0;
    };

    QMap<QString, AttributesByKey> readLiveAttributes() const;
    AttributesByKey attributesOf(const QString &module, const QSet<QString> &sent,
                                 const AttributesByKey &live) const;
    CompletedLines completedLines(const QString &module, ChecksumSize &size);
    void makePlan();
    void endEarly();
    QSet<QString> resendAttributes();
    void sendHeldChecksumFiles();
    void sendData();
    QList<ReadySend> readySends();
    QString readySource(const PlannedSend &send);
    QSet<QString> sendAttributes(const QList<ReadySend> &ready);
    void sendAttributes(const QString &module, const AttributesByKey &attributes, QSet<QString> &failing);
    void sendItem(const ReadySend &ready);
    QString sourceOf(const PlannedSend &send);
    QString fetchHeld(const PlannedSend &send);
    bool isEntryCertain(const PlannedSend &send);
    void sendMigrationPrograms();
    void removeDeletedFiles();
    static bool isStored(const QString &entry, const QByteArray &content);
    void sendUnchangedChecksumFiles();
    void sendFinalChecksumFiles();
    void sendVersionFiles();
    bool stageFile(const QString &entry, const QByteArray &text);
    void sendChecksumFiles(const QList<ChecksumSend> &files);
    void sendChecksumFile(const ChecksumSend &file);
    void sendFormat();
    void sendModulesList(const QStringList &names);
    static SendResult resultOf(const RequestOutcome &outcome);
    void sendFile(const QString &path, const QString &entry, const std::function<void(SendResult)> &done);
    void failEntry(const QString &entry, const QString &text, RequestOutcome::Cause cause = {});
    void failItem(const PlannedSend &send, const QString &text, RequestOutcome::Cause cause = {});
    bool leavesGone() const;
    void reportUnchanged() const;
    void reportUnread(const QString &module, const ChecksumLine &line) const;
    void reportRemoved(const QSet<ItemIdentity> &items) const;
    void beginSending(const QList<ReadySend> &ready) const;

    RepositorySession &session;
    const OperationContext &context;
    Waiter &waiter;
    const SavedState &previous;
    StagedData staged;
    QMap<QString, QSet<QString>> takenOver;
    std::optional<UploadPlan> plan;
    struct Sent
    {
        QSet<ItemIdentity> items;
        QSet<QString> attributes; ///< of these modules, perhaps
    } sent;
    QSet<QString> unfinished; ///< modules whose version file must not be stored
    QList<EntryFailure> failed;
};
