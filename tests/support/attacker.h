#pragma once

#include <QByteArray>
#include <QString>

#include <functional>

// Another local user, as the attacks on the tool are made: the tool runs as root while
// any user can make files in /tmp. Each helper forks a child that drops to the
// unprivileged user nobody and does the planting there, so the file or link it leaves
// is nobody's, made with nobody's rights, exactly as an attacker would leave it.
namespace attacker {

constexpr unsigned userId = 65534;  // nobody
constexpr unsigned groupId = 65534; // nogroup

// True when this test can act as nobody (it runs as the real root: a sandbox entered
// without root maps no other user). Otherwise false, with the reason in *why.
bool available(QString *why);

// Runs work in a child process as nobody; true when work returned true there. work
// must use plain system calls only (the child of a threaded process).
bool act(const std::function<bool()> &work);

// As nobody: a symbolic link at path pointing to target.
bool plantLink(const QString &path, const QString &target);
// As nobody: a file at path (created, or truncated if nobody may) holding content.
bool plantFile(const QString &path, const QByteArray &content, int mode = 0644);
// As nobody: a folder at path.
bool plantFolder(const QString &path, int mode = 0755);

} // namespace attacker

// Skips the calling test, saying why, when it cannot act as another user.
#define REQUIRE_ATTACKER()                                                                         \
    do {                                                                                           \
        QString attackerWhy;                                                                       \
        if (!attacker::available(&attackerWhy))                                                    \
            QSKIP(qPrintable(attackerWhy));                                                        \
    } while (0)
