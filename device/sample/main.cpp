#include "device/common/PlainName.h"
#include "device/sample/SampleModule.h"
#include "platform/core/VYXApplication.h"

#include <QCommandLineParser>

#include <cstdio>
#include <optional>

namespace {

constexpr int longestPauseDelayMs = 600000;

std::optional<SampleModuleOptions> parse(QCommandLineParser &parser)
{
    const QCommandLineOption ignorePause("ignore-pause", "Answer no save or restore request.");
    const QCommandLineOption ignoreReset("ignore-reset", "Answer no reset request.");
    const QCommandLineOption needsReboot("needs-reboot", "Ask for a reboot after a reset.");
    const QCommandLineOption pauseDelay("pause-delay", "Take so long to get ready for a pause.",
                                        "milliseconds", "0");
    const QCommandLineOption writeDatabase("write-database", "Keep writing to this database.", "name");
    parser.addOptions({ignorePause, ignoreReset, needsReboot, pauseDelay, writeDatabase});
    parser.addPositionalArgument("NAME", "Name of the module.");
    parser.addHelpOption();
    parser.process(*QCoreApplication::instance());

    bool isNumber = false;
    const SampleModuleOptions options = {parser.isSet(ignorePause), parser.isSet(ignoreReset),
                                         parser.isSet(needsReboot), parser.value(pauseDelay).toInt(&isNumber),
                                         parser.value(writeDatabase)};
    const QStringList names = parser.positionalArguments();
    const bool valid = names.size() == 1 && isPlainName(names.constFirst()) && isNumber &&
                       options.pauseDelayMs >= 0 && options.pauseDelayMs <= longestPauseDelayMs &&
                       (!parser.isSet(writeDatabase) || isPlainName(options.writtenDatabase));
    return valid ? std::optional(options) : std::nullopt;
}

} // namespace

int main(int argc, char **argv)
{
    VYXApplication application(argc, argv);
    QCommandLineParser parser;
    const std::optional<SampleModuleOptions> options = parse(parser);
    if (!options) {
        std::fputs(qPrintable(parser.helpText()), stderr);
        return EXIT_FAILURE;
    }
    const QString name = parser.positionalArguments().constFirst();
    QCoreApplication::setApplicationName(name);
    SampleModule module(name, *options);
    return QCoreApplication::exec();
}
