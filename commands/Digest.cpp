#include "commands/Digest.h"

#include "commands/Command.h"
#include "commands/ShellText.h"

#include <QFileInfo>
#include <QRegularExpression>

using namespace std::chrono_literals;

QString digestFromOutput(const QByteArray &output)
{
    static const QRegularExpression digest(R"(\A[0-9a-f]{32}\z)");
    const QString text = QString::fromUtf8(output).trimmed();
    const qsizetype separator = text.lastIndexOf("= ");
    if (separator < 0) {
        return {};
    }
    const QString candidate = text.mid(separator + 2).toLower();
    return digest.match(candidate).hasMatch() ? candidate : QString();
}

QString fileDigest(Waiter &waiter, const QString &path)
{
    if (!QFileInfo(path).isFile()) {
        return {};
    }
    return digestFromOutput(runCommand(waiter, "openssl", {"md5", path}, 30s).output);
}

QString digestCommandLine(const QString &path)
{
    return ShellText::commandLine("openssl", {"md5", path});
}
