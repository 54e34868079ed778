#include "app/Settings.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>

#include "app/Globals.h"
#include "failure/FailureReport.h"

namespace ql {

namespace {

using F = SettingForm;

constexpr SettingKey kKeys[] = {
    {"Allgemein", "Lang", F::Small, "0", nullptr},  // 0 not chosen, 7 German, 9 English, 25 Russian

    {"Form", "WindowState", F::Small, "0", nullptr},
    {"Form", "Left", F::Measure, nullptr, nullptr},  // centred on the screen
    {"Form", "Top", F::Measure, nullptr, nullptr},
    {"Form", "Width", F::Measure, "11715", nullptr},
    {"Form", "Height", F::Measure, "8190", nullptr},
    {"Form", "TVW", F::Measure, "3675", nullptr},

    {"Optionen", "NoHardlinks", F::Flag, "0", nullptr},
    {"Optionen", "FolderColorFade", F::Flag, "0", nullptr},
    {"Optionen", "Kontextmenu", F::Flag, "99", nullptr},  // 99: never decided, see the start
    {"Optionen", "Instanz", F::Flag, "1", nullptr},
    {"Optionen", "ShowIcons", F::Flag, "0", nullptr},
    {"Optionen", "ShowIconsTop", F::Flag, "0", nullptr},
    {"Optionen", "FileSizeFormat", F::Small, "0", nullptr},
    {"Optionen", "FileSizeFormatDrive", F::Small, "3", nullptr},
    {"Optionen", "FileSizeFormatFiles", F::Small, "2", nullptr},
    {"Optionen", "FileSizeFormatTop", F::Small, "2", nullptr},
    {"Optionen", "SizeFormatNachkommastellenFolders", F::Flag, "1", nullptr},
    {"Optionen", "SizeFormatNachkommastellenDrive", F::Flag, "1", nullptr},
    {"Optionen", "SizeFormatNachkommastellenFiles", F::Flag, "1", nullptr},
    {"Optionen", "SizeFormatNachkommastellenTop", F::Flag, "1", nullptr},
    {"Optionen", "DiskinfoVisible", F::Flag, "1", nullptr},
    {"Optionen", "FilelistVisible", F::Flag, "1", nullptr},
    {"Optionen", "ToplistVisible", F::Flag, "0", nullptr},
    {"Optionen", "ColPercentVisible", F::Flag, "1", nullptr},
    {"Optionen", "ColFileVisible", F::Flag, "1", nullptr},
    {"Optionen", "ColFolderVisible", F::Flag, "1", nullptr},
    {"Optionen", "FileColumn0", F::Flag, "1", nullptr},
    {"Optionen", "FileColumn1", F::Flag, "1", nullptr},
    {"Optionen", "FileColumn2", F::Flag, "1", nullptr},
    {"Optionen", "FileColumn3", F::Flag, "1", nullptr},
    {"Optionen", "FileColumn4", F::Flag, "1", nullptr},
    {"Optionen", "FileColumn5", F::Flag, "1", nullptr},
    {"Optionen", "FileColumn6", F::Flag, "1", nullptr},
    {"Optionen", "TopColumn0", F::Flag, "1", nullptr},
    {"Optionen", "TopColumn1", F::Flag, "1", nullptr},
    {"Optionen", "TopColumn2", F::Flag, "1", nullptr},
    {"Optionen", "TopColumn3", F::Flag, "1", nullptr},
    {"Optionen", "TopColumn4", F::Flag, "1", nullptr},
    {"Optionen", "TopColumn5", F::Flag, "1", nullptr},
    {"Optionen", "TopColumn6", F::Flag, "1", nullptr},
    {"Optionen", "TopColumn7", F::Flag, "1", nullptr},
    {"Optionen", "FontSize", F::Measure, "9", nullptr},
    {"Optionen", "BigIcons", F::Flag, "0", nullptr},
    // Read under this spelling, written as SymbolText: the same key, as keys ignore case.
    {"Optionen", "Symboltext", F::Flag, "1", "SymbolText"},
    {"Optionen", "FilePreview", F::Flag, "0", nullptr},
    {"Optionen", "FilelistTile", F::Flag, "0", nullptr},
    {"Optionen", "ComboText", F::Text, "", nullptr},

    {"ComboOrdner", "O", F::List, kProfileListEnd, nullptr},
    {"DriveFolders", "F", F::List, kProfileListEnd, nullptr},

    {"InternetUpdate", "UseProxy", F::Text, "0", nullptr},
    {"InternetUpdate", "ProxyName", F::Text, "", nullptr},
    {"InternetUpdate", "ProxyPort", F::Text, "", nullptr},
    {"InternetUpdate", "ProxyBenutzer", F::Text, "", nullptr},
    {"InternetUpdate", "ProxyPasswort", F::Text, "", nullptr},  // stored scrambled
    {"InternetUpdate", "Dpath", F::Text, "%TEMP%", nullptr},
    {"InternetUpdate", "PrgStartVersionPruefen", F::Flag, "0", nullptr},
    {"InternetUpdate", "UpdateBenutzeroberflaeche", F::Flag, "0", nullptr},
    // Where versions and downloads come from; empty means the program's own server.
    {"InternetUpdate", "UpdateURL", F::Text, "", nullptr},
};

const QString kOptionen = QStringLiteral("Optionen");
const QString kForm = QStringLiteral("Form");

// A value that does not fit its form, with what the report needs to say about it.
struct ConversionFailure {
  QString error;
  QString key;
  QString value;
};

std::optional<double> toNumber(const QString& text) {
  QString t = text.trimmed();
  t.replace(QLatin1Char(','), QLatin1Char('.'));  // a hand edit in German style
  bool ok = false;
  const double d = t.toDouble(&ok);
  if (!ok || !std::isfinite(d)) return std::nullopt;
  return d;
}

// Rounds half to even ("2.5" reads as 2); throws outside [lo, hi].
int toWhole(const QString& key, const QString& text, double lo, double hi) {
  const auto d = toNumber(text);
  if (!d) throw ConversionFailure{QStringLiteral("Type mismatch"), key, text};
  const double r = std::nearbyint(*d);
  if (r < lo || r > hi) throw ConversionFailure{QStringLiteral("Overflow"), key, text};
  return static_cast<int>(r);
}

int toByte(const QString& key, const QString& text) {
  return toWhole(key, text, 0, 255);
}

int toLong(const QString& key, const QString& text) {
  return toWhole(key, text, std::numeric_limits<int32_t>::min(),
                 std::numeric_limits<int32_t>::max());
}

double toReal(const QString& key, const QString& text) {
  const auto d = toNumber(text);
  if (!d) throw ConversionFailure{QStringLiteral("Type mismatch"), key, text};
  return *d;
}

void report(const QString& proc, const ConversionFailure& f, const QString& section) {
  FailureReport(proc, QStringLiteral("frmMain"), 0, f.error,
                {section + QLatin1Char('/') + f.key + QLatin1Char('=') + f.value});
}

class Reader {
 public:
  Reader(const ProfileDocument& doc, const QString& section) : doc_(doc), section_(section) {}
  QString text(const QString& key) const {
    return doc_.get(section_, key, settingDefault(section_, key));
  }
  int byte(const QString& key) const { return toByte(key, text(key)); }
  double real(const QString& key) const { return toReal(key, text(key)); }

