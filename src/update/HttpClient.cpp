#include "update/HttpClient.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QCryptographicHash>
#include <QEventLoop>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkProxyFactory>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QRegularExpression>
#include <QStringDecoder>
#include <QTimer>
#include <cerrno>
#include <cstring>

#include "support/Globals.h"

namespace ql {

namespace {

// Without a proxy of its own the program takes the system's (http_proxy, no_proxy).
class SystemProxies : public QNetworkProxyFactory {
 public:
  QList<QNetworkProxy> queryProxy(const QNetworkProxyQuery& query) override {
    return systemProxyForQuery(query);
  }
};

void applyProxy(QNetworkAccessManager& nam, const ProxySettings& p) {
  if (!p.use) {
    nam.setProxyFactory(new SystemProxies);  // the manager owns it
    return;
  }
  nam.setProxy(QNetworkProxy(QNetworkProxy::HttpProxy, p.name.trimmed(), p.port.trimmed().toUShort(),
                             p.user, p.password));
}

QString systemError(int err) { return QString::fromLocal8Bit(std::strerror(err)); }

enum class Step { None, Send, Status, Read, Own };

// How a request ended. `Own` carries a complete error text that a handler gave.
struct Outcome {
  Step step = Step::None;
  QString detail;
  int status = 0;
  qint64 length = -1;  // Content-Length, -1 when the server gave none
  qint64 received = 0;
  QUrl finalUrl;
};

struct Handlers {
  std::function<QString(qint64 length)> onHeaders;  // "" to go on, else the error text
  std::function<QString(const QByteArray& data)> onData;
  std::function<bool()> cancelled;
  QString cancelText;
};

Outcome transfer(const QString& url, const ProxySettings& proxy, const HttpLimits& limits,
                 bool reload, const Handlers& h) {
  Outcome out;
  QNetworkAccessManager nam;
  applyProxy(nam, proxy);
  QNetworkRequest request{QUrl(url)};
  request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
  request.setMaximumRedirectsAllowed(limits.maxRedirects);
  request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
  request.setHeader(QNetworkRequest::UserAgentHeader, globals().Apptitle);
  // Our own Accept-Encoding keeps Qt from inflating: the length must count the bytes sent.
  request.setRawHeader("Accept-Encoding", "identity");
  if (reload) {
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                         QNetworkRequest::AlwaysNetwork);
    request.setRawHeader("Cache-Control", "no-cache");
  }

  QNetworkReply* reply = nam.get(request);
  QEventLoop loop;
  QTimer idle;
  idle.setSingleShot(true);
  idle.setInterval(limits.idleTimeoutMs);
  QTimer poll;  // a click on Cancel must not wait for the next piece of data
  poll.setInterval(100);
  bool answered = false;

  auto fail = [&](Step step, const QString& detail) {
    if (out.step != Step::None) return;
    out.step = step;
    out.detail = detail;
    reply->abort();
  };
  auto checkCancel = [&] {
    if (h.cancelled && h.cancelled()) fail(Step::Own, h.cancelText);
  };
  // The answer's status and length, once, when its first data or its end arrives.
  auto headers = [&] {
    if (answered || out.step != Step::None) return;
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!status.isValid()) return;
    answered = true;
    out.status = status.toInt();
    out.finalUrl = reply->url();
    if (out.status != 200) return fail(Step::Status, QString::number(out.status));
    bool ok = false;
    const qint64 length = reply->header(QNetworkRequest::ContentLengthHeader).toLongLong(&ok);
    out.length = ok ? length : -1;
    if (h.onHeaders) {
      const QString error = h.onHeaders(out.length);
      if (!error.isEmpty()) fail(Step::Own, error);
    }
  };

