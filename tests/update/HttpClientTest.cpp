// The update's HTTP client against a server of the test's own, and the rules of versions, the
// scrambler and the update address.

#include "update/HttpClient.h"

#include <gtest/gtest.h>

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QElapsedTimer>
#include <stdexcept>

#include "TestFiles.h"
#include "TestFs.h"
#include "TestHttpServer.h"
#include "support/Globals.h"
#include "app/Settings.h"
#include "update/UpdateRules.h"

namespace ql::test {
namespace {

HttpLimits fast() { return {.idleTimeoutMs = 300}; }

QByteArray bytes(qsizetype n) {
  QByteArray b(n, '\0');
  for (qsizetype i = 0; i < n; ++i) b[i] = static_cast<char>((i * 7 + i / 251) & 0xff);
  return b;
}

class Http : public ::testing::Test {
 protected:
  // The application comes before the server, whose sockets need its event dispatcher.
  struct App {
    App() { ensureApp(); }
  } app;
  TestHttpServer server;
  QTemporaryDir dir;
  QString target() const { return dir.filePath(QStringLiteral("Quorlane_Update_9.9.9.deb")); }
};

TEST(UpdateRules, VersionsCompareAsThreeNumbers) {
  const struct {
    const char *installed, *offered;
    bool newer;
  } cases[] = {{"2.3.0", "2.3.1", true}, {"2.3.0", "2.3.0", false}, {"2.3.1", "2.3.0", false},
               {"2.3.9", "2.3.10", true}, {"2.9.0", "2.10.0", true}, {"3.0.0", "2.99.99", false},
               {"0.1.0", "1.0.0", true}};
  for (const auto& c : cases)
    EXPECT_EQ(isNewerVersion(QString::fromLatin1(c.installed), QString::fromLatin1(c.offered)), c.newer)
        << c.installed << " " << c.offered;
  for (const char* bad : {"2.03", "2.3.x", "2.3.0-beta", "", "garbage"})
    EXPECT_THROW(isNewerVersion(QStringLiteral("2.3.0"), QString::fromLatin1(bad)), std::runtime_error) << bad;

  // What the server offers must be three plain numbers: its text names the downloaded file.
  const std::pair<const char*, const char*> accepted[] = {
      {"2.4.0", "2.4.0"}, {"02.4.010", "2.4.10"}, {"999999999.0.1", "999999999.0.1"}};
  for (const auto& [offered, numbers] : accepted) {
    const auto v = offeredVersion(QString::fromLatin1(offered));
    EXPECT_EQ(v ? v->text() : QString(), QString::fromLatin1(numbers)) << offered;
  }
  for (const char* bad :
       {"9.9.9./../../x", "9.9.9/../x", "9.9.9.", "2.4", "2.4.0.1", " 2.4.0", "2.4.0\n", "+2.4.0",
        "2.-4.0", "2..4", "1000000000.0.0", "", "\xd9\xa2.4.0" /* a digit of another script */})
    EXPECT_FALSE(offeredVersion(QString::fromUtf8(bad))) << bad;
  EXPECT_EQ(quotedServerText(QStringLiteral("a\nb") + QString(100, QLatin1Char('c'))),
            QStringLiteral("a?b") + QString(57, QLatin1Char('c')) + QStringLiteral("..."));

  EXPECT_EQ(versionFromFile(QStringLiteral("#2.4.0\r\n")), QStringLiteral("2.4.0"));
  EXPECT_EQ(versionFromFile(QStringLiteral("v2.4.0\n")), QStringLiteral("2.4.0"));
  EXPECT_EQ(versionFromFile(QStringLiteral("v")), QString());
}

TEST(UpdateRules, ScramblerRoundTripAndItsTextForm) {
  for (const char* plain : {"a", "abc", "kim47q", "a longer secret than the key", "pässwört"}) {
    const QString p = QString::fromUtf8(plain);
    const QString scrambled = CryptIt(p, true);
    EXPECT_EQ(CryptIt(scrambled, false), p) << plain;
    EXPECT_EQ(CryptIt(scrambled + QLatin1Char('7'), false), p) << "a last odd digit is ignored";
  }
  // Each character meets one key character from the start: 'a' ^ 'k' is 0x0A.
  EXPECT_EQ(CryptIt(QStringLiteral("abc"), true), QStringLiteral("0A0B0E"));
}

TEST(UpdateRules, AddressFromEnvironmentThenSettingsAndDownloadFolder) {
  QTemporaryDir d;
  globals().IniFile = d.filePath(QStringLiteral("Quorlane.ini"));
  qunsetenv(kUpdateUrlVariable);
  StoreSettings(QStringLiteral("InternetUpdate"), QStringLiteral("UpdateURL"), QStringLiteral("http://set.example/"));
  EXPECT_EQ(updateBaseUrl(), QStringLiteral("http://set.example"));
  qputenv(kUpdateUrlVariable, "https://env.example:8443/u");
  EXPECT_EQ(updateBaseUrl(), QStringLiteral("https://env.example:8443/u"));
  qunsetenv(kUpdateUrlVariable);
  globals().IniFile.clear();

  EXPECT_EQ(downloadPath(QStringLiteral("%TEMP%"), QStringLiteral("Quorlane"), {2, 4, 0}),
            QDir::tempPath() + QStringLiteral("/Quorlane_Update_2.4.0.deb"));
  EXPECT_EQ(downloadPath(QStringLiteral("/tmp"), QStringLiteral("../Quorlane"), {2, 4, 0}),
            QString());
}

TEST_F(Http, TextFetchAndItsFailures) {
  server.text("/v.txt", "v2.4.0\r\n");
  server.redirect("/moved", "/v.txt");
  server.redirect("/a", "/b");
  server.redirect("/b", "/a");
  server.text("/big", QByteArray(10 * 1024 * 1024, 'x'));
  server.set("/big-unannounced", Route::ok(QByteArray(10 * 1024 * 1024, 'x')).noLength());
  server.text("/binary", QByteArray("v2.4.0\0\0\0", 9));
  server.text("/latin1", "\xc4nderung");
  const HttpClient client({}, fast());

  EXPECT_EQ(client.DownloadFileToDiskOrString(server.url("/v.txt")).text, QStringLiteral("v2.4.0\r\n"));
  const FetchResult moved = client.DownloadFileToDiskOrString(server.url("/moved"));
  EXPECT_FALSE(moved.failed) << moved.text.toStdString();
  EXPECT_EQ(client.DownloadFileToDiskOrString(server.url("/latin1")).text, QStringLiteral("Änderung"));

  const FetchResult missing = client.DownloadFileToDiskOrString(server.url("/nothing"));
  EXPECT_TRUE(missing.failed);
  EXPECT_EQ(missing.text, QStringLiteral("HttpQueryStatusCode: 404"));

  const FetchResult loop = client.DownloadFileToDiskOrString(server.url("/a"));
  EXPECT_TRUE(loop.failed);
  EXPECT_TRUE(loop.text.startsWith(QStringLiteral("HttpSendRequest: "))) << loop.text.toStdString();
  // Five redirects allowed: /a is asked for three times. Qt may send a request a second time
  // when the server closed the connection it was queued on, so at most twice that.
  EXPECT_LE(server.requestLines.count(QStringLiteral("GET /a HTTP/1.1")), 6);

  for (const char* path : {"/big", "/big-unannounced", "/binary"}) {
    QElapsedTimer t;
    t.start();
    const FetchResult r = client.DownloadFileToDiskOrString(server.url(QString::fromLatin1(path)));
    EXPECT_TRUE(r.failed) << path;
    EXPECT_TRUE(r.text.startsWith(QStringLiteral("InternetReadFile: "))) << r.text.toStdString();
    EXPECT_LT(t.elapsed(), 5000) << path;
  }

  // A server that takes the request and never answers: the time-out, not a hang.
  QTcpServer mute;
  mute.listen(QHostAddress::LocalHost);
  const FetchResult silent =
      client.DownloadFileToDiskOrString(QStringLiteral("http://127.0.0.1:%1/v.txt").arg(mute.serverPort()));
  EXPECT_EQ(silent.text, QStringLiteral("HttpSendRequest: The operation timed out"));
}

TEST_F(Http, DownloadWritesExactlyTheBytesAndChecksAPublishedSum) {
  const QByteArray body = bytes(123457);  // not a multiple of any buffer size
  server.set("/quorlane.deb", Route::ok(body).pieces(20000));
  server.redirect("/asp/fdl.asp?P=30", "/quorlane.deb");
  server.text("/quorlane.deb.sha256",
              QCryptographicHash::hash(body, QCryptographicHash::Sha256).toHex() + "  quorlane.deb\n");
  qint64 lastDone = 0, lastTotal = 0;
  const QString error = HttpClient({}, fast()).DLandFilesize(
      server.url("/asp/fdl.asp?P=30"), target(), [&](qint64 d, qint64 t) { lastDone = d, lastTotal = t; });
  EXPECT_EQ(error, QString());
  EXPECT_EQ(readFile(target()), body);
  EXPECT_EQ(lastDone, body.size());
  EXPECT_EQ(lastTotal, body.size());

  // Once more: the file is there now, and it stays exactly as it is.
  EXPECT_EQ(HttpClient({}, fast()).DLandFilesize(server.url("/quorlane.deb"), target()),
            QStringLiteral("CreateFile File exists"));
  EXPECT_EQ(readFile(target()), body);

  server.text("/quorlane.deb.sha256", QByteArray(64, 'a') + "  quorlane.deb\n");
  const QString other = dir.filePath(QStringLiteral("second.deb"));
  EXPECT_TRUE(HttpClient({}, fast()).DLandFilesize(server.url("/quorlane.deb"), other).startsWith(QStringLiteral("SHA-256")));
  EXPECT_FALSE(QFile::exists(other));
}

TEST_F(Http, BrokenDownloadsLeaveNoFile) {
  const QByteArray body = bytes(200000);
  server.set("/short", Route::ok(body.left(150000)).claim(200000));
  server.set("/stalls", Route::ok(body).stall(100000));
  server.set("/nolength", Route::ok(body).noLength());
  server.set("/slow", Route::ok(body).pieces(10000));
  const struct {
    const char* path;
    const char* error;
  } cases[] = {
      {"/short", "InternetReadFile "},
      {"/stalls", "InternetReadFile The operation timed out"},
      {"/nolength", "Filesize Zero"},
      {"/missing", "HttpQueryStatusCode 404"},
  };
  for (const auto& c : cases) {
    const QString error = HttpClient({}, fast()).DLandFilesize(server.url(QString::fromLatin1(c.path)), target());
    EXPECT_TRUE(error.startsWith(QString::fromLatin1(c.error))) << c.path << ": " << error.toStdString();
    EXPECT_FALSE(QFile::exists(target())) << c.path;
  }

  // Cancel at half way, asked for by the progress the user sees.
  qint64 seen = 0;
  bool sawFile = false;
  const QString error = HttpClient({}, fast()).DLandFilesize(
      server.url("/slow"), target(), [&](qint64 d, qint64) { seen = d, sawFile = QFile::exists(target()); },
      [&] { return seen >= body.size() / 2; });
  EXPECT_EQ(error, HttpClient::cancelText());
  EXPECT_TRUE(sawFile);
  EXPECT_LT(seen, body.size());
  EXPECT_FALSE(QFile::exists(target()));
}

TEST_F(Http, ProxyCarriesTheRequestWithItsCredentials) {
  TestHttpServer proxy;
  proxy.text("/version/Version_Quorlane.txt", "v9.0.0");
  proxy.requireProxyAuth(QByteArray("user:pw").toBase64());
  ProxySettings p{true, QStringLiteral("127.0.0.1"), QString::number(proxy.port()), QStringLiteral("user"),
                  QStringLiteral("pw")};
  const FetchResult r =
      HttpClient(p, fast()).DownloadFileToDiskOrString(QStringLiteral("http://update.invalid/version/Version_Quorlane.txt"));
  EXPECT_EQ(r.text, QStringLiteral("v9.0.0"));
  ASSERT_FALSE(proxy.requestLines.isEmpty());
  EXPECT_EQ(proxy.requestLines.last(), QStringLiteral("GET http://update.invalid/version/Version_Quorlane.txt HTTP/1.1"));
  EXPECT_TRUE(server.requestLines.isEmpty());

  p.use = false;  // the same settings switched off: straight to the (unknown) host
  EXPECT_TRUE(HttpClient(p, fast()).DownloadFileToDiskOrString(QStringLiteral("http://update.invalid/x")).failed);
}

}  // namespace
}  // namespace ql::test
