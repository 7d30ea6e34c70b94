#include "support/childprocess.h"
#include "support/sandbox.h"

#include <zeq/shellrunner.h>

#include <QtTest>

namespace {

QString withNul(const QString &before, const QString &after)
{
    return before + QChar(0) + after;
}

} // namespace

class TestShellRefusal : public QObject
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

    void refusedCommandNeverReachesTheInstalledRunner()
    {
        const childprocess::Outcome run = childprocess::run([] {
            QStringList seen;
            zeq::System::SetShellRunner([&](const QString &c) {
                seen << c;
                return 0;
            });
            const int refused = zeq::System::ExecShell(
                withNul(QStringLiteral("lpadmin -x A"), QStringLiteral("B")));
            const int accepted = zeq::System::ExecShell(QStringLiteral("lpadmin -x A"));
            zeq::System::SetShellRunner(nullptr);
            return QStringLiteral("%1 %2 %3")
                .arg(refused)
                .arg(accepted)
                .arg(seen.join(QLatin1Char('|')))
                .toUtf8();
        });
        QVERIFY(run.finished);
        QCOMPARE(run.result, QByteArray("-1 0 lpadmin -x A"));
        QCOMPARE(run.errors.count('\n'), 1);
    }
};

QTEST_GUILESS_MAIN(TestShellRefusal)
#include "tst_shellrefusal.moc"
