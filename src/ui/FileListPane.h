#pragma once
// A file list pane: its bar, the list, search, sort, rename, delete and trash, and the popup.
// One class serves both lists of the window:
//  - Files: the files directly in the folder selected in the report, read on a worker;
//  - Top: the largest files of the read made last, collected inside the walk.
//
// Threads: the user-interface thread only; the folder read and the collection run elsewhere and
// hand their rows over whole.

#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QSpinBox>
#include <QTreeView>
#include <QWidget>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/Settings.h"
#include "ui/FileListModel.h"
#include "lists/FolderFiles.h"
#include "lists/TopFiles.h"
#include "scan/FileOps.h"
#include "ui/PaneBar.h"
#include "ui/CommandIds.h"
#include "failure/Guard.h"

class QMenu;
class QShortcut;

namespace ql {

class PreviewPane;
class Splitter;

class FileListPane : public QWidget {
  Q_OBJECT
 public:
  enum class Kind { Files, Top };

  FileListPane(Kind kind, const Guard& guard, const MainOptions& options, QWidget* parent = nullptr);
  ~FileListPane() override;

  Kind kind() const { return kind_; }
  FileListModel& model() { return *model_; }
  QTreeView& view() { return *view_; }
  CommandBar& bar() { return *bar_; }
  QLineEdit& searchBox() { return *search_; }
  QLabel& title() { return *title_; }

  // The commands of the bar, by number, as a click would run them.
  void cbrExecute(int id);

  // Files: shows the files of a folder (bytes, any length). The same folder is not read again
  // unless `force`. The read runs on a worker; ESC ends it and keeps what was read. `root` is the
  // source the folder was found below ("": the folder itself): the read, and every later delete,
  // trash and rename, reach the folder from there without following a link (see FoundPath).
  void readFolder(const std::string& folder, bool force = false,
                           const std::string& root = {});
  void refresh();
  // Files: sizes as the space the files take, not their lengths, from the next read on.
  void setAllocated(bool allocated) { allocated_ = allocated; }
  // Files: shows rows that come from elsewhere than the disk (an imported measurement). With
  // `onDisk` false nothing of them can be deleted, trashed or renamed.
  void showRows(const std::string& folder, std::vector<FileRow> rows, bool onDisk,
                         const std::string& root = {});
  bool readOnly() const { return readOnly_; }
  const std::string& shownFolder() const { return folder_; }
  bool reading() const { return reader_ && reader_->busy(); }
  void stopReading();
  // Empties the list and forgets its folder (the panel is closed, or the report was cleared).
  void clearList();

  // Top: a new collector for the read that is about to start; the list is emptied.
  std::shared_ptr<TopFiles> beginRead();
  // Top: the read has ended (also when stopped): its largest files are shown under a caption
  // that names `source`. Its rows are reached from `root`, the source of the tree ("": `source`).
  void endRead(const std::string& source, const std::string& root = {});
  int limit() const;
  // Top: shows only the files of this extension (lower case, "" for none) among those
  // collected; `all` shows them all again.
  void setExtensionFilter(const std::string& extension, bool all = false);

  // Selects the file of this name once the folder being read is in (at once when it is), then
  // calls `then`; a name not in the list selects nothing and calls nothing.
  void selectFile(const std::string& name, std::function<void()> then = {});
  // Top: what "Neu oder größer" keeps (a file's full path and size); none hides the toggle.
  void setNewOrGrownFilter(std::function<bool(const std::string& path, int64_t size)> keep);

  void startSearch();
  // Deletes or trashes the selected files, from the last selected row to the first; every row
  // goes, a failure is told once per file. Returns the number of rows removed.
  int deleteFiles(bool toTrash);
  void fitColumns();
  void showSelectionSize();

  void setControlsEnabled(bool on);
  void setGridFont(const QFont& font);
  void storeOptions(MainOptions& o) const;
  // Where messages go; a message box unless replaced (tests).
  void setWarningHandler(std::function<void(const QString&)> warn) { warn_ = std::move(warn); }
  // The full path of a row, and the same split at the source it was found below.
  std::string pathOf(int row) const;
  FoundPath foundOf(int row) const;
  std::vector<int> selectedRowsDescending() const;
  QMenu* popupMenu();

  // --- The preview beside the list: one pane shared by both lists, held by the list in view.
  void setPreview(PreviewPane* preview, FileListPane* partner);
  // Moves the preview beside this list, emptied.
  void takePreview();
  bool holdsPreview() const;
  // Shows the first selected row in the preview; `force` reloads the same file.
  void previewSelection(bool force);
  Splitter& splFilesAndPreview() { return *splitPreview_; }

 Q_SIGNALS:
  void statusText(const QString& text);  // panel 2
  // Files were deleted or trashed from these folders.
  void filesDeleted(const std::vector<std::string>& folders);
  // One file is gone (emitted for each before filesDeleted).
  void fileGone(const std::string& folder, const std::string& name, qint64 size);
  void fullViewRequested();

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;
  void showEvent(QShowEvent* event) override;

 private:
  void buildBar(const MainOptions& o);
  void buildView(const MainOptions& o);
  void onReadFinished();
  void onTitleClick(int section);
  void setSizeFormat(int unit);
  void toggleColumn(int id);
  void startRename();
  bool renameRow(int row, const QString& name);
  void onLimitEdited();
  void warn(const QString& text);
  void say(const QString& text);
  RowKey keyOfColumn(int column) const;

  const Kind kind_;
  const Guard& guard_;
  std::unique_ptr<FileListModel> model_;
  PaneBar* bar_ = nullptr;
  QLabel* title_ = nullptr;
  QTreeView* view_ = nullptr;
  QLineEdit* search_ = nullptr;
  QSpinBox* limit_ = nullptr;
  QShortcut* escape_ = nullptr;
  FolderFilesReader* reader_ = nullptr;
  std::string folder_;  // Files: the folder shown, with a trailing "/"; "" forces the next read
  std::string root_;    // the source the rows were found below
  std::shared_ptr<TopFiles> collector_;
  std::vector<FileRow> collected_;  // Top: every row of the read, whatever the filter
  std::string filter_;
  bool filtered_ = false;
  std::string selectName_;  // selected once the read is in
  std::function<void()> afterSelect_;
  void selectPending();
  bool fixingLimit_ = false;
  bool readOnly_ = false;  // the rows name files that are not on this machine
  bool allocated_ = false;
  std::function<void(const QString&)> warn_;
  QString status_;  // this list's text in the status bar
  Splitter* splitPreview_ = nullptr;
  QWidget* previewHost_ = nullptr;
  PreviewPane* preview_ = nullptr;
  FileListPane* partner_ = nullptr;
  void buildPreviewSplit(const MainOptions& o);
  void onPreviewCommand(int id);
  void applyNewOrGrown();
  std::function<bool(const std::string&, int64_t)> newOrGrown_;
};

}  // namespace ql
