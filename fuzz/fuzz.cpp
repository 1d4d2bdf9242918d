// Feeds what is parsed here and was written elsewhere with texts, and holds it to what it promises for any
// text. As a test with every file of a corpus, which has a directory for each target; built with
// SAVERESTORE_FUZZ with those that libFuzzer makes, for the target that FUZZ_TARGET names.

#include "catalogue/ChecksumComparison.h"
#include "catalogue/FileAttributes.h"
#include "catalogue/ItemNames.h"
#include "catalogue/ModulesList.h"
#include "catalogue/SavedEntries.h"
#include "catalogue/SavedItem.h"
#include "catalogue/SavedVersion.h"
#include "pause/PauseRecord.h"
#include "pause/PauseState.h"
#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "repository/RepositoryUrl.h"
#include "restorable/KnownModules.h"
#include "restorable/RestorableListing.h"
#include "restore/ArchiveRestore.h"
#include "restore/DatabaseRestore.h"
#include "save/CompletedLines.h"
#include "service/SaveSchedule.h"
#include "service/Settings.h"
#include "tests/support/Files.h"
#include "tests/support/TestMiddleware.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDirIterator>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QtEndian>

#include <algorithm>
#include <cstdio>
#include <sys/stat.h>

/// Ends the process when a promise is not kept.
#define HOLD(promise) ((promise) ? void() : qFatal("line %d, not held: %s", __LINE__, #promise))

