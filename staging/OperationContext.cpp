#include "staging/OperationContext.h"

#include "outcome/OperationReport.h"
#include "platform/core/Middleware.h"
#include "platform/core/Waiter.h"
#include "platform/logger/VYXLogger.h"
#include "repository/RepositorySession.h"
#include "restorable/KnownModules.h"

#include <algorithm>

using Outcome::Code;

bool OperationContext::isBrokenOff(const QString &operation) const
{
    switch (waiter.endReason()) {
    case Waiter::End::None:
        return false;
    case Waiter::End::ProcessEnds:
        logWarning("The service is asked to end: abort %1 operations.", operation);
        report.end(Code::Stopped);
        break;
    case Waiter::End::RepositoryChanged:
        reportFailure(QString("The repository was changed: abort %1 operations.").arg(operation));
        report.end(Code::RepositoryChanged);
        break;
    case Waiter::End::Cancelled:
        logWarning("The operation was cancelled: abort %1 operations.", operation);
        report.end(Code::Cancelled);
        break;
    }
    return true;
}

bool OperationContext::isUsable(RepositorySession &session, const QString &operation) const
{
    const RepositoryState state = session.state();
    if (waiter.mustEnd()) {
        return false;
    }
    switch (state.usability) {
    case RepositoryState::Usable:
        return true;
    case RepositoryState::Insecure:
    case RepositoryState::NotTrusted: {
        const QString text = QString("%1: abort %2 operations.").arg(state.text, operation);
        logWarning("%1", text);
        showFailure(text);
        report.end(state.usability == RepositoryState::Insecure ? Code::Insecure : Code::NotTrusted);
        break;
    }
    case RepositoryState::Unreachable:
        logWarning("Connection to repository failed (%1).", session.shownUrl());
        showFailure("Connection to repository failed.", state.text);
        report.end(Code::Unreachable, state.text);
        break;
    }
    return false;
}

bool OperationContext::knowsModules() const
{
    for (const QString &name : options.modules) {
        if (modules.findObject(name) == nullptr) {
            report.end(Code::ModulesUnknown, QString("There is no module '%1'").arg(name));
            return false;
        }
    }
    return true;
}

QList<QStringList> OperationContext::groups() const
{
    QList<QStringList> concerned;
    for (const QStringList &group : modules.groups()) {
        if (std::ranges::any_of(group, [this](const QString &name) { return options.concerns(name); })) {
            concerned << group;
        }
    }
    return concerned;
}

QStringList OperationContext::groupedModules() const
{
    QStringList names;
    for (const QStringList &group : groups()) {
        names += group;
    }
    names.removeDuplicates();
    return names;
}

void OperationContext::refuseFormat(const QString &operation) const
{
    reportFailure(QString("The repository is of a newer format than this service knows: abort %1 operations.")
                      .arg(operation));
    report.end(Code::NewerFormat);
}

void OperationContext::showFailure(const QString &text, const QString &detail) const
{
    if (!options.quiet) {
        middleware.showFailure(text, detail);
    }
}

void OperationContext::reportFailure(const QString &text) const
{
    logError("%1", text);
    showFailure(text);
}
