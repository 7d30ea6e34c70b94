#include "printer/device.h"

#include <QtTest>

// What "lpinfo -v" says about a USB printer comes from the device itself. Its address is
// later placed inside a single-quoted shell word and on a line of printers.conf: the scan
// hands on the first "direct usb" address as it is, and every place that uses an address
// asks first whether it is safe there (isSafeDeviceUri for the command,
// fitsOnPrintersConfLine for the file).
class TestHostileDevice : public QObject
{
    Q_OBJECT

private slots:
    void addressThatCouldLeaveItsQuotesOrLineIsUnsafe_data()
    {
        QTest::addColumn<QString>("uri");
        QTest::newRow("quote") << QStringLiteral("usb://Evil'Maker/X");
        QTest::newRow("quote alone") << QStringLiteral("'");
        QTest::newRow("tab") << QStringLiteral("usb://A\tB");
        QTest::newRow("carriage return") << QStringLiteral("usb://A\rDeviceURI x");
        QTest::newRow("line feed") << QStringLiteral("usb://A\nDeviceURI x");
        QTest::newRow("escape") << QStringLiteral("usb://A\x1b[2J");
        QTest::newRow("nul") << QStringLiteral("usb://A") + QChar(0) + QLatin1Char('B');
        QTest::newRow("delete") << QStringLiteral("usb://A\x7f");
        QTest::newRow("C1 next line U+0085")
            << QStringLiteral("usb://A") + QChar(0x85) + QLatin1Char('B');
        QTest::newRow("C1 control sequence introducer U+009B")
            << QStringLiteral("usb://A") + QChar(0x9b) + QStringLiteral("2J");
        QTest::newRow("control character first") << QStringLiteral("\x01usb://A");
    }
    void addressThatCouldLeaveItsQuotesOrLineIsUnsafe()
    {
        QFETCH(QString, uri);
        QVERIFY(!isSafeDeviceUri(uri));
    }

    void ordinaryAddressesAreSafe_data()
    {
        QTest::addColumn<QString>("uri");
        QTest::newRow("plain") << QStringLiteral("usb://EPSON/TM-T88V?serial=123");
        QTest::newRow("blank") << QStringLiteral("usb://HP/LaserJet P1005");
        QTest::newRow("no-break space")
            << QStringLiteral("usb://HP/LaserJet") + QChar(0xa0) + QStringLiteral("P1005");
        QTest::newRow("percent-escapes")
            << QStringLiteral("usb://HP/LaserJet%20P1005?serial=AB%27%0A12");
        QTest::newRow("ampersand and query")
            << QStringLiteral("usb://HP/LaserJet?serial=AB12&interface=1");
        QTest::newRow("double quote and dollar") << QStringLiteral("usb://A/\"$HOME\"");
        QTest::newRow("non-ASCII letters")
            << QStringLiteral("usb://B\u00fcrodrucker/\u00c9tiquette-\u65e5\u672c");
        QTest::newRow("fallback device") << QStringLiteral("usb:/dev/usb/lp0");
        QTest::newRow("empty") << QString();
    }
    void ordinaryAddressesAreSafe()
    {
        QFETCH(QString, uri);
        QVERIFY(isSafeDeviceUri(uri));
    }

    void addressThatWouldBreakAPrintersConfLineDoesNotFit_data()
    {
        QTest::addColumn<QString>("uri");
        QTest::newRow("carriage return") << QStringLiteral("usb://A\rDeviceURI x");
        QTest::newRow("line feed") << QStringLiteral("usb://A\nDeviceURI x");
        QTest::newRow("nul") << QStringLiteral("usb://A") + QChar(0) + QLatin1Char('B');
        QTest::newRow("tab") << QStringLiteral("usb://A\tB");
        QTest::newRow("escape") << QStringLiteral("usb://A\x1b[2J");
        QTest::newRow("unit separator") << QStringLiteral("usb://A\x1f");
        QTest::newRow("delete") << QStringLiteral("usb://A\x7f");
        QTest::newRow("control character first") << QStringLiteral("\x01usb://A");
    }
    void addressThatWouldBreakAPrintersConfLineDoesNotFit()
    {
        QFETCH(QString, uri);
        QVERIFY(!fitsOnPrintersConfLine(uri));
    }

