#pragma once

#include <zeq/shellrunner.h>

#include <QStringList>

// Installs itself as the platform's shell runner for its lifetime and records every
// command line the code under test runs, in order. In Record mode nothing is executed;
// in RecordAndRun mode each line is also run by /bin/sh (inside the sandbox), for tests
// that check what the commands did to files.
class ShellRecorder
{
public:
    enum Mode { Record, RecordAndRun };

    explicit ShellRecorder(Mode mode = Record);
    ~ShellRecorder();
    ShellRecorder(const ShellRecorder &) = delete;
    ShellRecorder &operator=(const ShellRecorder &) = delete;

    QStringList commands() const { return m_commands; }
    void clear() { m_commands.clear(); }

private:
    Mode m_mode;
    QStringList m_commands;
    zeq::System::ShellRunner m_previous;
};
