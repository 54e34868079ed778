#include "app/Settings.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>

#include "support/Globals.h"
#include "failure/FailureReport.h"

namespace ql {

namespace {

using F = SettingForm;

// The field of a key of Optionen; a captureless lambda, so that the table stays constant.
#define QL_FIELD(f) [](MainOptions& o) -> OptionField { return &o.f; }

constexpr SettingKey kKeys[] = {
    {"Allgemein", "Lang", F::Small, "0", nullptr},  // 0 not chosen, 7 German, 9 English, 25 Russian

    {"Form", "WindowState", F::Small, "0", nullptr},
    {"Form", "Left", F::Measure, nullptr, nullptr},  // centred on the screen
    {"Form", "Top", F::Measure, nullptr, nullptr},
    {"Form", "Width", F::Measure, "18000", nullptr},
    {"Form", "Height", F::Measure, "11400", nullptr},
    {"Form", "TVW", F::Measure, "8700", nullptr},

    // These four the options dialog and the start write at once; the exit leaves them alone.
    {"Optionen", "NoHardlinks", F::Flag, "0", nullptr, QL_FIELD(NoHardlinks), false},
    {"Optionen", "FolderColorFade", F::Flag, "0", nullptr, QL_FIELD(FolderColorFade), false},
    // 99: never decided, see the start
    {"Optionen", "Kontextmenu", F::Flag, "99", nullptr, QL_FIELD(Kontextmenu), false},
    {"Optionen", "Instanz", F::Flag, "1", nullptr, QL_FIELD(Instanz), false},
    {"Optionen", "ShowIcons", F::Flag, "0", nullptr, QL_FIELD(ShowIcons)},
    {"Optionen", "ShowIconsTop", F::Flag, "0", nullptr, QL_FIELD(ShowIconsTop)},
    {"Optionen", "FileSizeFormat", F::Small, "0", nullptr, QL_FIELD(FileSizeFormat)},
    {"Optionen", "FileSizeFormatDrive", F::Small, "3", nullptr, QL_FIELD(FileSizeFormatDrive)},
    {"Optionen", "FileSizeFormatFiles", F::Small, "2", nullptr, QL_FIELD(FileSizeFormatFiles)},
    {"Optionen", "FileSizeFormatTop", F::Small, "2", nullptr, QL_FIELD(FileSizeFormatTop)},
    {"Optionen", "SizeFormatNachkommastellenFolders", F::Flag, "1", nullptr,
     QL_FIELD(SizeFormatNachkommastellenFolders)},
    {"Optionen", "SizeFormatNachkommastellenDrive", F::Flag, "1", nullptr,
     QL_FIELD(SizeFormatNachkommastellenDrive)},
    {"Optionen", "SizeFormatNachkommastellenFiles", F::Flag, "1", nullptr,
     QL_FIELD(SizeFormatNachkommastellenFiles)},
    {"Optionen", "SizeFormatNachkommastellenTop", F::Flag, "1", nullptr,
     QL_FIELD(SizeFormatNachkommastellenTop)},
    {"Optionen", "DiskinfoVisible", F::Flag, "1", nullptr, QL_FIELD(DiskinfoVisible)},
    {"Optionen", "FilelistVisible", F::Flag, "1", nullptr, QL_FIELD(FilelistVisible)},
    {"Optionen", "ToplistVisible", F::Flag, "0", nullptr, QL_FIELD(ToplistVisible)},
    {"Optionen", "ColPercentVisible", F::Flag, "1", nullptr, QL_FIELD(ColPercentVisible)},
    {"Optionen", "ColFileVisible", F::Flag, "1", nullptr, QL_FIELD(ColFileVisible)},
    {"Optionen", "ColFolderVisible", F::Flag, "1", nullptr, QL_FIELD(ColFolderVisible)},
    {"Optionen", "FileColumn0", F::Flag, "1", nullptr, QL_FIELD(FileColumn[0])},
    {"Optionen", "FileColumn1", F::Flag, "1", nullptr, QL_FIELD(FileColumn[1])},
    {"Optionen", "FileColumn2", F::Flag, "1", nullptr, QL_FIELD(FileColumn[2])},
    {"Optionen", "FileColumn3", F::Flag, "1", nullptr, QL_FIELD(FileColumn[3])},
    {"Optionen", "FileColumn4", F::Flag, "1", nullptr, QL_FIELD(FileColumn[4])},
    {"Optionen", "FileColumn5", F::Flag, "1", nullptr, QL_FIELD(FileColumn[5])},
    {"Optionen", "FileColumn6", F::Flag, "1", nullptr, QL_FIELD(FileColumn[6])},
    {"Optionen", "TopColumn0", F::Flag, "1", nullptr, QL_FIELD(TopColumn[0])},
    {"Optionen", "TopColumn1", F::Flag, "1", nullptr, QL_FIELD(TopColumn[1])},
    {"Optionen", "TopColumn2", F::Flag, "1", nullptr, QL_FIELD(TopColumn[2])},
    {"Optionen", "TopColumn3", F::Flag, "1", nullptr, QL_FIELD(TopColumn[3])},
    {"Optionen", "TopColumn4", F::Flag, "1", nullptr, QL_FIELD(TopColumn[4])},
    {"Optionen", "TopColumn5", F::Flag, "1", nullptr, QL_FIELD(TopColumn[5])},
    {"Optionen", "TopColumn6", F::Flag, "1", nullptr, QL_FIELD(TopColumn[6])},
    {"Optionen", "TopColumn7", F::Flag, "1", nullptr, QL_FIELD(TopColumn[7])},
    {"Optionen", "FontSize", F::Measure, "9", nullptr, QL_FIELD(FontSize)},
    {"Optionen", "BigIcons", F::Flag, "0", nullptr, QL_FIELD(BigIcons)},
    // Read under this spelling, written as SymbolText: the same key, as keys ignore case.
    {"Optionen", "Symboltext", F::Flag, "0", "SymbolText", QL_FIELD(SymbolText)},
    {"Optionen", "FilePreview", F::Flag, "0", nullptr, QL_FIELD(FilePreview)},
    {"Optionen", "FilelistTile", F::Flag, "0", nullptr, QL_FIELD(FilelistTile)},
    {"Optionen", "ComboText", F::Text, "", nullptr, QL_FIELD(ComboText)},
    // How sizes are counted: st_blocks x 512 instead of st_size; a hard-linked file once.
    {"Optionen", "SizeAllocated", F::Flag, "0", nullptr, QL_FIELD(SizeAllocated)},
    {"Optionen", "LinksOnce", F::Flag, "0", nullptr, QL_FIELD(LinksOnce)},
    // Snapshots of each completed scan; the options dialog writes these.
    {"Optionen", "Snapshots", F::Flag, "1", nullptr, QL_FIELD(Snapshots), false},
    {"Optionen", "SnapshotKeep", F::Measure, "12", nullptr, QL_FIELD(SnapshotKeep), false},
    {"Optionen", "SnapshotBudgetMB", F::Measure, "2000", nullptr, QL_FIELD(SnapshotBudgetMB),
     false},

    {"ComboOrdner", "O", F::List, kProfileListEnd, nullptr},
    {"DriveFolders", "F", F::List, kProfileListEnd, nullptr},
    {"Exclude", "P", F::List, kProfileListEnd, nullptr},

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

#undef QL_FIELD

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

class Writer {
 public:
  Writer(ProfileDocument& doc, const QString& section) : doc_(doc), section_(section) {}
  void text(const QString& key, const QString& value) { doc_.set(section_, key, value); }
  void number(const QString& key, int value) { text(key, QString::number(value)); }

 private:
  ProfileDocument& doc_;
  QString section_;
};

template <class... Fs>
struct Overloaded : Fs... {
  using Fs::operator()...;
};

// The text of a key of Optionen as the file holds it: flags as 0 or 1.
QString fieldText(const SettingKey& k, MainOptions& o) {
  return std::visit(Overloaded{[&](int* v) {
                                 return QString::number(k.form == F::Flag ? *v != 0 : *v);
                               },
                               [](double* v) { return QString::number(*v); },
                               [](QString* v) { return *v; }},
                    k.field(o));
}

// Throws ConversionFailure when the text does not fit the key's form.
void setField(const SettingKey& k, MainOptions& o, const QString& text) {
  const QString key = QLatin1String(k.key);
  std::visit(Overloaded{[&](int* v) {
                          *v = k.form == F::Measure ? toLong(key, text) : toByte(key, text);
                        },
                        [&](double* v) { *v = toReal(key, text); },
                        [&](QString* v) { *v = text; }},
             k.field(o));
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

namespace {
// The settings file read for a reader or writer here; damage is reported by the first to meet it.
ProfileDocument openSettings(const QString& file) {
  ProfileDocument doc(iniPath(file));
  FailureReport(doc.damage());
  return doc;
}
}  // namespace

QString GetSettings(const QString& section, const QString& key, const QString& deflt,
                    const QString& file) {
  return openSettings(file).get(section, key, deflt);
}

QString GetSettings(const QString& section, const QString& key) {
  return GetSettings(section, key, settingDefault(section, key));
}

bool StoreSettings(const QString& section, const QString& key, const QVariant& value,
                   const QString& file) {
  const QString text = value.typeId() == QMetaType::Bool ? QString::number(value.toBool() ? 1 : 0)
                                                         : value.toString();
  ProfileDocument doc = openSettings(file);
  doc.set(section, key, text);
  return doc.save();
}

bool OptionenLadenMain(MainOptions& o, const QString& file) {
  const ProfileDocument doc = openSettings(file);
  for (const SettingKey& k : kKeys) {
    if (!k.field) continue;
    const QString section = QLatin1String(k.section);
    try {
      setField(k, o, doc.get(section, QLatin1String(k.key), QLatin1String(k.deflt)));
    } catch (const ConversionFailure& f) {
      report(QStringLiteral("OptionenLadenMain"), f, section);
      return false;
    }
  }
  return true;
}

bool OptionenSpeichernMain(const MainOptions& o, const QString& file) {
  ProfileDocument doc = openSettings(file);
  MainOptions values = o;  // the fields are reached through the table's non-const accessors
  for (const SettingKey& k : kKeys) {
    if (!k.field || !k.savedAtExit) continue;
    doc.set(QLatin1String(k.section), QLatin1String(k.writeKey ? k.writeKey : k.key),
            fieldText(k, values));
  }
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
  const ProfileDocument doc = openSettings(file);
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
  ProfileDocument doc = openSettings(file);
  Writer w(doc, kForm);
  w.number(QStringLiteral("WindowState"), p.WindowState);
  w.number(QStringLiteral("Left"), p.Left);
  w.number(QStringLiteral("Top"), p.Top);
  w.number(QStringLiteral("Width"), p.Width);
  w.number(QStringLiteral("Height"), p.Height);
  w.number(QStringLiteral("TVW"), p.TVW);
  return doc.save();
}

std::vector<std::string> readSentinelList(const ProfileDocument& doc, const QString& section,
                                          const QString& prefix) {
  const QByteArray end(kProfileListEnd);
  std::vector<std::string> values;
  for (int i = 0;; ++i) {
    const QByteArray v = doc.getBytes(section, prefix + QString::number(i), end);
    if (v == end) return values;
    values.push_back(v.toStdString());
  }
}

void writeSentinelList(ProfileDocument& doc, const QString& section, const QString& prefix,
                       const std::vector<std::string>& values) {
  doc.deleteSection(section);
  for (size_t i = 0; i < values.size(); ++i)
    doc.setBytes(section, prefix + QString::number(i), QByteArray::fromStdString(values[i]));
}

SavedComboFolders GetAllSavedComboFolders(const QString& file) {
  const ProfileDocument doc = openSettings(file);
  SavedComboFolders saved;
  saved.comboText = doc.get(kOptionen, QStringLiteral("ComboText"),
                            settingDefault(kOptionen, QStringLiteral("ComboText")));
  saved.folders = readSentinelList(doc, QStringLiteral("ComboOrdner"), QStringLiteral("O"));
  return saved;
}

bool SaveAllComboFolders(const QList<ComboItem>& items, const QString& file) {
  const auto blank = [](const std::string& p) {
    return std::all_of(p.begin(), p.end(), [](char c) { return c == ' ' || c == '\t'; });
  };
  std::vector<std::string> kept;
  for (auto it = items.crbegin(); it != items.crend() && kept.size() < kComboFoldersKept; ++it)
    if (it->image == kComboFolderImage && !blank(it->path)) kept.push_back(it->path);
  ProfileDocument doc = openSettings(file);
  writeSentinelList(doc, QStringLiteral("ComboOrdner"), QStringLiteral("O"), kept);
  return doc.save();
}

std::vector<std::string> LoadSavedNetworkFolders(const QString& file) {
  return readSentinelList(openSettings(file), QStringLiteral("DriveFolders"),
                          QStringLiteral("F"));
}

bool SaveNetworkFolders(const std::vector<std::string>& paths, const QString& file) {
  ProfileDocument doc = openSettings(file);
  writeSentinelList(doc, QStringLiteral("DriveFolders"), QStringLiteral("F"), paths);
  return doc.save();
}

std::vector<std::string> LoadExcludePatterns(const QString& file) {
  return readSentinelList(openSettings(file), QStringLiteral("Exclude"), QStringLiteral("P"));
}

bool SaveExcludePatterns(const std::vector<std::string>& patterns, const QString& file) {
  ProfileDocument doc = openSettings(file);
  writeSentinelList(doc, QStringLiteral("Exclude"), QStringLiteral("P"), patterns);
  return doc.save();
}

}  // namespace ql
