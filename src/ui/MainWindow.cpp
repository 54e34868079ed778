#include "ui/MainWindow.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QFileDialog>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLocalServer>
#include <QMenu>
#include <QMessageBox>
#include <QProcess>
#include <QScreen>
#include <QSettings>
#include <QStandardItemModel>
#include <QScrollBar>
#include <QStatusBar>
#include <QStyle>
#include <QUrl>
#include <QVBoxLayout>
#include <cerrno>

#include "app/CommandLine.h"
#include "app/Globals.h"
#include "app/Startup.h"
#include "failure/FailureReport.h"
#include "lang/TL.h"
#include "output/ReportWriter.h"
#include "report/ReportCommands.h"
#include "scan/FileOps.h"

namespace ql {

namespace {
// The list commands of the main bar: report, drive table, file list, largest files.
constexpr int kListIds[] = {33, 21, 306, 307};

QString decode(const std::string& bytes) { return QFile::decodeName(QByteArray::fromStdString(bytes)); }
std::string encode(const QString& text) { return QFile::encodeName(text).toStdString(); }
}  // namespace

MainWindow::MainWindow(QWidget* parent) : QMainWindow(parent) {
  setObjectName(QStringLiteral("frmMain"));
  setWindowTitle(QStringLiteral("Quorlane ") + globals().AppVersion);

  // Options first: a damaged value is reported, and what stands behind it stays 0.
  OptionenLadenMain(options_);
  const MainOptions& options = options_;
  decimals_ = options.SizeFormatNachkommastellenFolders ? 1 : 0;
  model_ = std::make_unique<ReportModel>(tree_);
  model_->setSizeFormat(options.FileSizeFormat, decimals_);
  driver_ = std::make_unique<ScanDriver>(tree_);
  ScanDriver::Settings s;
  s.noHardlinks = options.NoHardlinks != 0;
  s.folderColorFade = options.FolderColorFade == 1;
  driver_->setSettings(s);

  buildMainBar(options);

  // The report pane: its title, its command bar and the tree.
  auto* report = new QWidget(this);
  report->setObjectName(QStringLiteral("picReport"));
  auto* layout = new QVBoxLayout(report);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  auto* title = new QLabel(TL(3640, "Ordner").toUpper(), report);
  title->setObjectName(QStringLiteral("lblReportTitle"));
  title->setContentsMargins(6, 3, 6, 3);
  QFont bold = title->font();
  bold.setBold(true);
  title->setFont(bold);
  layout->addWidget(title);
  buildReportBar(options);
  layout->addWidget(cbrReport_);

  view_ = new QTreeView(report);
  view_->setObjectName(QStringLiteral("tvwPL"));
  view_->setModel(model_.get());
  view_->setUniformRowHeights(true);
  view_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  view_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  view_->header()->setStretchLastSection(false);
  view_->setColumnWidth(0, 320);
  for (int c = 1; c < ReportModel::ColumnCount; ++c) view_->setColumnWidth(c, 110);
  view_->setColumnHidden(ReportModel::ColPercent, !options.ColPercentVisible);
  view_->setColumnHidden(ReportModel::ColFiles, !options.ColFileVisible);
  view_->setColumnHidden(ReportModel::ColFolders, !options.ColFolderVisible);
  view_->installEventFilter(this);
  view_->setContextMenuPolicy(Qt::CustomContextMenu);
  connect(view_, &QWidget::customContextMenuRequested, this, [this](const QPoint& at) {
    const QModelIndex i = view_->indexAt(at);
    if (!i.isValid() || busy_ || !tree_.isFolder(model_->nodeOf(i))) return;  // not on a files row
    view_->setCurrentIndex(i);
    reportPopup()->popup(view_->viewport()->mapToGlobal(at));
  });
  model_->setRenamer([this](uint32_t node, const QString& name) { return renameFolder(node, name); });
  connect(view_->selectionModel(), &QItemSelectionModel::currentChanged, this,
          [this](const QModelIndex& current) { onCurrentChanged(current); });
  layout->addWidget(view_, 1);

  // The other lists stand beside the report: the drive table above, the file list or the
  // largest-files list below it. (Their contents come with their own commands.)
  QWidget* drives = listPane(QStringLiteral("picDrives"), 3642, QStringLiteral("Laufwerke"), lvwDiskinfo_,
                             {{3575, "Laufwerk"}, {3576, "Name"}, {3577, "Dateisystem"}, {3578, "Typ"},
                              {3579, "Belegt"}, {3580, "Frei"}, {3581, "Gesamt"}});
  picFiles_ = listPane(QStringLiteral("picFiles"), 3644, QStringLiteral("Dateien"), lvwFiles_,
                       {{3582, "Dateiname"}, {3583, "Größe (Bytes)"}, {3584, "Endung"}, {3585, "Typ"},
                        {3586, "Attribute"}, {3587, "Änderungsdatum"}, {3588, "Erstellungsdatum"},
                        {3589, "Zugriffsdatum"}});
  picTOP_ = listPane(QStringLiteral("picTOP"), 3724, QStringLiteral("Größte Dateien"), lvwTOP_,
                     {{3582, "Dateiname"}, {3583, "Größe (Bytes)"}, {3728, "Pfad"}, {3584, "Endung"},
                      {3585, "Typ"}, {3586, "Attribute"}, {3587, "Änderungsdatum"},
                      {3588, "Erstellungsdatum"}, {3589, "Zugriffsdatum"}});
  filesArea_ = new QWidget(this);
  auto* filesLayout = new QVBoxLayout(filesArea_);
  filesLayout->setContentsMargins(0, 0, 0, 0);
  filesLayout->addWidget(picFiles_);
  filesLayout->addWidget(picTOP_);

  splInfo_ = new Splitter(this);
  splInfo_->setObjectName(QStringLiteral("splInfo"));
  splInfo_->setOrientation(Splitter::PanesAbove);
  splInfo_->Bind(drives, filesArea_);
  splMain_ = new Splitter(this);
  splMain_->setObjectName(QStringLiteral("splMain"));
  splMain_->setOrientation(Splitter::PanesSideBySide);
  splMain_->setMinimumSize(1, 120);
  splMain_->setMinimumSize(2, 120);
  splMain_->Bind(report, splInfo_);
  setCentralWidget(splMain_);
  if (options.FontSize >= 8 && options.FontSize <= 18) {
    QFont f = view_->font();
    f.setPointSizeF(options.FontSize);
    for (QTreeView* grid : {view_, lvwDiskinfo_, lvwFiles_, lvwTOP_}) grid->setFont(f);
  }

  // The tree keeps what is expanded, so that a report of the current view can follow it.
  connect(view_, &QTreeView::expanded, this, [this](const QModelIndex& i) {
    tree_.setFlag(model_->nodeOf(i), ReportTree::Expanded, true);
  });
  connect(view_, &QTreeView::collapsed, this, [this](const QModelIndex& i) {
    tree_.setFlag(model_->nodeOf(i), ReportTree::Expanded, false);
  });
  // A click on a column title sorts. (The header reports no click when a drag of a column
  // border ends over a title, so that release never sorts.)
  view_->header()->setSectionsClickable(true);
  connect(view_->header(), &QHeaderView::sectionClicked, this, &MainWindow::onColumnTitleClick);

  status_ = new QLabel(this);
  status2_ = new QLabel(this);
  statusBar()->addWidget(status_, 1);
  statusBar()->addWidget(status2_);
  status_->setText(TL(3525, "OK."));
  // Bar layouts, kept under the maker's name; the fifth is read but never written.
  QSettings layouts(QStringLiteral("Velmora Works"), QStringLiteral("Quorlane"));
  restoreState(layouts.value(QStringLiteral("Toolbar1")).toByteArray());
  cbrReport_->setVisible(layouts.value(QStringLiteral("Toolbar2"), true).toBool());

  // Geometry from the settings file, in twips, corrected for this screen.
  const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
  const double px = dpi();
  const FormPosition pos = FensterpositionLaden(pixelsToTwips(screen.width(), px),
                                                pixelsToTwips(screen.height(), px));
  setGeometry(static_cast<int>(twipsToPixels(pos.Left, px)), static_cast<int>(twipsToPixels(pos.Top, px)),
              static_cast<int>(twipsToPixels(pos.Width, px)), static_cast<int>(twipsToPixels(pos.Height, px)));
  startState_ = pos.WindowState;
  reportWidth_ = static_cast<int>(twipsToPixels(pos.TVW, px));
  Change_Info_Visibility();

  connect(driver_.get(), &ScanDriver::sourceAccepted, this,
          [this](const QString& path) { AddNewSearchPath(path); });
  connect(driver_.get(), &ScanDriver::sourceStarted, this, &MainWindow::onSourceStarted);
  connect(driver_.get(), &ScanDriver::progress, status_, &QLabel::setText);
  connect(driver_.get(), &ScanDriver::finished, this, &MainWindow::onFinished);
  connect(driver_.get(), &ScanDriver::rescanFinished, this, [this](uint32_t node) {
    selectNode(node);
    onFinished();
  });

  // Marks this user's running window, so a restart waits for it to go.
  lock_ = new QLocalServer(this);
  QLocalServer::removeServer(instanceLockName());
  lock_->listen(instanceLockName());
  applyToolbarLook();
  DisableControls();  // until the window has come up
  cbrMain_->control(3)->setEnabled(false);
}

MainWindow::~MainWindow() { view_->setModel(nullptr); }

void MainWindow::buildMainBar(const MainOptions& o) {
  cbrMain_ = new CommandBar(QStringLiteral("cbrMain"), QStringLiteral("Quorlane"), this);
  addToolBar(Qt::TopToolBarArea, cbrMain_);
  cboOrdner_ = new QComboBox(cbrMain_);
  cboOrdner_->setObjectName(QStringLiteral("cboOrdner"));
  cboOrdner_->setEditable(true);
  cboOrdner_->setInsertPolicy(QComboBox::NoInsert);
  cboOrdner_->setMinimumWidth(260);
  cboOrdner_->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
  cboOrdner_->installEventFilter(this);
  cboOrdner_->lineEdit()->installEventFilter(this);
  CommandBar& b = *cbrMain_;
  b.AddWidget(50, cboOrdner_, false);
  using T = CommandBar::Type;
  b.AddControl(T::Button, 1, 3529, "Neu", "folder-new", false, 3530, "Neue Quelle auswählen");
  b.AddControl(T::Button, 2, 3531, "Start", "media-playback-start", false, 3532, "Quelle einlesen");
  b.AddControl(T::Button, 3, 3533, "Stop", "process-stop", false, 3534, "Einlesen beenden", false,
               false, false);
  b.AddControl(T::Button, 33, 3641, "Ordnerliste", "view-list-tree", true, 3667,
               "Ordnerliste anzeigen", true, true);
  b.AddControl(T::Button, 21, 3643, "Laufwerksliste", "drive-harddisk", false, 3632,
               "Laufwerksliste anzeigen", true, o.DiskinfoVisible);
  b.AddControl(T::Button, 306, 3645, "Dateiliste", "view-list-details", false, 3635,
               "Dateiliste anzeigen", true, o.FilelistVisible);
  b.AddControl(T::Button, 307, 3724, "Größte Dateien", "view-sort-descending", false, 3725,
               "Liste mit den größten Dateien anzeigen", true, o.ToplistVisible);
  b.AddControl(T::Button, 14, 3547, "Optionen", "preferences-system", true, 3548, "Optionen");
  b.AddControl(T::Button, 27, 3627, "Symbolgröße", "zoom-in", true, 3628, "Symbole vergrößern",
               true, o.BigIcons);
  b.AddControl(T::Button, 34, 3690, "Symboltext", "format-text-bold", false, 3689,
               "Symboltext anzeigen", true, o.SymbolText);
  b.AddControl(T::Button, 32, 3672, "Größer", "format-font-size-more", true, 3652,
               "Schrift vergrößern");
  b.AddControl(T::Button, 31, 3650, "Kleiner", "format-font-size-less", false, 3651,
               "Schrift verkleinern");
  b.AddControl(T::SplitButton, 28, 3701, "Sprache", "preferences-desktop-locale", true, 3702,
               "Sprache der Benutzeroberfläche ändern");
  b.AddPopupControl(28, 35, TL(3703, "Deutsch"));
  b.AddPopupControl(28, 36, TL(3704, "Englisch"));
  b.AddControl(T::Button, 17, 3551, "Info", "help-about", true, 3552, "Info");
  b.AddControl(T::Button, 18, 3553, "Homepage", "go-home", false, 3554, "Homepage");
  b.AddControl(T::Button, 19, 3555, "Update", "system-software-update", false, 3556,
               "Internet Update");
  b.AddControl(T::Button, 20, 3557, "Beenden", "application-exit", true, 3558, "Programm beenden");
  connect(cbrMain_, &CommandBar::execute, this, &MainWindow::cbrMain_Execute);
}

void MainWindow::buildReportBar(const MainOptions& o) {
  cbrReport_ = new CommandBar(QStringLiteral("cbrReport"), QStringLiteral("Folders"), this);
  CommandBar& b = *cbrReport_;
  using T = CommandBar::Type;
  b.AddControl(T::Button, 4, 3535, "Aktualisieren", "view-refresh", true, 3536,
               "Ausgewählter Ordner neu einlesen");
  b.AddControl(T::Button, 323, 3720, "Vollansicht", "view-fullscreen", true, 3719,
               "Alle anderen Listen ausblenden");
  b.AddControl(T::Button, 24, 3673, "Zuklappen", "zoom-out", true, 3562, "Alle Ordner zuklappen");
  b.AddControl(T::SplitButton, 25, 3674, "Aufklappen", "zoom-in", false, 3563,
               "Alle Ordner aufklappen");
  b.AddPopupControl(25, 100, TL(3629, "1 Ordnerebene aufklappen"));
  for (int n = 2; n <= 10; ++n)
    b.AddPopupControl(25, n + 99, TL(3646, "%1 Ordnerebenen aufklappen", {QString::number(n)}));
  b.AddControl(T::Button, 7, 3539, "Entfernen", "list-remove", true, 3540,
               "Ausgewählte Quelle entfernen");
  b.AddControl(T::Button, 9, 3545, "Alle entfernen", "edit-clear", false, 3546,
               "Alle Quellen entfernen");
  b.AddControl(T::Button, 5, 3537, "Speichern", "document-save", true, 3538,
               "Ordnerliste in eine Textdatei speichern");
  b.AddControl(T::Button, 35, 3698, "Prozent", "", true, 3699, "Spalte 'Prozent' anzeigen", true,
               o.ColPercentVisible);
  b.AddControl(T::Button, 22, 3676, "Dateien", "", false, 3565, "Spalte 'Dateianzahl' anzeigen",
               true, o.ColFileVisible);
  b.AddControl(T::Button, 23, 3677, "Ordner", "", false, 3566, "Spalte 'Ordneranzahl' anzeigen",
               true, o.ColFolderVisible);
  b.AddControl(T::Button, 26, 3675, "Optimieren", "zoom-fit-best", false, 3564,
               "Spaltenbreite optimieren");
  b.AddControl(T::Button, 10, 3567, "Bytes", "", true, 3567, "Bytes", true);
  b.AddControl(T::Button, 11, 3568, "Kilobytes", "", false, 3568, "Kilobytes", true);
  b.AddControl(T::Button, 12, 3569, "Megabytes", "", false, 3569, "Megabytes", true);
  b.AddControl(T::Button, 13, 3570, "Gigabytes", "", false, 3570, "Gigabytes", true);
  b.AddControl(T::Button, 33, 3691, "Dezimal", "", false, 3653, "Nachkommastellen anzeigen", true,
               o.SizeFormatNachkommastellenFolders);
  search_ = new QLineEdit(cbrReport_);
  search_->setObjectName(QStringLiteral("txtSearch"));
  search_->setMaximumWidth(180);
  search_->setClearButtonEnabled(true);
  connect(search_, &QLineEdit::returnPressed, this, &MainWindow::Report_StartSearch);
  b.AddWidget(29, search_, true);
  b.AddControl(T::Button, 30, 3678, "Suchen", "edit-find", false, 3630, "Suche starten");
  b.setChecked(10 + model_->unit(), true);
  connect(cbrReport_, &CommandBar::execute, this, &MainWindow::cbrReport_Execute);
}

void MainWindow::applyToolbarLook() {
  const bool big = cbrMain_->isChecked(27);
  const bool text = cbrMain_->isChecked(34);
  for (CommandBar* bar : {cbrMain_, cbrReport_}) {
    bar->setIconSize(big ? QSize(32, 32) : QSize(16, 16));
    bar->setToolButtonStyle(text ? Qt::ToolButtonTextUnderIcon : Qt::ToolButtonIconOnly);
  }
}

void MainWindow::cbrMain_Execute(int id) {
  try {
    switch (id) {
      case 1: {
        const QString folder = QFileDialog::getExistingDirectory(this, QString(), QStringLiteral("/"));
        if (!folder.isEmpty()) AddNewSearchPath(folder);
        break;
      }
      case 2: StartSearchViaToolbar(); break;
      case 3: StopWord = FolderWalk::kStop; break;
      case 17:
        QMessageBox::about(this, TL(3551, "Info"),
                           QStringLiteral("<b>Quorlane %1</b><p>%2</p><p><a href=\"%3\">%3</a></p>")
                               .arg(globals().AppVersion,
                                    TL(3991, "Zeigt, wo der Platz auf einem Datenträger geblieben ist."),
                                    webHost()));
        break;
      case 18: QDesktopServices::openUrl(QUrl(webHost())); break;
      case 20: close(); break;
      case 21:
      case 33:
      case 306:
      case 307: toggleList(id); break;
      case 27:
      case 34: applyToolbarLook(); break;
      case 31: ChangeFontSize(false); break;
      case 32: ChangeFontSize(true); break;
      case 35: ChangeLanguage(7); break;
      case 36: ChangeLanguage(9); break;
      case 37: ChangeLanguage(25); break;
      default: break;  // options and update come with their dialogs
    }
  } catch (const std::exception& e) {
    FailureReport(QStringLiteral("cbrMain_Execute"), QStringLiteral("frmMain"), 0,
                  QString::fromLocal8Bit(e.what()), {QString::number(id)});
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
  if (id == 306 && cbrMain_->isChecked(306)) cbrMain_->setChecked(307, false);
  if (id == 307 && cbrMain_->isChecked(307)) cbrMain_->setChecked(306, false);
  Change_Info_Visibility();
}

QWidget* MainWindow::listPane(const QString& name, int titleId, const QString& title,
                              QTreeView*& grid, const QList<QPair<int, QString>>& columns) {
  auto* pane = new QWidget(this);
  pane->setObjectName(name);
  auto* layout = new QVBoxLayout(pane);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  auto* label = new QLabel(TL(titleId, title).toUpper(), pane);
  label->setContentsMargins(6, 3, 6, 3);
  QFont bold = label->font();
  bold.setBold(true);
  label->setFont(bold);
  layout->addWidget(label);
  grid = new QTreeView(pane);
  grid->setRootIsDecorated(false);
  grid->setUniformRowHeights(true);
  QStringList titles;
  for (const auto& [id, text] : columns) titles << TL(id, text);
  grid->setHeaderHidden(false);
  grid->header()->setStretchLastSection(false);
  auto* model = new QStandardItemModel(0, static_cast<int>(titles.size()), grid);
  model->setHorizontalHeaderLabels(titles);
  grid->setModel(model);
  layout->addWidget(grid, 1);
  return pane;
}

// The four check marks decide which panes show; the report may go when another list stays.
void MainWindow::Change_Info_Visibility() {
  const bool r = cbrMain_->isChecked(33), d = cbrMain_->isChecked(21);
  const bool f = cbrMain_->isChecked(306), t = cbrMain_->isChecked(307);
  if (d || f || t) {
    splInfo_->setControl1Visible(true);
    splInfo_->setControl2Visible(true);
    splInfo_->setControl1Visible(d);
    splInfo_->setControl2Visible(f || t);
    splMain_->setControl2Visible(true);
    splMain_->setControl1Visible(r);
    picFiles_->setVisible(f);
    picTOP_->setVisible(!f && t);
  } else {
    splMain_->setControl1Visible(true);
    splMain_->setControl2Visible(false);
  }
}

void MainWindow::ChangeFontSize(bool up) {
  QFont f = view_->font();
  const double size = f.pointSizeF();
  if ((up && size >= 18) || (!up && size < 9)) return;
  f.setPointSizeF(size + (up ? 1 : -1));
  for (QTreeView* grid : {view_, lvwDiskinfo_, lvwFiles_, lvwTOP_}) grid->setFont(f);
}

void MainWindow::ChangeLanguage(int language) {
  StoreSettings(QStringLiteral("Allgemein"), QStringLiteral("Lang"), language);
  const QString text = language == 7 ? QStringLiteral("Quorlane muss jetzt neu gestartet werden.")
                                     : QStringLiteral("Quorlane must be restarted to change the GUI language.");
  const bool ok = askRestart_ ? askRestart_(text)
                              : QMessageBox::information(this, QStringLiteral("Quorlane"), text,
                                                         QMessageBox::Ok | QMessageBox::Cancel) ==
                                    QMessageBox::Ok;
  if (ok) restartRequested_ = true;
}

void MainWindow::cbrReport_Execute(int id) {
  try {
    // The level entries of the expand button are 100 to 109, and any other number from 100
    // up takes their road too, except the full view.
    if (id >= 100 && id != 323) {
      Report_ExpandFolderLevels(id - 100);
      return;
    }
    switch (id) {
      case 4:
        if (selectedNode() != kNoNode) {
          DisableControls();
          driver_->Report_Rescan(selectedNode(), true);
          if (!driver_->busy()) EnableControls();
        }
        break;
      case 5: saveReport(); break;
      case 7: driver_->Report_RemoveFolders(selectedNode()); break;
      case 9: tree_.clear(); break;
      case 10:
      case 11:
      case 12:
      case 13: Report_Set_SizeFormat(id - 10); break;
      case 33:
        decimals_ = cbrReport_->isChecked(33) ? 1 : 0;
        Report_Set_SizeFormat(model_->unit());
        break;
      case 35: view_->setColumnHidden(ReportModel::ColPercent, !cbrReport_->isChecked(35)); break;
      case 22: view_->setColumnHidden(ReportModel::ColFiles, !cbrReport_->isChecked(22)); break;
      case 23: view_->setColumnHidden(ReportModel::ColFolders, !cbrReport_->isChecked(23)); break;
      case 24:
        view_->collapseAll();
        syncExpandedFlags();
        break;
      case 25:
        view_->expandAll();
        syncExpandedFlags();
        break;
      case 26: Report_Resize_Columns(); break;
      case 29:
      case 30: Report_StartSearch(); break;
      case 323:
        for (int other : {21, 306, 307}) cbrMain_->setChecked(other, false);
        Change_Info_Visibility();
        break;
      default: break;
    }
    status_->setText(TL(3525, "OK."));
  } catch (const std::exception& e) {
    FailureReport(QStringLiteral("cbrReport_Execute"), QStringLiteral("frmMain"), 0,
                  QString::fromLocal8Bit(e.what()), {QString::number(id)});
  }
}

void MainWindow::Report_Set_SizeFormat(int unit) {
  for (int u = 0; u < 4; ++u) cbrReport_->setChecked(10 + u, u == unit);
  model_->setSizeFormat(unit, decimals_);
}

// Opens the levels up to `level` (0: the sources) and closes everything deeper.
void MainWindow::Report_ExpandFolderLevels(int level) {
  if (tree_.liveCount() < 2) return;
  view_->collapseAll();
  view_->expandToDepth(level);
  syncExpandedFlags();
}

void MainWindow::syncExpandedFlags() {
  for (uint32_t n : tree_.preorder())
    tree_.setFlag(n, ReportTree::Expanded, view_->isExpanded(model_->indexOf(n)));
}

void MainWindow::Report_ExpandSubFolders(bool expand) {
  const QModelIndex i = view_->currentIndex().siblingAtColumn(0);
  if (!i.isValid()) return;
  busy_ = true;
  if (expand) {
    view_->expandRecursively(i);
  } else {
    std::vector<QModelIndex> stack{i};
    while (!stack.empty()) {
      const QModelIndex n = stack.back();
      stack.pop_back();
      view_->collapse(n);
      for (int r = 0; r < model_->rowCount(n); ++r) stack.push_back(model_->index(r, 0, n));
    }
  }
  busy_ = false;
  syncExpandedFlags();
  Report_Resize_Columns();
  status_->setText(TL(3525, "OK."));
}

QMenu* MainWindow::reportPopup() {
  auto* menu = new QMenu(this);
  menu->setAttribute(Qt::WA_DeleteOnClose);
  menu->addAction(TL(3713, "Alle Unterordner aufklappen"), this, [this] { Report_ExpandSubFolders(true); })
      ->setData(1007);
  menu->addAction(TL(3712, "Alle Unterordner zuklappen"), this, [this] { Report_ExpandSubFolders(false); })
      ->setData(1006);
  QAction* rename = menu->addAction(TL(3718, "Ordner umbenennen"), this, [this] { startRename(); });
  rename->setData(1008);
  rename->setEnabled(selectedNode() != kNoNode && !tree_.isRoot(selectedNode()));
  return menu;
}

uint32_t MainWindow::selectedNode() const {
  const QModelIndex i = view_->currentIndex();
  return i.isValid() ? model_->nodeOf(i) : kNoNode;
}

void MainWindow::selectNode(uint32_t node) {
  if (node == kNoNode || tree_.hasFlag(node, ReportTree::Dead)) return;
  const QModelIndex i = model_->indexOf(node);
  view_->setCurrentIndex(i);
  view_->scrollTo(i);
}

int MainWindow::AddNewSearchPath(const QString& path) {
  const QString tag = QFile::decodeName(QByteArray::fromStdString(addSlash(encode(path))));
  const QString key = tag.toLower();
  for (int i = 0; i < cboOrdner_->count(); ++i) {
    if (cboOrdner_->itemData(i).toString().toLower() == key) {
      cboOrdner_->setCurrentIndex(i);
      return i;
    }
  }
  cboOrdner_->addItem(commandIcon(QStringLiteral("folder")), path, tag);
  cboOrdner_->setCurrentIndex(cboOrdner_->count() - 1);
  return cboOrdner_->count() - 1;
}

void MainWindow::StartSearchViaToolbar() {
  StopWord = 0;
  driver_->sourceQueue().clear();
  const QString text = cboOrdner_->currentText();
  if (text.trimmed().isEmpty()) return;
  int index = cboOrdner_->findText(text);
  if (index < 0) index = AddNewSearchPath(text);
  driver_->sourceQueue().push_back(encode(cboOrdner_->itemData(index).toString()));
  DisableControls();
  driver_->start();
}

void MainWindow::Report_StartSearch() {
  const QString text = search_->text();
  if (tree_.empty() || text.isEmpty()) return;
  const std::vector<uint32_t> rows = tree_.preorder();
  size_t from = 0;
  const uint32_t current = selectedNode();
  for (size_t r = 0; r < rows.size(); ++r)
    if (rows[r] == current) from = r + 1;
  for (size_t k = 0; k < rows.size(); ++k) {
    const uint32_t n = rows[(from + k) % rows.size()];
    if (decode(std::string(tree_.text(n))).contains(text, Qt::CaseInsensitive)) {
      selectNode(n);
      break;
    }
  }
  search_->setFocus();
}

void MainWindow::saveReport() {
  if (tree_.empty()) return;
  const QString file = QFileDialog::getSaveFileName(
      this, TL(3612, "Speichern"), QString(), QStringLiteral("CSV (*.csv);;TXT (*.txt)"));
  if (file.isEmpty()) return;
  ReportSaveOptions o;
  o.unit = model_->unit();
  o.decimals = decimals_;
  QString error;
  if (!ReportWriter::SPEICHERN(tree_, encode(file), o, error))
    FailureReport(QStringLiteral("SPEICHERN"), QStringLiteral("frmSave"), 0, error);
}

void MainWindow::readCommandLine(const std::vector<std::string>& sources) {
  driver_->sourceQueue().insert(driver_->sourceQueue().end(), sources.begin(), sources.end());
  if (driver_->sourceQueue().empty()) return;
  DisableControls();
  driver_->start();
}

// The scanning state: only Stop is live, and the report takes no input.
void MainWindow::DisableControls() {
  busy_ = true;
  setFailureBusyWord(1);
  cbrMain_->setAllEnabled(false);
  cbrMain_->control(3)->setEnabled(true);
  cbrReport_->setAllEnabled(false);
  view_->setEnabled(false);
}

void MainWindow::EnableControls() {
  cbrMain_->setAllEnabled(true);
  cbrMain_->control(3)->setEnabled(false);
  cbrReport_->setAllEnabled(true);
  view_->setEnabled(true);
  busy_ = false;
  setFailureBusyWord(0);
}

void MainWindow::onColumnTitleClick(int section) {
  if (tree_.empty() || busy_) return;
  Report_SortByColumnTitle(tree_, section + 1);
  view_->setCurrentIndex(model_->index(0, 0));
  view_->scrollToTop();
}

void MainWindow::onSourceStarted(uint32_t root) { view_->expand(model_->indexOf(root)); }

// Every column fitted to its content, and the report made exactly as wide as its columns.
void MainWindow::Report_Resize_Columns() {
  int width = 0;
  for (int c = 0; c < ReportModel::ColumnCount; ++c) {
    view_->resizeColumnToContents(c);
    if (!view_->isColumnHidden(c)) width += view_->columnWidth(c);
  }
  if (tree_.empty()) return;  // an empty tree moves nothing
  width += view_->verticalScrollBar()->isVisible() ? view_->verticalScrollBar()->width()
                                                   : style()->pixelMetric(QStyle::PM_ScrollBarExtent);
  splMain_->setPosition(width + 2 * view_->frameWidth());
}

void MainWindow::onFinished() {
  if (driver_->busy()) return;  // a rescan handed over to queued sources
  Report_Resize_Columns();
  const uint32_t root = driver_->lastRoot();
  if (view_->currentIndex() == QModelIndex() && root != kNoNode && !tree_.hasFlag(root, ReportTree::Dead))
    view_->setCurrentIndex(model_->indexOf(root));
  EnableControls();
  status_->setText(TL(3525, "OK."));
}

// A folder renamed in place: on disk first, never over something that is there.
bool MainWindow::renameFolder(uint32_t node, const QString& name) {
  const std::string parent = tree_.Report_GetFullpathOfNode(node, true, true);
  const std::string from = parent + std::string(tree_.text(node));
  const std::string to = parent + encode(name);
  const std::string error = name.contains(QLatin1Char('/')) || name.isEmpty()
                                ? systemErrorText(EINVAL)
                                : renameNoReplace(from, to);
  if (!error.empty()) {
    const QString text = QString::fromStdString(error);
    if (warn_)
      warn_(text);
    else
      QMessageBox::warning(this, QStringLiteral("Quorlane"), text);
    return false;
  }
  tree_.setText(node, encode(name));
  onCurrentChanged(view_->currentIndex());
  return true;
}

// F2 renames exactly one selected folder below a source.
void MainWindow::startRename() {
  const QModelIndex current = view_->currentIndex().siblingAtColumn(0);
  if (view_->selectionModel()->selectedRows().size() == 1 && (model_->flags(current) & Qt::ItemIsEditable))
    view_->edit(current);
}

// The selected row's folder in the status bar (the files row stands for its folder).
void MainWindow::onCurrentChanged(const QModelIndex& current) {
  if (!current.isValid() || busy_) return;
  uint32_t node = model_->nodeOf(current);
  if (!tree_.isFolder(node)) node = tree_.parent(node);
  status_->setText(decode(tree_.Report_GetFullpathOfNode(node)));
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
  if (watched == view_ && event->type() == QEvent::KeyPress &&
      static_cast<QKeyEvent*>(event)->key() == Qt::Key_F2) {
    startRename();
    return true;
  }
  if (event->type() == QEvent::KeyPress && (watched == cboOrdner_ || watched == cboOrdner_->lineEdit())) {
    auto* key = static_cast<QKeyEvent*>(event);
    if (key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) {
      StartSearchViaToolbar();
      return true;
    }
    if (key->key() == Qt::Key_Delete && watched == cboOrdner_ && cboOrdner_->currentIndex() >= 0 &&
        cboOrdner_->itemData(cboOrdner_->currentIndex()).toString().size() >= 4) {
      cboOrdner_->removeItem(cboOrdner_->currentIndex());
      return true;
    }
  }
  return QMainWindow::eventFilter(watched, event);
}

double MainWindow::dpi() const {
  const QScreen* s = screen() ? screen() : QGuiApplication::primaryScreen();
  return s ? s->logicalDotsPerInchX() : 96.0;
}

void MainWindow::showEvent(QShowEvent* event) {
  QMainWindow::showEvent(event);
  if (activated_) return;
  activated_ = true;
  // The window is drawn before the known folders and the command line are read.
  QMetaObject::invokeMethod(this, &MainWindow::Form_Activate, Qt::QueuedConnection);
}

void MainWindow::Form_Activate() {
  if (startState_ == 2) showMaximized();  // a window left minimised comes back normal
  // Pane sizes once the window has its size: the report as wide as it was, the drive table
  // a third of the height on the right.
  splMain_->setPosition(reportWidth_);
  splInfo_->setPosition(splInfo_->height() / 3);
  const SavedComboFolders saved = GetAllSavedComboFolders();
  for (const QString& folder : saved.folders) {
    if (!existFolder(encode(folder))) continue;  // gone since: dropped without a word
    const int i = AddNewSearchPath(folder);
    cboOrdner_->setItemText(i, folder);
  }
  const int selected = cboOrdner_->findText(saved.comboText);
  cboOrdner_->setCurrentIndex(selected);
  if (selected < 0) cboOrdner_->setEditText(saved.comboText);
  if (!driver_->busy()) EnableControls();
  if (!commandLine_.empty()) readCommandLine(commandLine_);
}

// What the window keeps between runs: position, bar layouts, options, the known folders.
void MainWindow::saveAtExit() {
  const double px = dpi();
  const QRect normal = normalGeometry().isValid() ? normalGeometry() : geometry();
  FormPosition pos;
  pos.WindowState = isMinimized() ? 1 : isMaximized() ? 2 : 0;
  pos.Left = pixelsToTwips(normal.x(), px);
  pos.Top = pixelsToTwips(normal.y(), px);
  pos.Width = pixelsToTwips(normal.width(), px);
  pos.Height = pixelsToTwips(normal.height(), px);
  pos.TVW = pixelsToTwips(splMain_->Position(), px);
  FensterpositionSpeichern(pos);

  QSettings layouts(QStringLiteral("Velmora Works"), QStringLiteral("Quorlane"));
  layouts.setValue(QStringLiteral("Toolbar1"), saveState());
  layouts.setValue(QStringLiteral("Toolbar2"), !cbrReport_->isHidden());

  MainOptions o = options_;
  o.DiskinfoVisible = cbrMain_->isChecked(21);
  o.FilelistVisible = cbrMain_->isChecked(306);
  o.ToplistVisible = cbrMain_->isChecked(307);
  o.BigIcons = cbrMain_->isChecked(27);
  o.SymbolText = cbrMain_->isChecked(34);
  o.ColPercentVisible = cbrReport_->isChecked(35);
  o.ColFileVisible = cbrReport_->isChecked(22);
  o.ColFolderVisible = cbrReport_->isChecked(23);
  o.SizeFormatNachkommastellenFolders = cbrReport_->isChecked(33);
  o.FileSizeFormat = model_->unit();
  o.FontSize = view_->font().pointSizeF();
  o.ComboText = cboOrdner_->currentText();
  OptionenSpeichernMain(o);

  QList<ComboItem> items;
  for (int i = 0; i < cboOrdner_->count(); ++i) items.push_back({cboOrdner_->itemText(i), kComboFolderImage});
  SaveAllComboFolders(items);
}

void MainWindow::closeEvent(QCloseEvent* event) {
  // A close during a scan only asks the walk to stop; nothing is saved then.
  if (busy_ || driver_->busy()) {
    StopWord = FolderWalk::kStop;
    event->ignore();
    return;
  }
  saveAtExit();
  event->accept();
  if (restartRequested_) QProcess::startDetached(QCoreApplication::applicationFilePath(), {QStringLiteral("-RESTART")});
}

}  // namespace ql
