// What the program loads to show its window: started on a real X display (an Xvfb of the
// test's own), it must not bring in the OpenGL driver stack unless the user asks for a
// GL integration.
#include "support/sandbox.h"

#include <QtTest>

#include <xcb/xcb.h>

#include <memory>

namespace {

const int windowWidth = 439;
const int windowHeight = 377;

// Libraries that only an OpenGL integration of the X11 platform plugin loads. libGL.so.1
// itself is not among them: libQt5Gui is linked against it, so it is mapped in every Qt
// GUI program whether anything draws with GL or not.
const char *const glLibraries[] = {
    "libqxcb-glx-integration",
    "libqxcb-egl-integration",
    "libGLX_mesa",
    "libEGL",
    "libxcb-glx",
    "libglapi",
    "_dri.so",
    "libLLVM",
};

struct XDisplay
{
    QProcess server;
    QString name;
    xcb_connection_t *connection = nullptr;

    ~XDisplay()
    {
        if (connection)
            xcb_disconnect(connection);
        server.kill();
        server.waitForFinished();
    }
};

// Starts Xvfb on a free display number (it writes the number it chose to its standard
// output) and connects to it, listening for windows being mapped on the root window.
bool startDisplay(XDisplay *display, QString *why)
{
    if (QStandardPaths::findExecutable(QStringLiteral("Xvfb")).isEmpty()) {
        *why = QStringLiteral("Xvfb is not installed");
        return false;
    }
    display->server.start(QStringLiteral("Xvfb"),
                          {QStringLiteral("-displayfd"), QStringLiteral("1"),
                           QStringLiteral("-nolisten"), QStringLiteral("tcp"),
                           QStringLiteral("-screen"), QStringLiteral("0"),
                           QStringLiteral("1024x768x24")});
    QByteArray number;
    QElapsedTimer timer;
    timer.start();
    while (!number.contains('\n') && timer.elapsed() < 10000) {
        display->server.waitForReadyRead(200);
        number += display->server.readAllStandardOutput();
    }
    if (!number.contains('\n')) {
        *why = QStringLiteral("Xvfb did not start");
        return false;
    }
    display->name = QLatin1Char(':') + QString::fromLatin1(number.trimmed());
    display->connection = xcb_connect(display->name.toLatin1().constData(), nullptr);
    if (xcb_connection_has_error(display->connection)) {
        *why = QStringLiteral("cannot connect to the Xvfb display");
        return false;
    }
    xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(display->connection)).data;
    const uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    xcb_change_window_attributes(display->connection, screen->root, XCB_CW_EVENT_MASK, &mask);
    xcb_flush(display->connection);
    return true;
}

// Waits until a top-level window of the printer list's size is mapped.
bool waitForWindow(XDisplay *display, QProcess *program)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 20000 && program->state() == QProcess::Running) {
        std::unique_ptr<xcb_generic_event_t, decltype(&free)> event(
            xcb_poll_for_event(display->connection), &free);
        if (!event) {
            program->waitForFinished(20);
            continue;
        }
        if ((event->response_type & 0x7f) != XCB_MAP_NOTIFY)
            continue;
        const auto *map = reinterpret_cast<xcb_map_notify_event_t *>(event.get());
        std::unique_ptr<xcb_get_geometry_reply_t, decltype(&free)> geometry(
            xcb_get_geometry_reply(display->connection,
                                   xcb_get_geometry(display->connection, map->window), nullptr),
            &free);
        if (geometry && geometry->width == windowWidth && geometry->height == windowHeight)
            return true;
    }
    return false;
}

// The shared objects the running program has mapped, by file name.
QStringList mappedLibraries(qint64 pid)
{
    QFile maps(QStringLiteral("/proc/%1/maps").arg(pid));
    if (!maps.open(QIODevice::ReadOnly))
        return {};
    QStringList libraries;
    for (const QByteArray &line : maps.readAll().split('\n')) {
        const int slash = line.indexOf('/');
        if (slash < 0 || !line.contains(".so"))
            continue;
        const QString name = QFileInfo(QString::fromLocal8Bit(line.mid(slash))).fileName();
        if (!libraries.contains(name))
            libraries.append(name);
    }
    return libraries;
}

