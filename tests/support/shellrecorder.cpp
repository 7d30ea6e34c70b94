#include "support/shellrecorder.h"

#include <zeq/system.h>

ShellRecorder::ShellRecorder(Mode mode, int status)
    : m_mode(mode)
    , m_status(status)
{
    m_clock.start();
    m_previous = shell::setRunner([this](const QString &command) {
        m_commands.append(command);
        m_times.append(m_clock.nsecsElapsed());
        if (m_observer)
            m_observer(command);
        if (m_mode == Record)
            return m_status;
        // Run it for real, through the platform library as the program would.
        return zeq::System::ExecShell(command);
    });
}

ShellRecorder::~ShellRecorder()
{
    shell::setRunner(std::move(m_previous));
}

void ShellRecorder::clear()
{
    m_commands.clear();
    m_times.clear();
}
