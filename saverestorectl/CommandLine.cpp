#include "saverestorectl/CommandLine.h"

#include "catalogue/ItemNames.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <algorithm>

namespace {

struct Option
{
    const char *name;
    const char *value; ///< null for one without
    const char *text;
};

struct Command
{
    const char *name;
    const char *arguments; ///< empty for one without
    const char *summary;
    QList<Option> options;
};

const Option moduleOption = {"module", "M", "This module only; may be given several times"};
const Option priorityOption = {"priority", "P", "high, normal or low only; may be given several times"};
const Option verboseOption = {"verbose", nullptr, "Name each item, not the first ones only"};
const QList<Option> sharedOptions = {{"json", nullptr, "Print JSON, one object a line"},
                                     {"help", nullptr, "Explain this"}};

const QList<Command> &commands()
{
    static const QList<Command> list = {
        {"status", "", "What the service does, and what the last operations came to", {}},
        {"save",
         "",
         "Save, and wait for the end",
         {moduleOption,
          priorityOption,
          {"dry-run", nullptr, "Only tell what would be sent and removed"},
          {"repair", nullptr, "Send again what the last full verify found damaged"},
          verboseOption}},
        {"restore",
         "",
         "Restore, and wait for the end",
         {moduleOption,
          priorityOption,
          {"dry-run", nullptr, "Only tell what would be put back"},
          verboseOption}},
        {"verify",
         "",
         "Check what the repository holds, and wait for the end",
         {{"full", nullptr, "Fetch and check the content, too"}, verboseOption}},
        {"list", "", "What the repository holds", {{"modules", nullptr, "Print the modules' names alone"}}},
        {"preview", "", "What a restore would do with each item", {}},
        {"cancel", "", "End what runs, whoever began it", {}},
        {"settings", "", "The settings as the service has them", {}},
        {"check",
         "FILE...",
         "Check descriptions (restorable.xml), and tell what they have saved on this device; needs no "
         "service",
         {{"module", "M", "The module that the files belong to, if their place does not tell"},
          {"strict", nullptr, "Warnings count as errors"}}},
        {"monitor",
         "",
         "Tell what the service does until interrupted",
         {{"once", nullptr, "Leave when one operation has ended"},
          {"html", "FILE", "Write a page about the operations to this file when one ends"},
          verboseOption}},
    };
    return list;
}

const Command *findCommand(const QString &name)
{
    const auto found = std::find_if(commands().cbegin(), commands().cend(),
                                    [&](const Command &each) { return name == each.name; });
    return found == commands().cend() ? nullptr : &*found;
}

QStringList namesOf(const Option &option)
{
    return QString(option.name) == "help" ? QStringList{"h", "help"} : QStringList{option.name};
}

QString optionLine(const Option &option)
{
    const QString left =
        QString("--%1%2").arg(option.name, option.value != nullptr ? QString(" ") + option.value : "");
    return QString("  %1 %2\n").arg(left.leftJustified(16), option.text);
}

QString helpFor(const Command &command)
{
    const QString arguments = *command.arguments != '\0' ? QString(" ") + command.arguments : QString();
    QString text = QString("Usage: saverestorectl %1 [OPTION]...%2\n%3.\n\n")
                       .arg(command.name, arguments, command.summary);
    for (const Option &option : command.options + sharedOptions) {
        text += optionLine(option);
    }
    return text;
}

QString generalHelp()
{
    QString text = "Usage: saverestorectl COMMAND [OPTION]...\n"
                   "Watch and steer the save/restore service.\n\n";
    for (const Command &command : commands()) {
        text += QString("  %1 %2\n").arg(QString(command.name).leftJustified(10), command.summary);
    }
    return text + "\n  --help     Explain this, or a command that is named\n"
                  "  --version  Print the version\n\n"
                  "Exit status: 0 success, 2 usage, 3 no bus, 4 no service, 5 service gone meanwhile, 6 not "
                  "allowed,\n"
                  "7 no answer, 8 faults found by check, 9 a file cannot be written; others: see "
                  "saverestorectl(1).\n";
}

void takeValues(CommandLine &line, const QCommandLineParser &parser, const Command &command)
{
    const auto has = [&](const char *name) {
        const bool known = std::any_of(command.options.cbegin(), command.options.cend(),
                                       [&](const Option &option) { return QString(name) == option.name; });
        return known && parser.isSet(name);
    };
    line.modules = has("module") ? parser.values("module") : QStringList();
    line.priorities = has("priority") ? parser.values("priority") : QStringList();
    line.page = has("html") ? parser.value("html") : QString();
    line.json = parser.isSet("json");
    line.dryRun = has("dry-run");
    line.repair = has("repair");
    line.full = has("full");
    line.once = has("once");
    line.strict = has("strict");
    line.verbose = has("verbose");
    line.namesOnly = has("modules");
    line.files = parser.positionalArguments();
}

QString faultOf(const CommandLine &line, const Command &command)
{
    const bool takesFiles = *command.arguments != '\0';
    if (takesFiles && line.files.isEmpty()) {
        return QString("%1 needs %2").arg(command.name, command.arguments);
    }
    if (!takesFiles && !line.files.isEmpty()) {
        return QString("%1 takes no '%2'").arg(command.name, line.files.first());
    }
    for (const QString &priority : line.priorities) {
        if (!QStringList({"high", "normal", "low"}).contains(priority)) {
            return QString("'%1' is no priority: they are high, normal and low").arg(priority);
        }
    }
    for (const QString &module : line.modules) {
        if (!ItemNames::isModuleName(module)) {
            return QString("'%1' is no name of a module").arg(module);
        }
    }
    return takesFiles && line.modules.size() > 1 ? QString("Files belong to one module") : QString();
}

/// Options that need no command.
CommandLine general(const QStringList &arguments)
{
    CommandLine line;
    if (arguments.contains("--help") || arguments.contains("-h")) {
        line.answer = generalHelp();
    } else if (arguments.contains("--version")) {
        line.answer = "saverestorectl " + QCoreApplication::applicationVersion() + "\n";
    } else {
        line.error = arguments.isEmpty() ? QString("No command is given")
                                         : QString("'%1' is no command").arg(arguments.first());
    }
    return line;
}

} // namespace

CommandLine CommandLine::parse(const QStringList &arguments)
{
    const auto named = std::find_if(arguments.cbegin(), arguments.cend(),
                                    [](const QString &argument) { return !argument.startsWith('-'); });
    const Command *command = named == arguments.cend() ? nullptr : findCommand(*named);
    if (command == nullptr) {
        return general(named == arguments.cend() ? arguments : arguments.mid(named - arguments.cbegin()));
    }
    QCommandLineParser parser;
    for (const Option &option : command->options + sharedOptions) {
        parser.addOption(option.value != nullptr ? QCommandLineOption(option.name, {}, option.value)
                                                 : QCommandLineOption(namesOf(option)));
    }
    QStringList rest = arguments;
    rest.replace(named - arguments.cbegin(), "saverestorectl");
    rest.move(named - arguments.cbegin(), 0);
    CommandLine line;
    line.command = command->name;
    if (!parser.parse(rest)) {
        line.json = rest.contains("--json");
        line.error = parser.errorText();
        return line;
    }
    if (parser.isSet("help")) {
        line.answer = helpFor(*command);
        return line;
    }
    takeValues(line, parser, *command);
    line.error = faultOf(line, *command);
    return line;
}
