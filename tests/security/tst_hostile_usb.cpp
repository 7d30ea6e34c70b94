// What a USB device and another local user can do to the units that follow the attached
// printer (printerconfig-usb, run as root at boot and when a printer is plugged in): the
// device chooses the text of its address, and any user can plant things in /tmp where
// the device list cache is written. Each case runs the built helper as the units do.
#include "common/paths.h"
#include "support/attacker.h"
#include "support/sandbox.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString cache = paths::lpinfoCache();
const QString backend = paths::backendFolder() + QStringLiteral("/usb");
const QString owned = QStringLiteral("/tmp/owned");
const QString victim = QStringLiteral("/tmp/victim");
const QString fakeBin = QStringLiteral("/tmp/.hostile-usb-bin");

// The usb backend, listing one printer with the given address.
bool attach(const QByteArray &uri)
{
    return sandbox::writeFile(backend, "#!/bin/sh\ncat <<'END'\ndirect " + uri +
                                           " \"Acme Label\" \"Label\" \"\" \"\"\nEND\n") &&
           ::chmod(QFile::encodeName(backend).constData(), 0755) == 0;
}

// "lpstat -v" as the scheduler would answer it, first on PATH; lpadmin stays the
// sandbox's recording fake.
bool scheduler(const QByteArray &lpstatOutput)
{
    const QString lpstat = fakeBin + QStringLiteral("/lpstat");
    if (!sandbox::writeFile(lpstat, "#!/bin/sh\ncat <<'END'\n" + lpstatOutput + "END\n") ||
        ::chmod(QFile::encodeName(lpstat).constData(), 0755) != 0)
        return false;
    const QByteArray path = qgetenv("PATH");
    if (!path.startsWith(QFile::encodeName(fakeBin)))
        qputenv("PATH", QFile::encodeName(fakeBin) + ':' + path);
    return true;
}

// The helper, run as the given command line of a unit; prefix (such as setpriv) first.
sandbox::ProcessRun helper(const QString &mode, const QStringList &prefix = {})
{
    const QString program = qEnvironmentVariable("PRINTERCONFIG_USB_BIN");
    if (prefix.isEmpty())
        return sandbox::runProgram(program, {mode});
    return sandbox::runProgram(prefix.first(), prefix.mid(1) + QStringList{program, mode});
}

QList<QStringList> lpadminCalls()
{
    QList<QStringList> calls;
    for (const QStringList &call : sandbox::fakeCalls()) {
        if (call.first() == QLatin1String("lpadmin"))
            calls += call;
    }
    return calls;
}

QStringList leftovers()
{
    return QDir(paths::scratchFolder())
        .entryList({QStringLiteral(".lpinfo.log.*")},
                   QDir::AllEntries | QDir::Hidden | QDir::System);
}

} // namespace

