#include "ui/MainWindow.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QFileDialog>
#include <QHeaderView>
#include <QKeyEvent>
#include <QMessageBox>
#include <QProcess>
#include <QStandardItemModel>
#include <QStatusBar>
#include <QUrl>
#include <QVBoxLayout>

#include "support/Globals.h"
#include "app/SingleInstance.h"
#include "failure/FailureReport.h"
#include "lang/TL.h"
#include "scan/FileOps.h"
#include "ui/CommandIds.h"
#include "ui/ImportedSources.h"
#include "ui/dialogs/frmInfo.h"
#include "ui/dialogs/frmOptionen.h"
#include "ui/WindowState.h"
#include "ui/dialogs/frmInternetUpdate.h"

namespace ql {

namespace {
using namespace cmd::main;
// The list commands of the main bar: report, drive table, file list, largest files.
constexpr int kListIds[] = {ShowReport, ShowDrives, ShowFiles, ShowLargest};

QString decode(const std::string& bytes) { return QFile::decodeName(QByteArray::fromStdString(bytes)); }
std::string encode(const QString& text) { return QFile::encodeName(text).toStdString(); }
// The image number of an entry of the sources box; folders carry none.
constexpr int kComboImageRole = Qt::UserRole + 1;
std::string itemPath(const QComboBox& box, int i) { return box.itemData(i).toByteArray().toStdString(); }
// The path of the source a node was found below: the file lists reach their files from there.
std::string sourceOf(const ReportTree& tree, uint32_t node) {
  while (tree.isLive(node) && !tree.isRoot(node)) node = tree.parent(node);
  return tree.isLive(node) ? std::string(tree.text(node)) : std::string();
}

}  // namespace

MainWindow::MainWindow(QWidget* parent) : QMainWindow(parent), guard_([this] { recoverControls(); }) {
  setObjectName(QStringLiteral("frmMain"));
  setWindowTitle(QStringLiteral("Quorlane ") + globals().AppVersion);

  // Options first: a damaged value is reported, and what stands behind it stays 0.
  OptionenLadenMain(options_);
  driver_ = std::make_unique<ScanDriver>(tree_, StopWord);
  ScanDriver::Settings s;
  s.noHardlinks = options_.NoHardlinks != 0;
  s.folderColorFade = options_.FolderColorFade == 1;
  driver_->setSettings(s);

  status_ = new QLabel(this);
  status2_ = new QLabel(this);
  statusBar()->addWidget(status_, 1);
  statusBar()->addWidget(status2_);
  buildMainBar(options_);
  buildPanes(options_);

  status_->setText(TL(3525, "OK."));
  restoreBarLayouts(*this, report_->bar());
  const RestoredPlace place = restoreWindowPlace(*this);
  startState_ = place.windowState;
  reportWidth_ = place.reportWidth;
  Change_Info_Visibility();
  wireDriver();

  if (SingleInstance* instance = SingleInstance::current())
    connect(instance, &SingleInstance::received, this,
            guard_.wrap("WindowProc", [this](const std::vector<std::string>& s) { takeHandOver(s); }));
  applyToolbarLook();
  DisableControls();  // until the window has come up
  cbrMain_->control(Stop)->setEnabled(false);
}

// The panes go first: they show the tree and call back into the frame, both of which are gone
// by the time the base class takes its children down.
MainWindow::~MainWindow() { delete takeCentralWidget(); }

void MainWindow::buildMainBar(const MainOptions& o) {
  cbrMain_ = new CommandBar(QStringLiteral("cbrMain"), QStringLiteral("Quorlane"), this);
  addToolBar(Qt::TopToolBarArea, cbrMain_);
  cboOrdner_ = new QComboBox(cbrMain_);
  cboOrdner_->setObjectName(QStringLiteral("cboOrdner"));
  cboOrdner_->setEditable(true);
  cboOrdner_->setInsertPolicy(QComboBox::NoInsert);
  cboOrdner_->setMinimumWidth(220);
  cboOrdner_->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
  cboOrdner_->installEventFilter(this);
  cboOrdner_->lineEdit()->installEventFilter(this);
  CommandBar& b = *cbrMain_;
  b.AddWidget(Sources, cboOrdner_, false);
  using T = CommandBar::Type;
  b.AddControl(T::Button, New, 3529, "Neu", "folder-new", false, 3530, "Neue Quelle auswählen");
  b.AddControl(T::Button, Start, 3531, "Start", "media-playback-start", false, 3532, "Quelle einlesen");
  b.AddControl(T::Button, Stop, 3533, "Stop", "process-stop", false, 3534, "Einlesen beenden", false, false, false);
  b.AddControl(T::Button, Import, 4054, "Importieren", "document-open", false, 4055,
               "Eine gespeicherte Messung (JSON-Export) öffnen");
  b.AddControl(T::Button, ShowReport, 3641, "Ordnerliste", "view-list-tree", true, 3667, "Ordnerliste anzeigen",
               true, true);
  b.AddControl(T::Button, ShowDrives, 3643, "Laufwerksliste", "drive-harddisk", false, 3632,
               "Laufwerksliste anzeigen", true, o.DiskinfoVisible);
  b.AddControl(T::Button, ShowFiles, 3645, "Dateiliste", "view-list-details", false, 3635, "Dateiliste anzeigen",
               true, o.FilelistVisible);
  b.AddControl(T::Button, ShowLargest, 3724, "Größte Dateien", "view-sort-descending", false, 3725,
               "Liste mit den größten Dateien anzeigen", true, o.ToplistVisible);
  b.AddControl(T::Button, Options, 3547, "Optionen", "preferences-system", true, 3548, "Optionen");
  b.AddControl(T::Button, BigIcons, 3627, "Symbolgröße", "zoom-in", true, 3628, "Symbole vergrößern", true,
               o.BigIcons);
  b.AddControl(T::Button, IconText, 3690, "Symboltext", "format-text-bold", false, 3689, "Symboltext anzeigen",
               true, o.SymbolText);
  b.AddControl(T::Button, FontLarger, 3672, "Größer", "format-font-size-more", true, 3652, "Schrift vergrößern");
  b.AddControl(T::Button, FontSmaller, 3650, "Kleiner", "format-font-size-less", false, 3651, "Schrift verkleinern");
  b.AddControl(T::SplitButton, Language, 3701, "Sprache", "preferences-desktop-locale", true, 3702,
               "Sprache der Benutzeroberfläche ändern");
  b.AddPopupControl(Language, German, TL(3703, "Deutsch"));
  b.AddPopupControl(Language, English, TL(3704, "Englisch"));
  b.AddControl(T::Button, About, 3551, "Info", "help-about", true, 3552, "Info");
  b.AddControl(T::Button, Homepage, 3553, "Homepage", "go-home", false, 3554, "Homepage");
  b.AddControl(T::Button, Update, 3555, "Update", "system-software-update", false, 3556, "Internet Update");
  b.AddControl(T::Button, Exit, 3557, "Beenden", "application-exit", true, 3558, "Programm beenden");
  connect(cbrMain_, &CommandBar::execute, this, &MainWindow::cbrMain_Execute);
}

void MainWindow::buildPanes(const MainOptions& o) {
  report_ = new ReportPane(tree_, *driver_, guard_, o, this);
  connect(report_, &ReportPane::statusText, this, [this](const QString& text) { status_->setText(text); });
  connect(report_, &ReportPane::rescanRequested, this,
          guard_.wrap("Report_Rescan", [this](uint32_t node) { onRescanRequested(node); }));
  connect(report_, &ReportPane::fullViewRequested, this, guard_.wrap("cbrReport_Execute", [this] {
            for (int other : {ShowDrives, ShowFiles, ShowLargest}) cbrMain_->setChecked(other, false);
            Change_Info_Visibility();
          }));
  connect(report_, &ReportPane::preferredWidth, this, [this](int width) { splMain_->setPosition(width); });

  // The other lists stand beside the report: the drive table above, the file list or the
  // largest-files list below it. (Their contents come with their own commands.)
  drives_ = new DrivePane(guard_, o, {}, this);
  picDrives_ = drives_;
  lvwDiskinfo_ = &drives_->view();
  connect(drives_, &DrivePane::heightChanged, this,
          guard_.wrap("Drives_ResizeTableHeight", [this] { Drives_ResizeTableHeight(); }));
  connect(drives_, &DrivePane::scanRequested, this,
          guard_.wrap("Drives_ScanDrives", [this](const std::vector<std::string>& paths) {
            if (busy_ || driver_->busy()) return;
            StopWord = 0;
            driver_->sourceQueue().clear();
            readCommandLine(paths);
          }));
  files_ = new FileListPane(FileListPane::Kind::Files, guard_, o, this);
  top_ = new FileListPane(FileListPane::Kind::Top, guard_, o, this);
  preview_ = new PreviewPane(guard_, this);
  preview_->hide();  // until a list takes it
  files_->setPreview(preview_, top_);
  top_->setPreview(preview_, files_);
  for (FileListPane* pane : {files_, top_}) {
    connect(pane, &FileListPane::statusText, status2_, &QLabel::setText);
    connect(pane, &FileListPane::fullViewRequested, this, guard_.wrap("cbrFiles_Execute", [this] {
              for (int other : {ShowDrives, ShowReport}) cbrMain_->setChecked(other, false);
              Change_Info_Visibility();
            }));
    connect(pane, &FileListPane::filesDeleted, this,
            guard_.wrap("Filelist_DeleteFiles", [this, kind = pane->kind()](const std::vector<std::string>& folders) {
              onFilesDeleted(kind, folders);
            }));
  }
  connect(report_, &ReportPane::currentFolderChanged, this,
          guard_.wrap("tvwPL_SelChange", [this](uint32_t node) { showFolderFiles(node); }));
  connect(report_, &ReportPane::folderDeleted, this,
          guard_.wrap("Report_DeleteFolder", [this](const std::string& path) { onFolderDeleted(path); }));
  // Imported measurements: their files come from the import, and what is not on this machine
  // cannot be read again, deleted or renamed.
  imports_ = new ImportedSources(tree_, this);
  connect(imports_, &ImportedSources::progress, this, guard_.wrap("Import", [this](qint64 done, qint64 total) {
            status_->setText(TL(4056, "Importiere... %1 von %2 MB",
                                {QString::number(done / 1048576),
                                 QString::number(std::max<qint64>(total, done) / 1048576)}));
          }));
  connect(imports_, &ImportedSources::finished, this,
          guard_.wrap("Import", [this](uint32_t root, const QString& error) { onImportFinished(root, error); }));
  report_->setLocked([this](uint32_t node) {
    return imports_->isImported(node) && probePath(tree_.Report_GetFullpathOfNode(node)) != 0;
  });
  report_->model().setRootCaption([this](uint32_t root) { return imports_->caption(root); });
  connect(report_, &ReportPane::busyChanged, this, guard_.wrap("Report_DeleteFolder", [this](bool busy) {
            if (busy)
              DisableControls();
            else
              EnableControls();
          }));
  filesArea_ = new QWidget(this);
  auto* filesLayout = new QVBoxLayout(filesArea_);
  filesLayout->setContentsMargins(0, 0, 0, 0);
  filesLayout->addWidget(files_);
  filesLayout->addWidget(top_);

  splInfo_ = new Splitter(this);
  splInfo_->setObjectName(QStringLiteral("splInfo"));
  splInfo_->setOrientation(Splitter::PanesAbove);
  splInfo_->Bind(picDrives_, filesArea_);
  splMain_ = new Splitter(this);
  splMain_->setObjectName(QStringLiteral("splMain"));
  splMain_->setOrientation(Splitter::PanesSideBySide);
  splMain_->setMinimumSize(1, 120);
  splMain_->setMinimumSize(2, 120);
  splMain_->Bind(report_, splInfo_);
  setCentralWidget(splMain_);
  if (o.FontSize >= 8 && o.FontSize <= 18) {
    QFont f = report_->view().font();
    f.setPointSizeF(o.FontSize);
    report_->setGridFont(f);
    lvwDiskinfo_->setFont(f);
    for (FileListPane* pane : {files_, top_}) pane->setGridFont(f);
  }
}

void MainWindow::wireDriver() {
  ScanDriver& d = *driver_;
  connect(&d, &ScanDriver::sourceAccepted, this,
          guard_.wrap("AddNewSearchPath", [this](const QByteArray& path) { AddNewSearchPath(path.toStdString()); }));
  connect(&d, &ScanDriver::sourceStarted, this,
          guard_.wrap("QuelleEinlesen", [this](uint32_t root) { view().expand(model().indexOf(root)); }));
  connect(&d, &ScanDriver::sourceRefused, this, [this](const QString& path, const QString& reason) {
    refused_ << TL(4044, "Der Ordner '%1' kann nicht gelesen werden: %2", {path, reason});
  });
  connect(&d, &ScanDriver::progress, status_, &QLabel::setText);
  connect(&d, &ScanDriver::finished, this, guard_.wrap("Ordnerliste_Abarbeiten", [this] { onFinished(true); }));
  connect(&d, &ScanDriver::rescanFinished, this, guard_.wrap("Report_Rescan", [this](uint32_t node) {
            imports_->forget(node);
            endTopList(node);
            report_->selectNode(node);
            onFinished(false);
          }));
  // The largest files are collected inside each walk; the list belongs to the read made last.
  d.setFeedFactory([this] { return top_->beginRead(); });
  connect(&d, &ScanDriver::sourceFinished, this,
          guard_.wrap("QuelleEinlesen", [this](uint32_t root) { endTopList(root); }));
}

void MainWindow::endTopList(uint32_t node) {
  top_->endRead(tree_.isLive(node) ? tree_.Report_GetFullpathOfNode(node) : std::string(), sourceOf(tree_, node));
}

void MainWindow::showFolderFiles(uint32_t node) {
  if (!cbrMain_->isChecked(ShowFiles) || !splInfo_->Control2Visible() || !tree_.isLive(node)) return;
  if (!tree_.isFolder(node)) node = tree_.parent(node);
  const std::string path = tree_.Report_GetFullpathOfNode(node);
  // An imported folder shows the files the import holds, whether or not the folder is here.
  if (std::vector<FileRow> rows; imports_->filesOf(node, rows)) {
    files_->showRows(path, std::move(rows), probePath(path) == 0, sourceOf(tree_, node));
    return;
  }
  files_->readFolder(path, false, sourceOf(tree_, node));
}

void MainWindow::importFile(const std::string& file) {
  if (busy_ || driver_->busy() || imports_->busy()) {
    pendingImports_.push_back(file);
    return;
  }
  ImportOptions o;
  o.filesLabel = TL(3514, "Dateien").toStdString();
  o.noHardlinks = options_.NoHardlinks != 0;
  importing_ = file;
  DisableControls();
  status_->setText(TL(4056, "Importiere... %1 von %2 MB", {QStringLiteral("0"), QStringLiteral("?")}));
  imports_->start(file, top_->beginRead(), o);
}

void MainWindow::importNext() {
  if (pendingImports_.empty() || imports_->busy() || driver_->busy()) return;
  const std::string next = pendingImports_.front();
  pendingImports_.pop_front();
  importFile(next);
}

void MainWindow::onImportFinished(uint32_t root, const QString& error) {
  EnableControls();
  status_->setText(TL(3525, "OK."));
  if (root == kNoNode) {
    top_->clearList();
    warn(TL(4057, "Die Datei '%1' kann nicht eingelesen werden:%!%2", {decode(importing_), error}));
  } else {
    top_->endRead(tree_.Report_GetFullpathOfNode(root));
    view().expand(model().indexOf(root));
    report_->selectNode(root);
    report_->fitColumns();
    showFolderFiles(root);
  }
  importNext();
}

// After a delete from the file list its folder's own files are counted again, and the sums go
// up the chain; the largest-files list corrects nothing elsewhere.
void MainWindow::onFilesDeleted(FileListPane::Kind kind, const std::vector<std::string>& folders) {
  // The free space of the drives that held them has moved.
  for (const std::string& folder : folders) drives_->refreshDrive(folder);
  if (kind != FileListPane::Kind::Files || driver_->busy()) return;
  uint32_t node = report_->selectedNode();
  if (node == kNoNode) return;
  if (!tree_.isFolder(node)) node = tree_.parent(node);
  if (folders.empty() || addSlash(tree_.Report_GetFullpathOfNode(node)) != folders.front()) return;
  DisableControls();
  if (!driver_->Report_Rescan(node, false)) EnableControls();
}

void MainWindow::onFolderDeleted(const std::string& path) {
  drives_->refreshDrive(path);
  files_->refresh();
}

void MainWindow::applyToolbarLook() {
  const bool big = cbrMain_->isChecked(BigIcons);
  const bool text = cbrMain_->isChecked(IconText);
  for (QToolBar* bar : {static_cast<QToolBar*>(cbrMain_), static_cast<QToolBar*>(&report_->bar()),
                        static_cast<QToolBar*>(&drives_->bar()), static_cast<QToolBar*>(&files_->bar()),
                        static_cast<QToolBar*>(&top_->bar())}) {
    bar->setIconSize(big ? QSize(32, 32) : QSize(16, 16));
    bar->setToolButtonStyle(text ? Qt::ToolButtonTextUnderIcon : Qt::ToolButtonIconOnly);
  }
  Drives_ResizeTableHeight();
}

void MainWindow::cbrMain_Execute(int id) {
  guard_.run("cbrMain_Execute", [&] {
    switch (id) {
      case New: {
        const QString folder = QFileDialog::getExistingDirectory(this, QString(), QStringLiteral("/"));
        if (!folder.isEmpty()) AddNewSearchPath(encode(folder));
        break;
      }
      case Start: StartSearchViaToolbar(); break;
      case Stop:
        driver_->stop();
        if (imports_->busy()) {
          // Nothing of a stopped import joins the report.
          imports_->stop();
          pendingImports_.clear();
          top_->clearList();
          EnableControls();
          status_->setText(TL(3525, "OK."));
        }
        break;
      case Import: {
        const QString file = QFileDialog::getOpenFileName(this, TL(4054, "Importieren"), QString(),
                                                          QStringLiteral("JSON (*.json);;* (*)"));
        if (!file.isEmpty()) importFile(encode(file));
        break;
      }
      case Options: ShowOptionen(); break;
      case About: frmInfo(this).exec(); break;
      case Homepage: QDesktopServices::openUrl(QUrl(webHost())); break;
      case Update: {
        frmInternetUpdate dlg(this);
        dlg.exec();
        if (pendingUpdate().UpdateMode != 0) {
          connect(qApp, &QCoreApplication::aboutToQuit, qApp, &StartPendingInstaller);
          close();
        }
        break;
      }
      case Exit: close(); break;
      case ShowDrives:
      case ShowReport:
      case ShowFiles:
      case ShowLargest: toggleList(id); break;
      case BigIcons:
      case IconText: applyToolbarLook(); break;
      case FontSmaller: ChangeFontSize(false); break;
      case FontLarger: ChangeFontSize(true); break;
      case German: ChangeLanguage(7); break;
      case English: ChangeLanguage(9); break;
      case Russian: ChangeLanguage(25); break;
      default: break;
    }
  }, {QString::number(id)});
}

// The dialog writes what it changes. Afterwards the whole section comes back from the file, and
// with it what was changed here since the start without being saved: the font size falls back.
void MainWindow::ShowOptionen() {
  frmOptionen(this).exec();
  OptionenLadenMain(options_);
  driver_->setSettings({options_.NoHardlinks != 0, options_.FolderColorFade == 1});
  if (options_.FontSize >= 8 && options_.FontSize <= 18) {
    QFont f = report_->view().font();
    f.setPointSizeF(options_.FontSize);
    report_->setGridFont(f);
    lvwDiskinfo_->setFont(f);
    for (FileListPane* pane : {files_, top_}) pane->setGridFont(f);
  }
}

// The last list that is shown cannot be switched off; the file list and the largest-files list
// take each other's place. (The check mark has already turned over with the click.)
void MainWindow::toggleList(int id) {
  bool othersShown = false;
  for (int other : kListIds)
    if (other != id && cbrMain_->isChecked(other)) othersShown = true;
  if (!othersShown) {
    cbrMain_->setChecked(id, true);
    return;
  }
  if (id == ShowFiles && cbrMain_->isChecked(ShowFiles)) cbrMain_->setChecked(ShowLargest, false);
  if (id == ShowLargest && cbrMain_->isChecked(ShowLargest)) cbrMain_->setChecked(ShowFiles, false);
  Change_Info_Visibility();
}

// The four check marks decide which panes show; the report may go when another list stays.
void MainWindow::Change_Info_Visibility() {
  const bool r = cbrMain_->isChecked(ShowReport), d = cbrMain_->isChecked(ShowDrives);
  const bool f = cbrMain_->isChecked(ShowFiles), t = cbrMain_->isChecked(ShowLargest);
  if (d || f || t) {
    splInfo_->setControl1Visible(true);
    splInfo_->setControl2Visible(true);
    splInfo_->setControl1Visible(d);
    if (d) Drives_ResizeTableHeight();
    splInfo_->setControl2Visible(f || t);
    splMain_->setControl2Visible(true);
    splMain_->setControl1Visible(r);
    files_->setVisible(f);
    top_->setVisible(!f && t);
    (f ? files_ : top_)->takePreview();
    if (f) showFolderFiles(report_->selectedNode());
  } else {
    splMain_->setControl1Visible(true);
    splMain_->setControl2Visible(false);
  }
  // A closed file list holds nothing and reads nothing.
  if (!f || !splInfo_->Control2Visible()) files_->clearList();
}

void MainWindow::ChangeFontSize(bool up) {
  QFont f = report_->view().font();
  const double size = f.pointSizeF();
  if ((up && size >= 18) || (!up && size < 9)) return;
  f.setPointSizeF(size + (up ? 1 : -1));
  report_->setGridFont(f);
  lvwDiskinfo_->setFont(f);
  for (FileListPane* pane : {files_, top_}) pane->setGridFont(f);
  // Rows have a new height: the columns and the drive table are measured again.
  report_->fitColumns();
  for (int c = 0; c < lvwDiskinfo_->model()->columnCount(); ++c) lvwDiskinfo_->resizeColumnToContents(c);
  Drives_ResizeTableHeight();
}

// The drive table is never taller than its rows: the splitter below it follows them.
void MainWindow::Drives_ResizeTableHeight() {
  if (!lvwDiskinfo_ || !splInfo_ || !splInfo_->Control1Visible()) return;
  if (drives_->rowCount() == 0) return;  // nothing measured yet: the pane keeps its place
  splInfo_->setPosition(drives_->preferredHeight() + 5);
}

// The drives stand first in the sources box; returns the entry of the root, or -1.
int MainWindow::fillDrivesIntoCombo() {
  int root = -1;
  for (const DrivePane::ComboDrive& d : drives_->comboDrives()) {
    const QString icon = d.image == 6 ? QStringLiteral("drive-removable-media")
                         : d.image == 5 ? QStringLiteral("network-server")
                         : d.image == 4 ? QStringLiteral("drive-optical")
                                        : QStringLiteral("drive-harddisk");
    cboOrdner_->addItem(commandIcon(icon), d.text, QByteArray::fromStdString(addSlash(d.path)));
    cboOrdner_->setItemData(cboOrdner_->count() - 1, d.image, kComboImageRole);
    if (d.path == "/") root = cboOrdner_->count() - 1;
  }
  return root;
}

void MainWindow::ChangeLanguage(int language) {
  StoreSettings(QStringLiteral("Allgemein"), QStringLiteral("Lang"), language);
  const QString text = language == 7 ? QStringLiteral("Quorlane muss jetzt neu gestartet werden.")
                                     : QStringLiteral("Quorlane must be restarted to change the GUI language.");
  const bool ok = askRestart_ ? askRestart_(text)
                              : QMessageBox::information(this, QStringLiteral("Quorlane"), text,
                                                         QMessageBox::Ok | QMessageBox::Cancel) == QMessageBox::Ok;
  if (ok) restartRequested_ = true;
}

int MainWindow::AddNewSearchPath(const std::string& path) {
  const QByteArray key = QByteArray::fromStdString(addSlash(path));
  for (int i = 0; i < cboOrdner_->count(); ++i) {
    if (cboOrdner_->itemData(i).toByteArray() == key) {  // byte for byte: /a/B and /a/b are two
      cboOrdner_->setCurrentIndex(i);
      return i;
    }
  }
  cboOrdner_->addItem(commandIcon(QStringLiteral("folder")), decode(path), key);
  cboOrdner_->setCurrentIndex(cboOrdner_->count() - 1);
  return cboOrdner_->count() - 1;
}

void MainWindow::StartSearchViaToolbar() {
  StopWord = 0;
  driver_->sourceQueue().clear();
  const QString text = cboOrdner_->currentText();
  if (text.isEmpty()) return;
  // The entry shown keeps the bytes it came with; a text typed over it is taken as typed.
  const int current = cboOrdner_->currentIndex();
  const std::string path = current >= 0 && cboOrdner_->itemText(current) == text ? itemPath(*cboOrdner_, current)
                                                                                  : encode(text);
  AddNewSearchPath(path);
  driver_->sourceQueue().push_back(path);
  DisableControls();
  driver_->start();
}

void MainWindow::readCommandLine(const std::vector<std::string>& sources) {
  for (const std::string& s : sources) driver_->sourceQueue().push_back(s);
  if (driver_->sourceQueue().empty()) return;
  DisableControls();
  driver_->start();
}

void MainWindow::takeHandOver(const std::vector<std::string>& sources) {
  if (activated_)
    readCommandLine(sources);  // during a scan they join its queue
  else
    startSources_.insert(startSources_.end(), sources.begin(), sources.end());
  if (isMinimized()) showNormal();
  raise();
  activateWindow();
}

void MainWindow::onRescanRequested(uint32_t node) {
  DisableControls();
  if (!driver_->Report_Rescan(node, true)) EnableControls();
}

// The scanning state: only Stop is live, and the report takes no input.
void MainWindow::DisableControls() {
  busy_ = true;
  setFailureBusyWord(1);
  cbrMain_->setAllEnabled(false);
  cbrMain_->control(Stop)->setEnabled(true);
  report_->setControlsEnabled(false);
  for (FileListPane* pane : {files_, top_}) pane->setControlsEnabled(false);
}

void MainWindow::EnableControls() {
  cbrMain_->setAllEnabled(true);
  cbrMain_->control(Stop)->setEnabled(false);
  report_->setControlsEnabled(true);
  for (FileListPane* pane : {files_, top_}) pane->setControlsEnabled(true);
  busy_ = false;
  setFailureBusyWord(0);
}

// After a failure in a handler: the window is usable again unless a scan really runs.
void MainWindow::recoverControls() {
  if (activated_ && driver_ && !driver_->busy()) EnableControls();
}

void MainWindow::onFinished(bool sourcesRead) {
  if (driver_->busy()) return;  // a rescan handed over to queued sources
  report_->fitColumns();
  // The source read last is the one the user looks at next.
  if (const uint32_t root = driver_->lastRoot(); sourcesRead && root != kNoNode) {
    report_->selectNode(root);
    drives_->selectDrive(tree_.Report_GetFullpathOfNode(root));
  }
  EnableControls();
  // The selection moved while the report took no input: the file list follows it now.
  showFolderFiles(report_->selectedNode());
  status_->setText(TL(3525, "OK."));
  if (!refused_.isEmpty()) {
    const QString text = refused_.join(QLatin1Char('\n'));
    refused_.clear();
    warn(text);
  }
  importNext();  // imports asked for during the scan
}

void MainWindow::setWarningHandler(std::function<void(const QString&)> warn) {
  warn_ = warn;
  report_->setWarningHandler(warn);
  for (FileListPane* pane : {files_, top_}) pane->setWarningHandler(warn);
}

void MainWindow::warn(const QString& text) {
  if (warn_)
    warn_(text);
  else
    QMessageBox::warning(this, QStringLiteral("Quorlane"), text);
}

// Delete takes out the entry that is shown, unless the user has typed over it; a root as short
// as "/" is never taken out this way.
bool MainWindow::removeShownSource() {
  const int i = cboOrdner_->currentIndex();
  if (i < 0 || cboOrdner_->itemText(i) != cboOrdner_->currentText()) return false;
  if (cboOrdner_->itemData(i).toByteArray().size() < 4) return false;
  cboOrdner_->removeItem(i);
  cboOrdner_->setCurrentIndex(std::min(i, cboOrdner_->count() - 1));
  return true;
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::KeyPress && (watched == cboOrdner_ || watched == cboOrdner_->lineEdit())) {
    auto* key = static_cast<QKeyEvent*>(event);
    bool handled = false;
    guard_.run("cboOrdner_KeyUp", [&] {
      if (key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) {
        StartSearchViaToolbar();
        handled = true;
      } else if (key->key() == Qt::Key_Delete) {
        handled = removeShownSource();
      }
    });
    if (handled) return true;
  }
  return QMainWindow::eventFilter(watched, event);
}

