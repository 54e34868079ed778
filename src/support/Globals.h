#pragma once
// The few process-wide values the program names: fixed at start, or the scan's stop word.

#include <QDateTime>
#include <QString>
#include <atomic>

namespace ql {

inline constexpr const char* kAppName = "Quorlane";

struct Globals {
  QDateTime StartTime;
  QString Apptitle = QStringLiteral("Quorlane");
  QString AppVersion = QStringLiteral(QUORLANE_VERSION);
  QString DataFolder;  // holds the settings file and the logs
  QString IniFile;
  QString UpdateFolder;
  bool SilentMode = false;
  int Lang = 0;
  int Errcount = 0;
  int tickInterval = 1500;
};

Globals& globals();

}  // namespace ql
