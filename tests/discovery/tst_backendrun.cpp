// Waiting on a backend as the device list and the discovery do: one that closes its
// output but goes on running is waited for without spending the processor, until it ends
// or its time is up.
#include "discovery/backendrun.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QtTest>

#include <ctime>

namespace {

// The processor time this thread has used so far, in milliseconds: the waiting is done
// on the caller's thread.
double threadCpuMs()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e3 + double(now.tv_nsec) / 1e6;
}

const QByteArray deviceLine = "direct usb://Acme/Label \"Acme Label\" \"\"\n";

// A backend that prints one device line, closes its standard output and sleeps.
void startQuietSleeper(QProcess *process, const QString &seconds)
{
    process->start(QStringLiteral("/bin/sh"),
                   {QStringLiteral("-c"),
                    QStringLiteral("printf '%s' \"$1\"; exec >&-; sleep %1").arg(seconds),
                    QStringLiteral("sh"), QString::fromLatin1(deviceLine)},
                   QIODevice::ReadOnly);
}

// One wait on a backend, timed on the clock and in this thread's processor time.
struct TimedWait
{
    bool ended = false;
    qint64 waitedMs = 0;
    double cpuMs = 0;

    // Waiting in a loop would keep the processor busy for nearly all of that time;
    // starting the backend and reading its line cost a few milliseconds.
    bool idle() const { return cpuMs < 0.1 * double(waitedMs); }
    QString describe() const
    {
        return QStringLiteral("%1 ms of processor time in %2 ms of waiting")
            .arg(cpuMs, 0, 'f', 1)
            .arg(waitedMs);
    }
};

TimedWait timedWait(QProcess &process, backendrun::Output *output, int timeoutMs)
{
    TimedWait wait;
    QElapsedTimer clock;
    clock.start();
    const double before = threadCpuMs();
    wait.ended = backendrun::waitFor(process, output, timeoutMs);
    wait.cpuMs = threadCpuMs() - before;
    wait.waitedMs = clock.elapsed();
    qInfo("%s", qPrintable(wait.describe()));
    return wait;
}

} // namespace

class TestBackendRun : public QObject
{
    Q_OBJECT

private slots:
    void aBackendThatClosedItsOutputIsAwaitedWithoutSpendingTheProcessor()
    {
        QProcess process;
        startQuietSleeper(&process, QStringLiteral("1.5"));
        backendrun::Output output;
        const TimedWait wait = timedWait(process, &output, 10000);
        QVERIFY(wait.ended);

        QCOMPARE(output.bytes(), deviceLine);
        QVERIFY2(wait.waitedMs >= 1000,
                 qPrintable(QStringLiteral("waited %1 ms").arg(wait.waitedMs)));
        QVERIFY2(wait.idle(), qPrintable(wait.describe()));
    }

    void aBackendThatClosedItsOutputAndOutstaysItsTimeIsLeftRunning()
    {
        QProcess process;
        startQuietSleeper(&process, QStringLiteral("30"));
        backendrun::Output output;
        const TimedWait wait = timedWait(process, &output, 1000);
        QVERIFY(!wait.ended);

        QCOMPARE(process.state(), QProcess::Running);
        QVERIFY2(wait.waitedMs >= 1000 && wait.waitedMs < 5000,
                 qPrintable(QStringLiteral("waited %1 ms").arg(wait.waitedMs)));
        QVERIFY2(wait.idle(), qPrintable(wait.describe()));
        process.kill();
        process.waitForFinished();
    }
};

QTEST_GUILESS_MAIN(TestBackendRun)
#include "tst_backendrun.moc"
