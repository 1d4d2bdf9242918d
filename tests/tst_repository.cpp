#include "repository/DistantRepository.h"
#include "repository/LocalRepository.h"
#include "tests/support/DataTable.h"
#include "tests/support/NginxServer.h"
#include "tests/support/RepositoryTest.h"

#include <QRegularExpression>

/// What every kind of repository has to do, and what is the directory's own.
class tst_repository : public RepositoryTest
{
    Q_OBJECT

    const QTemporaryDir root;
    std::unique_ptr<QTemporaryDir> place;
    std::unique_ptr<NginxServer> http;
    std::unique_ptr<NginxServer> https;
    std::unique_ptr<RepositoryManager> any;
    std::unique_ptr<LocalRepository> repository;

    QStringList takeSignals() { return std::exchange(signalled, {}); }

    /// A repository of the kind of the global data row, empty.
    void makeAny()
    {
        QFETCH_GLOBAL(QString, kind);
        if (kind == "directory") {
            any = std::make_unique<LocalRepository>(place->path());
        } else {
            any = std::make_unique<DistantRepository>((kind == "HTTP" ? http : https)->url());
            store().removeRecursively();
            QDir().mkpath(store().path());
        }
        watch(*any);
    }

    QDir store() const
    {
        QFETCH_GLOBAL(QString, kind);
        return QDir(kind == "directory" ? place->path() : (kind == "HTTP" ? http : https)->store());
    }

private Q_SLOTS:
    void initTestCase_data()
    {
        columns<QString>("kind");
        for (const char *kind : {"directory", "HTTP", "HTTPS"}) {
            row(kind, kind);
        }
    }

    void initTestCase()
    {
        qputenv("VYX_DEVICE_ROOT", root.path().toUtf8());
        NginxServer::installTool(root.path());
        http = std::make_unique<NginxServer>();
        https = std::make_unique<NginxServer>("server");
        QVERIFY(http->isRunning() && https->isRunning());
    }

    void init()
    {
        place = std::make_unique<QTemporaryDir>();
        repository = std::make_unique<LocalRepository>(place->path());
        watch(*repository);
        makeAny();
        startAfresh();
    }

    void namesGoThere_data()
    {
        columns<QString, QString, QString>("name", "prefix", "entry");
        row("prefix", "a.cksum", "mod", "mod++a.cksum");
        row("no prefix", "a.cksum", "", "a.cksum");
        row("dash", "-rf", "", "-rf");
        const QString odd = "it's [1] ü 日本 \"x\" $HOME %41 #1?.jpg";
        row("odd", odd, "My Pictures", "My Pictures++" + odd);
    }
    void namesGoThere()
    {
        QFETCH(QString, name);
        QFETCH(QString, prefix);
        QFETCH(QString, entry);
        const QString path = file(name);
        QVERIFY(any->sendFileToRepository(path, prefix) && finished(*any));
        QCOMPARE(takeSignals().filter(QRegularExpression("all|one")), QStringList({"all", "one"}));
        QCOMPARE(store().entryList(QDir::Files | QDir::Hidden), QStringList{entry});
        file(name, "longer content");
        QVERIFY(any->sendFileToRepository(path, prefix) && finished(*any));
        const QString back = local->filePath("back");
        takeSignals();
        QVERIFY(any->getFileFromRepository(entry, back) && finished(*any));
        QCOMPARE(takeSignals().count("all"), 1);
        QCOMPARE(content("back"), "longer content");
        QVERIFY(any->removeFileFromRepository(path, prefix) && finished(*any));
        QVERIFY(takeSignals().contains("ready"));
        QVERIFY(store().isEmpty());
        QCOMPARE(any->getErrorStatus(), RequestSucceeded);
    }

    void contents()
    {
        for (const int size : {0, 1, 30000000}) {
            QByteArray bytes(size, 'x');
            for (qsizetype index = 0; index < bytes.size(); index += 4099) {
                bytes[index] = static_cast<char>(index);
            }
            QVERIFY(any->checkRepository());
            QVERIFY(any->sendFileToRepository(file("a", bytes)));
            QVERIFY(any->getFileFromRepository("a", local->filePath("back")) && finished(*any));
            QVERIFY2(content("back") == bytes, qPrintable(QString("%1 bytes").arg(size)));
            QCOMPARE(any->getErrorStatus(), RequestSucceeded);
        }
    }

    void entriesThatAreMissing()
    {
        const QString back = file("back");
        any->getFileFromRepository("missing", back);
        QVERIFY(finished(*any));
        QVERIFY(!QFile::exists(back));
        QVERIFY(any->removeFileFromRepository("never there") && finished(*any));
        any->sendFileToRepository(file("a"));
        QVERIFY(finished(*any));
        QCOMPARE(store().entryList(QDir::Files), QStringList{"a"});
    }

    void pathsThatNameNoFile()
    {
        for (const char *path : {"", "/", "//", "..", "/tmp/..", "."}) {
            QVERIFY(!any->sendFileToRepository(path, ""));
            QVERIFY(!any->removeFileFromRepository(path, ""));
        }
        QVERIFY(!any->hasPendingRequests());
        QVERIFY(any->sendFilesToRepository(QStringList()));
        QVERIFY(store().isEmpty());
    }

    void manyFiles()
    {
        QStringList names;
        for (int number = 0; number < 60; ++number) {
            names << file(QString("f%1").arg(number), QByteArray::number(number));
        }
        QVERIFY(any->sendFilesToRepository(names, "p") && finished(*any));
        QCOMPARE(takeSignals().count("one"), names.size());
        QCOMPARE(store().entryList(QDir::Files).size(), names.size());
        QVERIFY(any->removeFilesFromRepository(names, "p") && finished(*any));
        QVERIFY(store().isEmpty());
    }

    void notInitialised()
    {
        LocalRepository nowhere(QString("/no such directory"));
        watch(nowhere);
        QVERIFY(!nowhere.checkRepository());
        QVERIFY(!nowhere.sendFileToRepository(file("a"), ""));
        QCOMPARE(takeSignals(), QStringList());
        QVERIFY(!nowhere.removeFileFromRepository("a", ""));
        QCOMPARE(takeSignals(), QStringList{"ready"});
        nowhere.setRepositoryUrl("/no such directory either");
        QVERIFY(!nowhere.isInit());
        nowhere.setRepositoryUrl(place->path());
        QVERIFY(nowhere.isInit() && nowhere.checkRepository());
        QVERIFY(nowhere.sendFileToRepository(file("a"), ""));
        nowhere.setRepositoryUrl("/no such directory either");
        QCOMPARE(nowhere.getRepositoryUrl(), place->path());
        QDir(place->path()).removeRecursively();
        QVERIFY(!nowhere.checkRepository());
    }

    void workingDirectoryIsNoRepository()
    {
        const QString before = QDir::currentPath();
        QDir::setCurrent(place->path());
        QVERIFY(!repository->checkRepository());
        QVERIFY(!repository->sendFileToRepository(file("a"), ""));
        QDir::setCurrent(before);
        QVERIFY(repository->checkRepository());
    }
};

QTEST_GUILESS_MAIN(tst_repository)
#include "tst_repository.moc"
