#include "support/childprocess.h"
#include "support/sandbox.h"

#include <zeq/system.h>

#include <QtTest>

namespace {

QString withNul(const QString &before, const QString &after)
{
    return before + QChar(0) + after;
}

} // namespace

class TestHostileShell : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { REQUIRE_SANDBOX(); }
    void init()
    {
        sandbox::removePath(QStringLiteral("/tmp/ran"));
        sandbox::removePath(QStringLiteral("/tmp/ran-after"));
    }

    void commandWithNulIsNotRunAndSaysSoOnce()
    {
        const childprocess::Outcome run = childprocess::run([] {
            const QString command = withNul(QStringLiteral("touch /tmp/ran"), QStringLiteral("x"));
            return QByteArray::number(zeq::System::ExecShell(command));
        });
        QVERIFY(run.finished);
        QCOMPARE(run.result, QByteArray("-1"));
        // Cut at the NUL the line would still have run "touch /tmp/ran".
        QVERIFY(!QFileInfo::exists(QStringLiteral("/tmp/ran")));
        QCOMPARE(run.errors, QByteArray("libzeq2: not running a command that contains a NUL "
                                        "character: touch /tmp/ran\\x00x\n"));
    }

    void commandWithoutNulStillRuns()
    {
        QCOMPARE(zeq::System::ExecShell(QStringLiteral("touch /tmp/ran")), 0);
        QVERIFY(QFileInfo::exists(QStringLiteral("/tmp/ran")));
    }
};

QTEST_GUILESS_MAIN(TestHostileShell)
#include "tst_hostile_shell.moc"
