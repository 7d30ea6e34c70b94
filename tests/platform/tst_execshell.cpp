#include "support/sandbox.h"

#include <zeq/system.h>

#include <QtTest>

#include <cstdio>
#include <unistd.h>

class TestExecShell : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { REQUIRE_SANDBOX(); }

    void runsTheLineThroughTheShellAndWaits()
    {
        sandbox::removePath(QStringLiteral("/tmp/out"));
        // A pipe, a redirection and a quoted argument: only a shell understands them all.
        const int status = zeq::System::ExecShell(QStringLiteral(
            "printf '%s\\n' 'a b' | tr a-z A-Z >/tmp/out; sleep 0.2; echo done >>/tmp/out"));
        QCOMPARE(status, 0);
        QCOMPARE(sandbox::readFile(QStringLiteral("/tmp/out")), QByteArray("A B\ndone\n"));
    }

    void returnsTheExitStatus()
    {
        QCOMPARE(zeq::System::ExecShell(QStringLiteral("exit 3")), 3);
        QCOMPARE(zeq::System::ExecShell(QStringLiteral("kill -9 $$")), -1);
    }

    void backgroundCommandsReturnAtOnce()
    {
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(zeq::System::ExecShell(QStringLiteral("sleep 5 >/dev/null 2>&1 &")), 0);
        QVERIFY2(timer.elapsed() < 4000, "the shell waited for a background job");
    }

    void outputGoesToTheCallersStreams()
    {
        // The child writes into our standard output; point it at a file to see it.
        sandbox::removePath(QStringLiteral("/tmp/stdout"));
        fflush(stdout);
        const int saved = dup(1);
        FILE *f = fopen("/tmp/stdout", "w");
        QVERIFY(f);
        dup2(fileno(f), 1);
        zeq::System::ExecShell(QStringLiteral("echo through"));
        fflush(stdout);
        dup2(saved, 1);
        ::close(saved);
        fclose(f);
        QCOMPARE(sandbox::readFile(QStringLiteral("/tmp/stdout")), QByteArray("through\n"));
    }

    void nonAsciiCommandLinesArePassedIntact()
    {
        sandbox::removePath(QStringLiteral("/tmp/ü"));
        zeq::System::ExecShell(QStringLiteral("echo Büro > /tmp/ü"));
        QCOMPARE(sandbox::readFile(QStringLiteral("/tmp/ü")), QByteArray("Büro\n"));
    }
};

QTEST_GUILESS_MAIN(TestExecShell)
#include "tst_execshell.moc"
