#include "service/JobOptions.h"

#include "outcome/Code.h"

#include <QSet>

namespace {

[[noreturn]] void refuse(const QString &text)
{
    throw ControlError{Outcome::Code::InvalidOption, text};
}

bool flagOf(const QString &name, const QVariant &value)
{
    if (value.typeId() != QMetaType::Bool) {
        refuse(QString("The option '%1' is no boolean").arg(name));
    }
    return value.toBool();
}

QStringList namesOf(const QString &name, const QVariant &value)
{
    if (value.typeId() != QMetaType::QStringList) {
        refuse(QString("The option '%1' is no list of texts").arg(name));
    }
    return value.toStringList();
}

Priorities prioritiesOf(const QStringList &names)
{
    const QSet<QString> wanted(names.cbegin(), names.cend());
    const QSet<QString> known = {"high", "normal", "low"};
    if (wanted.isEmpty() || !known.contains(wanted)) {
        refuse("Priorities are 'high', 'normal' and 'low', at least one of them");
    }
    return {wanted.contains("high"), wanted.contains("normal"), wanted.contains("low")};
}

} // namespace

JobOptions JobOptions::parse(const QVariantMap &options, const QStringList &allowed)
{
    JobOptions job;
    for (auto option = options.cbegin(); option != options.cend(); ++option) {
        const QString &name = option.key();
        const QVariant &value = option.value();
        if (!allowed.contains(name)) {
            refuse(QString("There is no option '%1'").arg(name));
        }
        if (name == "modules") {
            job.operation.modules = namesOf(name, value);
            if (job.operation.modules.isEmpty()) {
                refuse("The option 'modules' names none: leave it out for all");
            }
        } else if (name == "priorities") {
            job.priorities = prioritiesOf(namesOf(name, value));
        } else if (name == "dry_run") {
            job.operation.dryRun = flagOf(name, value);
        } else if (name == "repair") {
            job.repair = flagOf(name, value);
        } else {
            job.full = flagOf(name, value);
        }
    }
    return job;
}