  QObject::connect(reply, &QNetworkReply::readyRead, &loop, [&] {
    idle.start();
    headers();
    if (out.step != Step::None) return;
    const QByteArray data = reply->readAll();
    out.received += data.size();
    if (h.onData) {
      const QString error = h.onData(data);
      if (!error.isEmpty()) return fail(Step::Own, error);
    }
    checkCancel();
  });
  QObject::connect(reply, &QNetworkReply::metaDataChanged, &idle, [&] { idle.start(); });
  QObject::connect(reply, &QNetworkReply::redirected, &idle, [&] { idle.start(); });
  QObject::connect(&idle, &QTimer::timeout, &loop, [&] {
    fail(answered ? Step::Read : Step::Send, QStringLiteral("The operation timed out"));
  });
  QObject::connect(&poll, &QTimer::timeout, &loop, checkCancel);
  QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);

  idle.start();
  poll.start();
  if (!reply->isFinished()) loop.exec();
  idle.stop();
  poll.stop();

  const auto error = reply->error();
  if (out.step == Step::None && (error == QNetworkReply::TooManyRedirectsError ||
                                 error == QNetworkReply::InsecureRedirectError))
    fail(Step::Send, reply->errorString());  // not the status of the last redirect
  if (out.step == Step::None) {
    headers();
    if (out.step == Step::None && error != QNetworkReply::NoError)
      fail(answered ? Step::Read : Step::Send, reply->errorString());
  }
  if (out.step == Step::None) {
    // Whatever is left after the last readyRead.
    const QByteArray rest = reply->readAll();
    out.received += rest.size();
    if (!rest.isEmpty() && h.onData) {
      const QString error = h.onData(rest);
      if (!error.isEmpty()) fail(Step::Own, error);
    }
  }
  if (out.step == Step::None && out.length >= 0 && out.received != out.length)
    fail(Step::Read, QStringLiteral("%1 of %2 bytes arrived").arg(out.received).arg(out.length));
  reply->deleteLater();
  return out;
}

// "<step><sep><detail>", the texts the two fetches have always shown.
QString errorText(const Outcome& o, const QString& sep) {
  switch (o.step) {
    case Step::None: return {};
    case Step::Own: return o.detail;
    case Step::Send: return QStringLiteral("HttpSendRequest") + sep + o.detail;
    case Step::Status: return QStringLiteral("HttpQueryStatusCode") + sep + o.detail;
    case Step::Read: return QStringLiteral("InternetReadFile") + sep + o.detail;
  }
  return {};
}

// The first 64 hexadecimal digits of a "<hash>  <name>" line, lower case; "" when there are none.
QString publishedHash(const QString& text) {
  static const QRegularExpression hash(QStringLiteral("^\\s*([0-9A-Fa-f]{64})(\\s|$)"));
  const auto m = hash.match(text);
  return m.hasMatch() ? m.captured(1).toLower() : QString();
}

}  // namespace

HttpClient::HttpClient(ProxySettings proxy, HttpLimits limits)
    : proxy_(std::move(proxy)), limits_(limits) {}

FetchResult HttpClient::DownloadFileToDiskOrString(const QString& url) const {
  const QString tooLong =
      QStringLiteral("InternetReadFile: The answer is longer than %1 bytes").arg(limits_.maxTextBytes);
  QByteArray body;
  Handlers h;
  h.onHeaders = [&](qint64 length) { return length > limits_.maxTextBytes ? tooLong : QString(); };
  h.onData = [&](const QByteArray& data) {
    if (body.size() + data.size() > limits_.maxTextBytes) return tooLong;
    body += data;
    return QString();
  };
  const Outcome o = transfer(url, proxy_, limits_, false, h);
  if (o.step != Step::None) return {true, errorText(o, QStringLiteral(": "))};
  if (body.contains('\0'))
    return {true, QStringLiteral("InternetReadFile: The answer is not a text")};
  QStringDecoder utf8(QStringDecoder::Utf8);
  QString text = utf8.decode(body);
  if (utf8.hasError()) text = QString::fromLatin1(body);
  return {false, text};
}

