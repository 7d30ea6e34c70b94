#include "common/report.h"

#include <cstdio>

namespace diagnostic {

void report(const QString &what, const QString &why)
{
    const QByteArray line = QStringLiteral("printerconfig: %1: %2\n").arg(what, why).toLocal8Bit();
    std::fputs(line.constData(), stderr);
}

} // namespace diagnostic
