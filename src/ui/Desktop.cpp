#include "ui/Desktop.h"

#include <QClipboard>
#include <QDesktopServices>
#include <QFile>
#include <QGuiApplication>
#include <QMimeData>
#include <QProcess>
#include <QStandardPaths>
#ifdef QUORLANE_HAVE_DBUS
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#endif

#include "failure/Guard.h"
#include "lang/TL.h"
#include "support/Path.h"
#include "support/PathText.h"

namespace ql {

namespace {
// Why xdg-open gave up, by its exit code.
QString xdgOpenFailure(int code) {
  switch (code) {
    case 2:
      return TL(4622, "es ist nicht da");
    case 3:
      return TL(4623, "kein Programm dafür eingerichtet (etwa kein Webbrowser)");
    case 4:
      return TL(4624, "das Programm dafür meldete einen Fehler");
    default:
      return TL(4625, "xdg-open endete mit Code %1", {QString::number(code)});
  }
}

// Hands the URL to xdg-open and returns at once: a desktop may keep xdg-open running as long as
// the program it started, so its answer is taken when it ends. Without xdg-open Qt may still
// find a browser of its own.
bool desktopOpen(const QUrl& url, const QString& what) {
  const QString program = QStandardPaths::findExecutable(QStringLiteral("xdg-open"));
  if (program.isEmpty()) return QDesktopServices::openUrl(url);
  static const Guard guard("modDesktop");
  // The runs belong to the notices, which are never destroyed: a program started through
  // xdg-open outlives this one instead of going down with it.
  auto* run = new QProcess(&desktopNotices());
  run->setProcessChannelMode(QProcess::ForwardedChannels);
  run->setStandardInputFile(QProcess::nullDevice());
  QObject::connect(
      run, &QProcess::finished, run,
      guard.wrap("xdg-open", [run, what](int code, QProcess::ExitStatus status) {
        run->deleteLater();
        if (status == QProcess::NormalExit && code == 0) return;
        Q_EMIT desktopNotices().failed(cannotOpenText(
            what, status == QProcess::NormalExit ? xdgOpenFailure(code)
                                                 : TL(4382, "der Desktop hat es abgelehnt")));
      }));
  QObject::connect(run, &QProcess::errorOccurred, run,
                   guard.wrap("xdg-open", [run, what](QProcess::ProcessError error) {
                     if (error != QProcess::FailedToStart) return;  // the end is told by finished
                     run->deleteLater();
                     Q_EMIT desktopNotices().failed(
                         cannotOpenText(what, TL(4382, "der Desktop hat es abgelehnt")));
                   }));
  run->start(program, {QString::fromLatin1(url.toEncoded())});
  return true;
}

std::function<bool(const QUrl&)>& opener() {
  static std::function<bool(const QUrl&)> o;
  return o;
}
bool openerReplaced = false;
}  // namespace

DesktopNotices& desktopNotices() {
  static auto* notices = new DesktopNotices;
  return *notices;
}

QUrl fileUrl(const std::string& path) {
  const QByteArray bytes(path.data(), static_cast<qsizetype>(path.size()));
  return QUrl::fromEncoded("file://" + bytes.toPercentEncoding("/"), QUrl::StrictMode);
}

void setUrlOpener(std::function<bool(const QUrl&)> o) {
  openerReplaced = bool(o);
  opener() = std::move(o);
}

bool openUrl(const QUrl& url, QString& why, const QString& what) {
  why.clear();
  if (openerReplaced ? opener()(url)
                     : desktopOpen(url, what.isEmpty() ? url.toDisplayString() : what))
    return true;
  // Refused at once: by far the most common cause is that there is no xdg-open, so it is named.
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
  const QString what = pathText(path);
  return openUrl(url, why, what) ? QString() : cannotOpenText(what, why);
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
