#pragma once
// A small HTTP/1.1 server on the loopback, run by the test's own event loop: the client under
// test waits in its local loop, which is where this server answers. Each answer closes its
// connection. Also serves as a forward proxy: it records the request line it was sent and
// answers from its routes by the path of the absolute address.

#include <QByteArray>
#include <QMap>
#include <QPointer>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QUrl>

namespace ql::test {

struct Route {
  int status = 200;
  QByteArray body;
  QByteArray headers;          // extra header lines, each ending in "\r\n"
  bool withLength = true;      // false: the end of the body is the end of the connection
  qint64 claimedLength = -1;   // a Content-Length other than the body's
  qint64 stallAfter = -1;      // send this many bytes, then nothing more, connection kept open
  int piece = 0;               // > 0: the body in pieces of this size, one per event-loop turn

  static Route ok(QByteArray b) {
    Route r;
    r.body = std::move(b);
    return r;
  }
  static Route code(int s) {
    Route r;
    r.status = s;
    return r;
  }
  Route& noLength() { return withLength = false, *this; }
  Route& claim(qint64 n) { return claimedLength = n, *this; }
  Route& stall(qint64 n) { return stallAfter = n, *this; }
  Route& pieces(int n) { return piece = n, *this; }
};

class TestHttpServer : public QObject {
 public:
  TestHttpServer() {
    server_.listen(QHostAddress::LocalHost);
    connect(&server_, &QTcpServer::newConnection, this, [this] {
      while (QTcpSocket* s = server_.nextPendingConnection()) {
        s->setParent(this);
        connect(s, &QTcpSocket::readyRead, this, [this, s] { onRead(s); });
        if (s->bytesAvailable() > 0) onRead(s);
      }
    });
  }

  QString base() const { return QStringLiteral("http://127.0.0.1:%1").arg(port()); }
  quint16 port() const { return server_.serverPort(); }
  QString url(const QString& path) const { return base() + path; }

  void set(const QString& path, Route r) { routes_[path] = std::move(r); }
  void text(const QString& path, const QByteArray& body) { set(path, Route::ok(body)); }
  void redirect(const QString& from, const QString& to) {
    Route r = Route::code(302);
    r.headers = "Location: " + to.toUtf8() + "\r\n";
    set(from, r);
  }
  // Requires proxy credentials before it answers (answers 407 without them).
  void requireProxyAuth(const QByteArray& basic) { proxyAuth_ = basic; }

  QStringList requestLines;  // as received, e.g. "GET /x HTTP/1.1"

 private:
  void onRead(QTcpSocket* s) {
    QByteArray& in = pending_[s];
    in += s->readAll();
    const qsizetype end = in.indexOf("\r\n\r\n");
    if (end < 0) return;
    const QByteArray head = in.left(end);
    in.clear();
    const QByteArray line = head.left(head.indexOf("\r\n"));
    requestLines << QString::fromLatin1(line);
    const QList<QByteArray> parts = line.split(' ');
    const QUrl target(QString::fromLatin1(parts.value(1)));
    QString key = target.path();
    if (target.hasQuery()) key += QLatin1Char('?') + target.query();
    if (!proxyAuth_.isEmpty() && !head.contains("Proxy-Authorization: Basic " + proxyAuth_)) {
      s->write("HTTP/1.1 407 Proxy Authentication Required\r\nProxy-Authenticate: Basic realm=\"t\"\r\n"
               "Content-Length: 0\r\n\r\n");
      return;
    }
    const Route r = routes_.value(key, Route::code(404));
    QByteArray out = "HTTP/1.1 " + QByteArray::number(r.status) + " X\r\n" + r.headers;
    if (r.withLength)
      out += "Content-Length: " +
             QByteArray::number(r.claimedLength >= 0 ? r.claimedLength : r.body.size()) + "\r\n";
    out += "Connection: close\r\n\r\n";
    s->write(out);
    const QByteArray body = r.stallAfter >= 0 ? r.body.left(r.stallAfter) : r.body;
    if (r.piece > 0) return sendPieces(s, body, 0, r.piece, r.stallAfter < 0);
    s->write(body);
    if (r.stallAfter < 0) s->disconnectFromHost();
  }

  void sendPieces(QTcpSocket* s, const QByteArray& body, qsizetype at, int piece, bool close) {
    QPointer<QTcpSocket> p(s);
    if (at >= body.size()) {
      if (close) s->disconnectFromHost();
      return;
    }
    s->write(body.mid(at, piece));
    QTimer::singleShot(1, this, [=, this] {
      if (p) sendPieces(p, body, at + piece, piece, close);
    });
  }

  QTcpServer server_;
  QMap<QString, Route> routes_;
  QMap<QTcpSocket*, QByteArray> pending_;
  QByteArray proxyAuth_;
};

}  // namespace ql::test
