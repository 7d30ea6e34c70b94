#include "fileio/regularfile.h"
#include "support/sandbox.h"
#include "support/stderrcapture.h"
#include "support/watchdog.h"

#include <QtTest>

#include <cerrno>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString folder = QStringLiteral("/tmp/fileio");

QString at(const char *name)
{
    return folder + QLatin1Char('/') + QLatin1String(name);
}

bool makeFifo(const QString &path)
{
    return ::mkfifo(QFile::encodeName(path).constData(), 0666) == 0;
}

bool makeSparse(const QString &path, qint64 size)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.resize(size);
}

} // namespace

class TestRegularFile : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { REQUIRE_SANDBOX(); }
    void init()
    {
        sandbox::removePath(folder);
        QVERIFY(QDir().mkpath(folder));
    }

    void readsARegularFileWhole()
    {
        const QByteArray content("line one\r\nsecond\0line\n", 22);
        QVERIFY(sandbox::writeFile(at("plain"), content));
        const fileio::ReadResult result = fileio::readRegularFile(at("plain"), 1024);
        QCOMPARE(result.status, fileio::ReadResult::Ok);
        QCOMPARE(result.data, content);
    }

    void followsALinkToARegularFile()
    {
        QVERIFY(sandbox::writeFile(at("target"), "text"));
        QVERIFY(QFile::link(at("target"), at("link")));
        QCOMPARE(fileio::readRegularFile(at("link"), 1024).data, QByteArray("text"));
    }

    void missingFileIsMissingAndNotReported()
    {
        StderrCapture err;
        const fileio::ReadResult result = fileio::readRegularFileReporting(at("none"), 1024);
        QCOMPARE(result.status, fileio::ReadResult::Missing);
        QVERIFY(result.reason.isEmpty());
        QVERIFY(err.diagnostics().isEmpty());
    }

    void namedPipeIsRefusedAtOnce()
    {
        QVERIFY(makeFifo(at("fifo")));
        QElapsedTimer timer;
        timer.start();
        fileio::ReadResult result;
        {
            Watchdog guard("reading a named pipe");
            result = fileio::readRegularFile(at("fifo"), 1024);
        }
        QVERIFY(timer.elapsed() < 1000);
        QCOMPARE(result.status, fileio::ReadResult::Refused);
        QCOMPARE(result.reason, QStringLiteral("not a regular file"));
    }

    void deviceBehindALinkIsRefusedAtOnce()
    {
        QVERIFY(QFile::link(QStringLiteral("/dev/zero"), at("zero")));
        QElapsedTimer timer;
        timer.start();
        fileio::ReadResult result;
        {
            Watchdog guard("reading /dev/zero through a link");
            result = fileio::readRegularFile(at("zero"), fileio::largeFileCap);
        }
        QVERIFY(timer.elapsed() < 1000);
        QCOMPARE(result.status, fileio::ReadResult::Refused);
        QVERIFY(result.data.isEmpty());
    }

    void folderIsRefused()
    {
        QVERIFY(QDir().mkpath(at("dir")));
        QCOMPARE(fileio::readRegularFile(at("dir"), 1024).status, fileio::ReadResult::Refused);
    }

    void fileOneByteOverTheCapIsRefused()
    {
        QVERIFY(makeSparse(at("big"), fileio::largeFileCap + 1));
        QElapsedTimer timer;
        timer.start();
        const fileio::ReadResult result = fileio::readRegularFile(at("big"), fileio::largeFileCap);
        QVERIFY(timer.elapsed() < 1000);
        QCOMPARE(result.status, fileio::ReadResult::Refused);
        QCOMPARE(result.reason, QStringLiteral("larger than 67108864 bytes"));
    }

    void fileOfExactlyTheCapIsRead()
    {
        QVERIFY(makeSparse(at("full"), fileio::smallFileCap));
        const fileio::ReadResult result = fileio::readRegularFile(at("full"), fileio::smallFileCap);
        QCOMPARE(result.status, fileio::ReadResult::Ok);
        QCOMPARE(result.data, QByteArray(int(fileio::smallFileCap), '\0'));
    }

    void refusedFileIsReportedOnceWithItsPathAndReason()
    {
        QVERIFY(makeFifo(at("fifo")));
        StderrCapture err;
        {
            Watchdog guard("reading a named pipe");
            fileio::readRegularFileReporting(at("fifo"), 1024);
        }
        QCOMPARE(err.diagnostics(),
                 QStringList{QStringLiteral("printerconfig: ignoring /tmp/fileio/fifo: "
                                            "not a regular file")});
    }

    void streamOpensARegularFile()
    {
        QVERIFY(sandbox::writeFile(at("db"), "first\r\nsecond\n"));
        QFile file;
        const fileio::ReadResult result = fileio::openRegularFileReporting(
            at("db"), 1024, &file, QIODevice::ReadOnly | QIODevice::Text);
        QCOMPARE(result.status, fileio::ReadResult::Ok);
        QVERIFY(file.isOpen());
        // Text mode as with a file opened by name: the carriage return is dropped.
        QCOMPARE(file.readAll(), QByteArray("first\nsecond\n"));
    }

    void streamRefusesPipesDevicesAndOversizedFiles()
    {
        QVERIFY(makeFifo(at("fifo")));
        QVERIFY(QFile::link(QStringLiteral("/dev/zero"), at("zero")));
        QVERIFY(makeSparse(at("big"), fileio::largeFileCap + 1));
        StderrCapture err;
        for (const char *name : {"fifo", "zero", "big"}) {
            QFile file;
            Watchdog guard("opening a hostile file as a stream");
            QCOMPARE(fileio::openRegularFileReporting(at(name), fileio::largeFileCap, &file).status,
                     fileio::ReadResult::Refused);
            QVERIFY(!file.isOpen());
        }
        QCOMPARE(err.diagnostics().size(), 3);
        QFile file;
        QCOMPARE(fileio::openRegularFileReporting(at("none"), 1024, &file).status,
                 fileio::ReadResult::Missing);
        QCOMPARE(err.diagnostics().size(), 3);
    }

    void freshFileReplacesAPlantedLinkAndLeavesItsTargetAlone()
    {
        QVERIFY(sandbox::writeFile(at("victim"), "keep me"));
        QVERIFY(QFile::link(at("victim"), at("scratch")));
        QString reason;
        QVERIFY(fileio::createFreshFile(at("scratch"), &reason));
        QCOMPARE(sandbox::readFile(at("victim")), QByteArray("keep me"));
        const QFileInfo scratch(at("scratch"));
        QVERIFY(!scratch.isSymLink());
        QVERIFY(scratch.isFile());
        QCOMPARE(scratch.size(), qint64(0));
        QCOMPARE(scratch.ownerId(), ::getuid());
    }

    void freshFileFailsWhereAFolderStands()
    {
        QVERIFY(QDir().mkpath(at("dir")));
        QString reason;
        QVERIFY(!fileio::createFreshFile(at("dir"), &reason));
        QVERIFY(!reason.isEmpty());
        QVERIFY(QFileInfo(at("dir")).isDir());
    }

    void writesAFreshFileOverAPlantedLink()
    {
        QVERIFY(sandbox::writeFile(at("victim"), "keep me"));
        QVERIFY(QFile::link(at("victim"), at("out")));
        QString reason;
        QVERIFY(fileio::writeFreshFile(at("out"), "new content\n", &reason));
        QCOMPARE(sandbox::readFile(at("victim")), QByteArray("keep me"));
        QVERIFY(!QFileInfo(at("out")).isSymLink());
        QCOMPARE(sandbox::readFile(at("out")), QByteArray("new content\n"));
        QCOMPARE(QFileInfo(at("out")).permissions() & 0x7777,
                 QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadUser |
                     QFileDevice::WriteUser | QFileDevice::ReadGroup | QFileDevice::ReadOther);
    }

    void writingOnAFullFileSystemFailsAndLeavesNothing()
    {
        const QString small = at("small");
        QVERIFY(QDir().mkpath(small));
        if (::mount("fileio-full", QFile::encodeName(small).constData(), "tmpfs", 0, "size=64k") !=
            0)
            QSKIP("mounting a small tmpfs is not allowed here");
        const QByteArray data(256 * 1024, 'x');
        QString reason;
        const bool written = fileio::writeFreshFile(small + QStringLiteral("/out"), data, &reason);
        const bool leftBehind = QFileInfo::exists(small + QStringLiteral("/out"));
        QVERIFY(::umount(QFile::encodeName(small).constData()) == 0);
        QVERIFY(!written);
        QVERIFY2(reason.contains(QStringLiteral("space")), qPrintable(reason));
        QVERIFY(!leftBehind);
    }

    void pathTakenSeesDanglingLinks()
    {
        QVERIFY(!fileio::pathTaken(at("none")));
        QVERIFY(QFile::link(at("nowhere"), at("dangling")));
        QVERIFY(fileio::pathTaken(at("dangling")));
        QVERIFY(sandbox::writeFile(at("plain"), "x"));
        QVERIFY(fileio::pathTaken(at("plain")));
    }
};

QTEST_GUILESS_MAIN(TestRegularFile)
#include "tst_regularfile.moc"
