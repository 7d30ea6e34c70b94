#include "app/configure.h"
#include "app/startup.h"
#include "ui/printerdlg.h"

#include <popt.h>

#include <cstdio>
#include <memory>

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

    auto app = makeApplication(argc, argv);
    auto *window = new PrinterDlg;
    window->show();
    app->exec();
    delete window;
    app.reset();
    return 0;
}
