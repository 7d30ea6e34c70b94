#pragma once

#include "printer/shell.h"

#include <QElapsedTimer>
#include <QList>
#include <QStringList>

#include <functional>

// Installs itself as the program's shell runner (shell::setRunner) for its lifetime and records
// every command line the code under test runs, in order, with the time it arrived. In Record mode
// nothing is executed and every line "succeeds" with the chosen status; in RecordAndRun mode each
// line is also run by /bin/sh (inside the sandbox), for tests that check what the commands did to
// files.
//
// An observer, when set, is called with each line as it is recorded and before it runs,
// so that a test can note what the world looked like at that moment (which files exist,
// what a window shows) and so check the order of commands against other effects.
class ShellRecorder
{
public:
    enum Mode { Record, RecordAndRun };
    using Observer = std::function<void(const QString &command)>;

    explicit ShellRecorder(Mode mode = Record, int status = 0);
    ~ShellRecorder();
    ShellRecorder(const ShellRecorder &) = delete;
    ShellRecorder &operator=(const ShellRecorder &) = delete;

    void setObserver(Observer observer) { m_observer = std::move(observer); }

    QStringList commands() const { return m_commands; }
    void clear();

    // Seconds between the arrival of command i and command j.
    double gap(int i, int j) const { return (m_times.at(j) - m_times.at(i)) / 1e9; }
    // Seconds since the recorder was installed.
    double sinceStart() const { return m_clock.nsecsElapsed() / 1e9; }

private:
    Mode m_mode;
    int m_status;
    Observer m_observer;
    QElapsedTimer m_clock;
    QStringList m_commands;
    QList<qint64> m_times;
    shell::Runner m_previous;
};