namespace {

constexpr auto everything = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;

bool isPlain(const QString &name)
{
    return !name.isEmpty() && name != "." && name != ".." && !name.contains('/');
}

/// Two checksum files of module m, separated by a form feed: what is staged and what was saved.
void checksumFile(const QByteArray &text)
{
    const ChecksumLines staged = parseChecksumLines(text.split('\f').value(0));
    const ChecksumLines saved = parseChecksumLines(text.split('\f').value(1));
    QByteArray written;
    for (const ChecksumLine &line : staged) {
        written += line.text();
        if (const auto item = SavedItem::parse("m", line)) {
            const QString live = item->livePath();
            HOLD(item->key() == line.key() && std::ranges::all_of(item->entryNames(), isPlain));
            HOLD(live.startsWith(DevicePaths::moduleData("m") + "/") && QDir::cleanPath(live) == live);
            HOLD(isPlain(item->stagedPath().mid(DevicePaths::staged("m/").size())));
        }
    }
    HOLD(text.contains('\r') || parseChecksumLines(written) == staged);
    HOLD(std::ranges::all_of(compareChecksumLines(staged, staged, true),
                             [](const ChecksumEntry &entry) { return entry.status == Same; }));
    for (const ChecksumLine &line : completeLines("m", staged, saved, {"high"}).lines) {
        HOLD(!line.digest().isEmpty() || saved.contains(line));
        HOLD(std::ranges::any_of(staged + saved, [&](const ChecksumLine &one) {
            return one.key() == line.key() && one.digest() == line.digest();
        }));
    }
}

/// Modules with their checksum files, separated by form feeds; the first line of each is its name.
void entries(const QByteArray &text)
{
    LinesByModule modules, fewer, turned;
    QMap<QString, QString> holders = {{ItemNames::modulesListName(), {}}};
    for (const QByteArray &part : text.split('\f')) {
        const QString module = QString::fromUtf8(part.left(part.indexOf('\n')));
        if (ItemNames::isModuleName(module) && !modules.contains(module)) {
            const ChecksumLines lines = parseChecksumLines(part.mid(part.indexOf('\n') + 1));
            modules[module] = lines;
            fewer[module] = lines.mid(lines.size() / 2);
            turned[module] = {lines.crbegin(), lines.crend()};
            holders.insert({{ItemNames::versionFileName(module), {}},
                            {ItemNames::checksumFileName(module), {}},
                            {ItemNames::attributesFileName(module), {}},
                            {ItemNames::migrationProgramName(module), {}}});
        }
    }
    const SavedEntries names(modules), namesTurned(turned), namesOfFewer(fewer);
    for (const auto &[module, lines] : modules.asKeyValueRange()) {
        for (const ChecksumLine &line : lines) {
            const QStringList possible = SavedEntries::possibleNames(module, line);
            const QString entry = names.entry(module, line);
            const QString item = module + '\t' + line.kind() + '\t' + line.key();
            HOLD(possible.isEmpty() || holders.value(entry, item) == item);
            holders.insert(possible.isEmpty() ? "no entry" : entry, item);
            HOLD(namesTurned.entry(module, line) == entry);
            HOLD(possible.indexOf(namesOfFewer.entry(module, line)) <= possible.indexOf(entry));
        }
    }
}

void attributes(const QByteArray &text)
{
    QSet<QString> keys;
    for (const QByteArray &line : text.split('\n')) {
        keys << QString::fromUtf8(line.split('\t').first());
    }
    const AttributesByKey found = parseAttributes(text, keys);
    HOLD(parseAttributes(attributesText(found), keys) == found);
    HOLD(std::ranges::all_of(found, [](const FileAttributes &one) { return one.mode <= 0777; }));
}

void modulesList(const QByteArray &text)
{
    const auto [modules, refused, fault] = parseModulesList(text);
    HOLD(std::ranges::all_of(modules, ItemNames::isModuleName));
    HOLD(std::ranges::none_of(refused, ItemNames::isModuleName));
    HOLD(QSet<QString>(modules.cbegin(), modules.cend()).size() == modules.size());
    HOLD(parseModulesList(modules.join('\n').toUtf8()).modules == modules);
    HOLD(modules.size() + refused.size() <= (fault.isEmpty() ? mostModules : 0));
}

/// A URL and, in the second line, the name of an entry.
void url(const QByteArray &text)
{
    const QString url = QString::fromUtf8(text.split('\n').value(0));
    const QString name = QString::fromUtf8(text.split('\n').value(1));
    const QString shown = RepositoryUrl::forDisplay(url);
    if (RepositoryUrl::isDistant(url) || (url.contains("://") && !url.startsWith('/'))) {
        HOLD(!shown.contains('@'));
        static const QRegularExpression separators("[:@/]");
        for (const QString &secret : url.section("://", 1).section('@', 0, -2).split(separators)) {
            const bool elsewhere = (url + "(unreadable URL)").count(secret, Qt::CaseInsensitive) > 1;
            HOLD(secret.size() < 3 || elsewhere || !shown.contains(secret));
        }
    }
    if (RepositoryUrl::isDistant(url) && RepositoryUrl::problem(url).isEmpty() && isPlain(name)) {
        const QUrl base = RepositoryUrl::base(url);
        const QUrl entry = RepositoryUrl::entry(url, name);
        const QString path = entry.path(QUrl::FullyEncoded);
        HOLD(entry.isValid() && entry.userInfo().isEmpty() && !entry.hasQuery() && !entry.hasFragment());
        HOLD(entry.scheme() == base.scheme() && entry.authority() == base.authority());
        HOLD(path.section('/', 0, -2) == base.path(QUrl::FullyEncoded));
        HOLD(QUrl::fromPercentEncoding(path.section('/', -1).toUtf8()) == name);
        HOLD(!RepositoryUrl::authorization(url).contains('\n'));
    }
}

/// One line: a version, a name, a path, a process's state, a setting.
void line(const QByteArray &text)
{
    const QString line = QString::fromUtf8(text);
    const auto [release, version] = SavedVersion::parse(line);
    HOLD(release + (line.contains("::") ? "::" : line.left(1)) + version ==
         (line.contains("::") ? line : line + line));
    const QString path = ItemNames::normalizedItemPath(line);
    HOLD(ItemNames::normalizedItemPath(path) == path && QDir::cleanPath("/x/" + path).startsWith("/x"));
    QString name = ItemNames::escaped(line);
    HOLD(name.replace("++", "/").replace("%2B", "+").replace("%25", "%") == line);
    HOLD(!ItemNames::isModuleName(line) || QDir::cleanPath("/x/" + line) == "/x/" + line);
    HOLD(!isProcessId(line) || processState(line) != ProcessState::NoProcess);
    HOLD(!stateOfStatLine(line).contains(' '));
    const int number = line.toInt();
    for (const bool known : {false, true}) {
        const Settings settings = Settings().withRepository(known).withLevel(number, known);
        HOLD(settings.enabled == (known && (number == 1 || number == 2)));
        HOLD(settings.withScheduleType(number).withSchedule(number).text({}).endsWith('\n'));
    }
    const QList<int> hours = scheduledHours(number, true, 12).value_or(QList<int>());
    HOLD(hours.isEmpty() == (number < 1) && hours.size() <= 25);
    HOLD(std::ranges::all_of(hours, [](int hour) { return hour >= 0 && hour <= 24; }));
}

void pauseRecord(const QByteArray &text)
{
    writeFile(DevicePaths::pauseRecord(), text);
    for (const PausingProcess &process : PauseRecord::read()) {
        HOLD(!process.isAlive() || isProcessId(process.pid));
    }
}

/// The description of module m and, behind a form feed, the modules: a line each, fields separated by a TAB.
void description(const QByteArray &text)
{
    for (const char *item : {"d.data", "a/b", "dir/f"}) {
        writeFile(DevicePaths::moduleData("m") + "/" + item, {});
    }
    writeFile(DevicePaths::restorableDescription("m"), text.split('\f').value(0));
    ListApplicationConfig list = {{"m", "7", "1", "2", "STARTED"}};
    for (const QByteArray &module : text.split('\f').value(1).split('\n')) {
        const QStringList fields = QString::fromUtf8(module).split('\t') + QStringList(4);
        list << ApplicationConfig(fields[0], fields[1], fields[2], fields[3], fields[4]);
    }
    TestMiddleware middleware;
    middleware.results["ApplicationManager.getModulesList"].value = QVariant::fromValue(list);
    Waiter waiter;
    KnownModules modules(middleware);
    HOLD(modules.parseRestorableConfigFiles(waiter));
    modules.computeSaveGroups();
    HOLD(haveGroups(modules.objects(), modules.groups()));
    restorableListing(modules.objects());
    for (const RestorableObject &object : modules.objects()) {
        HOLD(ItemNames::isModuleName(object.getName()));
        HOLD(std::ranges::all_of(object.getDependencies(), ItemNames::isModuleName));
        for (const RestorableFile &file : object.getFiles()) {
            HOLD(!file.getPath().isEmpty() &&
                 ItemNames::normalizedItemPath(file.getPath()) == file.getPath());
        }
        HOLD(std::ranges::all_of(object.getDatabases(), isPlain, &RestorableDatabase::getName));
    }
}

/// What lies below a directory, with modes and contents. No file is set-id.
QByteArrayList tree(const QString &directory)
{
    QByteArrayList found;
    QDirIterator entries(directory, everything, QDirIterator::Subdirectories);
    while (entries.hasNext()) {
        const QByteArray path = QFile::encodeName(entries.next());
        struct stat status = {};
        HOLD(lstat(path.constData(), &status) == 0);
        HOLD(!S_ISREG(status.st_mode) || (status.st_mode & (S_ISUID | S_ISGID)) == 0);
        const bool small = S_ISREG(status.st_mode) && status.st_size < 1000;
        found << path + " " + QByteArray::number(status.st_mode) + " " + (small ? readFile(path) : "");
    }
    std::ranges::sort(found);
    return found;
}

/// The tar archive with the right checksums in its headers.
QByteArray mended(QByteArray tar)
{
    constexpr qsizetype blockSize = 512;
    constexpr qsizetype place = 148;
    for (qsizetype at = 0; at + blockSize <= tar.size(); at += blockSize) {
        if (tar.mid(at + 257, 5) == "ustar") {
            tar.replace(at + place, 8, "        ");
            int sum = 0;
            std::for_each_n(tar.cbegin() + at, blockSize, [&](char byte) { sum += quint8(byte); });
            tar.replace(at + place, 8,
                        QByteArray::number(sum, 8).rightJustified(6, '0') + QByteArray("\0 ", 2));
        }
    }
    return tar;
}

/// As gzip packs what it cannot compress, without the checksum that nobody looks at.
QByteArray packed(const QByteArray &text)
{
    constexpr qsizetype largestBlock = 0x8000;
    QByteArray gzip("\x1f\x8b\x08\0\0\0\0\0\0\x03", 10);
    for (qsizetype at = 0; at < text.size(); at += largestBlock) {
        const QByteArray block = text.mid(at, largestBlock);
        const quint32 sizes = qToLittleEndian(quint32(block.size()) | ~quint32(block.size()) << 16);
        gzip += '\0' + QByteArray(reinterpret_cast<const char *>(&sizes), sizeof sizes) + block;
    }
    return gzip + QByteArray("\1\0\0\xff\xff", 5) + QByteArray(8, '\0');
}

/// A tar archive of the directory data/live.
void archiveOfDirectory(const QByteArray &text)
{
    QDir("data").removeRecursively();
    for (const char *file : {"data/live/f", "data/live/sub/f", "data/outside/f"}) {
        writeFile(file, "before");
    }
    QFile::link("../outside", "data/live/link");
    const QByteArray tar = mended(text);
    writeFile("archive", packed(tar));
    const QByteArrayList outside = tree("data/outside");
    const QByteArrayList before = tree("data/live");
    const QByteArray digest = QCryptographicHash::hash(tar, QCryptographicHash::Md5).toHex();
    Waiter waiter;
    const bool restored = ArchiveRestore("archive", "data/live", waiter, 100).restore(digest);
    const QByteArrayList after = tree("data/live");
    HOLD(restored || after == before);
    HOLD(tree("data/outside") == outside);
    HOLD(QDir("data").entryList(everything) == QStringList({"live", "outside"}));
}

/// A dump of the database dumped/live.data.
void dump(const QByteArray &text)
{
    static const QByteArray before = [] {
        QDir().mkdir("dumped");
        QProcess::execute("sqlite3", {"dumped/live.data", "CREATE TABLE t(a PRIMARY KEY)"});
        return readFile("dumped/live.data");
    }();
    writeFile("dumped/live.data", before);
    writeFile("dump", text);
    QProcess::execute("gzip", {"-f", "dump"});
    Waiter waiter;
    DatabaseRestore restore("dump.gz", "dumped/live.data", {.processorTime = std::chrono::seconds(1)});
    const bool restored = restore.prepare(waiter).isEmpty() && restore.apply(waiter).isEmpty();
    HOLD(restored || readFile("dumped/live.data") == before);
    HOLD(QDir("dumped").entryList(everything) == QStringList{"live.data"});
}

const QMap<QByteArray, void (*)(const QByteArray &)> targets = {{"archive", archiveOfDirectory},
                                                                {"attributes", attributes},
                                                                {"checksumfile", checksumFile},
                                                                {"description", description},
                                                                {"dump", dump},
                                                                {"entries", entries},
                                                                {"line", line},
                                                                {"moduleslist", modulesList},
                                                                {"pauserecord", pauseRecord},
                                                                {"url", url}};

/// The targets work in a device of their own, which is also the working directory.
void prepare(int &argc, char **argv)
{
    static QCoreApplication application(argc, argv);
    static QTemporaryDir root;
    qputenv("VYX_DEVICE_ROOT", QFile::encodeName(root.path()));
    qputenv("VYX_LOG_LEVEL", "0");
    QDir::setCurrent(root.path());
}

} // namespace

#ifdef SAVERESTORE_FUZZ
extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    prepare(*argc, *argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const char *bytes, size_t size)
{
    static const auto target = targets.value(qgetenv("FUZZ_TARGET"));
    HOLD(target != nullptr);
    target(QByteArray(bytes, static_cast<qsizetype>(size)));
    return 0;
}
#else
int main(int argc, char **argv)
{
    const QDir corpus = QDir(QFile::decodeName(argv[1])).absolutePath();
    prepare(argc, argv);
    for (const auto &[name, target] : targets.asKeyValueRange()) {
        const QDir texts(corpus.filePath(name));
        HOLD(!texts.isEmpty());
        for (const QString &file : texts.entryList(QDir::Files)) {
            std::printf("%s/%s\n", name.constData(), qPrintable(file));
            std::fflush(stdout);
            target(readFile(texts.filePath(file)));
        }
    }
    HOLD(corpus.entryList(QDir::Dirs | QDir::NoDotAndDotDot).size() == targets.size());
}
#endif
