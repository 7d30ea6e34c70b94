// The program as a screen reader user meets it: started on an X display of its own with
// Qt's accessibility bridge on, beside the AT-SPI bus of at-spi2-core, and driven by
// screenreader.py, which presses keys only (xdotool) and reads what the bridge tells a
// reader (pyatspi): it adds a printer, chooses it with the arrow keys, prints a test
// page, makes it the default, edits it, is refused a name with a blank, deletes it and
// closes the window, counting in every window the controls that take the focus and
// those without a name.
#include "support/sandbox.h"

#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QtTest>

#include <algorithm>

#include <xcb/xcb.h>

namespace {

const QString python = QStringLiteral("/usr/bin/python3"); // Debian's, which has pyatspi
const QString busLauncher = QStringLiteral("/usr/libexec/at-spi-bus-launcher");

// Everything a run starts, stopped in the reverse order.
struct Session
{
    QString home;
    QProcessEnvironment env;
    QProcess display;
    QProcess sessionBus;
    QProcess accessibilityBus;
    xcb_connection_t *x = nullptr;

    ~Session()
    {
        for (QProcess *process : {&accessibilityBus, &sessionBus}) {
            process->terminate();
            if (!process->waitForFinished(5000))
                process->kill();
        }
        if (x)
            xcb_disconnect(x);
        display.kill();
        display.waitForFinished();
    }
};

// The first line a process prints, within the time.
QByteArray firstLine(QProcess *process, int timeoutMs)
{
    QElapsedTimer clock;
    clock.start();
    while (!process->canReadLine() && clock.elapsed() < timeoutMs &&
           process->state() != QProcess::NotRunning)
        process->waitForReadyRead(100);
    return process->canReadLine() ? process->readLine().trimmed() : QByteArray();
}

// Puts the accessibility bus's address on the root window, where a desktop session
// leaves it and where Qt's bridge looks first. Found there, the bridge joins the bus
// before the program's first window appears; through the session bus it would ask
// for the address, and Qt 5 registers the program before the answer comes.
bool announceBus(xcb_connection_t *x, const QByteArray &address)
{
    xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(x)).data;
    const char name[] = "AT_SPI_BUS";
    xcb_intern_atom_reply_t *atom =
        xcb_intern_atom_reply(x, xcb_intern_atom(x, 0, sizeof name - 1, name), nullptr);
    if (!atom)
        return false;
    xcb_change_property(x, XCB_PROP_MODE_REPLACE, screen->root, atom->atom, XCB_ATOM_STRING, 8,
                        uint32_t(address.size()), address.constData());
    free(atom);
    return xcb_flush(x) > 0;
}

QString missingTool()
{
    for (const char *tool : {"Xvfb", "xdotool", "dbus-daemon"}) {
        if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty())
            return QString::fromLatin1(tool);
    }
    if (!QFileInfo(busLauncher).isExecutable())
        return busLauncher + QStringLiteral(" (at-spi2-core)");
    QProcess probe;
    probe.start(python, {QStringLiteral("-c"), QStringLiteral("import pyatspi")});
    if (!probe.waitForFinished(30000) || probe.exitCode() != 0)
        return QStringLiteral("pyatspi (python3-pyatspi)");
    return QString();
}

// Starts the display, the session bus and the accessibility bus, each run with a home
// and runtime folder of its own: the bus launcher keeps its socket there, and one left
// behind by a launcher that was killed would keep the program off the bus.
bool startSession(Session *session, QString *why)
{
    session->home = QStringLiteral("/tmp/screenreader-home");
    sandbox::removePath(session->home);
    const QString runtime = session->home + QStringLiteral("/run");
    if (!QDir().mkpath(runtime) ||
        !QFile::setPermissions(runtime, QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                            QFileDevice::ExeOwner)) {
        *why = QStringLiteral("cannot make ") + runtime;
        return false;
    }
    session->env = QProcessEnvironment::systemEnvironment();
    for (const char *name : {"WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "AT_SPI_BUS_ADDRESS",
                             "QT_QPA_PLATFORM", "QT_LINUX_ACCESSIBILITY_ALWAYS_ON"})
        session->env.remove(QString::fromLatin1(name));
    session->env.insert(QStringLiteral("HOME"), session->home);
    session->env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);

    // -noreset: the server keeps the bus address when its last client goes.
    session->display.start(QStringLiteral("Xvfb"),
                           {QStringLiteral("-displayfd"), QStringLiteral("1"),
                            QStringLiteral("-nolisten"), QStringLiteral("tcp"),
                            QStringLiteral("-noreset"), QStringLiteral("-screen"),
                            QStringLiteral("0"), QStringLiteral("1024x768x24")});
    const QByteArray number = firstLine(&session->display, 20000);
    if (number.isEmpty()) {
        *why = QStringLiteral("Xvfb did not start");
        return false;
    }
    const QString display = QLatin1Char(':') + QString::fromLatin1(number);
    session->env.insert(QStringLiteral("DISPLAY"), display);
    session->x = xcb_connect(display.toLatin1().constData(), nullptr);
    if (xcb_connection_has_error(session->x)) {
        *why = QStringLiteral("cannot connect to the display");
        return false;
    }

    session->sessionBus.setProcessEnvironment(session->env);
    session->sessionBus.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    session->sessionBus.start(QStringLiteral("dbus-daemon"),
                              {QStringLiteral("--session"), QStringLiteral("--nofork"),
                               QStringLiteral("--print-address=1")});
    const QByteArray address = firstLine(&session->sessionBus, 20000);
    if (address.isEmpty()) {
        *why = QStringLiteral("the session bus did not start");
        return false;
    }
    session->env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QString::fromLatin1(address));

    session->accessibilityBus.setProcessEnvironment(session->env);
    session->accessibilityBus.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    session->accessibilityBus.setStandardOutputFile(QProcess::nullDevice());
    session->accessibilityBus.start(busLauncher, {QStringLiteral("--launch-immediately")});
    if (!session->accessibilityBus.waitForStarted()) {
        *why = QStringLiteral("the accessibility bus launcher did not start");
        return false;
    }
    return true;
}

} // namespace

