#include "service/LastOperations.h"

#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "platform/WholeFile.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

constexpr qint64 largestFile = qint64{32} * 1024 * 1024;

/// The URL itself may hold a password.
QString fingerprint(const QString &repository)
{
    return QString::fromLatin1(
        QCryptographicHash::hash(repository.toUtf8(), QCryptographicHash::Sha256).toHex());
}

} // namespace

void LastOperations::load()
{
    QFile file(DevicePaths::lastOperations());
    if (!file.open(QIODevice::ReadOnly) || file.size() > largestFile) {
        return;
    }
    const QJsonObject object = QJsonDocument::fromJson(file.readAll()).object();
    for (const QJsonValue value : object["operations"].toArray()) {
        const auto summary = OperationSummary::fromJson(QJsonDocument(value.toObject()).toJson());
        if (summary) {
            summaries.insert(summary->operation, *summary);
        }
    }
    const QJsonObject successful = object["successes"].toObject();
    for (auto success = successful.constBegin(); success != successful.constEnd(); ++success) {
        successes.insert(success.key(), static_cast<quint64>(success.value().toInteger()));
    }
    damagedRepository = object["damagedRepository"].toString();
    for (const QJsonValue item : object["damaged"].toArray()) {
        damagedItems.insert({item[0].toString(), item[1].toString()});
    }
}

std::optional<OperationSummary> LastOperations::last(const QString &operation) const
{
    const auto found = summaries.constFind(operation);
    return found == summaries.cend() ? std::nullopt : std::optional(*found);
}

void LastOperations::keep(const OperationSummary &summary)
{
    summaries.insert(summary.operation, summary);
    if (summary.code == Outcome::Code::Success) {
        successes.insert(summary.operation, summary.started);
    }
    store();
}

void LastOperations::setDamaged(const QString &repository, const QSet<ItemIdentity> &items)
{
    damagedRepository = fingerprint(repository);
    damagedItems = items;
}

void LastOperations::addDamaged(const QString &repository, const QSet<ItemIdentity> &items)
{
    setDamaged(repository, damaged(repository) + items);
}

void LastOperations::noteRepaired(const QString &repository, const QSet<ItemIdentity> &items)
{
    setDamaged(repository, damaged(repository) - items);
}

QSet<ItemIdentity> LastOperations::damaged(const QString &repository) const
{
    return fingerprint(repository) == damagedRepository ? damagedItems : QSet<ItemIdentity>();
}

void LastOperations::store() const
{
    QJsonArray operations;
    for (const OperationSummary &summary : summaries) {
        operations << QJsonDocument::fromJson(summary.toJson()).object();
    }
    QJsonArray damagedList;
    for (const auto &[module, identity] : damagedItems) {
        damagedList << QJsonArray{module, identity};
    }
    QJsonObject successful;
    for (auto success = successes.cbegin(); success != successes.cend(); ++success) {
        successful.insert(success.key(), static_cast<qint64>(success.value()));
    }
    const QJsonObject object = {{"operations", operations},
                                {"successes", successful},
                                {"damagedRepository", damagedRepository},
                                {"damaged", damagedList}};
    const QString path = DevicePaths::lastOperations();
    QDir().mkpath(QFileInfo(path).path());
    if (!writeWholeFile(path, QJsonDocument(object).toJson(QJsonDocument::Compact), WholeFile::Lasting)) {
        logWarning("How the last operations ended could not be written to '%1'", path);
    }
}
