// What another local user and a USB device can do to the hot-plug run
// (printerconfig-usb --follow, run as root when a USB printer is plugged in), against
// CUPS's own scheduler, started by "run-in-sandbox --real-cups". Any local user may make
// a queue of their own over the scheduler's socket (IPP CUPS-Create-Local-Printer), with
// a name and a device address of their choosing; a USB device chooses the text of its
// own address. Each case runs the built helper as the hot-plug unit does and checks what
// reached lpadmin and what the scheduler's queues hold afterwards.
#include "common/paths.h"
#include "printer/printer.h"
#include "support/attacker.h"
#include "support/sandbox.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QStandardPaths>
#include <QTest>
#include <QThread>

#include <sys/stat.h>
#include <unistd.h>

// Another user's queue for the case, or the case skipped where the scheduler declines
// to make it for a local user.
#define MAKE_OTHERS_QUEUE(name, uri)                                                               \
    do {                                                                                           \
        QString declined;                                                                          \
        if (!makeOthersQueue(name, uri, &declined)) {                                              \
            if (!declined.isEmpty())                                                               \
                QSKIP(qPrintable(declined));                                                       \
            QFAIL("another user's queue could not be made");                                       \
        }                                                                                          \
    } while (false)

namespace {

const QString cache = paths::lpinfoCache();
const QString backend = paths::backendFolder() + QStringLiteral("/usb");
// Root's folder of this suite, readable by all: the backend reads it as user lp when the
// scheduler runs it for a job.
const QString work = QStringLiteral("/tmp/.hostile-usb");
const QString attachedList = work + QStringLiteral("/attached");
const QString release = work + QStringLiteral("/release");
const QString gone = work + QStringLiteral("/gone");
const QString wrappers = work + QStringLiteral("/bin");
const QString jobFile = work + QStringLiteral("/job.txt");
const QString owned = QStringLiteral("/tmp/owned");
const QString rawTextPpd = QStringLiteral("/usr/share/ppd/std1/Generic/-Generic-Text-Only-Raw.ppd");

const QString label = QStringLiteral("usb://Acme/Label?serial=42");
const QString swapped = QStringLiteral("usb://Acme/Label?serial=43");
const QString receipt = QStringLiteral("usb://Star/TSP143?serial=7");

// CUPS's usb backend as the scheduler and the helper run it: without arguments it lists
// the printers named in the list, one address a line; for a job it prints for as long as
// the release file is missing (30 s at most), as a printer busy with a long job, or, while
// the file "gone" exists, waits as long for its printer to appear. Waiting, it says what
// CUPS's usb backend says, a message and no state reason.
QByteArray backendScript()
{
    const QByteArray list = QFile::encodeName(attachedList);
    const QByteArray done = QFile::encodeName(release);
    const QByteArray away = QFile::encodeName(gone);
    return "#!/bin/sh\n"
           "if [ $# = 0 ]; then\n"
           "    while IFS= read -r uri; do\n"
           "        [ -z \"$uri\" ] || printf 'direct %s \"Acme Label\" \"Label\" \"\" \"\"\\n' "
           "\"$uri\"\n"
           "    done <" +
           list +
           "\n"
           "    exit 0\n"
           "fi\n"
           "[ ! -e " +
           away +
           " ] || echo 'INFO: Waiting for printer to become available.' >&2\n"
           "i=0\n"
           "while [ ! -e " +
           done +
           " ] && [ $i -lt 300 ]; do sleep 0.1; i=$((i + 1)); done\n"
           "cat >/dev/null\n"
           "exit 0\n";
}

// The printers attached: the backend lists uris, and the kernel has those on its bus and
// busy more, printers the backend cannot open because they are printing.
bool attach(const QList<QByteArray> &uris, int busy = 0)
{
    QByteArray lines;
    for (const QByteArray &uri : uris)
        lines += uri + '\n';
    return sandbox::writeFile(attachedList, lines) && sandbox::putPrintersOnBus(uris.size() + busy);
}

bool attach(const QStringList &uris, int busy = 0)
{
    QList<QByteArray> bytes;
    for (const QString &uri : uris)
        bytes += uri.toUtf8();
    return attach(bytes, busy);
}

sandbox::ProcessRun tool(const QString &program, const QStringList &arguments)
{
    return sandbox::runProgram(program, arguments);
}

// The device address the scheduler gives the queue, as lpstat prints it for that queue
// alone; empty when there is no such queue.
QString deviceOf(const QString &queue)
{
    const sandbox::ProcessRun run = tool(QStringLiteral("lpstat"), {QStringLiteral("-v"), queue});
    const QString prefix = QStringLiteral("device for %1: ").arg(queue);
    const QString line = run.output.trimmed();
    return run.status == 0 && line.startsWith(prefix) ? line.mid(prefix.size()) : QString();
}

bool queueExists(const QString &queue)
{
    return tool(QStringLiteral("lpstat"), {QStringLiteral("-p"), queue}).status == 0;
}

// A record in root's registry, as the tool saves it for a printer.
bool storeRecord(const QString &name, const QString &uri)
{
    Printer p;
    p.name = name;
    p.printer_class = QStringLiteral("direct");
    p.device_uri = uri;
    p.ppd = rawTextPpd;
    p.UpdatePath();
    return p.Commit();
}

// A program run as user nobody, with nothing of root's but the environment: what any
// local user may run.
sandbox::ProcessRun asNobody(const QStringList &command)
{
    return tool(QStringLiteral("setpriv"),
                QStringList{QStringLiteral("--reuid=%1").arg(attacker::userId),
                            QStringLiteral("--regid=%1").arg(attacker::groupId),
                            QStringLiteral("--clear-groups")} +
                    command);
}

// Runs the helper as the hot-plug unit runs it; true when it ended with status 0, its
// output shown otherwise.
bool follow()
{
    const sandbox::ProcessRun run =
        sandbox::runProgram(sandbox::helperPath(), {QStringLiteral("--follow")});
    if (run.status != 0)
        qWarning("printerconfig-usb --follow ended with %d: %s", run.status,
                 qPrintable(run.output));
    return run.status == 0;
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

// What reaches lpadmin when the helper moves one queue to the given address, and only
// that queue; and when it moves none.
QList<QStringList> onlyMove(const QString &queue, const QString &uri)
{
    return {{QStringLiteral("lpadmin"), QStringLiteral("-p"), queue, QStringLiteral("-v"), uri}};
}

const QList<QStringList> noMove;

} // namespace

class TestHostileUsbCups : public QObject
{
    Q_OBJECT

private:
    QString m_lpadmin;
    QString m_loopback;

