#pragma once
// The main window, a frame: the main bar with the sources box above, the panes bound by
// splitters, the status bar. What is measured lives in the scan session; the panes are classes
// of their own. The frame wires them to the session and to each other, runs the main bar's
// commands, and brings the window up and down.

#include <QLabel>
#include <QMainWindow>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/Settings.h"
#include "failure/Guard.h"
#include "ui/DrivePane.h"
#include "ui/FileListPane.h"
#include "ui/FileLists.h"
#include "ui/MainBar.h"
#include "ui/PaneFrame.h"
#include "ui/Pictures.h"
#include "ui/PreviewPane.h"
#include "ui/ReportPane.h"
#include "ui/ScanSession.h"
#include "ui/SourcesBox.h"
#include "ui/Splitter.h"
#include "ui/TreemapPane.h"
#include "ui/TypesPane.h"

namespace ql {

struct HandOver;

class MainWindow : public QMainWindow {
  Q_OBJECT
 public:
  explicit MainWindow(QWidget* parent = nullptr);
  // The panes go first: they show the tree and call back into the frame, both of which are
  // gone by the time the base class takes its children down.
  ~MainWindow() override { delete takeCentralWidget(); }

  // Sources and exports of the command line, read once the window has come up.
  void setStartSources(const std::vector<std::string>& sources) { session_->readSources(sources); }
  void setStartImports(const std::vector<std::string>& files);
  // Sources and exports a later start handed over: read like the command line, and the window
  // comes forward.
  void takeHandOver(const HandOver& handOver);
  // The commands of the main bar, by number, as a click would run them.
  void cbrMain_Execute(int id);
  // Brings the panes in line with the check marks of the four list commands.
  void showPanes();

  ScanSession& session() { return *session_; }
  ReportPane& reportPane() { return *report_; }
  FileListPane& filesPane() { return *files_; }
  FileListPane& topPane() { return *top_; }
  DrivePane& drivePane() { return *drives_; }
  PreviewPane& previewPane() { return *preview_; }
  TreemapPane& treemapPane() { return *treemap_; }
  TypesPane& typesPane() { return *types_; }
  SourcesBox& cboOrdner() { return *cboOrdner_; }
  MainBar& cbrMain() { return *cbrMain_; }
  QLabel& statusPanel1() { return *status_; }
  Splitter& splMain() { return *splMain_; }
  Splitter& splInfo() { return *splInfo_; }

  bool restartRequested() const { return restartRequested_; }
  // Where warnings go; a message box unless replaced (tests).
  void setWarningHandler(std::function<void(const QString&)> warn);

 protected:
  void closeEvent(QCloseEvent* event) override;
  void showEvent(QShowEvent* event) override;

 private:
  void buildPanes(const MainOptions& o);
  void wireSession();
  void runCommand(int id);
  void setControlsEnabled(bool on);
  void startFromSourcesBox();
  void showOptions();
  void applyToolbarLook();
  // Shows the files of a report folder in the file list, when that list is in view.
  void showFolderFiles(uint32_t node, bool evenHidden = false);
  // The treemap and the types follow the report's folder, when they are in view.
  void showPictures(uint32_t node);
  void buildPictures();
  // A file picked in the treemap: its folder in the report, the file in the file list, and
  // with `menu` the file list's menu for it at `at`.
  void selectFromTreemap(const std::string& folder, const std::string& name, bool menu, QPoint at);
  // "Vollansicht" of a pane's bar: `list` is the main bar's switch of that pane.
  void toggleFullView(int list);
  void activate();
  void saveAtExit();
  void warn(const QString& text);
  // Opens a URL with the desktop; a failure says why in the status bar.
  void openOnDesktop(const QUrl& url);

  Guard guard_;
  ScanSession* session_ = nullptr;
  ReportPane* report_ = nullptr;
  QLabel* status_ = nullptr;
  QLabel* status2_ = nullptr;
  SourcesBox* cboOrdner_ = nullptr;
  MainBar* cbrMain_ = nullptr;
  Splitter* splMain_ = nullptr;
  Splitter* splInfo_ = nullptr;
  std::unique_ptr<PaneFrame> frame_;  // places the panes; the splitters are widgets of the window
  DrivePane* drives_ = nullptr;
  FileLists* lists_ = nullptr;
  FileListPane* files_ = nullptr;
  FileListPane* top_ = nullptr;
  PreviewPane* preview_ = nullptr;  // beside whichever of the two lists is in view
  Pictures* pictures_ = nullptr;
  TreemapPane* treemap_ = nullptr;
  TypesPane* types_ = nullptr;
  bool fromTreemap_ = false;  // the report's selection moves for a file picked in the treemap
  bool restartRequested_ = false;
  bool activated_ = false;
  int startState_ = 0;
  int reportWidth_ = 0;
  MainOptions options_;
  std::function<void(const QString&)> warn_;
};

}  // namespace ql