QString HttpClient::DLandFilesize(const QString& url, const QString& path,
                                  const std::function<void(qint64, qint64)>& progress,
                                  const std::function<bool()>& cancelRequested) const {
  const QByteArray file = QFile::encodeName(path);
  int fd = -1;
  qint64 total = 0, done = 0;
  QCryptographicHash sha(QCryptographicHash::Sha256);

  Handlers h;
  h.cancelled = cancelRequested;
  h.cancelText = cancelText();
  h.onHeaders = [&](qint64 length) -> QString {
    if (length <= 0) return QStringLiteral("Filesize Zero");
    total = length;
    // A new file only: whatever stands at the path stays as it is.
    fd = ::open(file.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) return QStringLiteral("CreateFile ") + systemError(errno);
    return {};
  };
  h.onData = [&](const QByteArray& data) -> QString {
    if (fd < 0) return QStringLiteral("Filesize Zero");
    for (qsizetype at = 0; at < data.size();) {
      const ssize_t n = ::write(fd, data.constData() + at, static_cast<size_t>(data.size() - at));
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) return QStringLiteral("WriteFile ") + systemError(errno);
      at += n;
    }
    sha.addData(data);
    done += data.size();
    if (progress) progress(done, total);
    return {};
  };

  const Outcome o = transfer(url, proxy_, limits_, true, h);
  QString error = errorText(o, QStringLiteral(" "));
  if (fd >= 0 && ::close(fd) != 0 && error.isEmpty())
    error = QStringLiteral("WriteFile ") + systemError(errno);

  if (error.isEmpty()) {
    const Published sum = publishedSum(o.finalUrl);
    if (!sum.error.isEmpty())
      error = sum.error;
    else if (sum.published && sum.hash != QString::fromLatin1(sha.result().toHex()))
      error = QStringLiteral("SHA-256 The file does not match its published checksum");
  }
  if (!error.isEmpty() && fd >= 0) ::unlink(file.constData());
  return error;
}

HttpClient::Published HttpClient::publishedSum(const QUrl& download) const {
  // "<file>.sha256" beside the download's final address; a host that publishes none answers 404.
  QUrl sumUrl = download;
  sumUrl.setPath(sumUrl.path() + QStringLiteral(".sha256"));
  sumUrl.setQuery(QString());
  const FetchResult sum = DownloadFileToDiskOrString(sumUrl.toString());
  if (sum.failed &&
      (sum.text.endsWith(QLatin1String(": 404")) || sum.text.endsWith(QLatin1String(": 410"))))
    return {};
  if (sum.failed) return {true, {}, QStringLiteral("SHA-256 ") + sum.text};
  return {true, publishedHash(sum.text), {}};
}

QString HttpClient::matchesOffered(const QString& url, const QString& path) const {
  // Only the answer's head: its length and where the download really is.
  qint64 announced = -1;
  Handlers h;
  const QString enough = QStringLiteral("head only");
  h.onHeaders = [&](qint64 length) { return announced = length, enough; };
  const Outcome o = transfer(url, proxy_, limits_, true, h);
  if (o.step != Step::Own || o.detail != enough) return errorText(o, QStringLiteral(" "));
  if (announced <= 0) return QStringLiteral("Filesize Zero");

  // Read from the descriptor that was checked: a file somebody else could still change is no
  // file to hand on, whatever it holds now.
  const int fd =
      ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return QStringLiteral("OpenFile ") + systemError(errno);
  struct stat st;
  QString why;
  if (::fstat(fd, &st) != 0)
    why = QStringLiteral("OpenFile ") + systemError(errno);
  else if (!S_ISREG(st.st_mode) || st.st_uid != ::geteuid() || (st.st_mode & 022) != 0 ||
           st.st_nlink != 1)
    why = QStringLiteral("not a file of this user's that only this user may change");
  else if (st.st_size != announced)
    why = QStringLiteral("%1 bytes, the server announces %2").arg(st.st_size).arg(announced);
  QCryptographicHash sha(QCryptographicHash::Sha256);
  char buffer[1 << 16];
  for (ssize_t n = 0; why.isEmpty() && (n = ::read(fd, buffer, sizeof buffer)) != 0;) {
    if (n < 0 && errno == EINTR) continue;
    if (n < 0)
      why = QStringLiteral("ReadFile ") + systemError(errno);
    else
      sha.addData(QByteArrayView(buffer, n));
  }
  ::close(fd);
  if (!why.isEmpty()) return why;

  const Published sum = publishedSum(o.finalUrl);
  if (!sum.error.isEmpty()) return sum.error;
  if (!sum.published) return QStringLiteral("SHA-256 The server publishes no checksum");
  if (sum.hash != QString::fromLatin1(sha.result().toHex()))
    return QStringLiteral("SHA-256 The file does not match its published checksum");
  return {};
}

}  // namespace ql
