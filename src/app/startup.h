#pragma once

#include <QApplication>

#include <memory>

// Makes the window program's application object. The window is plain widgets painted in
// software, so the X11 platform plugin is asked to load no GL integration, unless the
// user has chosen one; the commands the program runs later see the environment it was
// started with, untouched.
std::unique_ptr<QApplication> makeApplication(int &argc, char **argv);
