// The USB printers attached now, read from the usb backend as the boot and hot-plug units
// read them: which lines count, and a backend that is missing, foreign, slow or endless.
#include "common/paths.h"
#include "discovery/usbdevices.h"
#include "support/sandbox.h"
#include "support/stderrcapture.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTest>

#include <sys/stat.h>

namespace {

const QString backend = paths::backendFolder() + QStringLiteral("/usb");

// The usb backend as a shell script of ours, root's and mode 0755 unless told otherwise.
bool installBackend(const QByteArray &script, int mode = 0755)
{
    return sandbox::writeFile(backend, "#!/bin/sh\n" + script) &&
           ::chmod(QFile::encodeName(backend).constData(), mode_t(mode)) == 0;
}

// Runs usbdevices::list, which must fail with a reason that holds expected and leave no
// lines; *elapsedMs is how long it took. Checks with QVERIFY: a caller goes on only when
// QTest::currentTestFailed() is false.
void listFails(const QString &expected, qint64 *elapsedMs = nullptr)
{
    QElapsedTimer clock;
    clock.start();
    QStringList lines;
    QString reason;
    QVERIFY(!usbdevices::list(&lines, &reason));
    if (elapsedMs)
        *elapsedMs = clock.elapsed();
    QVERIFY2(reason.contains(expected), qPrintable(reason));
    QCOMPARE(lines, QStringList());
}

} // namespace

class TestUsbDevices : public QObject
{
    Q_OBJECT

private slots:
    void init() { sandbox::removePath(backend); }

    void directUsbLinesAreKeptInTheBackendsOrderAsLpinfoPrintsThem()
    {
        const QByteArray output =
            "direct usb://Acme/Label?serial=42 \"Acme Label\" \"Acme Label USB\" \"MFG:Acme;\" "
            "\"\"\n"
            "network socket://10.0.0.5 \"Unknown\" \"Office\"\n"
            "direct usb://EPSON/TM-T88V?serial=123 \"EPSON TM-T88V\" \"EPSON TM-T88V\"\n";
        QCOMPARE(usbdevices::directUsbLines(output),
                 QStringList({QStringLiteral("direct usb://Acme/Label?serial=42"),
                              QStringLiteral("direct usb://EPSON/TM-T88V?serial=123")}));
    }

    void linesThatAreNotWholeDirectUsbDeviceLinesAreLeftOut_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("leading blank") << QByteArray(" direct usb://A/B \"A B\" \"\"");
        QTest::newRow("other text first") << QByteArray("x direct usb://A/B \"A B\" \"\"");
        QTest::newRow("another class") << QByteArray("network usb://A/B \"A B\" \"\"");
        QTest::newRow("another scheme") << QByteArray("direct usbx://A/B \"A B\" \"\"");
        QTest::newRow("no make and model") << QByteArray("direct usb://A/B");
        QTest::newRow("unclosed make and model") << QByteArray("direct usb://A/B \"A B");
        QTest::newRow("escape character") << QByteArray("direct usb://A/\x1b[2J \"A B\" \"\"");
        QTest::newRow("behind a zero byte") << QByteArray("\0direct usb://A/B \"A B\" \"\"", 27);
    }
    void linesThatAreNotWholeDirectUsbDeviceLinesAreLeftOut()
    {
        QFETCH(QByteArray, line);
        QCOMPARE(usbdevices::directUsbLines(line + '\n'), QStringList());
    }

    void theBackendIsRunWithoutArguments()
    {
        REQUIRE_SANDBOX();
        QVERIFY(installBackend(
            "[ $# = 0 ] || exit 3\n"
            "echo 'DEBUG: this goes to standard error' >&2\n"
            "echo 'direct usb://Acme/Label?serial=42 \"Acme Label\" \"Label\" \"\" \"\"'\n"));
        QStringList lines;
        QString reason;
        QVERIFY2(usbdevices::list(&lines, &reason), qPrintable(reason));
        QCOMPARE(lines, QStringList{QStringLiteral("direct usb://Acme/Label?serial=42")});
    }

    void noPrinterAttachedGivesAnEmptyList()
    {
        REQUIRE_SANDBOX();
        QVERIFY(installBackend("exit 0\n"));
        QStringList lines{QStringLiteral("stale")};
        QString reason;
        QVERIFY2(usbdevices::list(&lines, &reason), qPrintable(reason));
        QCOMPARE(lines, QStringList());
    }

    void aMissingFailingOrForeignBackendGivesNoList_data()
    {
        QTest::addColumn<QByteArray>("script"); // empty: no backend at all
        QTest::addColumn<int>("mode");
        QTest::addColumn<QString>("reason");
        QTest::newRow("missing") << QByteArray() << 0 << QStringLiteral("is missing");
        QTest::newRow("fails") << QByteArray("exit 1\n") << 0755 << QStringLiteral("failed");
        QTest::newRow("group may change it")
            << QByteArray("exit 0\n") << 0775 << QStringLiteral("only root may change");
        QTest::newRow("anyone may change it")
            << QByteArray("exit 0\n") << 0757 << QStringLiteral("only root may change");
    }
    void aMissingFailingOrForeignBackendGivesNoList()
    {
        REQUIRE_SANDBOX();
        QFETCH(QByteArray, script);
        QFETCH(int, mode);
        QFETCH(QString, reason);
        if (!script.isEmpty())
            QVERIFY(installBackend(script, mode));
        listFails(reason);
    }

    void aBackendThatNeverEndsIsKilledAfterItsTime()
    {
        REQUIRE_SANDBOX();
        QVERIFY(installBackend("echo 'direct usb://A/B \"A B\" \"\"'\nexec sleep 600\n"));
        qint64 elapsedMs = -1;
        listFails(QStringLiteral("did not end"), &elapsedMs);
        if (QTest::currentTestFailed())
            return;
        QVERIFY(elapsedMs >= usbdevices::listTimeoutMs);
        QVERIFY(elapsedMs < usbdevices::listTimeoutMs + 5000);
    }

    void aBackendThatPrintsWithoutEndIsCutOff()
    {
        REQUIRE_SANDBOX();
        QVERIFY(installBackend("exec yes 'direct usb://A/B \"A B\" \"\"'\n"));
        StderrCapture quiet;
        qint64 elapsedMs = -1;
        listFails(QStringLiteral("more than allowed"), &elapsedMs);
        if (QTest::currentTestFailed())
            return;
        QVERIFY(elapsedMs < usbdevices::listTimeoutMs);
    }
};

QTEST_GUILESS_MAIN(TestUsbDevices)
#include "tst_usbdevices.moc"
