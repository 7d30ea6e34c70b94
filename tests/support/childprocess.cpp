#include "support/childprocess.h"

#include "fileio/freshfile.h"

#include <QElapsedTimer>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace childprocess {

Outcome run(const std::function<QByteArray()> &work, int timeoutMs)
{
    Outcome outcome;
    int resultPipe[2];
    int errorPipe[2];
    if (::pipe2(resultPipe, O_CLOEXEC) != 0)
        return outcome;
    if (::pipe2(errorPipe, O_CLOEXEC) != 0) {
        ::close(resultPipe[0]);
        ::close(resultPipe[1]);
        return outcome;
    }
    std::fflush(stdout);
    std::fflush(stderr);
    QElapsedTimer timer;
    timer.start();
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::close(resultPipe[0]);
        ::close(errorPipe[0]);
        ::dup2(errorPipe[1], 2);
        const QByteArray result = work();
        std::fflush(stderr);
        fileio::writeAll(resultPipe[1], result);
        // Leave without the test's exit handlers: they belong to the parent.
        ::_exit(0);
    }
    ::close(resultPipe[1]);
    ::close(errorPipe[1]);
    if (pid < 0) {
        ::close(resultPipe[0]);
        ::close(errorPipe[0]);
        return outcome;
    }

    pollfd fds[2] = {{resultPipe[0], POLLIN, 0}, {errorPipe[0], POLLIN, 0}};
    QByteArray *sinks[2] = {&outcome.result, &outcome.errors};
    int open = 2;
    bool timedOut = false;
    while (open > 0) {
        const qint64 left = timeoutMs - timer.elapsed();
        if (left <= 0) {
            timedOut = true;
            break;
        }
        const int ready = ::poll(fds, 2, int(left));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            continue;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0)
                continue;
            char buffer[65536];
            const ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
            if (n > 0) {
                sinks[i]->append(buffer, int(n));
            } else if (n == 0 || errno != EINTR) {
                ::close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
    if (timedOut)
        ::kill(pid, SIGKILL);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    outcome.elapsedMs = timer.elapsed();
    for (const pollfd &p : fds) {
        if (p.fd >= 0)
            ::close(p.fd);
    }
    outcome.finished = !timedOut && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return outcome;
}

} // namespace childprocess
