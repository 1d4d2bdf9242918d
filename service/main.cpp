#include "platform/core/VYXApplication.h"
#include "platform/Version.h"
#include "service/VYXSaveRestore.h"

#include <QCommandLineParser>

#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <optional>

namespace {

constexpr int badUsage = 2;

/// The status to end with where the arguments ask for anything but the service itself.
std::optional<int> answerArguments(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Saves and restores the data of a device's modules. Without options it is the "
        "service, and is called on the system bus; see VYXSaveRestore(8).");
    const QCommandLineOption help({"h", "help"}, "Say this and end.");
    const QCommandLineOption version({"v", "version"}, "Say the version and end.");
    parser.addOptions({help, version});
    if (!parser.parse(arguments) || !parser.positionalArguments().isEmpty()) {
        const QString fault = parser.errorText().isEmpty() ? "It takes no arguments." : parser.errorText();
        std::fprintf(stderr, "VYXSaveRestore: %s Try --help.\n", qPrintable(fault));
        return badUsage;
    }
    if (parser.isSet(help)) {
        std::fputs(qPrintable(parser.helpText()), stdout);
        return EXIT_SUCCESS;
    }
    if (parser.isSet(version)) {
        std::printf("VYXSaveRestore %s\n", qPrintable(projectVersion()));
        return EXIT_SUCCESS;
    }
    return std::nullopt;
}

} // namespace

int main(int argc, char **argv)
{
    // Threads come and go with each operation: what they have used goes back to the system with them.
    constexpr int mostArenas = 2;
    constexpr int largeBlock = 512 * 1024;
    mallopt(M_ARENA_MAX, mostArenas);
    mallopt(M_MMAP_THRESHOLD, largeBlock);
    VYXApplication application(argc, argv);
    VYXApplication::setApplicationName("VYXSaveRestore");
    VYXApplication::setApplicationVersion(projectVersion());
    if (const auto answered = answerArguments(VYXApplication::arguments())) {
        return *answered;
    }
    VYXSaveRestore::instance();
    const int status = VYXApplication::exec();
    delete VYXSaveRestore::instance();
    return status;
}
