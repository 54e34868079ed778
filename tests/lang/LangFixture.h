#pragma once
// Puts the language module into a chosen state: a fresh settings file, the locale variables as
// given, and an optional translators' file, then runs the start-up as the program does.

#include <QByteArray>
#include <QFile>
#include <QTemporaryDir>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "support/Globals.h"
#include "support/Profile.h"
#include "failure/FailureReport.h"
#include "lang/TL.h"

namespace ql::test {

class LangFixture {
 public:
  LangFixture() {
    for (const char* name : kLocaleVars)
      if (const char* v = std::getenv(name)) saved_.emplace_back(name, v);
    globals().IniFile = dir_.filePath(QStringLiteral("Quorlane.ini"));
  }
  ~LangFixture() {
    for (const char* name : kLocaleVars) qunsetenv(name);
    for (const auto& [name, value] : saved_) qputenv(name.c_str(), QByteArray(value.c_str()));
    globals().IniFile.clear();
  }

  // Only the given locale variables are set.
  void setLocale(std::initializer_list<std::pair<const char*, const char*>> vars) {
    for (const char* name : kLocaleVars) qunsetenv(name);
    for (const auto& [name, value] : vars) qputenv(name, value);
  }

  QString storedLang() const {
    return ProfileGetItem(QStringLiteral("Allgemein"), QStringLiteral("Lang"), QStringLiteral("-"),
                          globals().IniFile);
  }

  void writeTextFile(const QByteArray& content) {
    QFile f(dir_.filePath(QStringLiteral("QuorlaneTL.txt")));
    if (f.open(QIODevice::WriteOnly)) f.write(content);
  }

  // The start-up call of the program, with our folder as the program's folder.
  void init(const QString& lang, const QString& commandLine = QString(), bool save = false) {
    ProfileSetItem(QStringLiteral("Allgemein"), QStringLiteral("Lang"), lang, globals().IniFile);
    FailureReport(
        Init_Sprache(QString(), QStringLiteral("QuorlaneTL.txt"), save, commandLine, dir_.path()));
  }

  QString path(const QString& name) const { return dir_.filePath(name); }

 private:
  static constexpr const char* kLocaleVars[] = {"LC_ALL", "LC_MESSAGES", "LANG"};
  QTemporaryDir dir_;
  std::vector<std::pair<std::string, std::string>> saved_;
};

}  // namespace ql::test
