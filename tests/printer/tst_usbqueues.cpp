// The USB queues and the device list cache following the USB printer attached now: what
// "lpstat -v" says is read, which queues get "lpadmin -p NAME -v URI", and how the cache
// is written.
#include "common/paths.h"
#include "printer/device.h"
#include "printer/shell.h"
#include "printer/usbqueues.h"
#include "support/sandbox.h"
#include "support/stderrcapture.h"

#include <QDir>
#include <QTest>

namespace {

const QString cache = paths::lpinfoCache();
const QString attached = QStringLiteral("usb://Acme/Label?serial=43");

// Installs itself as the program runner for its lifetime: answers "lpstat -v" with the
// given text and status and records every call.
class ProgramRecorder
{
public:
    ProgramRecorder(const QByteArray &lpstatOutput, int lpstatStatus = 0)
        : m_previous(shell::setProgramRunner([=](const QStringList &argv, QByteArray *output) {
            calls += argv;
            if (argv.first() == QLatin1String("lpstat")) {
                if (output)
                    *output = lpstatOutput;
                return lpstatStatus;
            }
            return 0;
        }))
    {
    }
    ~ProgramRecorder() { shell::setProgramRunner(std::move(m_previous)); }
    QList<QStringList> calls;

private:
    shell::ProgramRunner m_previous;
};

QStringList leftovers()
{
    return QDir(paths::scratchFolder())
        .entryList({QStringLiteral(".lpinfo.log.*")},
                   QDir::AllEntries | QDir::Hidden | QDir::System);
}

void removeCacheAndLeftovers()
{
    sandbox::removePath(cache);
    for (const QString &name : leftovers())
        sandbox::removePath(paths::scratchFolder() + QLatin1Char('/') + name);
}

QStringList lpadminCall(const QString &queue, const QString &uri)
{
    return {QStringLiteral("lpadmin"), QStringLiteral("-p"), queue, QStringLiteral("-v"), uri};
}

} // namespace

class TestUsbQueues : public QObject
{
    Q_OBJECT

private slots:
    void lpstatLinesGiveQueuesAndAddresses()
    {
        const QByteArray output = "device for Label: usb://Acme/Label?serial=42\n"
                                  "device for Net1: socket://10.0.0.1:9100\n"
                                  "something else\n"
                                  "device for Odd: lpd://host/q: with a colon\n";
        const QList<usbqueues::QueueDevice> devices = usbqueues::parseLpstatDevices(output);
        QCOMPARE(devices.size(), 3);
        QCOMPARE(devices.at(0).queue, QStringLiteral("Label"));
        QCOMPARE(devices.at(0).uri, QStringLiteral("usb://Acme/Label?serial=42"));
        QCOMPARE(devices.at(1).queue, QStringLiteral("Net1"));
        QCOMPARE(devices.at(1).uri, QStringLiteral("socket://10.0.0.1:9100"));
        QCOMPARE(devices.at(2).queue, QStringLiteral("Odd"));
        QCOMPARE(devices.at(2).uri, QStringLiteral("lpd://host/q: with a colon"));
    }

    void everyUsbQueueWithAnotherAddressIsPointedAtTheAttachedPrinter()
    {
        ProgramRecorder programs("device for Label: usb://Acme/Label?serial=42\n"
                                 "device for Net1: socket://usbhost:9100\n"
                                 "device for Desk: usb:/dev/usb/lp0\n"
                                 "device for Lpd: lpd://printhost/queue\n"
                                 "device for Same: usb://Acme/Label?serial=43\n");
        const QStringList changed = usbqueues::followAttachedPrinter(attached);
        QCOMPARE(changed, QStringList({QStringLiteral("Label"), QStringLiteral("Desk")}));
        QCOMPARE(programs.calls,
                 QList<QStringList>({{QStringLiteral("lpstat"), QStringLiteral("-v")},
                                     lpadminCall(QStringLiteral("Label"), attached),
                                     lpadminCall(QStringLiteral("Desk"), attached)}));
    }