    void quoteAndC1CharactersFitOnAPrintersConfLine_data()
    {
        QTest::addColumn<QString>("uri");
        QTest::newRow("quote") << QStringLiteral("usb://Evil'Maker/X");
        QTest::newRow("shell words") << QStringLiteral("usb://A/X'; rm -rf /tmp/x; echo '");
        QTest::newRow("C1 next line U+0085")
            << QStringLiteral("usb://A") + QChar(0x85) + QLatin1Char('B');
        QTest::newRow("C1 control sequence introducer U+009B")
            << QStringLiteral("usb://A") + QChar(0x9b) + QStringLiteral("2J");
        QTest::newRow("plain") << QStringLiteral("usb://EPSON/TM-T88V?serial=123");
        QTest::newRow("blank") << QStringLiteral("usb://HP/LaserJet P1005");
        QTest::newRow("empty") << QString();
    }
    void quoteAndC1CharactersFitOnAPrintersConfLine()
    {
        QFETCH(QString, uri);
        QVERIFY(fitsOnPrintersConfLine(uri));
        // In a command the same address would still be refused when it has a quote or C1.
        const bool quoteOrC1 = uri.contains(QLatin1Char('\'')) || uri.contains(QChar(0x85)) ||
                               uri.contains(QChar(0x9b));
        QCOMPARE(isSafeDeviceUri(uri), !quoteOrC1);
    }

    void usbAddressIsRecognisedByItsScheme_data()
    {
        QTest::addColumn<QString>("uri");
        QTest::addColumn<bool>("usb");
        QTest::newRow("usb device") << QStringLiteral("usb://EPSON/TM-T88V?serial=1") << true;
        QTest::newRow("fallback device") << QStringLiteral("usb:/dev/usb/lp0") << true;
        QTest::newRow("socket") << QStringLiteral("socket://host:9100") << false;
        QTest::newRow("socket to a gateway named usb")
            << QStringLiteral("socket://usbprint-gw:9100") << false;
        QTest::newRow("lpd") << QStringLiteral("lpd://host/usb") << false;
        QTest::newRow("empty") << QString() << false;
    }
    void usbAddressIsRecognisedByItsScheme()
    {
        QFETCH(QString, uri);
        QFETCH(bool, usb);
        QCOMPARE(isUsbDeviceUri(uri), usb);
    }

    void firstDirectUsbLineIsTakenAsItIsEvenWhenUnsafe_data()
    {
        QTest::addColumn<QString>("list");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<bool>("safe");
        QTest::newRow("quote before a safe device")
            << QStringLiteral("network socket\n"
                              "direct usb://Evil/X'; rm -rf /tmp/x; echo '\n"
                              "direct usb://Good/Printer?serial=1\n")
            << QStringLiteral("usb://Evil/X'; rm -rf /tmp/x; echo '") << false;
        QTest::newRow("escape sequence")
            << QStringLiteral("direct usb://A\x1b[2J\ndirect usb://B\n")
            << QStringLiteral("usb://A\x1b[2J") << false;
        QTest::newRow("tab") << QStringLiteral("direct usb://A\tB\n")
                             << QStringLiteral("usb://A\tB") << false;
        QTest::newRow("lone carriage return inside the line")
            << QStringLiteral("direct usb://A\rDeviceURI x\n")
            << QStringLiteral("usb://A\rDeviceURI x") << false;
        QTest::newRow("C1 character")
            << QStringLiteral("direct usb://A") + QChar(0x9b) + QStringLiteral("2J\n")
            << QStringLiteral("usb://A") + QChar(0x9b) + QStringLiteral("2J") << false;
        QTest::newRow("blank") << QStringLiteral("direct usb://A B\n")
                               << QStringLiteral("usb://A B") << true;
        QTest::newRow("safe and first")
            << QStringLiteral("direct usb://HP/LaserJet%20P1005?serial=AB12&interface=1\n"
                              "direct usb://Evil'\n")
            << QStringLiteral("usb://HP/LaserJet%20P1005?serial=AB12&interface=1") << true;
    }
    void firstDirectUsbLineIsTakenAsItIsEvenWhenUnsafe()
    {
        QFETCH(QString, list);
        QFETCH(QString, expected);
        QFETCH(bool, safe);
        const QString device = firstDirectUsbDevice(list);
        QCOMPARE(device, expected);
        // The refusal happens where the address would be used.
        QCOMPARE(isSafeDeviceUri(device), safe);
    }
};

QTEST_GUILESS_MAIN(TestHostileDevice)
#include "tst_hostile_device.moc"