void MainWindow::showEvent(QShowEvent* event) {
  QMainWindow::showEvent(event);
  if (activated_) return;
  // The window is drawn before the known folders and the command line are read.
  QMetaObject::invokeMethod(this, [this] { guard_.run("Form_Activate", [this] { Form_Activate(); }); },
                            Qt::QueuedConnection);
}

void MainWindow::Form_Activate() {
  activated_ = true;
  if (startState_ == 2) showMaximized();  // a window left minimised comes back normal
  // Pane sizes once the window has its size: the report as wide as it was, the drive table
  // a third of the height on the right.
  splMain_->setPosition(reportWidth_);
  splInfo_->setPosition(splInfo_->height() / 3);
  drives_->reloadDrives();
  const SavedComboFolders saved = GetAllSavedComboFolders();
  const int rootDrive = fillDrivesIntoCombo();
  for (const std::string& folder : saved.folders) {
    if (probePath(folder) != 0) continue;  // gone since: dropped without a word
    AddNewSearchPath(folder);
  }
  int selected = cboOrdner_->findText(saved.comboText);
  if (selected < 0 && saved.comboText.isEmpty()) selected = rootDrive;
  cboOrdner_->setCurrentIndex(selected);
  if (selected < 0) cboOrdner_->setEditText(saved.comboText);
  if (!driver_->busy()) EnableControls();
  if (!startSources_.empty()) readCommandLine(std::exchange(startSources_, {}));
  importNext();
}

