#include <zeq/propertyformat.h>

#include <QtTest>

using PersistentProperties = zeq::PropertySet;
namespace fmt = zeq::propertyformat;

class TestPropertyFormat : public QObject
{
    Q_OBJECT

private:
    static QString roundTrip(const QString &value)
    {
        PersistentProperties out(PersistentProperties::Write);
        QString v = value;
        out.AccessString(QStringLiteral("key"), v, QString());
        PersistentProperties in(PersistentProperties::Read);
        fmt::parse(fmt::serialize(out), in);
        QString read = QStringLiteral("<unset>");
        in.AccessString(QStringLiteral("key"), read, QStringLiteral("<default>"));
        return read;
    }

private slots:
    void roundTripsAnyText_data()
    {
        QTest::addColumn<QString>("value");
        QTest::newRow("empty") << QString();
        QTest::newRow("spaces") << QStringLiteral("  Office Laser 2  ");
        QTest::newRow("equals") << QStringLiteral("a=b==c=");
        QTest::newRow("percent") << QStringLiteral("%1 %2 100%");
        QTest::newRow("quotes") << QStringLiteral("'single' \"double\"");
        QTest::newRow("newlines") << QStringLiteral("line1\nline2\r\nline3\n");
        QTest::newRow("backslashes") << QStringLiteral("C:\\temp\\n \\u0041 \\");
        QTest::newRow("hash at start") << QStringLiteral("# not a comment");
        QTest::newRow("non-ascii") << QStringLiteral("Drucker Büro – 東京 🖨");
        QTest::newRow("control chars") << QString::fromUtf16(u"a\tb\x01"
                                                             "c\x7f"
                                                             "d");
        QTest::newRow("nul char") << QString(QChar(0)) + QStringLiteral("x");
        QTest::newRow("lone surrogate")
            << QString(QChar(0xd800)) + QStringLiteral("x") + QChar(0xdc00);
    }
    void roundTripsAnyText()
    {
        QFETCH(QString, value);
        QCOMPARE(roundTrip(value), value);
    }

    void writesOneKeyValueLinePerPropertyInCallOrder()
    {
        PersistentProperties out(PersistentProperties::Write);
        QString name = QStringLiteral("Office");
        QString uri = QStringLiteral("socket://h:9100");
        bool flag = true;
        out.AccessString(QStringLiteral("name"), name, QString());
        out.AccessString(QStringLiteral("device_uri"), uri, QString());
        out.AccessBoolean(QStringLiteral("default_vdi_printer"), flag, false);
        QCOMPARE(fmt::serialize(out),
                 QByteArray("name=Office\ndevice_uri=socket://h:9100\ndefault_vdi_printer=true\n"));
    }

    void keysContainingEqualsSignsRoundTrip()
    {
        PersistentProperties out(PersistentProperties::Write);
        QString v = QStringLiteral("x=y");
        out.AccessString(QStringLiteral("a=b"), v, QString());
        PersistentProperties in(PersistentProperties::Read);
        fmt::parse(fmt::serialize(out), in);
        QVERIFY(in.containsRaw(QStringLiteral("a=b")));
        QCOMPARE(in.raw(QStringLiteral("a=b")), QStringLiteral("x=y"));
    }

    void booleansRoundTripAndUnknownTextGivesDefault()
    {
        for (bool value : {true, false}) {
            PersistentProperties out(PersistentProperties::Write);
            bool v = value;
            out.AccessBoolean(QStringLiteral("flag"), v, !value);
            PersistentProperties in(PersistentProperties::Read);
            fmt::parse(fmt::serialize(out), in);
            bool read = !value;
            in.AccessBoolean(QStringLiteral("flag"), read, !value);
            QCOMPARE(read, value);
        }
        PersistentProperties in(PersistentProperties::Read);
        fmt::parse("flag=maybe\n", in);
        bool read = false;
        in.AccessBoolean(QStringLiteral("flag"), read, true);
        QCOMPARE(read, true);
    }

    void missingKeysYieldTheGivenDefaults()
    {
        PersistentProperties in(PersistentProperties::Read);
        fmt::parse("other=1\n", in);
        QString s = QStringLiteral("before");
        bool b = true;
        in.AccessString(QStringLiteral("name"), s, QStringLiteral("fallback"));
        in.AccessBoolean(QStringLiteral("flag"), b, false);
        QCOMPARE(s, QStringLiteral("fallback"));
        QCOMPARE(b, false);
    }

    void skipsCommentsBlankAndMalformedLines()
    {
        PersistentProperties in(PersistentProperties::Read);
        fmt::parse("# comment\n\nno separator here\n=value without key\nname=ok\r\n", in);
        QCOMPARE(in.keys(), QStringList{QStringLiteral("name")});
        // "\r\n" ends a line as "\n" does; the CR does not belong to the value.
        QCOMPARE(in.raw(QStringLiteral("name")), QStringLiteral("ok"));
    }

    void garbageInputNeverCrashes()
    {
        QByteArray garbage;
        quint32 x = 12345;
        for (int i = 0; i < 200000; ++i) {
            x = x * 1103515245u + 12345u;
            garbage.append(char(x >> 24));
        }
        PersistentProperties in(PersistentProperties::Read);
        fmt::parse(garbage, in);
        QString s;
        in.AccessString(QStringLiteral("name"), s, QStringLiteral("d"));
        QVERIFY(!s.isNull());
    }

    void lastDuplicateKeyWins()
    {
        PersistentProperties in(PersistentProperties::Read);
        fmt::parse("name=first\nname=second\n", in);
        QCOMPARE(in.raw(QStringLiteral("name")), QStringLiteral("second"));
    }
};

QTEST_GUILESS_MAIN(TestPropertyFormat)
#include "tst_propertyformat.moc"
