#pragma once
// The program's HTTP client: GET over http:// or https://, run to its end through a local event
// loop, so the caller reads like a plain sequence while the window keeps drawing and its
// buttons (Cancel) keep working. Failures come back as text, never as exceptions:
//
//   prefix of the step that failed + description, e.g. "HttpQueryStatusCode: 404"
//
// The text fetch writes "<step>: <description>", the download "<step> <description>", as the
// users' bug reports have always shown them. Steps: HttpSendRequest (no answer: connection,
// TLS, redirects, time-out before the answer), HttpQueryStatusCode (anything but 200),
// InternetReadFile (the body broke off, timed out, is too long or not what its length said),
// CreateFile and WriteFile (the download's file).
//
// Redirects are followed, at most `maxRedirects`, never from https to http. Certificate errors
// end the request; they are never ignored. No data for `idleTimeoutMs` ends it too. The answer
// is asked for without compression, so the bytes counted are the bytes the server sent.
//
// User-interface thread (or any thread with an event loop); one request at a time per object.

#include <QByteArray>
#include <QString>
#include <QUrl>
#include <functional>

#include "update/UpdateRules.h"

namespace ql {

struct HttpLimits {
  int idleTimeoutMs = 30000;
  int maxRedirects = 5;
  qint64 maxTextBytes = 64 * 1024;  // version and history files are small; more is not read
};

// The result of a text fetch: failed, and the text or the error text.
struct FetchResult {
  bool failed = false;
  QString text;
};

class HttpClient {
 public:
  explicit HttpClient(ProxySettings proxy = {}, HttpLimits limits = {});

  // A small text file. Bytes that are not UTF-8 are read as Latin-1; a NUL byte means it is no
  // text at all, which fails.
  FetchResult DownloadFileToDiskOrString(const QString& url) const;

  // Downloads `url` into `path`, a file that must not exist yet. `progress` sees the bytes so
  // far and the length the server announced; `cancelRequested` is asked after each piece and a
  // few times a second. Returns "" or the error text; on any error the partial file is gone.
  // When the server publishes "<file>.sha256" beside the final address, the file must match.
  QString DLandFilesize(const QString& url, const QString& path,
                        const std::function<void(qint64 done, qint64 total)>& progress = {},
                        const std::function<bool()>& cancelRequested = {}) const;

  // Whether the file at `path` is the one `url` offers: a regular file of this user's that
  // nobody else may write, of the length the server announces and with the checksum it
  // publishes. Asks for the download's head only. "" when it is, else why not.
  QString matchesOffered(const QString& url, const QString& path) const;

  // The error text of a cancelled download; the dialog recognises it by its first six letters.
  static QString cancelText() { return QStringLiteral("Cancel (P206)"); }

 private:
  // The checksum published beside a download (lower-case hexadecimal); none is no error.
  struct Published {
    bool published = false;
    QString hash, error;
  };
  Published publishedSum(const QUrl& download) const;

  ProxySettings proxy_;
  HttpLimits limits_;
};

}  // namespace ql
