#include "ui/MainWindow.h"

#include <QApplication>
#include <QCloseEvent>
#include <QFileDialog>
#include <QMenu>
#include <QMessageBox>
#include <QProcess>
#include <QStatusBar>
#include <QUrl>
#include <algorithm>

#include "app/Settings.h"
#include "app/SingleInstance.h"
#include "lang/TL.h"
#include "scan/FileOps.h"
#include "support/Globals.h"
#include "support/PathText.h"
#include "ui/CommandIds.h"
#include "ui/Desktop.h"
#include "ui/ImportedSources.h"
#include "ui/WindowState.h"
#include "ui/dialogs/frmInfo.h"
#include "ui/dialogs/frmInternetUpdate.h"
#include "ui/dialogs/frmOptionen.h"

namespace ql {

using namespace cmd::main;

MainWindow::MainWindow(QWidget* parent)
    : QMainWindow(parent), guard_([this] {
        if (activated_ && session_) session_->recover();
      }) {
  setObjectName(QStringLiteral("frmMain"));
  setWindowTitle(QStringLiteral("Quorlane ") + globals().AppVersion);

  // Options first: a damaged value is reported, and what stands behind it stays 0.
  OptionenLadenMain(options_);
  session_ = new ScanSession(guard_, this);
  session_->applyOptions(options_);

  status_ = new QLabel(this);
  status2_ = new QLabel(this);
  statusBar()->addWidget(status_, 1);
  statusBar()->addWidget(status2_);
  cboOrdner_ = new SourcesBox(this);
  connect(cboOrdner_, &SourcesBox::startRequested, this,
          guard_.wrap("cboOrdner_KeyUp", [this] { startFromSourcesBox(); }));
  cbrMain_ = new MainBar(cboOrdner_, options_, this);
  addToolBar(Qt::TopToolBarArea, cbrMain_);
  connect(cbrMain_, &CommandBar::execute, this, &MainWindow::cbrMain_Execute);
  buildPanes(options_);
  wireSession();

  // An open the desktop gave up on after the command had returned is told where the user looks.
  connect(&desktopNotices(), &DesktopNotices::failed, this,
          guard_.wrap("Desktop_Failed", [this](const QString& text) { status_->setText(text); }));
  status_->setText(TL(3525, "OK."));
  restoreBarLayouts(*this, report_->bar());
  const RestoredPlace place = restoreWindowPlace(*this);
  startState_ = place.windowState;
  reportWidth_ = place.reportWidth;
  showPanes();

  if (SingleInstance* instance = SingleInstance::current())
    connect(instance, &SingleInstance::received, this,
            guard_.wrap("WindowProc", [this](const HandOver& h) { takeHandOver(h); }));
  applyToolbarLook();
  session_->setBusy(true);  // until the window has come up, with Stop off too
  cbrMain_->control(cmd::main::Stop)->setEnabled(false);
}

void MainWindow::buildPanes(const MainOptions& o) {
  report_ = new ReportPane(session_->tree(), session_->driver(), guard_, o, this);
  connect(report_, &ReportPane::statusText, status_, &QLabel::setText);
  connect(report_, &ReportPane::rescanRequested, this,
          guard_.wrap("Report_Rescan", [this](uint32_t node) { session_->rescan(node, true); }));
  connect(report_, &ReportPane::fullViewRequested, this,
          guard_.wrap("cbrReport_Execute", [this] { toggleFullView(ShowReport); }));
  connect(report_, &ReportPane::countingChanged, this,
          guard_.wrap("cbrReport_Execute", [this](bool allocated, bool once) {
            session_->setCounting(allocated, once);
          }));
  connect(report_, &ReportPane::preferredWidth, this,
          [this](int width) { splMain_->setPosition(width); });
  connect(report_, &ReportPane::busyChanged, this,
          guard_.wrap("Report_DeleteFolder", [this](bool busy) { session_->setBusy(busy); }));
  connect(report_, &ReportPane::currentFolderChanged, this,
          guard_.wrap("tvwPL_SelChange", [this](uint32_t node) {
            showFolderFiles(node);
            if (!fromTreemap_) showPictures(node);
          }));
  connect(report_, &ReportPane::folderDeleted, this,
          guard_.wrap("Report_DeleteFolder", [this](const std::string& path) {
            session_->treemapFolderGone(path);
            drives_->refreshDrive(path);
            files_->refresh();
          }));
  report_->setLocked([this](uint32_t node) { return session_->locked(node); });
  report_->model().setRootCaption(
      [this](uint32_t root) { return session_->imports().caption(root); });

  // The other lists stand beside the report: the drive table above, the file list or the
  // largest-files list below it.
  drives_ = new DrivePane(guard_, o, {}, this);
  connect(drives_, &DrivePane::statusText, status_, &QLabel::setText);
  connect(drives_, &DrivePane::heightChanged, this, guard_.wrap("Drives_ResizeTableHeight", [this] {
    if (frame_) frame_->fitDriveTable();  // the drive table is never taller than its rows
  }));
  connect(drives_, &DrivePane::scanRequested, this,
          guard_.wrap("Drives_ScanDrives", [this](const std::vector<std::string>& paths) {
            if (!session_->busy()) session_->readOnly(paths);
          }));
  lists_ = new FileLists(*session_, guard_, o, this);
  files_ = &lists_->files();
  top_ = &lists_->top();
  preview_ = &lists_->preview();
  connect(lists_, &FileLists::statusText, status2_, &QLabel::setText);
  connect(lists_, &FileLists::fullViewRequested, this,
          guard_.wrap("cbrFiles_Execute", [this](bool folderList) {
            toggleFullView(folderList ? ShowFiles : ShowLargest);
          }));
  // The free space of the drives that held the files has moved; a delete from the file list
  // also counts its folder's own files again.
  connect(lists_, &FileLists::filesDeleted, this,
          guard_.wrap("Filelist_DeleteFiles",
                      [this](const std::vector<std::string>& folders, bool folderList) {
                        for (const std::string& folder : folders) drives_->refreshDrive(folder);
                        if (folderList) session_->filesDeleted(report_->selectedNode(), folders);
                      }));
  // With a baseline the largest files can be narrowed to those new or grown since.
  connect(report_, &ReportPane::baselineChanged, this,
          guard_.wrap("Report_Compare", [this](const CompareBaseline* baseline) {
            treemap_->setBaseline(baseline);
            lists_->setBaseline(baseline);
          }));

  report_->bar().control(cmd::report::FullView)->setCheckable(true);

  buildPictures();
  frame_ = std::make_unique<PaneFrame>(report_, drives_, files_, top_, treemap_, types_, this);
  splMain_ = &frame_->main();
  splInfo_ = &frame_->info();
  setCentralWidget(splMain_);
  frame_->setGridFont(o.FontSize);
}

void MainWindow::buildPictures() {
  pictures_ = new Pictures(*session_, guard_, this);
  treemap_ = &pictures_->treemap();
  types_ = &pictures_->types();
  connect(treemap_, &TreemapPane::statusText, status_, &QLabel::setText);
  connect(treemap_, &TreemapPane::fileClicked, this,
          guard_.wrap("Treemap_MouseUp",
                      [this](const std::string& folder, const std::string& name, bool menu,
                             QPoint at) { selectFromTreemap(folder, name, menu, at); }));
  connect(pictures_, &Pictures::extensionPicked, this,
          guard_.wrap("lvwTypes_Click", [this](const std::string& extension, bool picked) {
            top_->setExtensionFilter(extension, !picked);
          }));
}

void MainWindow::showPictures(uint32_t node) {
  pictures_->showFolder(node, cbrMain_->isChecked(ShowTreemap), cbrMain_->isChecked(ShowTypes));
}

void MainWindow::selectFromTreemap(const std::string& folder, const std::string& name, bool menu,
                                   QPoint at) {
  const uint32_t node = session_->nodeOfPath(folder);
  if (node == kNoNode || session_->busy()) return;
  fromTreemap_ = true;
  report_->selectNode(node);
  fromTreemap_ = false;
  const bool listShown = cbrMain_->isChecked(ShowFiles) && splInfo_->Control2Visible();
  if (!listShown && !menu) return;
  // The menu is the file list's own: for it the list reads the folder even when not in view.
  showFolderFiles(node, true);
  files_->selectFile(name,
                     menu ? std::function<void()>([this, at] { files_->popupMenu()->popup(at); })
                          : std::function<void()>());
}

void MainWindow::wireSession() {
  ScanSession& s = *session_;
  connect(&s, &ScanSession::busyChanged, this,
          guard_.wrap("EnableControls", [this](bool busy) { setControlsEnabled(!busy); }));
  connect(&s, &ScanSession::statusText, status_, &QLabel::setText);
  connect(&s, &ScanSession::warning, this,
          guard_.wrap("MsgBox", [this](const QString& text) { warn(text); }));
  connect(&s, &ScanSession::countingChanged, this,
          guard_.wrap("SetCounting", [this](bool allocated, bool linksOnce) {
            options_.SizeAllocated = allocated ? 1 : 0;  // kept at the exit as it is now
            options_.LinksOnce = linksOnce ? 1 : 0;
            lists_->setAllocated(allocated);
          }));
  connect(&s, &ScanSession::sourceAccepted, this,
          guard_.wrap("AddNewSearchPath",
                      [this](const std::string& path) { cboOrdner_->addSource(path); }));
  connect(&s, &ScanSession::sourceStarted, this,
          guard_.wrap("QuelleEinlesen", [this](uint32_t root) {
            report_->view().expand(report_->model().indexOf(root));
          }));
  connect(&s, &ScanSession::readDone, this,
          guard_.wrap("Ordnerliste_Abarbeiten", [this](uint32_t node, bool walked) {
            report_->fitColumns();
            // The source read last is the one the user looks at next.
            if (node != kNoNode) report_->selectNode(node);
            if (node != kNoNode && walked) drives_->selectDrive(session_->tree().fullPath(node));
            // The selection moved while the report took no input: the file list follows it now.
            showFolderFiles(report_->selectedNode());
            // A new source is shown whole; after a rescan the pictures stay where they were.
            if (walked || (node != kNoNode && session_->tree().isRoot(node)))
              showPictures(report_->selectedNode());
          }));
}

void MainWindow::setStartImports(const std::vector<std::string>& files) {
  for (const std::string& file : files) session_->importFile(file);
}

void MainWindow::showFolderFiles(uint32_t node, bool evenHidden) {
  if (!evenHidden && (!cbrMain_->isChecked(ShowFiles) || !splInfo_->Control2Visible())) return;
  ScanSession::FolderFiles f;
  if (!session_->folderFiles(node, f)) return;
  if (f.imported)
    files_->showRows(f.path, std::move(f.rows), f.onDisk, f.source);
  else
    files_->readFolder(f.path, false, f.source);
}

void MainWindow::applyToolbarLook() {
  frame_->setBarLook(*cbrMain_, cbrMain_->isChecked(BigIcons), cbrMain_->isChecked(IconText));
}

void MainWindow::cbrMain_Execute(int id) {
  guard_.run("cbrMain_Execute", [&] { runCommand(id); }, {QString::number(id)});
}

void MainWindow::runCommand(int id) {
  if (id == ShowReport || id == ShowDrives || id == ShowFiles || id == ShowLargest) {
    if (cbrMain_->toggleList(id)) showPanes();
    return;
  }
  if (id == ShowTreemap || id == ShowTypes) {
    showPanes();
    return;
  }
  if (id == New) {
    const QString folder = QFileDialog::getExistingDirectory(this, QString(), QStringLiteral("/"));
    if (!folder.isEmpty()) cboOrdner_->addSource(pathBytes(folder));
  } else if (id == Import) {
    const QString file = QFileDialog::getOpenFileName(this, TL(4054, "Importieren"), QString(),
                                                      QStringLiteral("JSON (*.json *.zst);;* (*)"));
    if (!file.isEmpty()) session_->importFile(pathBytes(file));
  } else if (id == Update) {
    frmInternetUpdate(this).exec();
    if (pendingUpdate().UpdateMode == 0) return;
    connect(qApp, &QCoreApplication::aboutToQuit, qApp, &StartPendingInstaller);
    close();
  } else if (id == Start) {
    startFromSourcesBox();
  } else if (id == cmd::main::Stop) {
    session_->stop();
  } else if (id == Options) {
    showOptions();
  } else if (id == About) {
    frmInfo(this).exec();
  } else if (id == Homepage) {
    openOnDesktop(QUrl(webHost()));
  } else if (id == Exit) {
    close();
  } else if (id == BigIcons || id == IconText) {
    applyToolbarLook();
  } else if (id == FontSmaller || id == FontLarger) {
    frame_->stepGridFont(id == FontLarger ? 1 : -1);
  } else if (id == Language) {
    cbrMain_->showLanguages();
  } else if (id == German || id == English || id == Russian) {
    restartRequested_ = cbrMain_->chooseLanguage(id);
  }
}

// The entry joins the box once its folder is found (ScanSession::sourceAccepted).
void MainWindow::startFromSourcesBox() {
  if (const std::string path = cboOrdner_->shownSource(); !path.empty()) session_->readOnly({path});
}

// The dialog writes what it changes. Afterwards the whole section comes back from the file, and
// with it what was changed here since the start without being saved: the font size falls back.
void MainWindow::showOptions() {
  frmOptionen(this).exec();
  OptionenLadenMain(options_);
  session_->applyOptions(options_);
  lists_->setAllocated(options_.SizeAllocated != 0);
  frame_->setGridFont(options_.FontSize);
}

// The four check marks decide which panes show; the report may go when another list stays.
void MainWindow::showPanes() {
  const bool r = cbrMain_->isChecked(ShowReport), d = cbrMain_->isChecked(ShowDrives);
  const bool f = cbrMain_->isChecked(ShowFiles), t = cbrMain_->isChecked(ShowLargest);
  const bool tm = cbrMain_->isChecked(ShowTreemap), ty = cbrMain_->isChecked(ShowTypes);
  frame_->show(r, d, f, t, tm, ty);
  if (f) showFolderFiles(report_->selectedNode());
  showPictures(report_->selectedNode());
}

void MainWindow::toggleFullView(int list) {
  cbrMain_->toggleFullView(list);
  showPanes();
}

void MainWindow::takeHandOver(const HandOver& handOver) {
  session_->readSources(handOver.sources);  // during a scan they join its queue
  setStartImports(handOver.imports);        // read once the walk is done
  if (isMinimized()) showNormal();
  raise();
  activateWindow();
}

// Busy: only Stop is live, and the panes take no input.
void MainWindow::setControlsEnabled(bool on) {
  cbrMain_->setBusy(!on);
  frame_->setControlsEnabled(on);
}

void MainWindow::openOnDesktop(const QUrl& url) {
  QString why;
  if (!openUrl(url, why)) status_->setText(cannotOpenText(url.toDisplayString(), why));
}

void MainWindow::setWarningHandler(std::function<void(const QString&)> warn) {
  warn_ = warn;
  frame_->setWarningHandler(warn);
}

void MainWindow::warn(const QString& text) {
  if (warn_) return warn_(text);
  QMessageBox::warning(this, QStringLiteral("Quorlane"), text);
}

void MainWindow::showEvent(QShowEvent* event) {
  QMainWindow::showEvent(event);
  if (activated_) return;
  // The window is drawn before the known folders and the command line are read.
  QMetaObject::invokeMethod(
      this, [this] { guard_.run("Form_Activate", [this] { activate(); }); }, Qt::QueuedConnection);
}

void MainWindow::activate() {
  activated_ = true;
  if (startState_ == 2) showMaximized();  // a window left minimised comes back normal
  // Pane sizes once the window has its size: the report as wide as it was, the drive table
  // a third of the height on the right.
  splMain_->setPosition(reportWidth_);
  splInfo_->setPosition(splInfo_->height() / 3);
  drives_->reloadDrives();
  const SavedComboFolders saved = GetAllSavedComboFolders();
  cboOrdner_->fill(drives_->comboDrives(), saved.folders, saved.comboText);
  session_->ready();
}

// What the window keeps between runs: position, bar layouts, options, the known folders.
void MainWindow::saveAtExit() {
  saveWindowPlace(*this, splMain_->Position());
  saveBarLayouts(*this, report_->bar());

  MainOptions o = options_;
  cbrMain_->storeOptions(o);
  frame_->storeOptions(o);
  o.ComboText = cboOrdner_->currentText();
  OptionenSpeichernMain(o);
  SaveAllComboFolders(cboOrdner_->items());
}

void MainWindow::closeEvent(QCloseEvent* event) {
  guard_.run("Form_Unload", [&] {
    // A close during a scan only asks the walk to stop; nothing is saved then.
    if (session_->busy() || session_->driver().busy()) {
      session_->driver().stop();
      event->ignore();
      return;
    }
    saveAtExit();
    event->accept();
    if (restartRequested_)
      QProcess::startDetached(QCoreApplication::applicationFilePath(),
                              {QStringLiteral("-RESTART")});
  });
}

}  // namespace ql
