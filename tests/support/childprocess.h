#pragma once

#include <QByteArray>

#include <functional>

// Runs a piece of a test in a forked copy of the test process, so that an operation
// that might block or run away (reading a pipe, a device) ends the child at a time
// limit instead of hanging the test. The child's standard error is captured.
namespace childprocess {

struct Outcome
{
    bool finished = false; // false: killed at the time limit
    QByteArray result;     // what the work returned
    QByteArray errors;     // what the child wrote to standard error
    qint64 elapsedMs = 0;
};

// Calls work() in a child and returns its result; the child is killed after timeoutMs.
Outcome run(const std::function<QByteArray()> &work, int timeoutMs = 5000);

} // namespace childprocess
