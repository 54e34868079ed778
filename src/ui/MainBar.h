#pragma once
// The main bar: the sources box, the commands of the scan, the four list switches, the look of
// the bars, the language, and the program's own commands.

#include "app/Settings.h"
#include "ui/CommandBar.h"

namespace ql {

class SourcesBox;

class MainBar : public CommandBar {
  Q_OBJECT
 public:
  MainBar(SourcesBox* sources, const MainOptions& options, QWidget* parent = nullptr);

  // The list switch `id` was clicked (its check mark has turned over already). The last list
  // shown cannot be switched off; the file list and the largest-files list take each other's
  // place. False when nothing changed.
  bool toggleList(int id);
  // "Vollansicht" on the pane of list `id`: that list alone, or, when it stands alone already,
  // the lists shown before (the usual view with that pane when it was alone from the start).
  void toggleFullView(int id);
  // Opens the language menu below its button (the button's own click does the same).
  void showLanguages();
  // The language entry `id` was picked: kept for the next start once the user agrees to the
  // restart, and the check mark on the language that start will have. True while a restart into
  // another language than this run's is agreed.
  bool chooseLanguage(int id);
  // Busy: only Stop is live.
  void setBusy(bool busy);
  // The check marks the settings keep.
  void storeOptions(MainOptions& o) const;

 private:
  void markLanguage(int language);  // 7, 9 or 25

  std::vector<int> beforeFullView_;  // the lists shown when a pane went to full view
  int nextLanguage_;                 // the language stored for the next start
};

}  // namespace ql
