#include "app/configure.h"
#include "ui/printerdlg.h"

#include <QApplication>

#include <popt.h>

#include <cstdio>
#include <memory>

namespace {

// The window is plain widgets painted in software; nothing in it draws with OpenGL. Left
// to itself the X11 platform plugin still loads its GLX integration and with it the GL
// driver stack, which costs start-up time and several MiB of memory (and some Mesa
// versions leave a leak report behind at exit). So the program asks for no GL
// integration, unless the user has chosen one: QT_XCB_GL_INTEGRATION names it, and
// QT_OPENGL picks the GL flavour that the integration is then expected to provide.
void skipGlIntegrationUnlessChosen()
{
    if (qEnvironmentVariableIsSet("QT_XCB_GL_INTEGRATION") ||
        qEnvironmentVariableIsSet("QT_OPENGL"))
        return;
    qputenv("QT_XCB_GL_INTEGRATION", "none");
}

} // namespace

int main(int argc, char **argv)
{
    int configureMode = 0;

    struct poptOption options[] = {
        {"configure", 'c', POPT_ARG_NONE, nullptr, 'c', "configure CUPS", ""},
        {nullptr, '\0', POPT_ARG_INCLUDE_TABLE, poptHelpOptions, 0, "Help options:", nullptr},
        POPT_TABLEEND};

    // The context is never freed: it lives until the process ends (popt's help options
    // exit from inside it). Static, so leak checkers still see it as reachable.
    static poptContext context;
    context = poptGetContext(nullptr, argc, const_cast<const char **>(argv), options, 0);
    int rc;
    while ((rc = poptGetNextOpt(context)) >= 0) {
        if (rc == 'c')
            configureMode = 1;
    }
    // A bad option prints the help but does not stop the program: it carries on in the
    // mode the options read so far selected.
    if (rc != -1)
        poptPrintHelp(context, stderr, 0);

    if (configureMode)
        return runConfigure();

    skipGlIntegrationUnlessChosen();
    auto app = std::make_unique<QApplication>(argc, argv);
    auto *window = new PrinterDlg;
    window->show();
    app->exec();
    delete window;
    app.reset();
    return 0;
}
