#include "saverestorectl/DescriptionCheck.h"

#include "catalogue/ItemNames.h"
#include "platform/DevicePaths.h"
#include "restorable/RestorableDescription.h"
#include "saverestorectl/DeviceData.h"

#include <QFileInfo>

#include <algorithm>

namespace {

/// The state of an item, and what is to be said about it.
struct Judgement
{
    const char *state;
    const char *name;
    const char *text;
    const char *meaning;
};

Judgement judge(Beneath::State state)
{
    switch (state) {
    case Beneath::State::Open:
        return {"saved", nullptr, nullptr, nullptr};
    case Beneath::State::Missing:
        return {"missing", nullptr, nullptr, nullptr};
    case Beneath::State::LeadsOut:
        return {"refused", "leads-out", "'%1' is a link that leads out of the module's data",
                "It is left out, and what was saved of it stays."};
    case Beneath::State::WrongKind:
        return {"refused", "wrong-kind", "'%1' is no file, or a link to a directory that is to be archived",
                "It is left out, and what was saved of it stays."};
    case Beneath::State::Unreadable:
        break;
    }
    return {"unreadable", "no-access", "'%1' cannot be read by you",
            "What of it is saved cannot be told: the service has the rights of root."};
}

} // namespace

DescriptionCheck::DescriptionCheck(QString module) : module(std::move(module)) {}

qsizetype DescriptionCheck::errors() const
{
    return std::count_if(found.cbegin(), found.cend(),
                         [](const Finding &finding) { return finding.isError; });
}

QString DescriptionCheck::moduleOf(const QString &file)
{
    const QStringList parts = QFileInfo(file).absoluteFilePath().split('/');
    const qsizetype count = parts.size();
    const bool placed = count >= 3 && parts[count - 1] == "restorable.xml" && parts[count - 3] == "module";
    return placed && ItemNames::isModuleName(parts[count - 2]) ? parts[count - 2] : QString();
}

void DescriptionCheck::add(const DescriptionFault &fault)
{
    if (!module.isEmpty() || !fault.isOfDevice()) {
        const bool isError = fault.weight == DescriptionFault::Weight::Error && !fault.isMissingData();
        found.append({fault.line, isError, fault.name(), fault.text, fault.meaning()});
    }
}

void DescriptionCheck::run(const QString &file)
{
    RestorableObject object(module.isEmpty() ? QString("?") : module);
    QList<int> missingLines;
    for (const DescriptionFault &fault : RestorableDescription(object).read(file)) {
        add(fault);
        if (fault.kind == DescriptionFault::Kind::DatabaseMissing) {
            missingLines << fault.line;
        }
    }
    if (!module.isEmpty() && DeviceData(module).rootState() == Beneath::State::LeadsOut) {
        found.append({0, true, "leads-out",
                      "The module's data directory is a link: " + DevicePaths::moduleData(module),
                      "Nothing of the module is saved."});
    }
    for (const RestorableDatabase &database : object.getDatabases()) {
        lookAtDatabase(database);
    }
    for (const QString &missing : object.getMissingDatabases()) {
        enter({.line = missingLines.takeFirst(), .kind = DatabaseItem, .path = missing, .priority = "high"},
              {.state = Beneath::State::Missing});
    }
    for (const RestorableFile &item : object.getFiles()) {
        lookAtFile(item);
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const Finding &left, const Finding &right) { return left.line < right.line; });
}

void DescriptionCheck::warn(int line, const QString &name, const QString &text, const QString &meaning)
{
    found.append({line, false, name, text, meaning});
}

void DescriptionCheck::enter(ItemOnDevice item, const DataSize &size)
{
    const Judgement judgement = judge(size.state);
    item.state = module.isEmpty() ? "unknown" : judgement.state;
    item.bytes = size.bytes;
    item.files = size.files;
    if (judgement.text != nullptr) {
        warn(item.line, judgement.name, QString(judgement.text).arg(item.path), judgement.meaning);
    }
    if (size.leftOutCount > 0) {
        const qsizetype more = size.leftOutCount - size.leftOut.size();
        const QString rest = more > 0 ? QString(" and %1 more").arg(more) : QString();
        warn(item.line, "left-out",
             QString("In '%1' are left out: %2%3").arg(item.path, size.leftOut.join(", "), rest),
             item.zipped ? "They are not in the archive."
                         : "Of a directory that is not zipped, files that lie directly in it are saved.");
    }
    if (size.isPartial) {
        warn(item.line, "no-access", QString("Not all of '%1' can be looked at").arg(item.path),
             "There is more than the size tells, or it cannot be saved.");
    }
    saved << item;
}

void DescriptionCheck::lookAtDatabase(const RestorableDatabase &database)
{
    const DeviceData data(module);
    const QString name = database.getName();
    enter({.line = database.getLine(), .kind = DatabaseItem, .path = name, .priority = "high"},
          data.database(name));
    if (saved.last().state == "saved" && !data.isDatabase(name + ".data")) {
        warn(database.getLine(), "no-database", QString("'%1.data' is no database of SQLite").arg(name),
             "It cannot be saved, and what was saved of it stays.");
    }
}

void DescriptionCheck::lookAtFile(const RestorableFile &file)
{
    const DeviceData data(module);
    const QString path = file.getPath();
    const bool directory = file.getKind() == DirectoryItem;
    const bool zipped = directory && file.isZipped();
    enter({.line = file.getLine(),
           .kind = file.getKind(),
           .path = path,
           .priority = priorityName(file.getPriority()),
           .zipped = zipped},
          zipped ? data.archive(path) : (directory ? data.directory(path) : data.file(path)));
    if (!directory && saved.last().bytes > 0 && data.isDatabase(path)) {
        warn(file.getLine(), "database-as-file",
             QString("'%1' is a database that is listed as a file").arg(path),
             "It is saved without a pause of the module: the copy may be of a moment within a change.");
    }
}