 private:
  const ProfileDocument& doc_;
  QString section_;
};

class Writer {
 public:
  Writer(ProfileDocument& doc, const QString& section) : doc_(doc), section_(section) {}
  void text(const QString& key, const QString& value) { doc_.set(section_, key, value); }
  void flag(const QString& key, int value) { text(key, QString::number(value != 0 ? 1 : 0)); }
  void number(const QString& key, int value) { text(key, QString::number(value)); }

 private:
  ProfileDocument& doc_;
  QString section_;
};

QString numbered(const char* prefix, int i) {
  return QLatin1String(prefix) + QString::number(i);
}

}  // namespace

std::span<const SettingKey> settingKeys() {
  return kKeys;
}

const SettingKey* findSettingKey(const QString& section, const QString& key) {
  for (const auto& k : kKeys) {
    if (section.compare(QLatin1String(k.section), Qt::CaseInsensitive) != 0) continue;
    if (key.compare(QLatin1String(k.key), Qt::CaseInsensitive) == 0 ||
        (k.writeKey && key.compare(QLatin1String(k.writeKey), Qt::CaseInsensitive) == 0))
      return &k;
  }
  return nullptr;
}

QString settingDefault(const QString& section, const QString& key) {
  const SettingKey* k = findSettingKey(section, key);
  return k && k->deflt ? QString::fromUtf8(k->deflt) : QString();
}

QString iniPath(const QString& file) {
  return file.isEmpty() ? globals().IniFile : file;
}

QString GetSettings(const QString& section, const QString& key, const QString& deflt,
                    const QString& file) {
  return ProfileGetItem(section, key, deflt, iniPath(file));
}

QString GetSettings(const QString& section, const QString& key) {
  return GetSettings(section, key, settingDefault(section, key));
}

bool StoreSettings(const QString& section, const QString& key, const QVariant& value,
                   const QString& file) {
  const QString text = value.typeId() == QMetaType::Bool ? QString::number(value.toBool() ? 1 : 0)
                                                         : value.toString();
  return ProfileSetItem(section, key, text, iniPath(file));
}

bool OptionenLadenMain(MainOptions& o, const QString& file) {
  const ProfileDocument doc(iniPath(file));
  const Reader r(doc, kOptionen);
  try {
    o.NoHardlinks = r.byte(QStringLiteral("NoHardlinks"));
    o.FolderColorFade = r.byte(QStringLiteral("FolderColorFade"));
    o.Kontextmenu = r.byte(QStringLiteral("Kontextmenu"));
    o.Instanz = r.byte(QStringLiteral("Instanz"));
    o.ShowIcons = r.byte(QStringLiteral("ShowIcons"));
    o.ShowIconsTop = r.byte(QStringLiteral("ShowIconsTop"));
    o.FileSizeFormat = r.byte(QStringLiteral("FileSizeFormat"));
    o.FileSizeFormatDrive = r.byte(QStringLiteral("FileSizeFormatDrive"));
    o.FileSizeFormatFiles = r.byte(QStringLiteral("FileSizeFormatFiles"));
    o.FileSizeFormatTop = r.byte(QStringLiteral("FileSizeFormatTop"));
    o.SizeFormatNachkommastellenFolders =
        r.byte(QStringLiteral("SizeFormatNachkommastellenFolders"));
    o.SizeFormatNachkommastellenDrive = r.byte(QStringLiteral("SizeFormatNachkommastellenDrive"));
    o.SizeFormatNachkommastellenFiles = r.byte(QStringLiteral("SizeFormatNachkommastellenFiles"));
    o.SizeFormatNachkommastellenTop = r.byte(QStringLiteral("SizeFormatNachkommastellenTop"));
    o.DiskinfoVisible = r.byte(QStringLiteral("DiskinfoVisible"));
    o.FilelistVisible = r.byte(QStringLiteral("FilelistVisible"));
    o.ToplistVisible = r.byte(QStringLiteral("ToplistVisible"));
    o.ColPercentVisible = r.byte(QStringLiteral("ColPercentVisible"));
    o.ColFileVisible = r.byte(QStringLiteral("ColFileVisible"));
    o.ColFolderVisible = r.byte(QStringLiteral("ColFolderVisible"));
    for (int i = 0; i < 7; ++i) o.FileColumn[i] = r.byte(numbered("FileColumn", i));
    for (int i = 0; i < 8; ++i) o.TopColumn[i] = r.byte(numbered("TopColumn", i));
    o.FontSize = r.real(QStringLiteral("FontSize"));
    o.BigIcons = r.byte(QStringLiteral("BigIcons"));
    o.SymbolText = r.byte(QStringLiteral("Symboltext"));
    o.FilePreview = r.byte(QStringLiteral("FilePreview"));
    o.FilelistTile = r.byte(QStringLiteral("FilelistTile"));
    o.ComboText = r.text(QStringLiteral("ComboText"));
  } catch (const ConversionFailure& f) {
    report(QStringLiteral("OptionenLadenMain"), f, kOptionen);
    return false;
  }
  return true;
}

bool OptionenSpeichernMain(const MainOptions& o, const QString& file) {
  ProfileDocument doc(iniPath(file));
  Writer w(doc, kOptionen);
  w.flag(QStringLiteral("ShowIcons"), o.ShowIcons);
  w.flag(QStringLiteral("ShowIconsTop"), o.ShowIconsTop);
  w.number(QStringLiteral("FileSizeFormat"), o.FileSizeFormat);
  w.number(QStringLiteral("FileSizeFormatDrive"), o.FileSizeFormatDrive);
  w.number(QStringLiteral("FileSizeFormatFiles"), o.FileSizeFormatFiles);
  w.number(QStringLiteral("FileSizeFormatTop"), o.FileSizeFormatTop);
  w.flag(QStringLiteral("SizeFormatNachkommastellenFolders"), o.SizeFormatNachkommastellenFolders);
  w.flag(QStringLiteral("SizeFormatNachkommastellenDrive"), o.SizeFormatNachkommastellenDrive);
  w.flag(QStringLiteral("SizeFormatNachkommastellenFiles"), o.SizeFormatNachkommastellenFiles);
  w.flag(QStringLiteral("SizeFormatNachkommastellenTop"), o.SizeFormatNachkommastellenTop);
  w.flag(QStringLiteral("DiskinfoVisible"), o.DiskinfoVisible);
  w.flag(QStringLiteral("FilelistVisible"), o.FilelistVisible);
  w.flag(QStringLiteral("ToplistVisible"), o.ToplistVisible);
  w.flag(QStringLiteral("ColPercentVisible"), o.ColPercentVisible);
  w.flag(QStringLiteral("ColFileVisible"), o.ColFileVisible);
  w.flag(QStringLiteral("ColFolderVisible"), o.ColFolderVisible);
  for (int i = 0; i < 7; ++i) w.flag(numbered("FileColumn", i), o.FileColumn[i]);
  for (int i = 0; i < 8; ++i) w.flag(numbered("TopColumn", i), o.TopColumn[i]);
  w.text(QStringLiteral("FontSize"), QString::number(o.FontSize));
  w.flag(QStringLiteral("BigIcons"), o.BigIcons);
  w.flag(QStringLiteral("SymbolText"), o.SymbolText);
  w.flag(QStringLiteral("FilePreview"), o.FilePreview);
  w.flag(QStringLiteral("FilelistTile"), o.FilelistTile);
  w.text(QStringLiteral("ComboText"), o.ComboText);
  return doc.save();
}

int centredLeft(int screenWidth, int width) {
  return screenWidth / 2 - width / 2;
}
int centredTop(int screenHeight, int height) {
  return screenHeight / 2 - height / 2;
}

FormPosition correctFormPosition(FormPosition p, int screenWidth, int screenHeight) {
  if (p.Left < 0 || p.Left > screenWidth) p.Left = 0;
  if (p.Top < 0 || p.Top > screenHeight) p.Top = 0;
  if (p.TVW > p.Width) p.TVW = kTvwFallback;
  return p;
}

int windowStateAtStart(int stored) {
  return stored == 1 ? 0 : stored;
}

FormPosition FensterpositionLaden(int screenWidth, int screenHeight, const QString& file) {
  const ProfileDocument doc(iniPath(file));
  // Each key on its own: a damaged value costs that value only.
  auto read = [&](const QString& key, const QString& deflt, bool small = false) {
    const QString text = doc.get(kForm, key, deflt);
    try {
      return small ? toByte(key, text) : toLong(key, text);
    } catch (const ConversionFailure& f) {
      report(QStringLiteral("Form_Load"), f, kForm);
      return small ? toByte(key, deflt) : toLong(key, deflt);
    }
  };
  auto deflt = [&](const char* key) { return settingDefault(kForm, QLatin1String(key)); };
  FormPosition p;
  p.Height = read(QStringLiteral("Height"), deflt("Height"));
  p.Width = read(QStringLiteral("Width"), deflt("Width"));
  p.Left = read(QStringLiteral("Left"), QString::number(centredLeft(screenWidth, p.Width)));
  p.Top = read(QStringLiteral("Top"), QString::number(centredTop(screenHeight, p.Height)));
  p.TVW = read(QStringLiteral("TVW"), deflt("TVW"));
  p.WindowState =
      windowStateAtStart(read(QStringLiteral("WindowState"), deflt("WindowState"), true));
  return correctFormPosition(p, screenWidth, screenHeight);
}

bool FensterpositionSpeichern(const FormPosition& p, const QString& file) {
  ProfileDocument doc(iniPath(file));
  Writer w(doc, kForm);
  w.number(QStringLiteral("WindowState"), p.WindowState);
  w.number(QStringLiteral("Left"), p.Left);
  w.number(QStringLiteral("Top"), p.Top);
  w.number(QStringLiteral("Width"), p.Width);
  w.number(QStringLiteral("Height"), p.Height);
  w.number(QStringLiteral("TVW"), p.TVW);
  return doc.save();
}

QStringList readSentinelList(const ProfileDocument& doc, const QString& section,
                             const QString& prefix) {
  const QString end = QLatin1String(kProfileListEnd);
  QStringList values;
  for (int i = 0;; ++i) {
    QString v = doc.get(section, prefix + QString::number(i), end);
    if (v == end) return values;
    values << std::move(v);
  }
}

void writeSentinelList(ProfileDocument& doc, const QString& section, const QString& prefix,
                       const QStringList& values) {
  doc.deleteSection(section);
  for (int i = 0; i < values.size(); ++i) doc.set(section, prefix + QString::number(i), values[i]);
}

SavedComboFolders GetAllSavedComboFolders(const QString& file) {
  const ProfileDocument doc(iniPath(file));
  SavedComboFolders saved;
  saved.comboText = doc.get(kOptionen, QStringLiteral("ComboText"),
                            settingDefault(kOptionen, QStringLiteral("ComboText")));
  saved.folders = readSentinelList(doc, QStringLiteral("ComboOrdner"), QStringLiteral("O"));
  return saved;
}

bool SaveAllComboFolders(const QList<ComboItem>& items, const QString& file) {
  QStringList kept;
  for (auto it = items.crbegin(); it != items.crend() && kept.size() < kComboFoldersKept; ++it)
    if (it->image == kComboFolderImage && !it->text.trimmed().isEmpty()) kept << it->text;
  ProfileDocument doc(iniPath(file));
  writeSentinelList(doc, QStringLiteral("ComboOrdner"), QStringLiteral("O"), kept);
  return doc.save();
}

QStringList LoadSavedNetworkFolders(const QString& file) {
  return readSentinelList(ProfileDocument(iniPath(file)), QStringLiteral("DriveFolders"),
                          QStringLiteral("F"));
}

bool SaveNetworkFolders(const QStringList& paths, const QString& file) {
  ProfileDocument doc(iniPath(file));
  writeSentinelList(doc, QStringLiteral("DriveFolders"), QStringLiteral("F"), paths);
  return doc.save();
}

}  // namespace ql
