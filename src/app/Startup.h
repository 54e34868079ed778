#pragma once
// The road from process start to the window or the silent run: the system check, the wait after
// a restart, the data folder and the settings file.

#include <QString>

namespace ql {

// Linux with statx (kernel 4.11 or later).
bool osSupported();

// Name of the local socket that marks a running window instance of this user.
QString instanceLockName();
// True while an instance holds the lock.
bool instanceRunning();

// "-RESTART": waits until the previous instance has gone, 20 s at the most, then ends the process.
void restartWait(int limitMs = 20000, int pauseMs = 500);

// Fills the process-wide values: version, data folder, settings file; creates the data folder.
void InitMain(const QString& programFolder);

QString usageText();

}  // namespace ql
