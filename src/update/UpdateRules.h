#pragma once
// The rules of the internet update that need no network and no window: how a version file is
// read and versions compare, how the history text is shown, where the update lives, where a
// download goes, and the scrambler of the stored proxy password.
//
// Plain functions; callable from any thread except where they read the settings file
// (updateBaseUrl, loadUpdateSettings, saveUpdateSettings: user-interface thread).

#include <QString>
#include <optional>

#include "support/Version.h"

namespace ql {

// The version a version file names: the first character dropped, every "\r\n" removed; a text
// of fewer than two characters gives "". Trailing blanks and a lone "\n" (a file written on
// this platform) are dropped too.
QString versionFromFile(const QString& text);

// Whether `offered` is newer than `installed`: both are three decimal numbers split at ".",
// compared part by part as 32-bit integers. There is no "older": an older version is not new.
// Any other form (two parts, a letter, a suffix) throws std::runtime_error, in either text.
bool isNewerVersion(const QString& installed, const QString& offered);

// A version the update server offers, as numbers. The server's text reaches the name of the
// downloaded file, so only "N.N.N" is taken: one to nine decimal digits each, nothing before,
// between or after them (no blank, sign, fourth part or suffix).
struct VersionNumbers {
  qint32 major = 0, minor = 0, patch = 0;
  QString text() const;  // "2.4.10", written from the numbers
};
std::optional<VersionNumbers> offeredVersion(const QString& version);

// A text from the server as a message may quote it: its start only, anything unprintable as "?".
QString quotedServerText(const QString& text);

// History text as the dialog shows it: any mix of line ends brought to "\r\n".
QString normaliseHistory(const QString& text);

// Repeating-key exclusive-or with a text form of upper-case hexadecimal pairs, over the UTF-8
// bytes of the text. Decrypting ignores a last odd digit; a pair that is no hexadecimal number
// reads as 0.
inline constexpr char kCryptKey[] = "kim47q";
QString CryptIt(const QString& text, bool encrypt, const QString& key = QString::fromLatin1(kCryptKey));

// Where versions and downloads come from, without a trailing "/": the environment variable
// QUORLANE_UPDATE_URL, else InternetUpdate/UpdateURL, else the product's web site.
inline constexpr char kUpdateUrlVariable[] = "QUORLANE_UPDATE_URL";
QString updateBaseUrl();

struct UpdateUrls {
  QString version;
  QString history;  // German, or English for every other language
  QString download;
  // The beta channel exists in the dialog, but nothing in this program sets it.
  QString betaVersion, betaHistory, betaDownload;
};
UpdateUrls updateUrls(const QString& base, int language);

// `%NAME%` replaced by the variable's value; "%TEMP%" and "%TMP%" are the system's temporary
// folder when the variable is not set. A leading "~/" is the home folder.
QString expandSystemVariables(const QString& text);

// The download folder (expanded), "/", the program's name, "_Update_", the version's numbers,
// ".deb" (the update is the Debian package); "" when that name would not stand directly in the folder.
QString downloadPath(const QString& folderText, const QString& appName,
                     const VersionNumbers& version);

// The proxy, as the user set it in the options of the dialog.
struct ProxySettings {
  bool use = false;
  QString name;
  QString port;
  QString user;
  QString password;  // plain
};

// Section InternetUpdate, the password unscrambled on reading and scrambled on writing.
struct UpdateSettings {
  ProxySettings proxy;
  QString downloadFolder;  // as typed: "%TEMP%" stays "%TEMP%"
  bool checkWhenOpened = false;  // PrgStartVersionPruefen
  bool installerDialogs = false;  // UpdateBenutzeroberflaeche
};
UpdateSettings loadUpdateSettings(const QString& file = QString());
void saveUpdateSettings(const UpdateSettings& s, const QString& file = QString());

}  // namespace ql
