#include "support/attacker.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace attacker {

namespace {

bool becomeNobody()
{
    return ::setgroups(0, nullptr) == 0 && ::setgid(gid_t(groupId)) == 0 &&
           ::setuid(uid_t(userId)) == 0 && ::getuid() == uid_t(userId) &&
           ::geteuid() == uid_t(userId);
}

// 0: work succeeded as nobody; 1: work failed; 2: could not become nobody.
int runAsNobody(const std::function<bool()> &work)
{
    const pid_t child = ::fork();
    if (child < 0)
        return 2;
    if (child == 0) {
        if (!becomeNobody())
            ::_exit(2);
        ::_exit(work() ? 0 : 1);
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 2;
}

} // namespace

bool available(QString *why)
{
    if (::geteuid() != 0) {
        *why = QStringLiteral("acting as another user needs root; this run has none");
        return false;
    }
    if (runAsNobody([] { return true; }) != 0) {
        *why = QStringLiteral("this sandbox cannot switch to user nobody (no such user is "
                              "mapped; it was entered without root)");
        return false;
    }
    return true;
}

bool act(const std::function<bool()> &work)
{
    return runAsNobody(work) == 0;
}

bool plantLink(const QString &path, const QString &target)
{
    const QByteArray link = QFile::encodeName(path);
    const QByteArray to = QFile::encodeName(target);
    return act([&] { return ::symlink(to.constData(), link.constData()) == 0; });
}

bool plantFile(const QString &path, const QByteArray &content, int mode)
{
    const QByteArray name = QFile::encodeName(path);
    return act([&] {
        const int fd = ::open(name.constData(), O_WRONLY | O_CREAT | O_TRUNC, mode_t(mode));
        if (fd < 0)
            return false;
        const bool written =
            ::write(fd, content.constData(), size_t(content.size())) == ssize_t(content.size());
        // The umask must not narrow what the attacker asked for.
        const bool moded = ::fchmod(fd, mode_t(mode)) == 0;
        return ::close(fd) == 0 && written && moded;
    });
}

bool plantFolder(const QString &path, int mode)
{
    const QByteArray name = QFile::encodeName(path);
    return act([&] {
        return ::mkdir(name.constData(), mode_t(mode)) == 0 &&
               ::chmod(name.constData(), mode_t(mode)) == 0;
    });
}

} // namespace attacker
