#pragma once

#include <QString>

namespace diagnostic {

// The program's one way of telling the administrator that it left something out or
// refused something: a single line "printerconfig: WHAT: WHY" on standard error.
void report(const QString &what, const QString &why);

} // namespace diagnostic
