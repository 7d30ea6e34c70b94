#include "support/sandbox.h"

#include <zeq/persistentobject.h>
#include <zeq/persistentproperties.h>

#include <QtTest>

#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const QString dir = QStringLiteral("/tmp/crash");
const QString reference = QStringLiteral("/tmp/crash-reference");

class Record final : public zeq::PersistentObject
{
public:
    void AccessProperties(zeq::PersistentProperties &p) override
    {
        p.AccessString(QStringLiteral("name"), name, QString());
        p.AccessString(QStringLiteral("model"), model, QString());
        p.AccessBoolean(QStringLiteral("flag"), flag, false);
    }
    QString name;
    QString model;
    bool flag = false;
};

// Two complete records of different sizes, so that a mix of them would show.
Record version(int which)
{
    Record r;
    r.name = which == 0 ? QStringLiteral("Alpha") : QStringLiteral("Bravo");
    r.model = QString(which == 0 ? 12000 : 8000, QLatin1Char(which == 0 ? 'a' : 'b'));
    r.flag = which == 0;
    return r;
}

const QStringList targets = {QStringLiteral("Office.pr"), QStringLiteral("default")};

void commitBoth(int which)
{
    Record r = version(which);
    for (const QString &target : targets)
        r.Commit(dir + QLatin1Char('/') + target);
}

// Commits the two versions in turn, for ever; the parent kills it.
[[noreturn]] void commitLoop()
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    // The folder already holds version 0, so the first commit changes it.
    for (int i = 1; i < 1000000; ++i)
        commitBoth(i % 2);
    ::_exit(0);
}

QStringList folderEntries()
{
    return QDir(dir).entryList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

} // namespace

class TestCrashSafeCommit : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { REQUIRE_SANDBOX(); }

    void killedWritersLeaveWholeRecordsAndNoStrayTemporaries()
    {
        sandbox::removePath(dir);
        sandbox::removePath(reference);
        QByteArray expected[2];
        for (int which = 0; which < 2; ++which) {
            Record r = version(which);
            const QString path = reference + QStringLiteral("/v%1").arg(which);
            QVERIFY(r.Commit(path));
            expected[which] = sandbox::readFile(path);
            QVERIFY(!expected[which].isEmpty());
        }
        commitBoth(0);

        const quint32 seed = quint32(QDateTime::currentMSecsSinceEpoch());
        qInfo("random seed %u", seed);
        QRandomGenerator random(seed);
        QElapsedTimer timer;
        timer.start();
        int seen[2] = {0, 0};
        int killedMidRun = 0;
        int leftoversSeen = 0;
        for (int round = 0; round < 200; ++round) {
            std::fflush(stdout);
            std::fflush(stderr);
            const pid_t pid = ::fork();
            QVERIFY(pid >= 0);
            if (pid == 0)
                commitLoop();
            ::usleep(useconds_t(random.bounded(100, 4000)));
            ::kill(pid, SIGKILL);
            int status = 0;
            QCOMPARE(::waitpid(pid, &status, 0), pid);
            if (WIFSIGNALED(status))
                ++killedMidRun;

            for (const QString &target : targets) {
                const QString path = dir + QLatin1Char('/') + target;
                const QByteArray bytes = sandbox::readFile(path);
                const int which = bytes == expected[0] ? 0 : bytes == expected[1] ? 1 : -1;
                QVERIFY2(which >= 0, qPrintable(QStringLiteral("round %1: %2 holds %3 bytes")
                                                    .arg(round)
                                                    .arg(target)
                                                    .arg(bytes.size())));
                ++seen[which];
                Record loaded;
                loaded.set_path(path);
                QVERIFY(loaded.Load());
                const Record want = version(which);
                QCOMPARE(loaded.name, want.name);
                QCOMPARE(loaded.model, want.model);
                QCOMPARE(loaded.flag, want.flag);
            }
            // A temporary left by the killed writer is never taken for a record.
            QCOMPARE(zeq::PersistentProperties::EnumPropertyFiles(dir, QStringLiteral("*.pr")),
                     QStringList{dir + QStringLiteral("/Office.pr")});
            leftoversSeen += folderEntries().size() - targets.size();
        }
        // The next commit removes what killed writers left behind.
        commitBoth(1);
        QCOMPARE(folderEntries(),
                 (QStringList{QStringLiteral("Office.pr"), QStringLiteral("default")}));

        qInfo("%lld ms; %d of 200 writers killed while running; versions seen %d/%d; "
              "%d leftover temporaries seen before cleanup",
              timer.elapsed(), killedMidRun, seen[0], seen[1], leftoversSeen);
        QCOMPARE(killedMidRun, 200);
        // Both versions were found on disk: the kills fell while the writer was committing.
        QVERIFY(seen[0] > 0 && seen[1] > 0);
    }

    void stalePartOfALivingWriterIsLeftAlone()
    {
        sandbox::removePath(dir);
        QVERIFY(QDir().mkpath(dir));
        // Our parent process is alive; a temporary with its id may still be in use.
        const QString living =
            dir + QStringLiteral("/.zeq-commit-%1-AbCdEf").arg(qint64(::getppid()));
        const QString dead = dir + QStringLiteral("/.zeq-commit-999999999-AbCdEf");
        const QString foreign = dir + QStringLiteral("/.zeq-commit-notapid");
        for (const QString &path : {living, dead, foreign})
            QVERIFY(sandbox::writeFile(path, "partial"));
        commitBoth(0);
        QVERIFY(QFileInfo::exists(living));
        QVERIFY(!QFileInfo::exists(dead));
        QVERIFY(QFileInfo::exists(foreign));
    }
};

QTEST_GUILESS_MAIN(TestCrashSafeCommit)
#include "tst_crashsafecommit.moc"
