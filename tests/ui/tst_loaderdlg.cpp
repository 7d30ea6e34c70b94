// The progress dialog shown while the catalogue loads. Writes the device style sheet
// under /tmp, so it runs in the sandbox.

#include "common/paths.h"
#include "ui/loaderdlg.h"

#include "support/messages.h"
#include "support/sandbox.h"
#include "ui/windowchrome.h"

#include <QApplication>
#include <QFile>
#include <QLabel>
#include <QProcess>
#include <QProgressBar>
#include <QScreen>
#include <QStandardPaths>
#include <QTranslator>
#include <QtTest>

#include <memory>

namespace {

const QString styleSheetFile = paths::styleSheet();
const QString picturePath = QStringLiteral(":/zeq-icons/printer/loading.png");
// Set for the copy of this test that runs on a two-screen X server.
const char twoScreens[] = "LOADERDLG_ON_TWO_SCREENS";

QPoint centreOf(const QRect &area, const QSize &size)
{
    return QPoint((area.left() + area.right()) / 2 - (size.width() - 1) / 2,
                  (area.top() + area.bottom()) / 2 - (size.height() - 1) / 2);
}

// Starts Xvfb with two screens of different sizes on a free display; returns the display
// name, or an empty text when no server came up.
QString startTwoScreenServer(QProcess *server)
{
    const QString xvfb = QStandardPaths::findExecutable("Xvfb");
    if (xvfb.isEmpty())
        return QString();
    for (int attempt = 0; attempt < 20; ++attempt) {
        const int display = 400 + (QCoreApplication::applicationPid() + attempt * 7) % 500;
        server->start(xvfb, {QStringLiteral(":%1").arg(display), "-screen", "0", "1280x800x24",
                             "-screen", "1", "1024x768x24", "-nolisten", "tcp"});
        if (!server->waitForStarted(5000))
            return QString();
        const QString socket = QStringLiteral("/tmp/.X11-unix/X%1").arg(display);
        QElapsedTimer timer;
        timer.start();
        while (server->state() == QProcess::Running && timer.elapsed() < 10000) {
            if (QFile::exists(socket))
                return QStringLiteral(":%1").arg(display);
            server->waitForFinished(50);
        }
        server->kill();
        server->waitForFinished(5000);
    }
    return QString();
}

// Answers for the dialog's form context only, to show which context its texts use.
class FormTranslator : public QTranslator
{
public:
    bool isEmpty() const override { return false; }
    QString translate(const char *context, const char *sourceText, const char *, int) const override
    {
        if (qstrcmp(context, "LoaderDialog") == 0 &&
            qstrcmp(sourceText, "Configuring CUPS Printer(s)...") == 0)
            return QStringLiteral("Drucker werden eingerichtet...");
        return QString();
    }
};

} // namespace

class TestLoaderDlg : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void formHasItsThreeWidgetsAtFixedPlaces();
    void labelTextComesFromTheFormTranslationContext();
    void cannotBeResized();
    void isAPlainDialogWindow();
    void showsBusyBarWithoutPercentage();
    void isCentredOnScreenZeroByTheCentreFormula();
    void isCentredOnScreenZeroOfTwoScreens();
    void carriesTitleAndWindowIcon();
    void showsTheLoadingPicture();
    void opensUnstyledWithoutStyleSheetFile();
    void takesStyleSheetAsLatin1UpToFirstNulByte();
};

void TestLoaderDlg::initTestCase()
{
    REQUIRE_SANDBOX();
}

void TestLoaderDlg::init()
{
    sandbox::removePath(styleSheetFile);
}

