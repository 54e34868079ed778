#pragma once
// The program's version as users and the update server see it: three numbers with dots.

#include <QString>
#include <QStringList>

namespace ql {

// "2.4" gives "2.4.0", "2.4.0.17" gives "2.4.0".
inline QString threePartVersion(const QString& version) {
  QStringList parts = version.split(QLatin1Char('.'));
  while (parts.size() < 3) parts << QStringLiteral("0");
  return parts.mid(0, 3).join(QLatin1Char('.'));
}

}  // namespace ql
