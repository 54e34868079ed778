#pragma once
// What the window keeps between runs besides its options: the place on the screen (in twips,
// so it survives a change of screen resolution), the layouts of the command bars, and the
// language of the next start.

#include <QMainWindow>
#include <QToolBar>

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

// Stores `language` for the next start. Another language than the one of this run asks first
// whether to restart in it (the restart follows when the window closes); true when stored. The
// language of this run is stored without a question: it takes back an earlier choice.
bool storeLanguage(QWidget* parent, int language);

}  // namespace ql
