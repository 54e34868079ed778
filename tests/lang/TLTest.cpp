// The lookup and its fallbacks, the choice of the language and the translators' mode.

#include <gtest/gtest.h>

#include "LangFixture.h"
#include "app/Globals.h"
#include "failure/FailureReport.h"
#include "lang/TL.h"

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
      {"0", {{"LC_ALL", "de_DE.UTF-8"}}, kLangGerman},
      {"0", {{"LANG", "de_AT.UTF-8"}}, kLangGerman},
      {"0", {{"LC_MESSAGES", "ru_RU.UTF-8"}, {"LANG", "de_DE.UTF-8"}}, kLangRussian},
      {"0", {{"LC_ALL", "C.UTF-8"}, {"LC_MESSAGES", "de_DE"}, {"LANG", "ru_RU"}}, kLangEnglish},
      {"0", {{"LC_ALL", ""}, {"LANG", "ru"}}, kLangRussian},  // an empty variable does not count
      {"0", {{"LANG", "en_GB.UTF-8"}}, kLangEnglish},
      {"0", {{"LANG", "fr_FR.UTF-8"}}, kLangEnglish},
      {"0", {}, kLangEnglish},
      {"7", {{"LC_ALL", "ru_RU.UTF-8"}}, kLangGerman},
      {"25", {{"LC_ALL", "de_DE.UTF-8"}}, kLangRussian},
      {"1031", {{"LC_ALL", "de_DE.UTF-8"}}, kLangEnglish},  // a full locale id is not a language
      {"garbage", {{"LC_ALL", "de_DE.UTF-8"}}, kLangGerman},
  };
  for (const auto& c : cases) {
    LangFixture f;
    f.setLocale(c.env);
    f.init(QString::fromLatin1(c.stored));
    EXPECT_EQ(language(), c.expected) << "stored " << c.stored;
    EXPECT_EQ(globals().Lang, c.expected) << "stored " << c.stored;
  }
}

TEST(InitSprache, WritesTheChoiceBackOnlyWhenAsked) {
  LangFixture f;
  f.setLocale({{"LC_ALL", "ru_RU.UTF-8"}});
  f.init(QStringLiteral("0"), QString(), false);
  EXPECT_EQ(f.storedLang(), QStringLiteral("0"));
  f.init(QStringLiteral("0"), QString(), true);
  EXPECT_EQ(f.storedLang(), QStringLiteral("25"));
  f.init(QStringLiteral("1031"), QString(), true);
  EXPECT_EQ(f.storedLang(), QStringLiteral("9"));
}

TEST(TL, FallsBackToTheGermanDefault) {
  LangFixture f;
  f.init(QStringLiteral("7"));
  EXPECT_EQ(TL(3612, QStringLiteral("Speichern")), QStringLiteral("Speichern"));
  EXPECT_EQ(TL(0, QStringLiteral("x")), QStringLiteral("x"));

  f.init(QStringLiteral("9"));
  EXPECT_EQ(TL(3612, QStringLiteral("Speichern")), QStringLiteral("Save"));
  EXPECT_EQ(TL(0, QStringLiteral("x")), QStringLiteral("x"));
  EXPECT_EQ(TL(-3612, QStringLiteral("x")), QStringLiteral("x"));
  EXPECT_EQ(TL(999999, QStringLiteral("Fehlt")), QStringLiteral("Fehlt"));

  f.init(QStringLiteral("25"));
  EXPECT_EQ(TL(3612, QStringLiteral("Speichern")), QStringLiteral("Сохранить"));
  EXPECT_EQ(TL(0, QStringLiteral("x")), QStringLiteral("x"));
}

TEST(TL, ReplacesArgumentsRoundByRound) {
  LangFixture f;
  f.init(QStringLiteral("7"));
  // The first argument brings a "%2" that the second round replaces.
  EXPECT_EQ(TL(1, QStringLiteral("%1 und %2"), {QStringLiteral("a%2"), QStringLiteral("b")}),
            QStringLiteral("ab und b"));
  // A "%1" brought by the second argument comes too late.
  EXPECT_EQ(TL(1, QStringLiteral("%2/%1"), {QStringLiteral("a"), QStringLiteral("%1")}),
            QStringLiteral("%1/a"));
  EXPECT_EQ(TL(1, QStringLiteral("%1 %1"), {QStringLiteral("x")}), QStringLiteral("x x"));
  // Without arguments the placeholders stay.
  EXPECT_EQ(TL(1, QStringLiteral("%1 Tage")), QStringLiteral("%1 Tage"));
  // "%!" is a line break in the text, but not when an argument brings it.
  EXPECT_EQ(TL(3671, QStringLiteral("Die Datei '%1' kann nicht angezeigt werden!%!%!"),
               {QStringLiteral("a%!")}),
            QStringLiteral("Die Datei 'a%!' kann nicht angezeigt werden!\n\n"));

  f.init(QStringLiteral("9"));
  EXPECT_EQ(TL(3671, QStringLiteral("Die Datei '%1' kann nicht angezeigt werden!%!%!"),
               {QStringLiteral("a")}),
            QStringLiteral("The file 'a' cannot be displayed!\n\n"));
  EXPECT_EQ(TL(3723, QStringLiteral("%1 größten Dateien von '%2'"),
               {QStringLiteral("20"), QStringLiteral("/home")}),
            QStringLiteral("20 largest files in '/home'"));
}