    // A queue as the tool installs it, made with the real lpadmin (not recorded).
    bool makeQueue(const QString &name, const QString &uri)
    {
        const sandbox::ProcessRun run =
            tool(m_lpadmin, {QStringLiteral("-p"), name, QStringLiteral("-v"), uri,
                             QStringLiteral("-P"), rawTextPpd, QStringLiteral("-E")});
        if (run.status != 0)
            qWarning("lpadmin -p %s -v %s: %s", qPrintable(name), qPrintable(uri),
                     qPrintable(run.output));
        return run.status == 0;
    }

    // A printer as the tool installs it: its record in root's registry and its queue.
    bool installPrinter(const QString &name, const QString &uri)
    {
        return storeRecord(name, uri) && makeQueue(name, uri);
    }

    // Another local user's queue, made as nobody over the scheduler's socket (IPP
    // CUPS-Create-Local-Printer) with the name and address of their choosing; true when
    // the scheduler has it at that address, what went wrong shown otherwise.
    // Newer schedulers (CUPS 2.4.10 on Debian 13) connect to the address of such a queue
    // before making it, and answer with the queue they already have at that address: no
    // local user can make these queues there, nor can root's lpadmin take an address
    // with a line feed. The device's release (CUPS 2.4.2, Debian 12) makes them. Where
    // the scheduler declines, *declined says how and the case is skipped.
    bool makeOthersQueue(const QString &name, const QString &uri, QString *declined)
    {
        const sandbox::ProcessRun run = asNobody({QStringLiteral(CREATE_LOCAL_PRINTER), name, uri});
        const QString device = deviceOf(name);
        if (run.status == 0 && device == uri)
            return true;
        if (run.output.contains(QLatin1String("server-error-device-error")))
            *declined = run.output.trimmed();
        else if (run.status == 0 && device.isEmpty())
            *declined = QStringLiteral("it answered with another queue at that address");
        if (!declined->isEmpty()) {
            *declined = QStringLiteral("this scheduler declines a local user's queue at this "
                                       "address (%1); Debian 12's makes it")
                            .arg(*declined);
        } else {
            qWarning("%s as nobody (status %d, the scheduler has it at \"%s\"): %s",
                     qPrintable(name), run.status, qPrintable(device), qPrintable(run.output));
        }
        return false;
    }

