#pragma once
// The road from process start to the window or the silent run: the system check, the wait after
// a restart, the data folder and the settings file.

#include <QString>

namespace ql {

class SingleInstance;
struct ParsedCommandLine;

// Linux with statx (kernel 4.11 or later).
bool osSupported();

// "-RESTART": waits until the previous window has let its instance socket go, 20 s at the most,
// then ends the process.
void restartWait(int limitMs = 20000, int pauseMs = 500);

// A window start: becomes this user's first instance when none runs, or hands the sources to the
// running one (unless Instanz is 0 or this is a restart), relative ones put behind this process's
// working folder. Returns the exit status when this process is done (1 when a source is not
// there: it is named on standard error, the others still go), -1 when its own window is to come up.
int claimOrHandOver(SingleInstance& instance, const ParsedCommandLine& command);

// Fills the process-wide values: version, data folder, settings file; creates the data folder.
void InitMain(const QString& programFolder);

// The first start (Kontextmenu still "99", never decided): writes 1 there and makes the
// file-manager entry.
void firstStartEntry();

// The frame every run with settings sets up first, once the application object is there: the
// crash report, the data folder and settings, then the language, before anything shows a text.
// A crash or an uncaught exception on the way is reported; its log is known after InitMain.
void initFrame(bool translationMode);

QString usageText();

}  // namespace ql
