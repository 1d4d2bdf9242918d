#pragma once

#include "outcome/OperationSummary.h"
#include "service/LastOperations.h"

#include <QDateTime>
#include <QObject>
#include <QTimer>
#include <QVariantMap>

#include <optional>

class OperationSlot;
class VYXModule;

/// The properties of the control interface: what runs, how far it is, how the last ones ended. They are kept
/// as properties of the module object, where the adaptor reads them; changes are told at most ten times a
/// second.
class ControlStatus : public QObject
{
    Q_OBJECT

public:
    /// Both must outlive the object.
    ControlStatus(VYXModule &module, OperationSlot &operations);

    /// Read how operations of an earlier process have ended.
    void load();

    /// The repository's URL without secrets; empty for none.
    void setRepository(const QString &shownUrl);
    void setNextSave(const std::optional<QDateTime> &due);

    LastOperations &lastOperations() { return last; }

private:
    void showRunning();
    void showEnded(const std::optional<OperationSummary> &summary);
    void showLast(const OperationSummary &summary);
    void publish(const char *name, const QVariant &value);
    void tell();

    VYXModule &module;
    OperationSlot &operations;
    LastOperations last;
    QTimer turn;
    QVariantMap changed; ///< that nobody was told of
};