    // Starts a job on the queue and waits until the scheduler reports the queue printing
    // it (with the given message of its backend, when one is given): its backend runs
    // until the release file appears.
    static bool startLongJob(const QString &queue, const QString &message = QString())
    {
        if (!sandbox::writeFile(jobFile, "a long job\n"))
            return false;
        if (tool(QStringLiteral("lp"), {QStringLiteral("-d"), queue, jobFile}).status != 0)
            return false;
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < 20000) {
            const sandbox::ProcessRun state =
                tool(QStringLiteral("lpstat"), {QStringLiteral("-l"), QStringLiteral("-p"), queue});
            if (state.output.contains(QLatin1String("now printing")) &&
                (message.isEmpty() || state.output.contains(message)))
                return true;
            QThread::msleep(100);
        }
        return false;
    }

private slots:
    void initTestCase()
    {
        REQUIRE_REAL_CUPS();
        REQUIRE_BUILT_HELPER();
        m_lpadmin = QStandardPaths::findExecutable(QStringLiteral("lpadmin"));
        QVERIFY2(!m_lpadmin.isEmpty(), "lpadmin is not on PATH");
        m_loopback = sandbox::loopbackPrinterUri();
        QVERIFY(QDir().mkpath(wrappers));
        QVERIFY(::chmod(QFile::encodeName(work).constData(), 0755) == 0);
        // lpadmin as the helper finds it on PATH: each call is recorded, then the real
        // lpadmin changes the scheduler's queue.
        const QString wrapper = wrappers + QStringLiteral("/lpadmin");
        QVERIFY(sandbox::writeFile(
            wrapper, "#!/bin/sh\n"
                     "{ printf lpadmin; for a in \"$@\"; do printf '\\t%s' \"$a\"; done; "
                     "printf '\\n'; } >>\"$SANDBOX_LOG\"\n"
                     "exec " +
                         QFile::encodeName(m_lpadmin) + " \"$@\"\n"));
        QVERIFY(::chmod(QFile::encodeName(wrapper).constData(), 0755) == 0);
        qputenv("PATH", QFile::encodeName(wrappers) + ':' + qgetenv("PATH"));
        QVERIFY(sandbox::writeFile(backend, backendScript()));
        QVERIFY(::chmod(QFile::encodeName(backend).constData(), 0755) == 0);
    }

