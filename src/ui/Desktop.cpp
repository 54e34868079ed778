#include "ui/Desktop.h"

#include <QClipboard>
#include <QDesktopServices>
#include <QFile>
#include <QGuiApplication>
#include <QMimeData>
#include <QStandardPaths>
#ifdef QUORLANE_HAVE_DBUS
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#endif

#include "lang/TL.h"
#include "support/Path.h"
#include "support/PathText.h"

namespace ql {

namespace {
bool desktopOpen(const QUrl& url) {
  return QDesktopServices::openUrl(url);
}

std::function<bool(const QUrl&)>& opener() {
  static std::function<bool(const QUrl&)> o = desktopOpen;
  return o;
}
bool openerReplaced = false;
}  // namespace

QUrl fileUrl(const std::string& path) {
  const QByteArray bytes(path.data(), static_cast<qsizetype>(path.size()));
  return QUrl::fromEncoded("file://" + bytes.toPercentEncoding("/"), QUrl::StrictMode);
}

void setUrlOpener(std::function<bool(const QUrl&)> o) {
  openerReplaced = bool(o);
  opener() = o ? std::move(o) : desktopOpen;
}

bool openUrl(const QUrl& url, QString& why) {
  why.clear();
  if (opener()(url)) return true;
  // Qt hands the URL to xdg-open (or a browser it finds) and writes only to standard error
  // when there is none: that is by far the common case, so it is named.
  why = QStandardPaths::findExecutable(QStringLiteral("xdg-open")).isEmpty()
            ? TL(4381, "kein Programm zum Öffnen gefunden (xdg-open fehlt)")
            : TL(4382, "der Desktop hat es abgelehnt");
  return false;
}

QString cannotOpenText(const QString& what, const QString& why) {
  return TL(4380, "%1 konnte nicht geöffnet werden: %2", {what, why});
}

namespace {
QString openPath(const std::string& path, const QUrl& url) {
  QString why;
  return openUrl(url, why) ? QString() : cannotOpenText(pathText(path), why);
}
}  // namespace

QString openWithDefault(const std::string& path) { return openPath(path, fileUrl(path)); }

QString openFolder(const std::string& folder) { return openPath(folder, fileUrl(addSlash(folder))); }

QString showInFileManager(const std::vector<std::string>& paths) {
  if (paths.empty()) return {};
#ifdef QUORLANE_HAVE_DBUS
  // The file managers' common interface selects the items; it is used only when one is there
  // and when the opener has not been replaced for a test.
  QDBusConnection bus = QDBusConnection::sessionBus();
  const QString service = QStringLiteral("org.freedesktop.FileManager1");
  if (!openerReplaced && bus.isConnected() && bus.interface() &&
      bus.interface()->isServiceRegistered(service).value()) {
    QStringList uris;
    for (const std::string& p : paths) uris << QString::fromLatin1(fileUrl(p).toEncoded());
    QDBusMessage call = QDBusMessage::createMethodCall(service, QStringLiteral("/org/freedesktop/FileManager1"),
                                                       service, QStringLiteral("ShowItems"));
    call << uris << QString();
    if (bus.send(call)) return {};
  }
#endif
  const std::string& first = paths.front();
  const size_t slash = first.rfind('/');
  return openFolder(slash == std::string::npos || slash == 0 ? std::string("/") : first.substr(0, slash));
}

void copyPaths(const std::vector<std::string>& paths) {
  auto* data = new QMimeData;
  QStringList lines;
  QList<QUrl> urls;
  for (const std::string& p : paths) {
    lines << QFile::decodeName(QByteArray(p.data(), static_cast<qsizetype>(p.size())));
    urls << fileUrl(p);
  }
  data->setText(lines.join(QLatin1Char('\n')));
  data->setUrls(urls);
  QGuiApplication::clipboard()->setMimeData(data);
}

}  // namespace ql