class TestScreenReader : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        REQUIRE_SANDBOX();
        REQUIRE_BUILT_PROGRAM();
    }

    void aPrinterIsAddedAndManagedWithTheKeyboardAloneAndEveryControlIsNamed()
    {
        const QString missing = missingTool();
        if (!missing.isEmpty())
            QSKIP(qPrintable(missing +
                             QStringLiteral(" is missing (scripts/setup --test installs it)")));
        Session session;
        QString why;
        QVERIFY2(startSession(&session, &why), qPrintable(why));

        // The reader turns on the bus's screen reader switch, as a reader does when it
        // starts, and says which bus it reads.
        QProcess reader;
        reader.setProcessEnvironment(session.env);
        reader.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        reader.start(python, {QFINDTESTDATA("screenreader.py")});
        const QByteArray ready = firstLine(&reader, 30000);
        QVERIFY2(ready.startsWith("bus "), ready.constData());
        QVERIFY(announceBus(session.x, ready.mid(4)));

        QProcessEnvironment programEnv = session.env;
        programEnv.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        programEnv.insert(QStringLiteral("QT_ACCESSIBILITY"), QStringLiteral("1"));
        QProcess program;
        program.setProcessEnvironment(programEnv);
        program.setStandardOutputFile(QProcess::nullDevice());
        program.setStandardErrorFile(QProcess::nullDevice());
        program.start(sandbox::programPath(), QStringList());
        QVERIFY(program.waitForStarted());

        QVERIFY2(reader.waitForFinished(240000), "the reader did not finish");
        const QString said = QString::fromUtf8(reader.readAllStandardOutput());
        qInfo().noquote() << said;
        QCOMPARE(reader.exitStatus(), QProcess::NormalExit);
        QVERIFY2(reader.exitCode() == 0, "the reader failed (see its lines above)");

        // Every window the walk met, and in each no focusable control without a name.
        const QRegularExpression census(
            QStringLiteral("^window (.+): (\\d+) of (\\d+) focusable controls without a name"),
            QRegularExpression::MultilineOption);
        QStringList windows;
        for (auto it = census.globalMatch(said); it.hasNext();) {
            const QRegularExpressionMatch match = it.next();
            windows << match.captured(1);
            QVERIFY2(match.captured(3).toInt() > 0, qPrintable(match.captured(0)));
            QVERIFY2(match.captured(2) == QLatin1String("0"), qPrintable(match.captured(0)));
        }
        QCOMPARE(windows, QStringList({"printer list", "wizard, preferences", "wizard, summary",
                                       "test page box", "wizard (edit), preferences",
                                       "wizard (edit), summary", "name refusal box"}));

        // What the keys did, as the commands the program ran say it.
        QVERIFY2(program.waitForFinished(20000), "Close did not end the program");
        QCOMPARE(program.exitCode(), 0);
        QStringList commands;
        for (const QStringList &call : sandbox::fakeCalls())
            commands << call.join(QLatin1Char(' '));
        for (const QString &expected :
             {QStringLiteral("lpadmin -p Office"), QStringLiteral("lp -d Office"),
              QStringLiteral("lpadmin -d Office"), QStringLiteral("lpadmin -x Office")}) {
            QVERIFY2(
                std::any_of(commands.cbegin(), commands.cend(),
                            [&](const QString &command) { return command.startsWith(expected); }),
                qPrintable(expected + QStringLiteral(" not among:\n") +
                           commands.join(QLatin1Char('\n'))));
        }
        QVERIFY(!QFile::exists(QStringLiteral("/tmp/config/registry/hardware/printer/Office.pr")));
    }
};

QTEST_GUILESS_MAIN(TestScreenReader)
#include "tst_screenreader.moc"
