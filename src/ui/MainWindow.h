#pragma once
// The main window, a frame: the sources box and the main commands above, the panes bound by
// splitters, the status bar. The panes are classes of their own; the frame wires them to the
// scan driver and to each other, and brings the window up and down.

#include <QComboBox>
#include <QLabel>
#include <QMainWindow>
#include <QTreeView>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/Settings.h"
#include "ui/DrivePane.h"
#include "ui/FileListPane.h"
#include "ui/ReportPane.h"
#include "report/ReportTree.h"
#include "scan/ScanDriver.h"
#include "ui/CommandBar.h"
#include "failure/Guard.h"
#include "ui/PreviewPane.h"
#include "ui/Splitter.h"

namespace ql {

class ImportedSources;

class MainWindow : public QMainWindow {
  Q_OBJECT
 public:
  explicit MainWindow(QWidget* parent = nullptr);
  ~MainWindow() override;

  // Sources of the command line, read once the window has come up for the first time.
  void setStartSources(std::vector<std::string> sources) { startSources_ = std::move(sources); }
  // Exports to import once the window has come up, one after the other.
  void setStartImports(std::vector<std::string> files) { pendingImports_.assign(files.begin(), files.end()); }
  // Reads a measurement saved as a JSON export into the report, beside the window.
  void importFile(const std::string& file);
  ImportedSources& imports() { return *imports_; }
  // Queues the sources, exactly as given, and starts reading them.
  void readCommandLine(const std::vector<std::string>& sources);
  // Sources a later start handed over: read like the command line, and the window comes forward.
  void takeHandOver(const std::vector<std::string>& sources);

  // The commands of the main bar, by number, as a click would run them.
  void cbrMain_Execute(int id);
  void cbrReport_Execute(int id) { report_->cbrReport_Execute(id); }

  ReportTree& tree() { return tree_; }
  ReportPane& reportPane() { return *report_; }
  ReportModel& model() { return report_->model(); }
  QTreeView& view() { return report_->view(); }
  ScanDriver& driver() { return *driver_; }
  CommandBar& cbrMain() { return *cbrMain_; }
  CommandBar& cbrReport() { return report_->bar(); }
  QComboBox& cboOrdner() { return *cboOrdner_; }
  QLabel& statusPanel1() { return *status_; }
  Splitter& splMain() { return *splMain_; }
  Splitter& splInfo() { return *splInfo_; }
  FileListPane& filesPane() { return *files_; }
  DrivePane& drivePane() { return *drives_; }
  FileListPane& topPane() { return *top_; }
  PreviewPane& previewPane() { return *preview_; }
  // Brings the panes in line with the check marks of the four list commands.
  void Change_Info_Visibility();
  bool busy() const { return busy_; }
  bool restartRequested() const { return restartRequested_; }
  // Whether the user agreed to restart after a language change: for tests.
  void setLanguageQuestion(std::function<bool(const QString&)> ask) { askRestart_ = std::move(ask); }
  // Where warnings go; a message box unless replaced (tests).
  void setWarningHandler(std::function<void(const QString&)> warn);

  // Puts a source in the sources box (or selects it when it is known, byte for byte) and
  // returns its index.
  int AddNewSearchPath(const std::string& path);
  void StartSearchViaToolbar();
  uint32_t selectedNode() const { return report_->selectedNode(); }

 protected:
  void closeEvent(QCloseEvent* event) override;
  void showEvent(QShowEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void buildMainBar(const MainOptions& o);
  void buildPanes(const MainOptions& o);
  void wireDriver();
  void DisableControls();
  void EnableControls();
  void recoverControls();
  void onFinished(bool sourcesRead);
  void onRescanRequested(uint32_t node);
  void ChangeFontSize(bool up);
  void Drives_ResizeTableHeight();
  int fillDrivesIntoCombo();
  void ChangeLanguage(int language);
  void toggleList(int id);
  void ShowOptionen();
  // Shows the files of a report folder in the file list, when that list is in view.
  void showFolderFiles(uint32_t node);
  void onFilesDeleted(FileListPane::Kind kind, const std::vector<std::string>& folders);
  void onFolderDeleted(const std::string& path);
  void endTopList(uint32_t node);
  void onImportFinished(uint32_t root, const QString& error);
  void importNext();
  void applyToolbarLook();
  void Form_Activate();
  void saveAtExit();
  bool removeShownSource();
  void warn(const QString& text);

  Guard guard_;
  ReportTree tree_;
  std::unique_ptr<ScanDriver> driver_;
  ReportPane* report_ = nullptr;
  QLabel* status_ = nullptr;
  QLabel* status2_ = nullptr;
  QComboBox* cboOrdner_ = nullptr;
  CommandBar* cbrMain_ = nullptr;
  Splitter* splMain_ = nullptr;
  Splitter* splInfo_ = nullptr;
  QWidget* picDrives_ = nullptr;
  DrivePane* drives_ = nullptr;
  FileListPane* files_ = nullptr;
  FileListPane* top_ = nullptr;
  PreviewPane* preview_ = nullptr;  // beside whichever of the two lists is in view
  QWidget* filesArea_ = nullptr;  // holds the file list or the largest-files list
  QTreeView* lvwDiskinfo_ = nullptr;
  bool busy_ = false;
  bool restartRequested_ = false;
  bool activated_ = false;
  int startState_ = 0;
  int reportWidth_ = 0;
  MainOptions options_;
  QStringList refused_;  // sources that could not be read in this run, told at its end
  std::function<bool(const QString&)> askRestart_;
  std::vector<std::string> startSources_;
  std::deque<std::string> pendingImports_;
  std::string importing_;  // the export being read
  ImportedSources* imports_ = nullptr;
  std::function<void(const QString&)> warn_;
};

}  // namespace ql