void TestLoaderDlg::formHasItsThreeWidgetsAtFixedPlaces()
{
    LoaderDlg dlg;
    QCOMPARE(dlg.objectName(), QString("LoaderDialog"));

    QList<QWidget *> widgets;
    for (QObject *child : dlg.children()) {
        if (auto *widget = qobject_cast<QWidget *>(child))
            widgets.append(widget);
    }
    QCOMPARE(widgets.size(), 3);
    QCOMPARE(widgets.at(0)->objectName(), QString("lILoadApp"));
    QCOMPARE(widgets.at(1)->objectName(), QString("lLoadApp"));
    QCOMPARE(widgets.at(2)->objectName(), QString("pbLoadApp"));

    auto *picture = dlg.findChild<QLabel *>("lILoadApp");
    auto *text = dlg.findChild<QLabel *>("lLoadApp");
    auto *bar = dlg.findChild<QProgressBar *>("pbLoadApp");
    QVERIFY(picture && text && bar);
    QCOMPARE(picture->geometry(), QRect(10, 20, 41, 51));
    QCOMPARE(text->geometry(), QRect(60, 20, 241, 20));
    QCOMPARE(bar->geometry(), QRect(60, 50, 241, 23));
    QVERIFY(picture->text().isEmpty());
    QCOMPARE(text->text(), QString("Configuring CUPS Printer(s)..."));
}

void TestLoaderDlg::labelTextComesFromTheFormTranslationContext()
{
    FormTranslator translator;
    QCoreApplication::installTranslator(&translator);
    LoaderDlg dlg;
    QCoreApplication::removeTranslator(&translator);
    QCOMPARE(dlg.findChild<QLabel *>("lLoadApp")->text(),
             QString("Drucker werden eingerichtet..."));
    // The title is the dialog's own text and is not looked up.
    QCOMPARE(dlg.windowTitle(), QString("Printer Configuration"));
}

void TestLoaderDlg::cannotBeResized()
{
    LoaderDlg dlg;
    QCOMPARE(dlg.size(), QSize(320, 90));
    QCOMPARE(dlg.minimumSize(), QSize(320, 90));
    QCOMPARE(dlg.maximumSize(), QSize(320, 90));
    dlg.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dlg));
    dlg.resize(640, 480);
    QCOMPARE(dlg.size(), QSize(320, 90));
    dlg.resize(100, 40);
    QCOMPARE(dlg.size(), QSize(320, 90));
}

void TestLoaderDlg::isAPlainDialogWindow()
{
    LoaderDlg dlg;
    QVERIFY(dlg.parent() == nullptr);
    QVERIFY(dlg.isWindow());
    QCOMPARE(dlg.windowType(), Qt::Dialog);
    // Nothing but the dialog type was asked for: the hints are the ones Qt adds to a
    // bare Qt::Dialog, with no stay-on-top, frameless or tool flags.
    QWidget reference;
    reference.setWindowFlags(Qt::Dialog);
    QCOMPARE(dlg.windowFlags(), reference.windowFlags());
}

void TestLoaderDlg::showsBusyBarWithoutPercentage()
{
    LoaderDlg dlg;
    auto *bar = dlg.findChild<QProgressBar *>("pbLoadApp");
    QVERIFY(bar);
    QCOMPARE(bar->minimum(), 0);
    QCOMPARE(bar->maximum(), 0);
    QCOMPARE(bar->value(), -1);
    // A bar without a range draws the busy animation and has no text to show.
    QVERIFY(bar->text().isEmpty());
}

void TestLoaderDlg::isCentredOnScreenZeroByTheCentreFormula()
{
    const QList<QScreen *> screens = QGuiApplication::screens();
    QVERIFY(!screens.isEmpty());
    const QRect area = screens.first()->availableGeometry();
    LoaderDlg dlg;
    const int w = dlg.width();
    const int h = dlg.height();
    const int x = (area.left() + area.right()) / 2 - (w - 1) / 2;
    const int y = (area.top() + area.bottom()) / 2 - (h - 1) / 2;
    QCOMPARE(dlg.pos(), QPoint(x, y));
    dlg.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dlg));
    QCOMPARE(dlg.pos(), QPoint(x, y));
}