// What the window keeps between runs: position, bar layouts, options, the known folders.
void MainWindow::saveAtExit() {
  saveWindowPlace(*this, splMain_->Position());
  saveBarLayouts(*this, report_->bar());

  MainOptions o = options_;
  o.DiskinfoVisible = cbrMain_->isChecked(ShowDrives);
  o.FilelistVisible = cbrMain_->isChecked(ShowFiles);
  o.ToplistVisible = cbrMain_->isChecked(ShowLargest);
  o.BigIcons = cbrMain_->isChecked(BigIcons);
  o.SymbolText = cbrMain_->isChecked(IconText);
  report_->storeOptions(o);
  files_->storeOptions(o);
  top_->storeOptions(o);
  drives_->storeOptions(o);
  drives_->saveLocations();
  o.ComboText = cboOrdner_->currentText();
  OptionenSpeichernMain(o);

  QList<ComboItem> items;
  for (int i = 0; i < cboOrdner_->count(); ++i) {
    const QVariant image = cboOrdner_->itemData(i, kComboImageRole);
    items.push_back({rootText(itemPath(*cboOrdner_, i)), image.isValid() ? image.toInt() : kComboFolderImage});
  }
  SaveAllComboFolders(items);
}

void MainWindow::closeEvent(QCloseEvent* event) {
  guard_.run("Form_Unload", [&] {
    // A close during a scan only asks the walk to stop; nothing is saved then.
    if (busy_ || driver_->busy()) {
      driver_->stop();
      event->ignore();
      return;
    }
    saveAtExit();
    event->accept();
    if (restartRequested_)
      QProcess::startDetached(QCoreApplication::applicationFilePath(), {QStringLiteral("-RESTART")});
  });
}

}  // namespace ql
