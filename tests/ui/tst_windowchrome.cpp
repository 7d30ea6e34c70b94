#include "ui/windowchrome.h"

#include "support/messages.h"
#include "support/sandbox.h"

#include <QWidget>
#include <QtTest>

class TestWindowChrome : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { REQUIRE_SANDBOX(); }

    void centresTheMainWindowAt740And351OnAFullHdArea()
    {
        QCOMPARE(windowchrome::centredTopLeft(QRect(0, 0, 1920, 1080), QSize(439, 377)),
                 QPoint(740, 351));
    }

    void centringUsesTheAreasOwnOffset()
    {
        // A second screen to the right, with a panel on top: the area starts at (1920, 32).
        QCOMPARE(windowchrome::centredTopLeft(QRect(1920, 32, 1280, 992), QSize(320, 90)),
                 QPoint(1920 + 639 - 159, 32 + 495 - 44));
    }

    void centringMatchesTheInclusiveEdgeFormula_data()
    {
        QTest::addColumn<QRect>("area");
        QTest::addColumn<QSize>("size");
        QTest::newRow("wizard") << QRect(0, 0, 1024, 768) << QSize(481, 494);
        QTest::newRow("loader") << QRect(0, 0, 800, 600) << QSize(320, 90);
        QTest::newRow("odd sizes") << QRect(3, 7, 1001, 777) << QSize(438, 376);
        QTest::newRow("window larger than area") << QRect(0, 0, 300, 200) << QSize(439, 377);
        QTest::newRow("negative origin") << QRect(-1280, -10, 1280, 1024) << QSize(439, 377);
    }
    void centringMatchesTheInclusiveEdgeFormula()
    {
        QFETCH(QRect, area);
        QFETCH(QSize, size);
        // x = (L + R) / 2 - (W - 1) / 2 with R = L + width - 1, truncating divisions.
        const int L = area.left(), R = area.left() + area.width() - 1;
        const int T = area.top(), B = area.top() + area.height() - 1;
        const QPoint expected((L + R) / 2 - (size.width() - 1) / 2,
                              (T + B) / 2 - (size.height() - 1) / 2);
        QCOMPARE(windowchrome::centredTopLeft(area, size), expected);
    }

    void centerOnScreenMovesTheWindowToScreen0sMiddle()
    {
        QWidget w;
        w.resize(439, 377);
        windowchrome::centerOnScreen(&w);
        QCOMPARE(w.pos(), windowchrome::centredTopLeft(windowchrome::availableGeometryOfScreen0(),
                                                       w.size()));
    }

    void styleSheetStopsAtTheFirstNulByte()
    {
        QCOMPARE(windowchrome::styleSheetFromBytes(QByteArray("QWidget{color:red}\0junk", 23)),
                 QStringLiteral("QWidget{color:red}"));
        QCOMPARE(windowchrome::styleSheetFromBytes(QByteArray("\xe9t\xe9")), QStringLiteral("été"));
    }

    void missingStyleSheetGivesEmptyText()
    {
        sandbox::removePath(windowchrome::styleSheetPath());
        QStringList messages;
        QString sheet;
        {
            MessageCapture capture;
            sheet = windowchrome::loadStyleSheet();
            messages = capture.messages();
        }
        QCOMPARE(sheet, QString());
        QCOMPARE(messages, QStringList()); // not even a warning on the debug stream
    }

    void styleSheetIsReadFromTheDeviceFile()
    {
        QVERIFY(sandbox::writeFile(windowchrome::styleSheetPath(), QByteArray("QLabel{}\0x", 10)));
        QCOMPARE(windowchrome::loadStyleSheet(), QStringLiteral("QLabel{}"));
        sandbox::removePath(windowchrome::styleSheetPath());
    }
};

QTEST_MAIN(TestWindowChrome)
#include "tst_windowchrome.moc"