    void init()
    {
        // Every job ended and every queue gone, whoever made it.
        QVERIFY(sandbox::writeFile(release, QByteArray()));
        tool(QStringLiteral("cancel"), {QStringLiteral("-a")});
        const sandbox::ProcessRun queues = tool(QStringLiteral("lpstat"), {QStringLiteral("-e")});
        for (const QString &queue : queues.output.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
            tool(m_lpadmin, {QStringLiteral("-x"), queue});
        sandbox::removePath(release);
        sandbox::removePath(gone);
        sandbox::removePath(QStringLiteral("/tmp/config"));
        for (const QString &path : {cache, owned})
            sandbox::removePath(path);
        QVERIFY(attach(QStringList()));
        sandbox::clearFakeCalls();
    }

    void cleanup()
    {
        sandbox::writeFile(release, QByteArray());
        tool(QStringLiteral("cancel"), {QStringLiteral("-a")});
    }

    // Another user's queue whose address holds line feeds: in the scheduler's text
    // listing ("lpstat -v") each one starts a line that reads as the address of a queue
    // named by that user. Root's lpadmin is never pointed at such a queue, whether it
    // exists (a network queue others print to) or not (lpadmin would create it).
    void aLineFeedInAnotherUsersQueueAddressChoosesNoQueue()
    {
        REQUIRE_ATTACKER();
        QVERIFY(installPrinter(QStringLiteral("Label"), label));
        QVERIFY(makeQueue(QStringLiteral("Office"), m_loopback));
        QVERIFY(attach({swapped}));

        const QString forged = QStringLiteral("ipp://x.local/a\n"
                                              "device for Office: usb://Acme/Label?serial=1\n"
                                              "device for Ghost: usb://Acme/Label?serial=1");
        MAKE_OTHERS_QUEUE(QStringLiteral("Evil"), forged);
        const sandbox::ProcessRun listing = tool(QStringLiteral("lpstat"), {QStringLiteral("-v")});
        QVERIFY2(listing.output.contains(
                     QLatin1String("\ndevice for Ghost: usb://Acme/Label?serial=1\n")),
                 qPrintable(listing.output));

        QVERIFY(follow());
        QCOMPARE(lpadminCalls(), onlyMove(QStringLiteral("Label"), swapped));
        QVERIFY(!queueExists(QStringLiteral("Ghost")));
        QCOMPARE(deviceOf(QStringLiteral("Office")), m_loopback);
        QCOMPARE(deviceOf(QStringLiteral("Label")), swapped);
    }

    // Another user's queue may carry a USB address too: it is not the device's.
    void anotherUsersQueueWithAUsbAddressIsLeftAlone()
    {
        REQUIRE_ATTACKER();
        QVERIFY(installPrinter(QStringLiteral("Label"), label));
        QVERIFY(attach({swapped}));
        MAKE_OTHERS_QUEUE(QStringLiteral("Theirs"), label);

        QVERIFY(follow());
        QCOMPARE(lpadminCalls(), onlyMove(QStringLiteral("Label"), swapped));
        QCOMPARE(deviceOf(QStringLiteral("Theirs")), label);
    }

    // With the device's own queue missing from the scheduler, another user may make one
    // of the same name: it is another user's queue all the same, and it is left alone.
    void anotherUsersQueueNamedAfterARecordIsLeftAlone()
    {
        REQUIRE_ATTACKER();
        QVERIFY(storeRecord(QStringLiteral("Label"), label));
        QVERIFY(attach({swapped}));
        MAKE_OTHERS_QUEUE(QStringLiteral("Label"), label);

        QVERIFY(follow());
        QCOMPARE(lpadminCalls(), noMove);
        QCOMPARE(deviceOf(QStringLiteral("Label")), label);
    }

    // A USB queue that no record of the registry names was not made by the tool.
    void aUsbQueueTheToolDidNotMakeIsLeftAlone()
    {
        QVERIFY(installPrinter(QStringLiteral("Label"), label));
        QVERIFY(makeQueue(QStringLiteral("Stranger"), label));
        QVERIFY(attach({swapped}));
        QVERIFY(follow());
        QCOMPARE(lpadminCalls(), onlyMove(QStringLiteral("Label"), swapped));
        QCOMPARE(deviceOf(QStringLiteral("Stranger")), label);
    }

    // A registry that another user made (any user can make /tmp/config before the device
    // does) names no queue: it is read as the window and the configure run read it.
    void aRegistryAnotherUserMadeNamesNoQueue()
    {
        REQUIRE_ATTACKER();
        QVERIFY(makeQueue(QStringLiteral("Label"), label));
        QString folder;
        for (const QString &part : paths::registryFolder().mid(5).split(QLatin1Char('/'))) {
            folder += QStringLiteral("/") + part;
            QVERIFY(attacker::plantFolder(QStringLiteral("/tmp") + folder));
        }
        QVERIFY(
            attacker::plantFile(paths::registryFolder() + QStringLiteral("/Label.pr"),
                                "name=Label\nclass=direct\ndevice_uri=" + label.toUtf8() + "\n"));
        QVERIFY(attach({swapped}));
        QVERIFY(follow());
        QCOMPARE(lpadminCalls(), noMove);
        QCOMPARE(deviceOf(QStringLiteral("Label")), label);
    }

    // A receipt printer and a label printer attached: plugging in either (or a device
    // that calls itself a printer) moves no queue whose own printer is still there,
    // whichever the backend lists first.
    void aQueueWhosePrinterIsStillAttachedStays()
    {
        QVERIFY(installPrinter(QStringLiteral("Receipt"), receipt));
        QVERIFY(installPrinter(QStringLiteral("Label"), label));
        QVERIFY(attach({label, receipt}));
        QVERIFY(follow());
        QVERIFY(attach({receipt, label}));
        QVERIFY(follow());
        QCOMPARE(lpadminCalls(), noMove);
        QCOMPARE(deviceOf(QStringLiteral("Receipt")), receipt);
        QCOMPARE(deviceOf(QStringLiteral("Label")), label);
    }

    // The label printer swapped for another of its model while the receipt printer stays:
    // the label queue follows the printer of its own make and model, even when the
    // backend lists the receipt printer first.
    void aQueueWhosePrinterIsGoneFollowsOneOfItsMakeAndModel()
    {
        QVERIFY(installPrinter(QStringLiteral("Receipt"), receipt));
        QVERIFY(installPrinter(QStringLiteral("Label"), label));
        QVERIFY(attach({receipt, swapped}));
        QVERIFY(follow());
        QCOMPARE(lpadminCalls(), onlyMove(QStringLiteral("Label"), swapped));
        QCOMPARE(deviceOf(QStringLiteral("Receipt")), receipt);
        QCOMPARE(deviceOf(QStringLiteral("Label")), swapped);
    }

    // With no printer of its make and model attached, a queue whose printer is gone
    // follows the first printer listed.
    void aQueueWithNoPrinterOfItsModelFollowsTheFirstListed()
    {
        QVERIFY(installPrinter(QStringLiteral("Label"), label));
        QVERIFY(attach({receipt, QStringLiteral("usb://Other/Printer?serial=1")}));
        QVERIFY(follow());
        QCOMPARE(lpadminCalls(), onlyMove(QStringLiteral("Label"), receipt));
        QCOMPARE(deviceOf(QStringLiteral("Label")), receipt);
    }

    // CUPS's usb backend cannot open a printer that is printing, so it does not list it;
    // the kernel has it on its bus all the same. A hot-plug run meanwhile (another USB
    // device plugged in, udev announcing the printer again) keeps it in the device list and
    // leaves its queue where it is.
    void aPrinterBusyWithAJobStaysInTheDeviceList()
    {
        QVERIFY(installPrinter(QStringLiteral("Label"), label));
        QVERIFY(startLongJob(QStringLiteral("Label")));
        QVERIFY(attach(QStringList(), 1));
        QVERIFY(follow());
        QCOMPARE(sandbox::readFile(cache), "direct " + label.toUtf8() + '\n');
        QCOMPARE(lpadminCalls(), noMove);
        QCOMPARE(deviceOf(QStringLiteral("Label")), label);
    }

    // Another printer of the same model plugged in while the first prints a job: the busy
    // printer counts as attached, so its queue stays with it.
    void aQueueBusyWithAJobIsNotMoved()
    {
        QVERIFY(installPrinter(QStringLiteral("Label"), label));
        QVERIFY(startLongJob(QStringLiteral("Label")));
        QVERIFY(attach({swapped}, 1));
        QVERIFY(follow());
        QCOMPARE(lpadminCalls(), noMove);
        QCOMPARE(deviceOf(QStringLiteral("Label")), label);
        QCOMPARE(sandbox::readFile(cache),
                 "direct " + swapped.toUtf8() + "\ndirect " + label.toUtf8() + '\n');
    }

    // A job sent while the printer was away waits for it: the queue is processing, its
    // backend says only that it waits (no state reason, as CUPS's usb backend), and the
    // kernel has no printer on its bus but the one listed. The printer is gone, the queue
    // follows the printer swapped in, and the job goes there.
    void aQueueWhoseJobWaitsForItsGonePrinterFollows()
    {
        QVERIFY(installPrinter(QStringLiteral("Label"), label));
        QVERIFY(sandbox::writeFile(gone, QByteArray()));
        QVERIFY(startLongJob(QStringLiteral("Label"),
                             QStringLiteral("Waiting for printer to become available.")));
        QVERIFY(attach({swapped}));
        QVERIFY(follow());
        QCOMPARE(lpadminCalls(), onlyMove(QStringLiteral("Label"), swapped));
        QCOMPARE(deviceOf(QStringLiteral("Label")), swapped);
        QCOMPARE(sandbox::readFile(cache), "direct " + swapped.toUtf8() + '\n');
    }

    // The same with no printer attached at all: nothing to follow, and the gone printer is
    // not kept in the device list as a busy one.
    void aJobWaitingWithNothingAttachedKeepsNoPrinterInTheList()
    {
        QVERIFY(installPrinter(QStringLiteral("Label"), label));
        QVERIFY(sandbox::writeFile(gone, QByteArray()));
        QVERIFY(startLongJob(QStringLiteral("Label"),
                             QStringLiteral("Waiting for printer to become available.")));
        QVERIFY(follow());
        QCOMPARE(lpadminCalls(), noMove);
        QCOMPARE(deviceOf(QStringLiteral("Label")), label);
        QCOMPARE(sandbox::readFile(cache), QByteArray());
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
        QVERIFY(installPrinter(QStringLiteral("Label"), label));
        QVERIFY(attach(QList<QByteArray>{uri}));
        QVERIFY(follow());
        QCOMPARE(lpadminCalls(), onlyMove(QStringLiteral("Label"), QString::fromUtf8(uri)));
        QVERIFY(!QFileInfo::exists(owned));
        QCOMPARE(sandbox::readFile(cache), "direct " + uri + '\n');
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
        QVERIFY(installPrinter(QStringLiteral("Label"), label));
        QVERIFY(attach(QList<QByteArray>{uri}));
        QVERIFY(follow());
        QCOMPARE(lpadminCalls(), noMove);
        QCOMPARE(sandbox::readFile(cache), QByteArray());
        QCOMPARE(deviceOf(QStringLiteral("Label")), label);
    }

    // A device whose address would break printers.conf's line structure is not listed.
    void anAddressWithControlCharactersIsNotListed()
    {
        QVERIFY(installPrinter(QStringLiteral("Label"), label));
        QVERIFY(attach(QList<QByteArray>{"usb://X/\033]0;Y"}));
        QVERIFY(follow());
        QCOMPARE(sandbox::readFile(cache), QByteArray());
        QCOMPARE(lpadminCalls(), noMove);
        QCOMPARE(deviceOf(QStringLiteral("Label")), label);
    }
};

QTEST_GUILESS_MAIN(TestHostileUsbCups)
#include "tst_hostile_usb_cups.moc"
