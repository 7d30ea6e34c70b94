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
    r.model = QString(which == 0 ? 3000 : 2000, QLatin1Char(which == 0 ? 'a' : 'b'));
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

// Commits the two versions in turn, for ever, and writes one byte to notify after each
// pair of commits; the parent kills it.
[[noreturn]] void commitLoop(int notify)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    // The folder already holds version 0, so the first commit changes it.
    for (int i = 1; i < 1000000; ++i) {
        commitBoth(i % 2);
        if (::write(notify, "x", 1) != 1)
            break;
    }
    ::_exit(0);
}

// A running writer: a forked child in commitLoop().
struct Writer
{
    pid_t pid = -1;
    int notify = -1;

    bool start()
    {
        int fds[2];
        if (::pipe(fds) != 0)
            return false;
        std::fflush(stdout);
        std::fflush(stderr);
        pid = ::fork();
        if (pid == 0) {
            ::close(fds[0]);
            commitLoop(fds[1]);
        }
        ::close(fds[1]);
        notify = fds[0];
        return pid > 0;
    }
    // Waits until the writer has committed n more pairs.
    bool waitForCommits(int n)
    {
        char buffer[64];
        while (n > 0) {
            const ssize_t got = ::read(notify, buffer, size_t(qMin(n, 64)));
            if (got <= 0)
                return false;
            n -= int(got);
        }
        return true;
    }
    // Kills it; true if it was still running.
    bool kill()
    {
        ::kill(pid, SIGKILL);
        int status = 0;
        ::waitpid(pid, &status, 0);
        ::close(notify);
        return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    }
};

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
        // The two versions as a commit writes them, each checked to load whole once, so
        // that below a file equal to one of them is known to load as that version.
        QByteArray expected[2];
        for (int which = 0; which < 2; ++which) {
            Record r = version(which);
            const QString path = reference + QStringLiteral("/v%1").arg(which);
            QVERIFY(r.Commit(path));
            expected[which] = sandbox::readFile(path);
            QVERIFY(!expected[which].isEmpty());
            Record loaded;
            loaded.set_path(path);
            QVERIFY(loaded.Load());
            QCOMPARE(loaded.name, r.name);
            QCOMPARE(loaded.model, r.model);
            QCOMPARE(loaded.flag, r.flag);
        }
        commitBoth(0);

        // How long one pair of commits takes here (sanitizers slow it down a lot), so
        // that the kills fall across whole commits.
        Writer probe;
        QVERIFY(probe.start());
        QVERIFY(probe.waitForCommits(1));
        QElapsedTimer cycle;
        cycle.start();
        QVERIFY(probe.waitForCommits(20));
        const quint32 pairMicroseconds = quint32(qMax<qint64>(cycle.nsecsElapsed() / 20000, 50));
        probe.kill();

        const quint32 seed = quint32(QDateTime::currentMSecsSinceEpoch());
        qInfo("random seed %u, %u us for a pair of commits", seed, pairMicroseconds);
        QRandomGenerator random(seed);
        QElapsedTimer timer;
        timer.start();
        int seen[2] = {0, 0};
        int killedMidRun = 0;
        int leftoversSeen = 0;
        for (int round = 0; round < 200; ++round) {
            Writer writer;
            QVERIFY(writer.start());
            // Once it is under way, kill it at a random moment of its next two pairs.
            QVERIFY(writer.waitForCommits(1));
            ::usleep(random.bounded(2 * pairMicroseconds));
            if (writer.kill())
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
            }
            // A temporary left by the killed writer is never taken for a record.
            QCOMPARE(zeq::PersistentProperties::EnumPropertyFiles(dir, QStringLiteral("*.pr")),
                     QStringList{dir + QStringLiteral("/Office.pr")});
            leftoversSeen += folderEntries().size() - targets.size();
        }
        // And what the last killed writer left loads through the library as well.
        for (const QString &target : targets) {
            Record loaded;
            loaded.set_path(dir + QLatin1Char('/') + target);
            QVERIFY(loaded.Load());
            QVERIFY(loaded.name == QLatin1String("Alpha") || loaded.name == QLatin1String("Bravo"));
            QCOMPARE(loaded.model, version(loaded.name == QLatin1String("Alpha") ? 0 : 1).model);
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
