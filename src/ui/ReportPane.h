#pragma once
// The report pane: its title, its command bar, the tree view with search, sorting, expanding,
// renaming in place and the popup menu. It shows the window's report tree and changes it only
// through the scan driver (rescan, removal) and the rename on disk.
//
// Threads: the user-interface thread only.

#include <QLineEdit>
#include <QWidget>
#include <functional>
#include <memory>

#include "app/Settings.h"
#include "failure/Guard.h"
#include "report/ReportTree.h"
#include "ui/CompareBaseline.h"
#include "ui/PaneBar.h"
#include "ui/ReportModel.h"
#include "ui/ReportView.h"

class QMenu;

namespace ql {

class ScanDriver;
struct ReportLook;

class ReportPane : public QWidget {
  Q_OBJECT
 public:
  ReportPane(ReportTree& tree, ScanDriver& driver, const Guard& guard, const MainOptions& options,
             QWidget* parent = nullptr);
  ~ReportPane() override;

  // The commands of the report's bar, by number, as a click would run them.
  void cbrReport_Execute(int id);

  ReportModel& model() { return *model_; }
  ReportView& view() { return *view_; }
  CommandBar& bar() { return *bar_; }
  QLineEdit& searchBox() { return *search_; }

  uint32_t selectedNode() const;
  void selectNode(uint32_t node);
  void startSearch();
  // A search field below the bar, for when the search box is in the bar's overflow.
  void popSearchField();
  // The selected row and everything below it opened or closed in one go.
  void expandSubfolders(bool expand);
  // Opens the levels up to `level` (0: the sources) and closes everything deeper.
  void expandToLevel(int level);
  // Every column fitted to its content; preferredWidth() tells how wide the pane wants to be.
  void fitColumns();
  // The width at which the bar shows every command.
  int barWidth() const;
  QMenu* reportPopup();
  // Deletes the selected folder below a source, or moves it to the trash, and corrects the sums.
  void deleteFolder(bool toTrash);
  // The levels whose folders can be opened (see ReportView::kLevels).
  static int expandableLevels();

  // Rows that may not be rescanned, deleted or renamed (an imported measurement of folders that
  // are not on this machine).
  void setLocked(std::function<bool(uint32_t node)> locked) { locked_ = std::move(locked); }
  bool locked(uint32_t node) const { return locked_ && node != kNoNode && locked_(node); }
  void setControlsEnabled(bool on);
  void setGridFont(const QFont& font);
  // Where messages go; a message box unless replaced (tests).
  void setWarningHandler(std::function<void(const QString&)> warn) { warn_ = std::move(warn); }
  // Check marks and units into the options kept at exit.
  void storeOptions(MainOptions& o) const;

  // --- Comparing with an earlier measurement of a source
  // Reads the export or snapshot in `file` as the baseline of the selected row's source (the only
  // source when none is selected); the change columns follow once it is read and matched.
  void compareWith(const std::string& file);
  void compareOff();
  const CompareBaseline& baseline() const { return *baseline_; }
  // The popup of "Vergleichen", filled anew for the selected source.
  QMenu* compareMenu();

 Q_SIGNALS:
  void statusText(const QString& text);
  void currentFolderChanged(uint32_t node);
  void rescanRequested(uint32_t node);
  void fullViewRequested();
  // "Belegt" or "Links einmal" was switched: sizes are to be counted the new way.
  void countingChanged(bool allocated, bool linksOnce);
  void preferredWidth(int width);
  // A folder was deleted or trashed from the report.
  void folderDeleted(const std::string& path);
  // The pane works on the disk (true) or is done (false): the window takes no other command.
  void busyChanged(bool busy);
  // A baseline was taken or dropped (nullptr).
  void baselineChanged(const CompareBaseline* baseline);
  // The change columns hold the values of a new match.
  void compared();

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void buildBar(const MainOptions& o);
  void setSizeFormat(int unit);
  void reportUnexpandable();
  void onColumnTitleClick(int section);
  void onCurrentChanged(const QModelIndex& current);
  void onExpanded(const QModelIndex& index);
  void startRename();
  bool renameFolder(uint32_t node, const QString& name);
  // The save and print dialogs, over the report as it stands.
  void saveToFile();
  void printReport();
  ReportLook look() const;
  // The first selected row in the order of the rows; kNoNode when none is selected.
  uint32_t firstSelectedNode() const;
  void warn(const QString& text);
  void onBaselineLoaded(const QString& error);
  void scheduleCompare();
  void compareNow();
  void sortByChange(int section);
  // The source a comparison is for: the selected row's, or the only one.
  uint32_t compareSource() const;

  ReportTree& tree_;
  ScanDriver& driver_;
  const Guard& guard_;
  std::unique_ptr<ReportModel> model_;
  PaneBar* bar_ = nullptr;
  ReportView* view_ = nullptr;
  QLineEdit* search_ = nullptr;
  int decimals_ = 1;
  bool expanding_ = false;
  QString lastSaveFolder_;
  std::function<void(const QString&)> warn_;
  std::function<bool(uint32_t)> locked_;
  std::unique_ptr<CompareBaseline> baseline_;
  QString baselineName_;  // the file or snapshot the baseline came from, for the status bar
  bool compareQueued_ = false;
  int changeSort_ = -1;  // the change column the report was sorted by last, -1 for another
  bool changeSortDescending_ = true;
  bool noHardlinks_ = false;
  std::vector<std::string> snapshotFiles_;  // of the popup's entries, in their order
};

}  // namespace ql
