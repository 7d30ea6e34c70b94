#include "support/shellrecorder.h"

ShellRecorder::ShellRecorder(Mode mode)
    : m_mode(mode)
{
    m_previous = zeq::System::SetShellRunner([this](const QString &command) {
        m_commands.append(command);
        if (m_mode == Record)
            return 0;
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
