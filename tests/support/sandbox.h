#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

// Helpers for tests that run inside tests/sandbox/run-in-sandbox.
namespace sandbox {

// True inside the sandbox. Tests that write system paths call requireSandbox() first.
bool inside();
// Fails the calling test (returns false) when not inside the sandbox, so that running a
// test binary by hand can never write to the host's /tmp or /etc/cups.
bool requireSandbox();

// Every invocation of a fake CUPS tool or device script so far: the program's name
// followed by its arguments.
QList<QStringList> fakeCalls();
void clearFakeCalls();

// Small file helpers; writeFile creates missing parent folders.
bool writeFile(const QString &path, const QByteArray &content);
QByteArray readFile(const QString &path);
// Removes a file or a whole folder.
void removePath(const QString &path);
// The fixture folder (tests/data).
QString fixtures();

} // namespace sandbox

#define REQUIRE_SANDBOX()                                                                  \
    do {                                                                                   \
        if (!sandbox::requireSandbox())                                                    \
            QFAIL("This test writes system paths and must run inside run-in-sandbox");   \
    } while (0)
