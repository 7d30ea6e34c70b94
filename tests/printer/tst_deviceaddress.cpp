#include "printer/deviceaddress.h"

#include <QtTest>

Q_DECLARE_METATYPE(DeviceAddress::Kind)

// Device addresses turned into connection fields and back, without a window.
class TestDeviceAddress : public QObject
{
    Q_OBJECT

    // An address and the fields it gives, a row each.
    static void addAddressColumns()
    {
        QTest::addColumn<QString>("uri");
        QTest::addColumn<DeviceAddress::Kind>("kind");
        QTest::addColumn<QString>("host");
        QTest::addColumn<QString>("queue");
        QTest::addColumn<int>("port");
    }

    static void compareWithRow(DeviceAddress (*parse)(const QString &))
    {
        QFETCH(QString, uri);
        QFETCH(DeviceAddress::Kind, kind);
        QFETCH(QString, host);
        QFETCH(QString, queue);
        QFETCH(int, port);
        const DeviceAddress address = parse(uri);
        QCOMPARE(address.kind, kind);
        QCOMPARE(address.host, host);
        QCOMPARE(address.queue, queue);
        QCOMPARE(address.port, port);
    }

private slots:
    void storedAddressIsCutAtFixedPlaces_data()
    {
        addAddressColumns();
        QTest::newRow("empty") << "" << DeviceAddress::Usb << ""
                               << "" << 0;
        QTest::newRow("usb") << "usb://EPSON/TM?serial=1" << DeviceAddress::Usb << ""
                             << "" << 0;
        QTest::newRow("lpd") << "lpd://server/queue1" << DeviceAddress::Lpd << "server"
                             << "queue1" << 0;
        // Without a queue the last "/" is the scheme's: the host runs to the end and the
        // queue is the host again.
        QTest::newRow("lpd without queue") << "lpd://server" << DeviceAddress::Lpd << "server"
                                           << "server" << 0;
        QTest::newRow("lpd with a path") << "lpd://host/a/b" << DeviceAddress::Lpd << "host/a"
                                         << "b" << 0;
        QTest::newRow("socket") << "socket://10.0.0.5:9101" << DeviceAddress::Socket << "10.0.0.5"
                                << "" << 9101;
        // Without a port the last ":" is the scheme's: the whole rest is the host and
        // the port is not a number.
        QTest::newRow("socket without port")
            << "socket://printer" << DeviceAddress::Socket << "printer"
            << "" << 0;
        QTest::newRow("lpd-like scheme") << "lpdx:/h/q" << DeviceAddress::Lpd << "h"
                                         << "q" << 0;
        QTest::newRow("ipp") << "ipp://host/printers/a" << DeviceAddress::Other << ""
                             << "" << 0;
    }

    void storedAddressIsCutAtFixedPlaces() { compareWithRow(DeviceAddress::fromStored); }

    void addressReadAsUrlDecodesItsParts_data()
    {
        addAddressColumns();
        QTest::newRow("socket") << "socket://10.1.2.3:9200" << DeviceAddress::Socket << "10.1.2.3"
                                << "" << 9200;
        QTest::newRow("socket without port")
            << "socket://printer" << DeviceAddress::Socket << "printer"
            << "" << 9100;
        QTest::newRow("lpd") << "lpd://srv/q%201" << DeviceAddress::Lpd << "srv"
                             << "q 1" << 0;
        QTest::newRow("usb") << "usb://EPSON/TM" << DeviceAddress::Usb << ""
                             << "" << 0;
        QTest::newRow("other scheme") << "ipp://host/q" << DeviceAddress::Usb << ""
                                      << "" << 0;
        QTest::newRow("empty") << "" << DeviceAddress::Usb << ""
                               << "" << 0;
    }

    void addressReadAsUrlDecodesItsParts() { compareWithRow(DeviceAddress::fromUrl); }

    void fieldsBuildTheAddressAsTheyAre()
    {
        QCOMPARE(DeviceAddress::socket(QStringLiteral("10.0.0.5"), 9100).uri(),
                 QStringLiteral("socket://10.0.0.5:9100"));
        QCOMPARE(DeviceAddress::socket(QString(), 9100).uri(), QStringLiteral("socket://:9100"));
        QCOMPARE(DeviceAddress::lpd(QStringLiteral("server"), QStringLiteral("lp")).uri(),
                 QStringLiteral("lpd://server/lp"));
        QCOMPARE(DeviceAddress::lpd(QString(), QStringLiteral("lp")).uri(),
                 QStringLiteral("lpd:///lp"));
        // Typed text goes through untouched, quotes included.
        QCOMPARE(DeviceAddress::lpd(QStringLiteral("h'x"), QStringLiteral("q 1")).uri(),
                 QStringLiteral("lpd://h'x/q 1"));
        QCOMPARE(DeviceAddress::fromStored(QStringLiteral("usb://A/B")).uri(), QString());
    }

    void storedLpdAndSocketAddressesComeBackUnchanged()
    {
        for (const char *uri : {"lpd://server/queue1", "socket://10.0.0.6:9101"})
            QCOMPARE(DeviceAddress::fromStored(QLatin1String(uri)).uri(), QLatin1String(uri));
    }

    void connectionTypeNamesTheKind()
    {
        QCOMPARE(DeviceAddress::kindOfConnectionType(QStringLiteral("socket: ")),
                 DeviceAddress::Socket);
        QCOMPARE(DeviceAddress::kindOfConnectionType(QStringLiteral("lpd: ")), DeviceAddress::Lpd);
        QCOMPARE(DeviceAddress::kindOfConnectionType(QStringLiteral("usb: ")), DeviceAddress::Usb);
        QCOMPARE(DeviceAddress::kindOfConnectionType(QString()), DeviceAddress::Usb);
        QVERIFY(DeviceAddress::isNetwork(DeviceAddress::Lpd));
        QVERIFY(DeviceAddress::isNetwork(DeviceAddress::Socket));
        QVERIFY(!DeviceAddress::isNetwork(DeviceAddress::Usb));
        QVERIFY(!DeviceAddress::isNetwork(DeviceAddress::Other));
    }
};

QTEST_GUILESS_MAIN(TestDeviceAddress)
#include "tst_deviceaddress.moc"