void TestLoaderDlg::isCentredOnScreenZeroOfTwoScreens()
{
    if (qEnvironmentVariableIsSet(twoScreens)) {
        // The copy of this test on the two-screen server.
        const QList<QScreen *> screens = QGuiApplication::screens();
        QCOMPARE(screens.size(), 2);
        LoaderDlg dlg;
        const QPoint expected = centreOf(screens.at(0)->availableGeometry(), dlg.size());
        QVERIFY(expected != centreOf(screens.at(1)->availableGeometry(), dlg.size()));
        QCOMPARE(dlg.pos(), expected);
        return;
    }

    QProcess server;
    const QString display = startTwoScreenServer(&server);
    if (display.isEmpty())
        QSKIP("No Xvfb to provide a second screen; the offscreen platform has only one");

    QProcess copy;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("DISPLAY", display);
    env.insert("QT_QPA_PLATFORM", "xcb");
    env.insert(twoScreens, "1");
    copy.setProcessEnvironment(env);
    copy.setProcessChannelMode(QProcess::MergedChannels);
    copy.start(QCoreApplication::applicationFilePath(), {"isCentredOnScreenZeroOfTwoScreens"});
    const bool finished = copy.waitForFinished(120000);
    const QByteArray output = copy.readAll();
    server.terminate();
    server.waitForFinished(5000);
    QVERIFY2(finished, output.constData());
    QVERIFY2(copy.exitStatus() == QProcess::NormalExit && copy.exitCode() == 0, output.constData());
    // The copy really ran the placement check rather than skipping it.
    QVERIFY2(output.contains("PASS   : TestLoaderDlg::isCentredOnScreenZeroOfTwoScreens()"),
             output.constData());
}

void TestLoaderDlg::carriesTitleAndWindowIcon()
{
    LoaderDlg dlg;
    QCOMPARE(dlg.windowTitle(), QString("Printer Configuration"));
    if (!QFile::exists(windowchrome::windowIconPath()))
        QSKIP("The icon set is not compiled into this build; only the title is checked");
    const QImage expected = QIcon(windowchrome::windowIconPath()).pixmap(32, 32).toImage();
    QVERIFY(!expected.isNull());
    QCOMPARE(dlg.windowIcon().pixmap(32, 32).toImage(), expected);
}

void TestLoaderDlg::showsTheLoadingPicture()
{
    LoaderDlg dlg;
    auto *picture = dlg.findChild<QLabel *>("lILoadApp");
    QVERIFY(picture);
    if (!QFile::exists(picturePath))
        QSKIP("The icon set is not compiled into this build, so there is no picture to show");
    const QPixmap shown = picture->pixmap(Qt::ReturnByValue);
    QVERIFY(!shown.isNull());
    QCOMPARE(shown.toImage(), QPixmap(picturePath).toImage());
}

void TestLoaderDlg::opensUnstyledWithoutStyleSheetFile()
{
    QVERIFY(!QFile::exists(styleSheetFile));
    QStringList messages;
    std::unique_ptr<LoaderDlg> made;
    {
        MessageCapture capture;
        made.reset(new LoaderDlg);
        messages = capture.messages();
    }
    LoaderDlg &dlg = *made;
    QVERIFY(dlg.styleSheet().isEmpty());
    QVERIFY2(messages.isEmpty(), qPrintable(messages.join('\n')));
    dlg.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dlg));
    QVERIFY(dlg.isVisible());
    dlg.close();
    QVERIFY(!dlg.isVisible());
}

void TestLoaderDlg::takesStyleSheetAsLatin1UpToFirstNulByte()
{
    const QByteArray before = "QDialog { background: #123456; } /* caf\xe9 */";
    QByteArray bytes = before;
    bytes.append('\0');
    bytes.append("QLabel { color: red; }");
    QVERIFY(sandbox::writeFile(styleSheetFile, bytes));

    LoaderDlg dlg;
    QCOMPARE(dlg.styleSheet(), QString::fromLatin1(before));
    QVERIFY(dlg.styleSheet().contains(QChar(0xe9)));
    QVERIFY(!dlg.styleSheet().contains("QLabel"));
}

QTEST_MAIN(TestLoaderDlg)
#include "tst_loaderdlg.moc"
