#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <cstdio>
#include <sys/mman.h>
#include <unistd.h>

// Sends the process's standard error into memory for its lifetime, so that a test can
// check the diagnostic lines the code under test writes there. Debug trace lines land
// there too; diagnostics() keeps only the program's own "printerconfig: " lines.
class StderrCapture
{
public:
    StderrCapture()
    {
        std::fflush(stderr);
        m_saved = ::dup(2);
        m_memory = ::memfd_create("stderr", MFD_CLOEXEC);
        ::dup2(m_memory, 2);
    }

    ~StderrCapture()
    {
        std::fflush(stderr);
        ::dup2(m_saved, 2);
        ::close(m_saved);
        ::close(m_memory);
    }

    StderrCapture(const StderrCapture &) = delete;
    StderrCapture &operator=(const StderrCapture &) = delete;

    QByteArray all() const
    {
        std::fflush(stderr);
        QByteArray text;
        char buffer[4096];
        off_t offset = 0;
        ssize_t n;
        while ((n = ::pread(m_memory, buffer, sizeof buffer, offset)) > 0) {
            text.append(buffer, int(n));
            offset += n;
        }
        return text;
    }

    QStringList diagnostics() const
    {
        QStringList lines;
        for (const QByteArray &line : all().split('\n')) {
            if (line.startsWith("printerconfig: "))
                lines.append(QString::fromLocal8Bit(line));
        }
        return lines;
    }

private:
    int m_saved = -1;
    int m_memory = -1;
};
