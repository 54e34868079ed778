#include "update/UpdateRules.h"

#include <QDir>
#include <QRegularExpression>
#include <QStringList>
#include <stdexcept>

#include "app/Settings.h"
#include "lang/TL.h"

namespace ql {

namespace {

const QString kSection = QStringLiteral("InternetUpdate");

// The parts of a version as numbers; the error texts are those of a failed number read.
void versionParts(const QString& text, qint32 out[3]) {
  const QStringList parts = text.split(QLatin1Char('.'));
  if (parts.size() < 3) throw std::runtime_error("Subscript out of range");
  for (int i = 0; i < 3; ++i) {
    bool ok = false;
    out[i] = parts[i].toInt(&ok);
    if (!ok) throw std::runtime_error("Type mismatch");
  }
}

QString hexPair(unsigned v) {
  return QStringLiteral("%1").arg(v, 2, 16, QLatin1Char('0')).toUpper();
}

}  // namespace

QString versionFromFile(const QString& text) {
  if (text.size() < 2) return {};
  QString v = text.mid(1);
  v.remove(QStringLiteral("\r\n"));
  while (!v.isEmpty() && v.back().isSpace()) v.chop(1);
  return v;
}

bool isNewerVersion(const QString& installed, const QString& offered) {
  qint32 a[3], b[3];
  versionParts(installed, a);
  versionParts(offered, b);
  return a[0] < b[0] || (a[0] == b[0] && a[1] < b[1]) ||
         (a[0] == b[0] && a[1] == b[1] && a[2] < b[2]);
}

QString VersionNumbers::text() const {
  return QStringLiteral("%1.%2.%3").arg(major).arg(minor).arg(patch);
}

std::optional<VersionNumbers> offeredVersion(const QString& version) {
  const QStringList parts = version.split(QLatin1Char('.'));
  if (parts.size() != 3) return std::nullopt;
  qint32 n[3] = {};
  for (int i = 0; i < 3; ++i) {
    // Digits by hand: toInt() would take blanks, a sign and other scripts' digits.
    const QString& p = parts[i];
    if (p.isEmpty() || p.size() > 9) return std::nullopt;
    for (const QChar c : p) {
      if (c < QLatin1Char('0') || c > QLatin1Char('9')) return std::nullopt;
      n[i] = n[i] * 10 + (c.unicode() - '0');
    }
  }
  return VersionNumbers{n[0], n[1], n[2]};
}

QString quotedServerText(const QString& text) {
  constexpr qsizetype kShown = 60;
  QString out = text.left(kShown);
  for (QChar& c : out)
    if (!c.isPrint()) c = QLatin1Char('?');
  if (text.size() > kShown) out += QStringLiteral("...");
  return out;
}

QString normaliseHistory(const QString& text) {
  QString t = text;
  t.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
  t.replace(QStringLiteral("\n"), QStringLiteral("\r\n"));
  return t;
}

QString CryptIt(const QString& text, bool encrypt, const QString& key) {
  if (text.isEmpty() || key.isEmpty()) return {};
  const QByteArray k = key.toUtf8();
  int ki = 0;
  auto nextKey = [&] {
    const unsigned c = static_cast<unsigned char>(k[ki]);
    ki = (ki + 1) % k.size();
    return c;
  };
  if (encrypt) {
    QString out;
    for (const char ch : text.toUtf8()) out += hexPair(static_cast<unsigned char>(ch) ^ nextKey());
    return out;
  }
  const QByteArray hex = text.toLatin1();
  QByteArray plain;
  for (qsizetype i = 0; i + 1 < hex.size(); i += 2) {
    bool ok = false;
    const unsigned b = QString::fromLatin1(hex.mid(i, 2)).toUInt(&ok, 16);
    plain.append(static_cast<char>((ok ? b : 0u) ^ nextKey()));
  }
  return QString::fromUtf8(plain);
}

QString updateBaseUrl() {
  QString base = qEnvironmentVariable(kUpdateUrlVariable).trimmed();
  if (base.isEmpty()) base = GetSettings(kSection, QStringLiteral("UpdateURL")).trimmed();
  if (base.isEmpty()) base = webHost();
  while (base.endsWith(QLatin1Char('/'))) base.chop(1);
  return base;
}

UpdateUrls updateUrls(const QString& base, int language) {
  UpdateUrls u;
  u.version = base + QStringLiteral("/version/Version_Quorlane.txt");
  u.history = base + (language == kLangGerman ? QStringLiteral("/version/History_Quorlane.txt")
                                              : QStringLiteral("/version/History_Quorlane_eng.txt"));
  u.download = base + QStringLiteral("/asp/fdl.asp?P=30");
  return u;
}

QString expandSystemVariables(const QString& text) {
  static const QRegularExpression variable(QStringLiteral("%([^%]+)%"));
  QString out;
  qsizetype from = 0;
  for (auto it = variable.globalMatch(text); it.hasNext();) {
    const auto m = it.next();
    out += text.mid(from, m.capturedStart() - from);
    const QString name = m.captured(1);
    QString value = qEnvironmentVariable(name.toLocal8Bit().constData());
    if (value.isEmpty() && (name.compare(QLatin1String("TEMP"), Qt::CaseInsensitive) == 0 ||
                            name.compare(QLatin1String("TMP"), Qt::CaseInsensitive) == 0))
      value = QDir::tempPath();
    out += value.isEmpty() ? m.captured(0) : value;
    from = m.capturedEnd();
  }
  out += text.mid(from);
  if (out == QLatin1String("~") || out.startsWith(QLatin1String("~/")))
    out = QDir::homePath() + out.mid(1);
  return out;
}

QString downloadPath(const QString& folderText, const QString& appName,
                     const VersionNumbers& version) {
  QString folder = expandSystemVariables(folderText);
  if (!folder.endsWith(QLatin1Char('/'))) folder += QLatin1Char('/');
  // The folder is the user's; the name must be one entry in it, whatever the program is called.
  const QString name =
      appName + QStringLiteral("_Update_") + version.text() + QStringLiteral(".deb");
  if (name.contains(QLatin1Char('/')) || name.contains(QChar(0))) return {};
  return folder + name;
}

UpdateSettings loadUpdateSettings(const QString& file) {
  auto get = [&](const char* key) {
    const QString k = QLatin1String(key);
    return GetSettings(kSection, k, settingDefault(kSection, k), file);
  };
  UpdateSettings s;
  s.proxy.use = get("UseProxy") == QLatin1String("1");
  s.proxy.name = get("ProxyName");
  s.proxy.port = get("ProxyPort");
  s.proxy.user = get("ProxyBenutzer");
  s.proxy.password = CryptIt(get("ProxyPasswort"), false);
  s.downloadFolder = get("Dpath");
  s.checkWhenOpened = get("PrgStartVersionPruefen").toInt() != 0;
  s.installerDialogs = get("UpdateBenutzeroberflaeche").toInt() != 0;
  return s;
}

void saveUpdateSettings(const UpdateSettings& s, const QString& file) {
  auto put = [&](const char* key, const QVariant& v) {
    StoreSettings(kSection, QLatin1String(key), v, file);
  };
  put("UseProxy", s.proxy.use ? QStringLiteral("1") : QStringLiteral("0"));
  put("ProxyName", s.proxy.name);
  put("ProxyPort", s.proxy.port);
  put("ProxyBenutzer", s.proxy.user);
  put("ProxyPasswort", CryptIt(s.proxy.password, true));
  put("Dpath", s.downloadFolder);
  put("PrgStartVersionPruefen", s.checkWhenOpened);
  put("UpdateBenutzeroberflaeche", s.installerDialogs);
}

}  // namespace ql
