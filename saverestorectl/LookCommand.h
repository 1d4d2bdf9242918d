#pragma once

#include "saverestorectl/Command.h"

/// What is answered at once: status, list, preview, settings, cancel.
class LookCommand : public Command
{
    Q_OBJECT

public:
    using Command::Command;

    void begin() override;

private:
    void showStatus();
    void showLast(const QString &operation);
    void ask(const QString &method, const std::function<void(const QVariant &)> &show);
    void showList(const QVariant &answer);
    void showPreview(const QVariant &answer);
    void showSettings(const QString &text);
    void cancel();
};
