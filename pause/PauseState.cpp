#include "pause/PauseState.h"

#include <QFile>
#include <QStringList>

bool isProcessId(const QString &pid)
{
    bool valid = false;
    const int number = pid.toInt(&valid);
    return valid && number > 1;
}

bool isPausedState(const QString &state)
{
    return state.toLower() == "t";
}

QString stateOfStatLine(const QString &line)
{
    const qsizetype nameEnd = line.lastIndexOf(')');
    return nameEnd < 0 ? QString() : line.mid(nameEnd + 1).section(' ', 1, 1);
}

QString statFileName(const QString &pid)
{
    return QString("/proc/%1/stat").arg(pid);
}

std::optional<QString> processStateLetter(const QString &pid)
{
    QFile file(statFileName(pid));
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    return stateOfStatLine(QString::fromLocal8Bit(file.readLine()));
}

ProcessState processState(const QString &pid)
{
    if (!isProcessId(pid)) {
        return ProcessState::NoProcess;
    }
    const auto state = processStateLetter(pid);
    if (!state) {
        return ProcessState::Vanished;
    }
    return isPausedState(*state) ? ProcessState::Paused : ProcessState::Running;
}
