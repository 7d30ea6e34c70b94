#include "fileio/folders.h"
#include "fileio/freshfile.h"
#include "fileio/read.h"
#include "support/sandbox.h"
#include "support/stderrcapture.h"
#include "support/watchdog.h"

#include <QtTest>

#include <cerrno>
#include <cstring>
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

// A request for one read, spelled out in full so that each test says what it asks for.
fileio::ReadRequest asked(qint64 cap, fileio::Trust trust, bool report, QFile *stream = nullptr,
                          QIODevice::OpenMode mode = QIODevice::ReadOnly)
{
    fileio::ReadRequest request;
    request.cap = cap;
    request.trust = trust;
    request.report = report;
    request.stream = stream;
    request.streamMode = mode;
    return request;
}

bool makeSparse(const QString &path, qint64 size)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.resize(size);
}

} // namespace

class TestFileIo : public QObject
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
        const fileio::ReadResult result =
            fileio::read(at("plain"), asked(1024, fileio::Trust::Any, false));
        QCOMPARE(result.status, fileio::ReadResult::Ok);
        QCOMPARE(result.data, content);
    }

    void followsALinkToARegularFile()
    {
        QVERIFY(sandbox::writeFile(at("target"), "text"));
        QVERIFY(QFile::link(at("target"), at("link")));
        QCOMPARE(fileio::read(at("link"), asked(1024, fileio::Trust::Any, false)).data,
                 QByteArray("text"));
    }

    void missingFileIsMissingAndNotReported()
    {
        StderrCapture err;
        const fileio::ReadResult result =
            fileio::read(at("none"), asked(1024, fileio::Trust::Any, true));
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
            result = fileio::read(at("fifo"), asked(1024, fileio::Trust::Any, false));
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
            result =
                fileio::read(at("zero"), asked(fileio::largeFileCap, fileio::Trust::Any, false));
        }
        QVERIFY(timer.elapsed() < 1000);
        QCOMPARE(result.status, fileio::ReadResult::Refused);
        QVERIFY(result.data.isEmpty());
    }

    void folderIsRefused()
    {
        QVERIFY(QDir().mkpath(at("dir")));
        QCOMPARE(fileio::read(at("dir"), asked(1024, fileio::Trust::Any, false)).status,
                 fileio::ReadResult::Refused);
    }

    void fileOneByteOverTheCapIsRefused()
    {
        QVERIFY(makeSparse(at("big"), fileio::largeFileCap + 1));
        QElapsedTimer timer;
        timer.start();
        const fileio::ReadResult result =
            fileio::read(at("big"), asked(fileio::largeFileCap, fileio::Trust::Any, false));
        QVERIFY(timer.elapsed() < 1000);
        QCOMPARE(result.status, fileio::ReadResult::Refused);
        QCOMPARE(result.reason, QStringLiteral("larger than 67108864 bytes"));
    }

    void fileOfExactlyTheCapIsRead()
    {
        QVERIFY(makeSparse(at("full"), fileio::smallFileCap));
        const fileio::ReadResult result =
            fileio::read(at("full"), asked(fileio::smallFileCap, fileio::Trust::Any, false));
        QCOMPARE(result.status, fileio::ReadResult::Ok);
        QCOMPARE(result.data, QByteArray(int(fileio::smallFileCap), '\0'));
    }

    void refusedFileIsReportedOnceWithItsPathAndReason()
    {
        QVERIFY(makeFifo(at("fifo")));
        StderrCapture err;
        {
            Watchdog guard("reading a named pipe");
            fileio::read(at("fifo"), asked(1024, fileio::Trust::Any, true));
        }
        QCOMPARE(err.diagnostics(),
                 QStringList{QStringLiteral("printerconfig: ignoring /tmp/fileio/fifo: "
                                            "not a regular file")});
    }

    void streamOpensARegularFile()
    {
        QVERIFY(sandbox::writeFile(at("db"), "first\r\nsecond\n"));
        QFile file;
        const fileio::ReadResult result =
            fileio::read(at("db"), asked(1024, fileio::Trust::Any, true, &file,
                                         QIODevice::ReadOnly | QIODevice::Text));
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
            QCOMPARE(
                fileio::read(at(name), asked(fileio::largeFileCap, fileio::Trust::Any, true, &file))
                    .status,
                fileio::ReadResult::Refused);
            QVERIFY(!file.isOpen());
        }
        QCOMPARE(err.diagnostics().size(), 3);
        QFile file;
        QCOMPARE(fileio::read(at("none"), asked(1024, fileio::Trust::Any, true, &file)).status,
                 fileio::ReadResult::Missing);
        QCOMPARE(err.diagnostics().size(), 3);
    }

    void freshFileReplacesAPlantedLinkAndLeavesItsTargetAlone()
    {
        QVERIFY(sandbox::writeFile(at("victim"), "keep me"));
        QVERIFY(QFile::link(at("victim"), at("scratch")));
        QString reason;
        QVERIFY(fileio::makeFreshFile(at("scratch"), {}, &reason));
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
        QVERIFY(!fileio::makeFreshFile(at("dir"), {}, &reason));
        QVERIFY(!reason.isEmpty());
        QVERIFY(QFileInfo(at("dir")).isDir());
    }

    void writesAFreshFileOverAPlantedLink()
    {
        QVERIFY(sandbox::writeFile(at("victim"), "keep me"));
        QVERIFY(QFile::link(at("victim"), at("out")));
        QString reason;
        QVERIFY(fileio::makeFreshFile(at("out"), {"new content\n"}, &reason));
        QCOMPARE(sandbox::readFile(at("victim")), QByteArray("keep me"));
        QVERIFY(!QFileInfo(at("out")).isSymLink());
        QCOMPARE(sandbox::readFile(at("out")), QByteArray("new content\n"));
        QCOMPARE(QFileInfo(at("out")).permissions() & 0x7777,
                 QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadUser |
                     QFileDevice::WriteUser | QFileDevice::ReadGroup | QFileDevice::ReadOther);
    }

    void placedFileTakesThePlaceOfALinkWithoutFollowingIt()
    {
        QVERIFY(sandbox::writeFile(at("victim"), "keep me"));
        QVERIFY(QFile::link(at("victim"), at("list")));
        QString reason;
        QString aside;
        QVERIFY2(fileio::placeFile(at("list"), "new\n", 0600, &reason, &aside), qPrintable(reason));
        QCOMPARE(sandbox::readFile(at("victim")), QByteArray("keep me"));
        const sandbox::PathEntry entry = sandbox::entryAt(at("list"));
        QVERIFY2(entry.regular && entry.mode == 0600, qPrintable(entry.describe()));
        QCOMPARE(sandbox::readFile(at("list")), QByteArray("new\n"));
        QCOMPARE(aside, QString());
        QCOMPARE(QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden |
                                        QDir::System),
                 QStringList({QStringLiteral("list"), QStringLiteral("victim")}));
    }

    // rename cannot put a file where a folder stands: the two are swapped in one step,
    // and the folder, whole and unopened, gets a name of its own beside the file.
    void placedFileSwapsAFolderOutWhole()
    {
        QVERIFY(sandbox::writeFile(at("list/inside/note"), "kept\n"));
        QVERIFY(QFile::link(at("victim"), at("list/link")));
        QString reason;
        QString aside;
        QVERIFY2(fileio::placeFile(at("list"), "new\n", 0600, &reason, &aside), qPrintable(reason));
        QCOMPARE(sandbox::readFile(at("list")), QByteArray("new\n"));
        QVERIFY2(aside.startsWith(at("list.aside-")) &&
                     aside.size() == at("list.aside-").size() + 6,
                 qPrintable(aside));
        QCOMPARE(sandbox::readFile(aside + QStringLiteral("/inside/note")), QByteArray("kept\n"));
        QVERIFY(sandbox::entryAt(aside + QStringLiteral("/link")).link);
        QCOMPARE(QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden |
                                        QDir::System),
                 QStringList({QStringLiteral("list"), QFileInfo(aside).fileName()}));
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
        const bool written = fileio::makeFreshFile(small + QStringLiteral("/out"), {data}, &reason);
        const bool leftBehind = QFileInfo::exists(small + QStringLiteral("/out"));
        QVERIFY(::umount(QFile::encodeName(small).constData()) == 0);
        QVERIFY(!written);
        QVERIFY2(reason.contains(QStringLiteral("space")), qPrintable(reason));
        QVERIFY(!leftBehind);
    }

    // Files and folders that someone else may have made.

    void trustedFileOfOursIsReadWithItsAttributes()
    {
        QVERIFY(sandbox::writeFile(at("ours"), "mine\n"));
        QVERIFY(QFile::setPermissions(at("ours"), QFileDevice::Permissions(0x6440)));
        const fileio::ReadResult read =
            fileio::read(at("ours"), asked(1024, fileio::Trust::Ours, false));
        QVERIFY(read.ok());
        QCOMPARE(read.data, QByteArray("mine\n"));
        QCOMPARE(read.attributes.mode, 0640);
        QCOMPARE(read.attributes.ownerId, int(::geteuid()));
        QCOMPARE(read.attributes.groupId, int(::getegid()));
    }

    void fileSomeoneElseCouldHaveMadeOrChangedIsNotTrusted_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("reason");
        QTest::newRow("link to a file of ours") << "link"
                                                << "a symbolic link";
        QTest::newRow("writable by everyone") << "0666"
                                              << "writable by others (mode 0666)";
        QTest::newRow("writable by a group not root's") << "group"
                                                        << "writable by others (mode 0664)";
        QTest::newRow("second name of a file") << "hardlink"
                                               << "has 2 names (hard links)";
        QTest::newRow("owned by nobody") << "nobody"
                                         << "owned by user 65534";
        QTest::newRow("named pipe") << "fifo"
                                    << "not a regular file";
    }
    void fileSomeoneElseCouldHaveMadeOrChangedIsNotTrusted()
    {
        QFETCH(QString, kind);
        QFETCH(QString, reason);
        const QString path = at("planted");
        const QByteArray name = QFile::encodeName(path);
        QVERIFY(sandbox::writeFile(at("ours"), "mine\n"));
        if (kind == QLatin1String("link")) {
            QVERIFY(QFile::link(at("ours"), path));
        } else if (kind == QLatin1String("hardlink")) {
            QCOMPARE(::link(QFile::encodeName(at("ours")).constData(), name.constData()), 0);
        } else if (kind == QLatin1String("fifo")) {
            QVERIFY(makeFifo(path));
        } else {
            QVERIFY(sandbox::writeFile(path, "theirs\n"));
            if (kind == QLatin1String("0666")) {
                QCOMPARE(::chmod(name.constData(), 0666), 0);
            } else if (kind == QLatin1String("group")) {
                QCOMPARE(::chmod(name.constData(), 0664), 0);
                if (::chown(name.constData(), uid_t(-1), 7) != 0)
                    QSKIP(
                        "this sandbox cannot give a file to another group (entered without root)");
            } else if (::chown(name.constData(), 65534, 65534) != 0) {
                QSKIP("this sandbox cannot give a file to another user (entered without root)");
            }
        }
        StderrCapture err;
        const fileio::ReadResult read = fileio::read(path, asked(1024, fileio::Trust::Ours, true));
        QCOMPARE(read.status, fileio::ReadResult::Refused);
        QCOMPARE(read.reason, reason);
        QVERIFY(read.data.isEmpty());
        QCOMPARE(err.diagnostics(),
                 QStringList{QStringLiteral("printerconfig: ignoring %1: %2").arg(path, reason)});
        // The same file read without the trust test, where it is a regular file.
        if (kind != QLatin1String("fifo"))
            QVERIFY(fileio::read(path, asked(1024, fileio::Trust::Any, false)).ok());
    }

    void fileRootsGroupMayWriteIsTrusted()
    {
        QVERIFY(sandbox::writeFile(at("shared"), "x"));
        const QByteArray name = QFile::encodeName(at("shared"));
        QCOMPARE(::chmod(name.constData(), 0664), 0);
        if (::chown(name.constData(), uid_t(-1), 0) != 0)
            QSKIP("this sandbox cannot give a file to root's group (entered without root)");
        QVERIFY(fileio::read(at("shared"), asked(1024, fileio::Trust::Ours, false)).ok());
    }

    void trustedStreamRefusesAFileOfSomeoneElse()
    {
        QVERIFY(sandbox::writeFile(at("open"), "x"));
        QCOMPARE(::chmod(QFile::encodeName(at("open")).constData(), 0646), 0);
        QFile file;
        StderrCapture err;
        QCOMPARE(fileio::read(at("open"), asked(1024, fileio::Trust::Ours, true, &file)).status,
                 fileio::ReadResult::Refused);
        QVERIFY(!file.isOpen());
        QCOMPARE(err.diagnostics().size(), 1);
        QCOMPARE(::chmod(QFile::encodeName(at("open")).constData(), 0644), 0);
        QVERIFY(fileio::read(at("open"), asked(1024, fileio::Trust::Ours, true, &file)).ok());
        QCOMPARE(file.readAll(), QByteArray("x"));
    }

    void folderChainOfOursIsOursAndAMissingOneMissing()
    {
        QString reason;
        QCOMPARE(fileio::examineFolder(at("a/b/c"), &reason), fileio::FolderState::Missing);
        QVERIFY(QDir().mkpath(at("a/b")));
        QCOMPARE(fileio::examineFolder(at("a/b/c"), &reason), fileio::FolderState::Missing);
        QCOMPARE(fileio::examineFolder(at("a/b"), &reason), fileio::FolderState::Ours);
        QVERIFY2(reason.isEmpty(), qPrintable(reason));
    }

    void makingAFolderCreatesTheMissingPartsAsOurs()
    {
        QVERIFY(QDir().mkpath(at("a")));
        const mode_t mask = ::umask(0077); // the parts are 0755 whatever the umask
        QString reason;
        const fileio::FolderState made = fileio::makeTrustedFolder(at("a/b/c"), &reason);
        ::umask(mask);
        QVERIFY2(made == fileio::FolderState::Ours, qPrintable(reason));
        for (const char *part : {"a/b", "a/b/c"}) {
            struct stat st;
            QCOMPARE(::lstat(QFile::encodeName(at(part)).constData(), &st), 0);
            QVERIFY(S_ISDIR(st.st_mode));
            QCOMPARE(int(st.st_mode & 07777), 0755);
            QCOMPARE(st.st_uid, ::geteuid());
        }
        QCOMPARE(fileio::examineFolder(at("a/b/c"), &reason), fileio::FolderState::Ours);
        // Made again, it is found and passes.
        QCOMPARE(fileio::makeTrustedFolder(at("a/b/c"), &reason), fileio::FolderState::Ours);
    }

    void makingAFolderStopsAtAPartOthersControl()
    {
        QVERIFY(QDir().mkpath(at("open")));
        QCOMPARE(::chmod(QFile::encodeName(at("open")).constData(), 0777), 0);
        QString reason;
        QCOMPARE(fileio::makeTrustedFolder(at("open/inner"), &reason),
                 fileio::FolderState::Foreign);
        QCOMPARE(reason, at("open") + QStringLiteral(" is writable by others (mode 0777)"));
        QVERIFY(!QFileInfo::exists(at("open/inner")));
    }

    void stickyFolderAboveIsTrustedButNotAsTheFolderItself()
    {
        // /tmp itself is sticky and writable by all: others may add entries, never
        // replace ours.
        QVERIFY(QDir().mkpath(at("sticky/inner")));
        QCOMPARE(::chmod(QFile::encodeName(at("sticky")).constData(), 01777), 0);
        QString reason;
        QCOMPARE(fileio::examineFolder(at("sticky/inner"), &reason), fileio::FolderState::Ours);
        QCOMPARE(fileio::examineFolder(at("sticky"), &reason), fileio::FolderState::Foreign);
        QCOMPARE(reason, at("sticky") + QStringLiteral(" is writable by others (mode 1777)"));
    }

    void folderChainOthersControlIsNotTrusted_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("reason");
        QTest::newRow("part writable by everyone")
            << "0777" << at("a") + QStringLiteral(" is writable by others (mode 0777)");
        QTest::newRow("part owned by nobody")
            << "nobody" << at("a") + QStringLiteral(" is owned by user 65534");
        QTest::newRow("part is a link")
            << "link" << at("a") + QStringLiteral(" is a symbolic link");
        QTest::newRow("part is a file") << "file" << at("a") + QStringLiteral(" is not a folder");
    }
    void folderChainOthersControlIsNotTrusted()
    {
        QFETCH(QString, kind);
        QFETCH(QString, reason);
        const QByteArray a = QFile::encodeName(at("a"));
        if (kind == QLatin1String("link")) {
            QVERIFY(QDir().mkpath(at("real/b")));
            QVERIFY(QFile::link(at("real"), at("a")));
        } else if (kind == QLatin1String("file")) {
            QVERIFY(sandbox::writeFile(at("a"), "x"));
        } else {
            QVERIFY(QDir().mkpath(at("a/b")));
            if (kind == QLatin1String("0777"))
                QCOMPARE(::chmod(a.constData(), 0777), 0);
            else if (::chown(a.constData(), 65534, 65534) != 0)
                QSKIP("this sandbox cannot give a folder to another user (entered without root)");
        }
        QString found;
        QCOMPARE(fileio::examineFolder(at("a/b"), &found), fileio::FolderState::Foreign);
        QCOMPARE(found, reason);
        QCOMPARE(fileio::makeTrustedFolder(at("a/b"), &found), fileio::FolderState::Foreign);
        QCOMPARE(found, reason);
    }

    void freshFileTakesExactlyTheAttributesAskedFor()
    {
        QVERIFY(sandbox::writeFile(at("victim"), "keep me"));
        QVERIFY(QFile::link(at("victim"), at("conf")));
        fileio::FileAttributes attributes;
        attributes.mode = 0664; // wider than the umask would let through
        attributes.ownerId = 0;
        attributes.groupId = 7;
        QString reason;
        QString warning;
        fileio::FreshFile conf;
        conf.data = "data\n";
        conf.exact = &attributes;
        conf.warning = &warning;
        QVERIFY(fileio::makeFreshFile(at("conf"), conf, &reason));
        QCOMPARE(sandbox::readFile(at("victim")), QByteArray("keep me"));
        QVERIFY(!QFileInfo(at("conf")).isSymLink());
        QCOMPARE(sandbox::readFile(at("conf")), QByteArray("data\n"));
        struct stat st;
        QCOMPARE(::stat(QFile::encodeName(at("conf")).constData(), &st), 0);
        QCOMPARE(int(st.st_mode & 07777), 0664);
        if (::geteuid() == 0 && warning.isEmpty()) {
            QCOMPARE(st.st_uid, uid_t(0));
            QCOMPARE(st.st_gid, gid_t(7));
        } else {
            // Without the right to give files away the file stays ours, and we are told.
            QCOMPARE(warning, QString::fromLocal8Bit(std::strerror(EPERM)));
        }
    }

    void everythingUnderTmpMustBeOurs()
    {
        QVERIFY(fileio::mustBeOurs(QStringLiteral("/tmp/.lpinfo.log")));
        QVERIFY(fileio::mustBeOurs(QStringLiteral("/tmp/config/files/printdrivers.db")));
        QVERIFY(!fileio::mustBeOurs(QStringLiteral("/tmpfiles/x")));
        QVERIFY(!fileio::mustBeOurs(QStringLiteral("/etc/cups/printers.conf")));
        QVERIFY(!fileio::mustBeOurs(QStringLiteral("/usr/share/ppd/a.ppd")));
    }

    void byDefaultALinkUnderTmpIsRefusedAndElsewhereFollowed()
    {
        QVERIFY(sandbox::writeFile(at("target"), "text"));
        QVERIFY(QFile::link(at("target"), at("link")));
        fileio::ReadRequest request;
        request.report = false;
        const fileio::ReadResult underTmp = fileio::read(at("link"), request);
        QCOMPARE(underTmp.status, fileio::ReadResult::Refused);
        QCOMPARE(underTmp.reason, QStringLiteral("a symbolic link"));

        const QString elsewhere = QStringLiteral("/etc/cups/fileio-link");
        sandbox::removePath(elsewhere);
        QVERIFY(QFile::link(at("target"), elsewhere));
        const fileio::ReadResult outside = fileio::read(elsewhere, request);
        sandbox::removePath(elsewhere);
        QCOMPARE(outside.status, fileio::ReadResult::Ok);
        QCOMPARE(outside.data, QByteArray("text"));
    }
};

QTEST_GUILESS_MAIN(TestFileIo)
#include "tst_fileio.moc"
