#pragma once
// What the desktop does for a path: open it with its default application, show it in the file
// manager, put it on the clipboard. Paths are bytes; the URL carries them percent-encoded, so a
// name that is not valid UTF-8 reaches the other program unchanged. No shell is ever involved.

#include <QObject>
#include <QUrl>
#include <functional>
#include <string>
#include <vector>

namespace ql {

// file:// URL of a path, byte for byte.
QUrl fileUrl(const std::string& path);

// Where URLs go; QDesktopServices::openUrl unless replaced (tests). An empty opener puts that
// one back.
void setUrlOpener(std::function<bool(const QUrl&)> opener);

// Opens a URL with the desktop (a web page in the browser, a file with its application); `what`
// names it for the user (the URL itself when empty). False with `why` when it could not even be
// handed over. xdg-open answers later, when it ends: a failure it reports then (no browser, no
// application for the type) reaches desktopNotices() as the line for the status bar.
bool openUrl(const QUrl& url, QString& why, const QString& what = QString());
// The line that tells the user a failed open: what could not be opened, and why.
QString cannotOpenText(const QString& what, const QString& why);

// Tells of opens that failed after openUrl had returned.
class DesktopNotices : public QObject {
  Q_OBJECT
 Q_SIGNALS:
  void failed(const QString& text);  // what cannotOpenText says
};
DesktopNotices& desktopNotices();

// The path calls below return an empty text when the desktop took the path, else that line,
// for the status bar or the dialog that asked.
// Opens a file with the desktop's default application.
QString openWithDefault(const std::string& path);
// Shows the items selected in the file manager, or opens their folder where the file manager
// cannot select them.
QString showInFileManager(const std::vector<std::string>& paths);
// Opens a folder in the file manager.
QString openFolder(const std::string& folder);
// The paths as text on the clipboard, one a line, and as a URL list for file managers.
void copyPaths(const std::vector<std::string>& paths);

}  // namespace ql