class TestHostileUsb : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        REQUIRE_SANDBOX();
        QVERIFY2(QFileInfo(qEnvironmentVariable("PRINTERCONFIG_USB_BIN")).isExecutable(),
                 "PRINTERCONFIG_USB_BIN must name the built helper");
    }
    void init()
    {
        for (const QString &path : {cache, owned, victim, backend})
            sandbox::removePath(path);
        sandbox::clearFakeCalls();
    }

    // An address the device chose to run a command of its own, were it ever handed to a
    // shell: it reaches lpadmin as one argument, exactly as the device sent it.
    void anAddressWithShellSyntaxReachesLpadminAsOneArgument_data()
    {
        QTest::addColumn<QByteArray>("uri");
        QTest::newRow("quotes") << QByteArray("usb://X/Y';touch${IFS}/tmp/owned;'");
        QTest::newRow("command substitution") << QByteArray("usb://X/$(touch${IFS}/tmp/owned)");
        QTest::newRow("backquotes") << QByteArray("usb://X/`touch${IFS}/tmp/owned`");
        QTest::newRow("separator") << QByteArray("usb://X/Y;touch${IFS}/tmp/owned");
        QTest::newRow("double quotes") << QByteArray("usb://X/\"$(touch${IFS}/tmp/owned)\"");
    }
    void anAddressWithShellSyntaxReachesLpadminAsOneArgument()
    {
        QFETCH(QByteArray, uri);
        QVERIFY(attach(uri));
        QVERIFY(scheduler("device for Label: usb://Acme/Label?serial=42\n"));
        const sandbox::ProcessRun run = helper(QStringLiteral("--follow"));
        QVERIFY2(run.status == 0, qPrintable(run.output));
        QCOMPARE(lpadminCalls(),
                 QList<QStringList>(
                     {{QStringLiteral("lpadmin"), QStringLiteral("-p"), QStringLiteral("Label"),
                       QStringLiteral("-v"), QString::fromUtf8(uri)}}));
        QVERIFY(!QFileInfo::exists(owned));
        QCOMPARE(sandbox::readFile(cache), "direct " + uri + '\n');
    }

    // A link another user plants at the cache's path, pointing at a file of root's: the
    // cache is never written through it.
    void aLinkPlantedAtTheCacheIsNeverWrittenThrough()
    {
        REQUIRE_ATTACKER();
        QVERIFY(sandbox::writeFile(victim, "root's own\n"));
        QVERIFY(attacker::plantLink(cache, victim));
        QVERIFY(attach("usb://Acme/Label?serial=42"));
        const sandbox::ProcessRun run = helper(QStringLiteral("--cache"));
        QVERIFY2(run.status == 0, qPrintable(run.output));
        QCOMPARE(sandbox::readFile(victim), QByteArray("root's own\n"));
        QCOMPARE(leftovers(), QStringList());
    }

    // In the units the helper runs without the rights to override file permissions and
    // ownership. /tmp is root's folder, so root may still replace another user's entry
    // there despite the sticky bit: a planted link or file is replaced by the helper's own
    // cache, never followed or written through.
    void withoutOverridingRightsAPlantedEntryIsReplacedNotFollowed_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::newRow("link") << QStringLiteral("link");
        QTest::newRow("file") << QStringLiteral("file");
    }
    void withoutOverridingRightsAPlantedEntryIsReplacedNotFollowed()
    {
        REQUIRE_ATTACKER();
        QFETCH(QString, kind);
        QVERIFY(sandbox::writeFile(victim, "root's own\n"));
        if (kind == QLatin1String("link"))
            QVERIFY(attacker::plantLink(cache, victim));
        else
            QVERIFY(attacker::plantFile(cache, "direct usb://Attacker/Choice\n", 0666));
        QVERIFY(attach("usb://Acme/Label?serial=42"));
        const sandbox::ProcessRun run = helper(
            QStringLiteral("--cache"),
            {QStringLiteral("setpriv"), QStringLiteral("--bounding-set=-fowner,-dac_override"),
             QStringLiteral("--inh-caps=-fowner,-dac_override")});
        QVERIFY2(run.status == 0, qPrintable(run.output));
        const sandbox::PathEntry entry = sandbox::entryAt(cache);
        QVERIFY2(entry.regular && entry.ownerId == 0 && entry.mode == 0600 && entry.names == 1,
                 qPrintable(entry.describe()));
        QCOMPARE(sandbox::readFile(cache), QByteArray("direct usb://Acme/Label?serial=42\n"));
        QCOMPARE(sandbox::readFile(victim), QByteArray("root's own\n"));
        QCOMPARE(leftovers(), QStringList());
    }

    // A pipe at the cache's path would block a reader forever; the helper never opens it.
    void aPipePlantedAtTheCacheDoesNotBlock()
    {
        REQUIRE_ATTACKER();
        QVERIFY(attacker::act([] { return ::mkfifo("/tmp/.lpinfo.log", 0666) == 0; }));
        QVERIFY(attach("usb://Acme/Label?serial=42"));
        const sandbox::ProcessRun run = helper(QStringLiteral("--cache"), {});
        QVERIFY2(run.status == 0, qPrintable(run.output));
        QCOMPARE(sandbox::readFile(cache), QByteArray("direct usb://Acme/Label?serial=42\n"));
        const sandbox::PathEntry entry = sandbox::entryAt(cache);
        QVERIFY2(entry.regular && entry.ownerId == 0 && entry.mode == 0600,
                 qPrintable(entry.describe()));
    }

    // A device cannot choose where the queues print: an address of another backend (a
    // file, a network printer of the attacker's) is not a USB printer and is not listed.
    void anAddressOfAnotherBackendIsNotFollowed_data()
    {
        QTest::addColumn<QByteArray>("uri");
        QTest::newRow("file") << QByteArray("file:///etc/shadow");
        QTest::newRow("network printer") << QByteArray("socket://attacker.example:9100");
        QTest::newRow("usb look-alike") << QByteArray("usbx://X/Y");
    }
    void anAddressOfAnotherBackendIsNotFollowed()
    {
        QFETCH(QByteArray, uri);
        QVERIFY(attach(uri));
        QVERIFY(scheduler("device for Label: usb://Acme/Label?serial=42\n"));
        const sandbox::ProcessRun run = helper(QStringLiteral("--follow"));
        QVERIFY2(run.status == 0, qPrintable(run.output));
        QCOMPARE(lpadminCalls(), QList<QStringList>());
        QCOMPARE(sandbox::readFile(cache), QByteArray());
    }

    // A device whose address would break printers.conf's line structure is not listed.
    void anAddressWithControlCharactersIsNotListed()
    {
        QVERIFY(sandbox::writeFile(
            backend, "#!/bin/sh\nprintf 'direct usb://X/\\033]0;Y \"A\" \"B\"\\n'\n"));
        QVERIFY(::chmod(QFile::encodeName(backend).constData(), 0755) == 0);
        QVERIFY(scheduler("device for Label: usb://Acme/Label?serial=42\n"));
        const sandbox::ProcessRun run = helper(QStringLiteral("--follow"));
        QVERIFY2(run.status == 0, qPrintable(run.output));
        QCOMPARE(sandbox::readFile(cache), QByteArray());
        QCOMPARE(lpadminCalls(), QList<QStringList>());
    }
};

QTEST_GUILESS_MAIN(TestHostileUsb)
#include "tst_hostile_usb.moc"
