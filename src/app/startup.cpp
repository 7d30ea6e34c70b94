#include "app/startup.h"

#include <QOpenGLContext>

namespace {

const char glIntegrationVariable[] = "QT_XCB_GL_INTEGRATION";

// Left to itself the X11 platform plugin loads its GLX integration and with it the GL
// driver stack, which costs start-up time and several MiB of memory (and some Mesa
// versions leave a leak report behind at exit). So the program asks for no GL
// integration, unless the user has chosen one: QT_XCB_GL_INTEGRATION names it, and
// QT_OPENGL picks the GL flavour that the integration is then expected to provide.
// Returns whether the variable was set here.
bool skipGlIntegrationUnlessChosen()
{
    if (qEnvironmentVariableIsSet(glIntegrationVariable) || qEnvironmentVariableIsSet("QT_OPENGL"))
        return false;
    qputenv(glIntegrationVariable, "none");
    return true;
}

} // namespace

std::unique_ptr<QApplication> makeApplication(int &argc, char **argv)
{
    const bool setHere = skipGlIntegrationUnlessChosen();
    auto app = std::make_unique<QApplication>(argc, argv);
    if (setHere) {
        // The setting is meant for the toolkit alone: lpadmin, init_ica and every other
        // command the program starts inherit its environment, and must run as they
        // would without it. The X11 plugin reads the variable only when first asked
        // about GL, not when the application object is made; asking whether threaded GL
        // works makes it choose its integration now, while the variable is still set.
        // Afterwards the choice is kept and the variable can go.
        QOpenGLContext::supportsThreadedOpenGL();
        qunsetenv(glIntegrationVariable);
    }
    return app;
}
