#pragma once

#include <QObject>
#include <QString>

#include <cstdlib>

// The child widget with the given object name; a missing one ends the test run at once,
// since every check after it would only report noise.
template <typename T> T *requireChild(const QObject *parent, const char *name)
{
    T *widget = parent->findChild<T *>(QString::fromLatin1(name));
    if (!widget)
        qFatal("no child %s of the expected type", name);
    return widget;
}
