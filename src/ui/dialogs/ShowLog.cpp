#include "ui/dialogs/ShowLog.h"

#include <QDesktopServices>
#include <QFileInfo>
#include <QUrl>

#include "support/Logs.h"

namespace ql {

bool Show_Log() {
  const QString path = logFilePath(QLatin1String(kShownLog));
  if (path.isEmpty() || !QFileInfo(path).isFile()) return false;
  return QDesktopServices::openUrl(QUrl::fromLocalFile(path));
}

}  // namespace ql