TEST(TranslationMode, TheTranslatorsFileReplacesTheBuiltInTable) {
  LangFixture f;
  f.writeTextFile("3612,\"Speichern\",\"Sichern\"\n3612,\"Speichern\",\"Store\"\n");
  f.init(QStringLiteral("9"), QStringLiteral("\"/tmp\" -TLMODUS"));
  EXPECT_TRUE(translationMode());
  EXPECT_EQ(TL(3612, QStringLiteral("Speichern")), QStringLiteral("Store"));  // the later wins
  // An id the file lacks is German, not the built-in English.
  EXPECT_EQ(TL(3541, QStringLiteral("Drucken")), QStringLiteral("Drucken"));
  EXPECT_EQ(TranslateControlText(3612), QStringLiteral("Store"));
  EXPECT_EQ(TranslateControlText(3541), QString());

  // A whole table, beyond the first allocation of the collection that holds it.
  QByteArray many;
  for (int id = 1; id <= 600; ++id)
    many += QByteArray::number(5000 + id) + ",x,t" + QByteArray::number(id) + "\n";
  f.writeTextFile(many);
  f.init(QStringLiteral("25"), QStringLiteral("-TLMODUS"));
  for (int id = 1; id <= 600; ++id)
    ASSERT_EQ(TL(5000 + id, QStringLiteral("-")), QStringLiteral("t%1").arg(id)) << id;
  EXPECT_EQ(TL(3612, QStringLiteral("Speichern")), QStringLiteral("Speichern"));
}

TEST(TranslationMode, OnlyWithTheExactWordAFileAndAForeignLanguage) {
  LangFixture f;
  f.writeTextFile("3612,\"Speichern\",\"Store\"\n");
  f.init(QStringLiteral("9"), QStringLiteral("-tlmodus"));
  EXPECT_FALSE(translationMode());
  EXPECT_EQ(TL(3612, QStringLiteral("Speichern")), QStringLiteral("Save"));

  f.init(QStringLiteral("7"), QStringLiteral("-TLMODUS"));
  EXPECT_FALSE(translationMode());
  EXPECT_EQ(TL(3612, QStringLiteral("Speichern")), QStringLiteral("Speichern"));

  QFile::remove(f.path(QStringLiteral("QuorlaneTL.txt")));
  f.init(QStringLiteral("25"), QStringLiteral("-TLMODUS"));
  EXPECT_FALSE(translationMode());
  EXPECT_EQ(TL(3612, QStringLiteral("Speichern")), QStringLiteral("Сохранить"));
}

TEST(TranslationMode, AnEmptyFileLeavesEveryTextGerman) {
  LangFixture f;
  f.writeTextFile("");
  f.init(QStringLiteral("9"), QStringLiteral("-TLMODUS"));
  EXPECT_TRUE(translationMode());
  EXPECT_TRUE(textTableEmpty());
  EXPECT_EQ(TL(3612, QStringLiteral("Speichern")), QStringLiteral("Speichern"));
}

TEST(TranslationMode, ABadIdEndsTheReadingAndIsReported) {
  LangFixture f;
  f.writeTextFile("3612,\"Speichern\",\"Store\"\n99999999999,\"x\",\"y\"\n3541,\"Drucken\",\"P\"\n");
  const int before = failureCount();
  f.init(QStringLiteral("9"), QStringLiteral("-TLMODUS"));
  EXPECT_EQ(failureCount(), before + 1);
  EXPECT_EQ(TL(3612, QStringLiteral("Speichern")), QStringLiteral("Store"));
  EXPECT_EQ(TL(3541, QStringLiteral("Drucken")), QStringLiteral("Drucken"));
}

TEST(TranslateControlText, ReadsTheBuiltInTableOrNothing) {
  LangFixture f;
  f.init(QStringLiteral("9"));
  EXPECT_EQ(TranslateControlText(3609, QStringLiteral("ignored")), QStringLiteral("Cancel"));
  EXPECT_EQ(TranslateControlText(999999), QString());
  f.init(QStringLiteral("7"));
  EXPECT_EQ(TranslateControlText(3609), QString());
}

TEST(InitTextbausteine, GermanHasItsOwnHost) {
  LangFixture f;
  const std::pair<const char*, const char*> cases[] = {
      {"7", "https://www.quorlane.de"},
      {"9", "https://www.quorlane.com"},
      {"25", "https://www.quorlane.com"},
  };
  for (const auto& [lang, host] : cases) {
    f.init(QString::fromLatin1(lang));
    Init_Textbausteine();
    EXPECT_EQ(webHost(), QString::fromLatin1(host)) << lang;
  }
}

}  // namespace
}  // namespace ql
