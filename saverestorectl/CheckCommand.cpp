#include "saverestorectl/CheckCommand.h"

#include "saverestorectl/CommandLine.h"
#include "saverestorectl/DescriptionCheck.h"
#include "saverestorectl/ExitStatus.h"
#include "saverestorectl/Output.h"
#include "saverestorectl/Text.h"

#include <QJsonArray>

#include <array>

namespace {

QString kindName(const ItemOnDevice &item)
{
    static constexpr std::array names = {"file", "directory", "database"};
    return item.zipped ? QString("archive") : QString(names.at(size_t(item.kind)));
}

void print(const Finding &finding, const QString &file, Output &output)
{
    output.object("fault", {{"file", file},
                            {"line", finding.line},
                            {"severity", finding.isError ? "error" : "warning"},
                            {"fault", finding.name},
                            {"text", finding.text},
                            {"meaning", finding.meaning}});
    const QString place =
        finding.line > 0 ? QString("%1:%2: ").arg(file, QString::number(finding.line)) : file + ": ";
    output.line(
        {{place, Span::Style::Bold},
         finding.isError ? Span{"error: ", Span::Style::Bad} : Span{"warning: ", Span::Style::Doubtful},
         {finding.text},
         {" [" + finding.name + "]", Span::Style::Faint}});
    output.line("    " + finding.meaning);
}

void print(const QList<ItemOnDevice> &items, const QString &file, const QString &module, Output &output)
{
    QList<QStringList> rows;
    for (const ItemOnDevice &item : items) {
        output.object("item", {{"file", file},
                               {"line", item.line},
                               {"module", module},
                               {"item", item.path},
                               {"kind", kindName(item)},
                               {"priority", item.priority},
                               {"state", item.state},
                               {"bytes", static_cast<qint64>(item.bytes)},
                               {"files", static_cast<qint64>(item.files)}});
        const bool known = item.state == "saved";
        rows << QStringList{"  " + kindName(item), item.priority,
                            known ? Text::bytes(item.bytes) : item.state,
                            known ? Text::count(item.files, "file") : QString(), item.path};
    }
    output.table(rows);
}

bool checkFile(const QString &file, const CommandLine &commandLine, Output &output)
{
    const QString module = commandLine.modules.value(0, DescriptionCheck::moduleOf(file));
    DescriptionCheck check(module);
    check.run(file);
    for (const Finding &finding : check.findings()) {
        print(finding, file, output);
    }
    const qsizetype errors = check.errors();
    const qsizetype warnings = check.findings().size() - errors;
    quint64 bytes = 0;
    for (const ItemOnDevice &item : check.items()) {
        bytes += item.bytes;
    }
    output.line(
        {{file, Span::Style::Bold},
         {": " + Text::count(quint64(errors), "error") + ", " + Text::count(quint64(warnings), "warning") +
          "; " + Text::count(quint64(check.items().size()), "item")},
         {module.isEmpty() ? QString(" of a module that the place does not tell: see --module")
                           : QString(" of %1, %2 on this device").arg(module, Text::bytes(bytes))}});
    print(check.items(), file, module, output);
    output.object("checked", {{"file", file},
                              {"module", module},
                              {"errors", errors},
                              {"warnings", warnings},
                              {"items", check.items().size()},
                              {"bytes", static_cast<qint64>(bytes)}});
    return errors == 0 && !(commandLine.strict && warnings > 0);
}

} // namespace

int checkDescriptions(const CommandLine &commandLine, Output &output)
{
    bool sound = true;
    for (const QString &file : commandLine.files) {
        sound = checkFile(file, commandLine, output) && sound;
    }
    return sound ? ExitStatus::Success : ExitStatus::Faults;
}
