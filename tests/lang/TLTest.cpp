// The lookup and its fallbacks, the choice of the language and the translators' mode.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>

#include "LangFixture.h"
#include "failure/FailureReport.h"
#include "lang/Plural.h"
#include "lang/TL.h"
#include "support/Globals.h"

namespace ql {
namespace {

using test::LangFixture;

struct LocaleCase {
  const char* stored;
  std::initializer_list<std::pair<const char*, const char*>> env;
  int expected;
};

TEST(InitSprache, ChoosesStoredLanguageElseTheEnvironment) {
  const LocaleCase cases[] = {
      {"0", {{"LC_MESSAGES", "ru_RU.UTF-8"}, {"LANG", "de_DE.UTF-8"}}, kLangRussian},
      {"0", {{"LC_ALL", "C.UTF-8"}, {"LC_MESSAGES", "de_DE"}, {"LANG", "ru_RU"}}, kLangEnglish},
      {"0", {{"LC_ALL", ""}, {"LANG", "ru"}}, kLangRussian},  // an empty variable does not count
      {"7", {{"LC_ALL", "ru_RU.UTF-8"}}, kLangGerman},
      {"1031", {{"LC_ALL", "de_DE.UTF-8"}}, kLangEnglish},  // a full locale id is not a language
      {"garbage", {{"LC_ALL", "de_DE.UTF-8"}}, kLangGerman},
  };
  for (const auto& c : cases) {
    LangFixture f;
    f.setLocale(c.env);
    f.init(QString::fromLatin1(c.stored));
    EXPECT_EQ(globals().Lang, c.expected) << "stored " << c.stored;
  }
  // The choice is written back only when asked.
  LangFixture f;
  f.setLocale({{"LC_ALL", "ru_RU.UTF-8"}});
  f.init(QStringLiteral("0"), QString(), false);
  EXPECT_EQ(f.storedLang(), QStringLiteral("0"));
  f.init(QStringLiteral("0"), QString(), true);
  EXPECT_EQ(f.storedLang(), QStringLiteral("25"));
}

TEST(TL, FallsBackToTheGermanDefault) {
  const struct {
    const char* lang;
    QString save, cancelControl;
  } cases[] = {{"7", "Speichern", ""}, {"9", "Save", "Cancel"}, {"25", "Сохранить", "Отмена"}};
  LangFixture f;
  for (const auto& c : cases) {
    f.init(QString::fromLatin1(c.lang));
    EXPECT_EQ(TL(3612, QStringLiteral("Speichern")), c.save);
    EXPECT_EQ(TL(0, QStringLiteral("x")), QStringLiteral("x"));
    EXPECT_EQ(TL(999999, QStringLiteral("Fehlt")), QStringLiteral("Fehlt"));
    EXPECT_EQ(TranslateControlText(3609, QStringLiteral("ignored")), c.cancelControl);
  }
}

TEST(TL, ReplacesArgumentsRoundByRound) {
  LangFixture f;
  f.init(QStringLiteral("7"));
  // The first argument brings a "%2" that the second round replaces.
  EXPECT_EQ(TL(1, QStringLiteral("%1 und %2"), {QStringLiteral("a%2"), QStringLiteral("b")}),
            QStringLiteral("ab und b"));
  // "%!" is a line break in the text, but not when an argument brings it.
  EXPECT_EQ(TL(3671, QStringLiteral("'%1' nicht!%!%!"), {QStringLiteral("a%!")}),
            QStringLiteral("'a%!' nicht!\n\n"));

  f.init(QStringLiteral("9"));
  EXPECT_EQ(TL(3723, QStringLiteral("%1 größten Dateien von '%2'"),
               {QStringLiteral("20"), QStringLiteral("/home")}),
            QStringLiteral("20 largest files in '/home'"));
}

// The translators' file replaces the built-in table (the later record of an id wins, an id it
// lacks is German) only with the exact word, a file and a foreign language; a bad id ends the
// reading. The controls take their texts from the same table.
TEST(TranslationMode, WhenItAppliesAndWhatADamagedFileLeaves) {
  const struct {
    const char* file;  // nullptr: none
    const char *lang, *commandLine;
    bool mode;
    QString save, print, control;
    int failures;
  } cases[] = {
      {"3612,S,Store\n", "9", "-tlmodus", false, "Save", "Print", "Save", 0},
      {"3612,S,Store\n", "7", "-TLMODUS", false, "Speichern", "Drucken", "", 0},
      {nullptr, "25", "-TLMODUS", false, "Сохранить", "Печать", "Сохранить", 0},
      {"", "9", "-TLMODUS", true, "Speichern", "Drucken", "", 0},
      {"3612,S,Sichern\n3612,S,Store\n", "9", "\"/tmp\" -TLMODUS", true, "Store", "Drucken", "Store", 0},
      {"3612,S,Store\n99999999999,x,y\n3541,D,P\n", "9", "-TLMODUS", true, "Store", "Drucken", "Store", 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file ? c.file : "no file");
    LangFixture f;
    if (c.file) f.writeTextFile(c.file);
    const int before = failureCount();
    f.init(QString::fromLatin1(c.lang), QString::fromLatin1(c.commandLine));
    EXPECT_EQ(translationMode(), c.mode);
    EXPECT_EQ(TL(3612, QStringLiteral("Speichern")), c.save);
    EXPECT_EQ(TL(3541, QStringLiteral("Drucken")), c.print);
    EXPECT_EQ(TranslateControlText(3612), c.control);
    EXPECT_EQ(failureCount(), before + c.failures);
  }
}

// A translators' file beyond the settings file's limit is never read, whatever its size: the
// built-in texts stay and the reason is reported.
TEST(TranslationMode, AFileBeyondTheLimitLeavesTheBuiltInTable) {
  LangFixture f;
  f.writeTextFile("3612,S,Store\n");
  const QByteArray file = QFile::encodeName(f.path(QStringLiteral("QuorlaneTL.txt")));
  ASSERT_EQ(::truncate(file.constData(), 3LL << 30), 0);  // sparse: no disk needed
  // Room for the program, not for the file: reading it whole would fail to allocate.
  unsigned long pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  ASSERT_GT(pages, 0u);
  const int before = failureCount();
  rlimit old{};
  ::getrlimit(RLIMIT_AS, &old);
  rlimit tight = old;
  tight.rlim_cur = std::min<rlim_t>(old.rlim_cur, pages * ::sysconf(_SC_PAGESIZE) + (512u << 20));
  ASSERT_EQ(::setrlimit(RLIMIT_AS, &tight), 0);
  f.init(QStringLiteral("9"), QStringLiteral("-TLMODUS"));
  ::setrlimit(RLIMIT_AS, &old);
  EXPECT_FALSE(translationMode());
  EXPECT_EQ(TL(3612, QStringLiteral("Speichern")), QStringLiteral("Save"));
  EXPECT_EQ(TranslateControlText(3609), QStringLiteral("Cancel"));
  EXPECT_EQ(failureCount(), before + 1);
}

// Russian counts in three forms, where the teens always take the third.
TEST(Plural, EachLanguageCountsInItsForms) {
  using F = PluralForm;
  const struct {
    int64_t n;
    F russian, other;
  } cases[] = {{0, F::Many, F::Many},  {1, F::One, F::One},    {2, F::Few, F::Many},
               {5, F::Many, F::Many},  {12, F::Many, F::Many}, {21, F::One, F::Many},
               {111, F::Many, F::Many}};
  for (const auto& c : cases) {
    EXPECT_EQ(pluralForm(c.n, kLangRussian), c.russian) << c.n;
    EXPECT_EQ(pluralForm(c.n, kLangGerman), c.other) << c.n;
    EXPECT_EQ(pluralForm(c.n, kLangEnglish), c.other) << c.n;
  }
}

}  // namespace
}  // namespace ql
