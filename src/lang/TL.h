#pragma once
// Every text the program shows goes through TL: a number, the German text beside it at the place
// of use, and arguments for "%1", "%2", ...; "%!" is a line break.
//
// German is the program's own language and needs no table. English and Russian come from tables
// compiled into the program; translators can start it with "-TLMODUS" to read their own file
// "QuorlaneTL.txt" instead. The language is fixed once at start by Init_Sprache, before any window
// or worker thread exists; after that every function here only reads, from any thread.
//
// Ids used by this platform only, beyond the program's historic list: 3705 "Russisch" (language
// menu), 3730 "Öffnen", 3731 "Im Dateimanager anzeigen", 3732 "Pfad kopieren" (context menus).

#include <QString>
#include <QStringList>
#include <vector>

#include "support/Failure.h"

namespace ql {

inline constexpr int kLangGerman = 7;
inline constexpr int kLangEnglish = 9;
inline constexpr int kLangRussian = 25;

// The text of `id` in the language of the run, else `deflt`; then "%!" becomes a line break and
// each argument i replaces every "%<i+1>", in order, so an argument holding "%2" is itself
// replaced in the next round. Ids below 1 always give the default.
QString TL(int id, const QString& deflt, const QStringList& args = {});

// Fixes the language of the run: `Lang` of section `Allgemein` in the settings file, or the
// system's language when that is 0; anything but 7, 9 and 25 becomes English. With
// `saveLanguage` the choice is written back. A command line holding "-TLMODUS" reads the
// translators' file `textFileName` from `programFolder` (the executable's folder when empty).
// What went wrong on the way (a damaged settings file, a bad translators' file) is handed back
// to be reported; the language is fixed all the same.
[[nodiscard]] std::vector<Failure> Init_Sprache(const QString& helpFileName, const QString& textFileName, bool saveLanguage,
                  const QString& commandLine, const QString& programFolder = QString());

// The language of the environment (LC_ALL, else LC_MESSAGES, else LANG): German 7, Russian 25,
// English 9 for English and for everything else.
int systemLanguage();

// Reads the translators' file into the text table and turns translation mode on. Does nothing
// under German or when the file is missing; then the built-in table stays the source. So it does
// for a file beyond the settings file's size limit, which is not read at all; that is handed
// back as a failure, as is a bad id, which ends the reading (what was read before it is kept).
[[nodiscard]] MaybeFailure LoadTextFromFile(const QString& path);

// The text of a control's id, or "" when there is none. `oldText` is not used.
QString TranslateControlText(int id, const QString& oldText = QString());

// Fills the web address of the product: one for German, another for every other language.
void initWebHost();
// The product's web site, with its scheme, e.g. "https://www.quorlane.com".
const QString& webHost();

int language();           // 7, 9 or 25 once Init_Sprache has run; 0 before
bool translationMode();   // true while the translators' file is the source
bool textTableEmpty();    // the translators' table holds no text
QString helpFile();       // the program folder plus the help file name; empty without a table

}  // namespace ql
