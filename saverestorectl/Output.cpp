#include "saverestorectl/Output.h"

#include "saverestorectl/Text.h"

#include <QJsonDocument>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <langinfo.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

bool isDumb()
{
    const QByteArray type = qgetenv("TERM");
    return type.isEmpty() || type == "dumb";
}

bool wantsColour()
{
    return !isDumb() && qgetenv("NO_COLOR").isEmpty();
}

const char *codeOf(Span::Style style)
{
    static constexpr std::array codes = {"", "\x1b[1m", "\x1b[2m", "\x1b[32m", "\x1b[33m", "\x1b[31m"};
    return codes.at(static_cast<size_t>(style));
}

} // namespace

Output::Output(bool json)
    : json(json), terminal(!json && isatty(STDOUT_FILENO) == 1 && !isDumb()),
      colour(terminal && wantsColour()), unicode(std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0)
{
}

int Output::width() const
{
    constexpr int usual = 80;
    winsize size = {};
    const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return known ? size.ws_col : usual;
}

QByteArray Output::styled(const Span &span, bool inColour) const
{
    const QByteArray text = Text::printable(span.text).toUtf8();
    return inColour && span.style != Span::Style::Plain ? codeOf(span.style) + text + "\x1b[0m" : text;
}

void Output::line(const QList<Span> &spans)
{
    if (json) {
        return;
    }
    endStatus();
    QByteArray bytes;
    for (const Span &span : spans) {
        bytes += styled(span, colour);
    }
    write(STDOUT_FILENO, bytes + "\n");
}

void Output::table(const QList<QStringList> &rows)
{
    QList<int> widths;
    for (const QStringList &row : rows) {
        for (qsizetype index = 0; index < row.size(); ++index) {
            if (index == widths.size()) {
                widths << 0;
            }
            widths[index] = std::max(widths[index], Text::columns(Text::printable(row[index])));
        }
    }
    for (const QStringList &row : rows) {
        QString text;
        for (qsizetype index = 0; index + 1 < row.size(); ++index) {
            text += Text::padded(Text::printable(row[index]), widths[index]) + "  ";
        }
        line(text + Text::printable(row.value(row.size() - 1)));
    }
}

void Output::status(const QString &text)
{
    if (terminal) {
        write(STDOUT_FILENO, "\r" + Text::printable(text).toUtf8() + "\x1b[K");
        statusShown = true;
    }
}

void Output::endStatus()
{
    if (statusShown) {
        write(STDOUT_FILENO, "\r\x1b[K");
        statusShown = false;
    }
}

void Output::object(const char *type, QJsonObject fields)
{
    if (!json) {
        return;
    }
    fields.insert("version", formatVersion);
    fields.insert("type", type);
    write(STDOUT_FILENO, Text::printableJson(QJsonDocument(fields).toJson(QJsonDocument::Compact)) + "\n");
}

void Output::problem(const QString &code, const QString &text, int exitStatus)
{
    object("error", {{"code", code}, {"text", text}, {"exit", exitStatus}});
    if (json) {
        return;
    }
    endStatus();
    const bool inColour = isatty(STDERR_FILENO) == 1 && wantsColour();
    write(STDERR_FILENO,
          styled({"saverestorectl: "}, inColour) + styled({text, Span::Style::Bad}, inColour) + "\n");
}

void Output::write(int descriptor, const QByteArray &bytes)
{
    qsizetype done = 0;
    while (!broken && done < bytes.size()) {
        const ssize_t count = ::write(descriptor, bytes.constData() + done, size_t(bytes.size() - done));
        if (count < 0 && errno == EAGAIN) {
            pollfd room = {descriptor, POLLOUT, 0};
            poll(&room, 1, -1);
        } else if (count < 0 && errno != EINTR) {
            broken = descriptor == STDOUT_FILENO;
            return;
        }
        done += count > 0 ? count : 0;
    }
}
