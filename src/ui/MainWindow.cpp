#include "ui/MainWindow.h"

#include <QCloseEvent>
#include <QHeaderView>
#include <QLocalServer>
#include <QStatusBar>

#include "app/CommandLine.h"
#include "app/Globals.h"
#include "app/Settings.h"
#include "app/Startup.h"
#include "lang/TL.h"
#include "report/ReportCommands.h"

namespace ql {

MainWindow::MainWindow(QWidget* parent) : QMainWindow(parent) {
  setWindowTitle(QStringLiteral("Quorlane ") + globals().AppVersion);
  // Options first: a damaged value is reported, and what stands behind it stays 0.
  MainOptions options;
  OptionenLadenMain(options);
  model_ = std::make_unique<ReportModel>(tree_);
  model_->setSizeFormat(options.FileSizeFormat, options.SizeFormatNachkommastellenFolders);
  driver_ = std::make_unique<ScanDriver>(tree_);
  ScanDriver::Settings s;
  s.noHardlinks = options.NoHardlinks != 0;
  s.folderColorFade = options.FolderColorFade == 1;
  driver_->setSettings(s);

  view_ = new QTreeView(this);
  view_->setObjectName(QStringLiteral("tvwPL"));
  view_->setModel(model_.get());
  view_->setUniformRowHeights(true);
  view_->setAlternatingRowColors(false);
  view_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  view_->header()->setStretchLastSection(false);
  view_->header()->setSectionResizeMode(0, QHeaderView::Interactive);
  view_->setColumnWidth(0, 320);
  for (int c = 1; c < ReportModel::ColumnCount; ++c) view_->setColumnWidth(c, 110);
  setCentralWidget(view_);

  status_ = new QLabel(this);
  statusBar()->addWidget(status_, 1);
  status_->setText(TL(3525, "OK."));
  resize(900, 600);

  // A click on a column title sorts. (The header reports no click when a drag of a column
  // border ends over a title, so that release never sorts.)
  QHeaderView* header = view_->header();
  header->setSectionsClickable(true);
  connect(header, &QHeaderView::sectionClicked, this, &MainWindow::onColumnTitleClick);

  connect(driver_.get(), &ScanDriver::sourceStarted, this, &MainWindow::onSourceStarted);
  connect(driver_.get(), &ScanDriver::progress, status_, &QLabel::setText);
  connect(driver_.get(), &ScanDriver::finished, this, &MainWindow::onFinished);

  // Marks this user's running window, so a restart waits for it to go.
  lock_ = new QLocalServer(this);
  QLocalServer::removeServer(instanceLockName());
  lock_->listen(instanceLockName());
}

MainWindow::~MainWindow() { view_->setModel(nullptr); }

void MainWindow::readCommandLine(const std::string& commandLine) {
  GetFoldersFromCommand(commandLine, driver_->sourceQueue());
  if (driver_->sourceQueue().empty()) return;
  driver_->start();
}

void MainWindow::onColumnTitleClick(int section) {
  if (tree_.empty() || driver_->busy()) return;
  Report_SortByColumnTitle(tree_, section + 1);
  const QModelIndex first = model_->index(0, 0);
  view_->setCurrentIndex(first);
  view_->scrollToTop();
}

void MainWindow::onSourceStarted(uint32_t root) {
  view_->expand(model_->indexOf(root));
}

void MainWindow::onFinished() {
  view_->resizeColumnToContents(0);
  const uint32_t root = driver_->lastRoot();
  if (root != kNoNode && !tree_.hasFlag(root, ReportTree::Dead))
    view_->setCurrentIndex(model_->indexOf(root));
  status_->setText(TL(3525, "OK."));
}

void MainWindow::closeEvent(QCloseEvent* event) {
  // A close during a scan only asks the walk to stop.
  if (driver_->busy()) {
    StopWord = 3;
    event->ignore();
    return;
  }
  event->accept();
}

}  // namespace ql
