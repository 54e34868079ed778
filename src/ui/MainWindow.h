#pragma once
// The main window: the report tree of the sources given on the command line, growing one
// finished top-level folder at a time while the walk runs on worker threads.

#include <QLabel>
#include <QMainWindow>
#include <QTreeView>
#include <memory>

#include "report/ReportModel.h"
#include "report/ReportTree.h"
#include "scan/ScanDriver.h"

class QLocalServer;

namespace ql {

class MainWindow : public QMainWindow {
  Q_OBJECT
 public:
  explicit MainWindow(QWidget* parent = nullptr);
  ~MainWindow() override;

  // Queues the sources of a command line and starts reading them.
  void readCommandLine(const std::string& commandLine);

  ReportTree& tree() { return tree_; }
  ReportModel& model() { return *model_; }
  ScanDriver& driver() { return *driver_; }
  QTreeView& view() { return *view_; }
  bool busy() const { return driver_->busy(); }

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  void onSourceStarted(uint32_t root);
  void onColumnTitleClick(int section);
  void onFinished();

  ReportTree tree_;
  std::unique_ptr<ReportModel> model_;
  std::unique_ptr<ScanDriver> driver_;
  QTreeView* view_ = nullptr;
  QLabel* status_ = nullptr;
  QLocalServer* lock_ = nullptr;
};

}  // namespace ql
