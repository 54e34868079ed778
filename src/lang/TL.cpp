#include "lang/TL.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <cmath>

#include "support/Globals.h"
#include "support/Profile.h"
#include "lang/TextTableReader.h"
#include "support/StringCollection.h"

// The tables live in a static library: their resources must be registered by name.
static void registerLanguageResources() { Q_INIT_RESOURCE(quorlane_lang); }

namespace ql {

namespace {

// The longest texts the tables have ever delivered: a lookup by TL, one for a control.
constexpr qsizetype kTextLimit = 1023;
constexpr qsizetype kControlTextLimit = 255;

struct LanguageState {
  int language = 0;
  bool libraryLoaded = false;
  QHash<int, QString> library;    // the built-in table of English or Russian
  bool translationMode = false;
  QString helpFile;
  QString webHost;
};

LanguageState& state() {
  static LanguageState s;
  return s;
}

// The translators' file: key "T" and the id, the text as item. Filled before any thread starts;
// lookups only read it.
CStringCollection& textTable() {
  static CStringCollection table;
  return table;
}

QString textKey(int id) {
  return QLatin1Char('T') + QString::number(id);
}

// The built-in table of a language, through the same reader as the translators' file.
bool loadLibrary(const QString& name) {
  registerLanguageResources();
  LanguageState& s = state();
  s.library.clear();
  s.libraryLoaded = false;
  QFile f(QStringLiteral(":/lang/") + name);
  if (!f.open(QIODevice::ReadOnly)) return false;
  s.library = readTextTable(f.readAll()).texts;
  s.libraryLoaded = true;
  return true;
}

}  // namespace

QString TL(int id, const QString& deflt, const QStringList& args) {
  const LanguageState& s = state();
  QString text;
  if (s.language != kLangGerman && id >= 1) {
    if (s.translationMode) {
      if (textTable().Count() > 0) text = textTable().Item(textKey(id));
    } else {
      text = s.library.value(id).left(kTextLimit);
    }
  }
  if (text.isEmpty()) text = deflt;
  text.replace(QLatin1String("%!"), QLatin1String("\n"));
  // One round per argument over the growing text: "%2" brought in by the first argument is
  // replaced by the second.
  for (qsizetype i = 0; i < args.size(); ++i)
    text.replace(QLatin1Char('%') + QString::number(i + 1), args[i]);
  return text;
}

int systemLanguage() {
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const QString value = qEnvironmentVariable(name);
    if (value.isEmpty()) continue;
    qsizetype end = 0;
    while (end < value.size() && value[end].isLetter()) ++end;
    const QString code = value.left(end).toLower();
    if (code == QLatin1String("de")) return kLangGerman;
    if (code == QLatin1String("ru")) return kLangRussian;
    return kLangEnglish;
  }
  return kLangEnglish;
}

std::vector<Failure> Init_Sprache(const QString& helpFileName, const QString& textFileName, bool saveLanguage,
                  const QString& commandLine, const QString& programFolder) {
  LanguageState& s = state();
  s.translationMode = false;
  textTable().Clear();
  s.library.clear();
  s.libraryLoaded = false;
  s.helpFile.clear();
  const QString folder = !programFolder.isEmpty()     ? programFolder
                         : QCoreApplication::instance() ? QCoreApplication::applicationDirPath()
                                                        : QString();
  const QString iniFile = globals().IniFile;

  std::vector<Failure> failures;
  MaybeFailure damage;
  const double stored = std::nearbyint(leadingNumber(
      ProfileGetItem(QStringLiteral("Allgemein"), QStringLiteral("Lang"), QStringLiteral("0"),
                     iniFile, &damage)));
  if (damage) failures.push_back(*damage);
  int lang = stored >= -32768 && stored <= 32767 ? static_cast<int>(stored) : kLangEnglish;
  if (lang == 0) lang = systemLanguage();
  if (lang != kLangEnglish && lang != kLangGerman && lang != kLangRussian) lang = kLangEnglish;

  if (lang == kLangEnglish) {
    if (loadLibrary(QStringLiteral("eng.txt")))
      s.helpFile = folder + QLatin1Char('/') + helpFileName;
    else
      lang = kLangGerman;
  } else if (lang == kLangRussian) {
    // Without its table Russian falls back to English in name only: every text stays German.
    if (loadLibrary(QStringLiteral("rus.txt")))
      s.helpFile = folder + QLatin1Char('/') + helpFileName;
    else
      lang = kLangEnglish;
  }
  s.language = lang;
  globals().Lang = lang;

  if (saveLanguage) {
    ProfileSetItem(QStringLiteral("Allgemein"), QStringLiteral("Lang"), QString::number(lang),
                   iniFile, &damage);
    if (damage) failures.push_back(*damage);
  }

  if (commandLine.contains(QLatin1String("-TLMODUS"))) {
    s.translationMode = true;
    if (MaybeFailure f = LoadTextFromFile(folder + QLatin1Char('/') + textFileName))
      failures.push_back(*f);
  }
  return failures;
}

MaybeFailure LoadTextFromFile(const QString& path) {
  const auto failure = [&](const QString& error) {
    return Failure{QStringLiteral("LoadTextFromFile"), QStringLiteral("z_Translate"), error, {path}};
  };
  LanguageState& s = state();
  s.translationMode = false;
  if (s.language == kLangGerman || !QFileInfo(path).isFile()) return std::nullopt;
  CStringCollection& table = textTable();
  table.Clear();
  QFile f(path);
  if (!f.open(QIODevice::ReadOnly)) {
    s.translationMode = true;
    return failure(f.errorString());
  }
  // A translators' file is the size of a built-in table; the settings file's limit is far above
  // that. One byte past the limit is read to see a file that grew since its size was asked.
  const QByteArray data =
      f.size() <= kProfileSizeLimit ? f.read(kProfileSizeLimit + 1) : QByteArray();
  if (f.size() > kProfileSizeLimit || data.size() > kProfileSizeLimit) {
    return failure(QStringLiteral("The translators' file is larger than %1 bytes; the built-in "
                                  "texts are used")
                       .arg(kProfileSizeLimit));
  }
  s.translationMode = true;
  const QString error = readTextRecords(data, [&](int id, const QString& text) {
    const QString key = textKey(id);
    if (table.Add(text, key) == 0) table.setItem(key, text);  // the last record of an id wins
  });
  if (!error.isEmpty()) return failure(error);
  return std::nullopt;
}

QString TranslateControlText(int id, const QString& /*oldText*/) {
  const LanguageState& s = state();
  if (!s.translationMode) return s.library.value(id).left(kControlTextLimit);
  return textTable().Item(textKey(id));
}

void initWebHost() {
  state().webHost = state().language == kLangGerman ? QStringLiteral("https://www.quorlane.de")
                                                    : QStringLiteral("https://www.quorlane.com");
}

const QString& webHost() { return state().webHost; }
int language() { return state().language; }
bool translationMode() { return state().translationMode; }
bool textTableEmpty() { return textTable().Count() == 0; }
QString helpFile() { return state().helpFile; }

}  // namespace ql
