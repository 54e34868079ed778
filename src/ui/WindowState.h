#pragma once
// What the window keeps between runs besides its options: the place on the screen (in twips,
// so it survives a change of screen resolution), the layouts of the command bars, and the
// language of the next start.

#include <QMainWindow>
#include <QToolBar>
#include <functional>

#include "app/Settings.h"

namespace ql {

// Logical dots per inch of the screen the window is on.
double screenDpi(const QWidget& window);

// Moves the window to its stored place, corrected for this screen, and returns what was stored
// (the state to show it in and the report's width in pixels are the caller's to apply).
struct RestoredPlace {
  int windowState = 0;
  int reportWidth = 0;  // pixels
};
RestoredPlace restoreWindowPlace(QMainWindow& window);
// Stores the normal rectangle (also of a maximised window), the state and the report's width.
void saveWindowPlace(const QMainWindow& window, int reportWidth);

// Bar layouts, kept under the maker's name; the fifth layout is read but never written.
void restoreBarLayouts(QMainWindow& window, QToolBar& reportBar);
void saveBarLayouts(const QMainWindow& window, const QToolBar& reportBar);

// Asks whether to restart in `language` now (through `ask` when given, else a message box) and
// stores it for the next start only when the user agrees; true then. The language of this run
// is stored without a question (it takes back an earlier choice) and needs no restart.
bool storeLanguage(QWidget* parent, int language, const std::function<bool(const QString&)>& ask);

}  // namespace ql
