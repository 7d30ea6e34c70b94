#pragma once

#include <QByteArray>

class QProcess;

// Running a CUPS backend without arguments, as CUPS does to list devices, and taking what
// it prints within fixed bounds: its output is the device's or the network's word, so it
// may be endless, one endless line, or never come.
namespace backendrun {

// What a backend may print before it is cut off: its process is killed and it
// contributes nothing, as one that does not finish in time.
constexpr int lineCap = 64 * 1024;         // bytes in one line
constexpr int outputCap = 4 * 1024 * 1024; // bytes in all

// A backend's standard output as it arrives, kept only within the caps.
class Output
{
public:
    void clear();
    // Keeps chunk; false, keeping nothing more, once a line or the whole output has
    // grown past its cap.
    bool append(const QByteArray &chunk);
    bool overCap() const { return m_overCap; }
    const QByteArray &bytes() const { return m_bytes; }

private:
    QByteArray m_bytes;
    qint64 m_lineLength = 0;
    bool m_overCap = false;
};

// Waits up to timeoutMs for the started backend to end, taking its standard output as it
// comes so that nothing piles up unread. A backend that prints past a cap is killed at
// once. Returns true when the backend ended by itself within the time; one that is out
// of time is left running, for the caller to decide.
bool waitFor(QProcess &process, Output *output, int timeoutMs);

} // namespace backendrun