    void nothingIsChangedWhenTheSchedulerCannotBeAsked()
    {
        ProgramRecorder programs("device for Label: usb://Acme/Label?serial=42\n", 1);
        QCOMPARE(usbqueues::followAttachedPrinter(attached), QStringList());
        QCOMPARE(programs.calls.size(), 1);
    }

    void theCacheIsACompleteFileOfRootsAloneInOneStep()
    {
        REQUIRE_SANDBOX();
        removeCacheAndLeftovers();
        QString reason;
        QVERIFY2(usbqueues::writeDeviceListCache({QStringLiteral("direct usb://A/B?serial=1"),
                                                  QStringLiteral("direct usb://C/D")},
                                                 &reason),
                 qPrintable(reason));
        QCOMPARE(sandbox::readFile(cache),
                 QByteArray("direct usb://A/B?serial=1\ndirect usb://C/D\n"));
        const sandbox::PathEntry entry = sandbox::entryAt(cache);
        QVERIFY2(entry.regular && entry.ownerId == 0 && entry.mode == 0600 && entry.names == 1,
                 qPrintable(entry.describe()));
        // The cache that stood there is replaced, and no file of the write is left beside it.
        QVERIFY(usbqueues::writeDeviceListCache({}, &reason));
        QCOMPARE(sandbox::readFile(cache), QByteArray());
        QCOMPARE(leftovers(), QStringList());
    }

    void aFolderAtTheCachesPathIsMovedAsideWhole()
    {
        REQUIRE_SANDBOX();
        removeCacheAndLeftovers();
        QVERIFY(sandbox::writeFile(cache + QStringLiteral("/inside/note"), "kept\n"));
        StderrCapture err;
        QString reason;
        QVERIFY2(usbqueues::writeDeviceListCache({QStringLiteral("direct usb://A/B")}, &reason),
                 qPrintable(reason));
        QCOMPARE(sandbox::readFile(cache), QByteArray("direct usb://A/B\n"));
        const QStringList aside = leftovers();
        QCOMPARE(aside.size(), 1);
        const QString moved = paths::scratchFolder() + QLatin1Char('/') + aside.first();
        QVERIFY2(aside.first().startsWith(QLatin1String(".lpinfo.log.aside-")), qPrintable(moved));
        QCOMPARE(sandbox::readFile(moved + QStringLiteral("/inside/note")), QByteArray("kept\n"));
        QCOMPARE(err.diagnostics(),
                 QStringList({QStringLiteral("printerconfig: replacing /tmp/.lpinfo.log: a "
                                             "folder, moved aside to ") +
                              moved}));
        removeCacheAndLeftovers();
    }

    void aListLongerThanTheCacheMayHoldKeepsItsFirstLines()
    {
        REQUIRE_SANDBOX();
        removeCacheAndLeftovers();
        // 100 lines of 16 KiB: 64 fit within 1 MiB, with room to spare for no other.
        QStringList lines;
        for (int i = 0; i < 100; ++i)
            lines += QStringLiteral("direct usb://A/B?serial=%1")
                         .arg(i, 16384 - 25, 10, QLatin1Char('0'));
        QCOMPARE(lines.first().size() + 1, 16384);
        StderrCapture err;
        QString reason;
        QVERIFY2(usbqueues::writeDeviceListCache(lines, &reason), qPrintable(reason));
        const QByteArray written = sandbox::readFile(cache);
        QCOMPARE(written.size(), int(deviceListCap));
        QCOMPARE(written, lines.mid(0, 64).join(QLatin1Char('\n')).toUtf8() + '\n');
        QCOMPARE(err.diagnostics(),
                 QStringList({QStringLiteral("printerconfig: leaving 36 of 100 printers out of "
                                             "/tmp/.lpinfo.log: the device list holds 1048576 "
                                             "bytes at most")}));
        removeCacheAndLeftovers();
    }
};

QTEST_GUILESS_MAIN(TestUsbQueues)
#include "tst_usbqueues.moc"