QStringList glLibrariesIn(const QStringList &libraries)
{
    QStringList found;
    for (const QString &library : libraries) {
        for (const char *gl : glLibraries) {
            if (library.contains(QLatin1String(gl)))
                found.append(library);
        }
    }
    return found;
}

// Starts the program on the display with the given additions to its environment, waits
// for its window (and settleMs more) and lists the libraries it has mapped by then.
bool librariesOfShownWindow(XDisplay *display, const QMap<QString, QString> &extra,
                            QStringList *libraries, QString *why, int settleMs = 0)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const char *name : {"QT_XCB_GL_INTEGRATION", "QT_OPENGL", "WAYLAND_DISPLAY"})
        env.remove(QString::fromLatin1(name));
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    env.insert(QStringLiteral("DISPLAY"), display->name);
    for (auto it = extra.cbegin(); it != extra.cend(); ++it)
        env.insert(it.key(), it.value());

    QProcess program;
    program.setProcessEnvironment(env);
    program.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    program.setStandardOutputFile(QProcess::nullDevice());
    program.start(sandbox::programPath(), QStringList());
    if (!program.waitForStarted()) {
        *why = QStringLiteral("the program did not start");
        return false;
    }
    bool shown = waitForWindow(display, &program);
    if (shown && settleMs > 0) {
        QTest::qWait(settleMs);
        shown = program.state() == QProcess::Running;
    }
    if (shown)
        *libraries = mappedLibraries(program.processId());
    program.kill();
    program.waitForFinished();
    if (!shown)
        *why = QStringLiteral("the window was not shown");
    return shown;
}

} // namespace

class TestStartup : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { REQUIRE_BUILT_PROGRAM(); }

    void windowShowsWithoutLoadingOpenGl()
    {
        XDisplay display;
        QString why;
        if (!startDisplay(&display, &why))
            QSKIP(qPrintable(why + QStringLiteral(": no X display to start the program on")));
        QStringList libraries;
        QVERIFY2(librariesOfShownWindow(&display, {}, &libraries, &why), qPrintable(why));
        // It really ran on the X11 platform plugin, the one that would load GL.
        QVERIFY2(libraries.contains(QStringLiteral("libqxcb.so")),
                 qPrintable(libraries.join(QLatin1Char(' '))));
        const QStringList gl = glLibrariesIn(libraries);
        QVERIFY2(gl.isEmpty(),
                 qPrintable(QStringLiteral("GL libraries mapped: ") + gl.join(QLatin1Char(' '))));
    }

    // The program takes its setting out of the environment again once the application
    // object exists (the commands it runs must not see it); the plugin reads it lazily,
    // so it must have chosen by then, and nothing later may load GL after all.
    void glStaysUnloadedAfterTheSettingLeavesTheEnvironment()
    {
        XDisplay display;
        QString why;
        if (!startDisplay(&display, &why))
            QSKIP(qPrintable(why + QStringLiteral(": no X display to start the program on")));
        QStringList libraries;
        QVERIFY2(librariesOfShownWindow(&display, {}, &libraries, &why, 2000), qPrintable(why));
        QVERIFY2(libraries.contains(QStringLiteral("libqxcb.so")),
                 qPrintable(libraries.join(QLatin1Char(' '))));
        const QStringList gl = glLibrariesIn(libraries);
        QVERIFY2(gl.isEmpty(),
                 qPrintable(QStringLiteral("GL libraries mapped: ") + gl.join(QLatin1Char(' '))));
    }

    void glIntegrationChosenByTheUserIsLoaded()
    {
        XDisplay display;
        QString why;
        if (!startDisplay(&display, &why))
            QSKIP(qPrintable(why + QStringLiteral(": no X display to start the program on")));
        QStringList libraries;
        QVERIFY2(librariesOfShownWindow(
                     &display,
                     {{QStringLiteral("QT_XCB_GL_INTEGRATION"), QStringLiteral("xcb_glx")}},
                     &libraries, &why),
                 qPrintable(why));
        QVERIFY2(libraries.contains(QStringLiteral("libqxcb-glx-integration.so")),
                 qPrintable(libraries.join(QLatin1Char(' '))));
    }
};

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_startup.moc"
