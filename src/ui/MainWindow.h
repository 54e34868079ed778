#pragma once
// The main window: the source combo and main commands above, the report with its own command
// bar, and the status bar. Sources are read on worker threads; the tree grows one finished
// top-level folder at a time while the window stays free.

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMainWindow>
#include <QTreeView>
#include <memory>

#include "app/Settings.h"
#include "report/ReportModel.h"
#include "report/ReportTree.h"
#include "scan/ScanDriver.h"
#include "ui/CommandBar.h"
#include "ui/Splitter.h"

class QLocalServer;
class QMenu;

namespace ql {

class MainWindow : public QMainWindow {
  Q_OBJECT
 public:
  explicit MainWindow(QWidget* parent = nullptr);
  ~MainWindow() override;

  // Queues the sources of the command line, as given, and starts reading them.
  void readCommandLine(const std::vector<std::string>& sources);
  // The sources read once the window has come up for the first time.
  void setStartSources(std::vector<std::string> sources) { commandLine_ = std::move(sources); }

  // The commands of the two bars, by number, as a click would run them.
  void cbrMain_Execute(int id);
  void cbrReport_Execute(int id);

  ReportTree& tree() { return tree_; }
  ReportModel& model() { return *model_; }
  ScanDriver& driver() { return *driver_; }
  QTreeView& view() { return *view_; }
  CommandBar& cbrMain() { return *cbrMain_; }
  CommandBar& cbrReport() { return *cbrReport_; }
  QComboBox& cboOrdner() { return *cboOrdner_; }
  QLineEdit& searchBox() { return *search_; }
  QLabel& statusPanel1() { return *status_; }
  Splitter& splMain() { return *splMain_; }
  Splitter& splInfo() { return *splInfo_; }
  QWidget& filesPane() { return *picFiles_; }
  QWidget& topPane() { return *picTOP_; }
  // Brings the panes in line with the check marks of the four list commands.
  void Change_Info_Visibility();
  bool busy() const { return busy_; }
  bool restartRequested() const { return restartRequested_; }
  // Which language the next start uses and whether the user agreed to restart: for tests.
  void setLanguageQuestion(std::function<bool(const QString&)> ask) { askRestart_ = std::move(ask); }
  // Where warnings go; a message box unless replaced (tests).
  void setWarningHandler(std::function<void(const QString&)> warn) { warn_ = std::move(warn); }

  // Puts a source in the combo box (or selects it when it is known) and returns its index.
  int AddNewSearchPath(const QString& path);
  void StartSearchViaToolbar();
  void Report_StartSearch();
  uint32_t selectedNode() const;
  // The selected row and everything below it opened or closed in one go.
  void Report_ExpandSubFolders(bool expand);
  // The report's popup for the selected folder row; its commands by number.
  QMenu* reportPopup();

 protected:
  void closeEvent(QCloseEvent* event) override;
  void showEvent(QShowEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void buildMainBar(const MainOptions& o);
  void buildReportBar(const MainOptions& o);
  void DisableControls();
  void EnableControls();
  void onSourceStarted(uint32_t root);
  void onFinished();
  void onColumnTitleClick(int section);
  void Report_Set_SizeFormat(int unit);
  void Report_ExpandFolderLevels(int level);
  void Report_Resize_Columns();
  void startRename();
  void syncExpandedFlags();
  void ChangeFontSize(bool up);
  void ChangeLanguage(int language);
  void toggleList(int id);
  QWidget* listPane(const QString& name, int titleId, const QString& title, QTreeView*& grid,
                    const QList<QPair<int, QString>>& columns);
  void applyToolbarLook();
  void selectNode(uint32_t node);
  void saveReport();
  void Form_Activate();
  void saveAtExit();
  double dpi() const;
  bool renameFolder(uint32_t node, const QString& name);
  void onCurrentChanged(const QModelIndex& current);

  ReportTree tree_;
  std::unique_ptr<ReportModel> model_;
  std::unique_ptr<ScanDriver> driver_;
  QTreeView* view_ = nullptr;
  QLabel* status_ = nullptr;
  QLabel* status2_ = nullptr;
  QComboBox* cboOrdner_ = nullptr;
  QLineEdit* search_ = nullptr;
  CommandBar* cbrMain_ = nullptr;
  CommandBar* cbrReport_ = nullptr;
  QLocalServer* lock_ = nullptr;
  Splitter* splMain_ = nullptr;
  Splitter* splInfo_ = nullptr;
  QWidget* picFiles_ = nullptr;
  QWidget* picTOP_ = nullptr;
  QWidget* filesArea_ = nullptr;  // holds the file list or the largest-files list
  QTreeView* lvwDiskinfo_ = nullptr;
  QTreeView* lvwFiles_ = nullptr;
  QTreeView* lvwTOP_ = nullptr;
  bool busy_ = false;
  bool restartRequested_ = false;
  bool activated_ = false;
  int startState_ = 0;
  int reportWidth_ = 0;
  MainOptions options_;
  int decimals_ = 1;
  std::function<bool(const QString&)> askRestart_;
  std::vector<std::string> commandLine_;
  std::function<void(const QString&)> warn_;
};

}  // namespace ql
