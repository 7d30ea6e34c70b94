#include "support/shellrecorder.h"

ShellRecorder::ShellRecorder(Mode mode, int status)
    : m_mode(mode)
    , m_status(status)
{
    m_clock.start();
    m_previous = zeq::System::SetShellRunner([this](const QString &command) {
        m_commands.append(command);
        m_times.append(m_clock.nsecsElapsed());
        if (m_observer)
            m_observer(command);
        if (m_mode == Record)
            return m_status;
        // Run it for real: step aside for the duration of the call.
        zeq::System::ShellRunner self = zeq::System::SetShellRunner(nullptr);
        const int status = zeq::System::ExecShell(command);
        zeq::System::SetShellRunner(std::move(self));
        return status;
    });
}

ShellRecorder::~ShellRecorder()
{
    zeq::System::SetShellRunner(std::move(m_previous));
}

void ShellRecorder::clear()
{
    m_commands.clear();
    m_times.clear();
}
