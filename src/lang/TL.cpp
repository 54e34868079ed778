#include "lang/TL.h"

namespace ql {

// Until the text tables are loaded, every text is its German default.
QString TL(int /*id*/, const QString& deflt, const QStringList& args) {
  QString text = deflt;
  text.replace(QLatin1String("%!"), QLatin1String("\n"));
  for (int i = 0; i < args.size(); ++i)
    text.replace(QLatin1Char('%') + QString::number(i + 1), args[i]);
  return text;
}

}  // namespace ql
