#include "ui/dialogs/ShowLog.h"

#include <QFile>
#include <QFileInfo>

#include "support/Logs.h"
#include "ui/Desktop.h"

namespace ql {

bool Show_Log(QString& failed) {
  failed.clear();
  const QString path = logFilePath(QLatin1String(kShownLog));
  if (path.isEmpty() || !QFileInfo(path).isFile()) return false;
  failed = openWithDefault(QFile::encodeName(path).toStdString());
  return failed.isEmpty();
}

}  // namespace ql
