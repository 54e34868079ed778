#include "ui/ReportPane.h"

#include <sys/stat.h>
#include <QDateTime>
#include <QEventLoop>
#include <QFile>
#include <QFileDialog>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLocale>
#include <QMenu>
#include <QMessageBox>
#include <QScrollBar>
#include <QStyle>
#include <QTimer>
#include <QVBoxLayout>
#include <algorithm>
#include <cerrno>
#include <thread>

#include "lang/Plural.h"
#include "lang/TL.h"
#include "output/ReportWriter.h"
#include "report/ReportCommands.h"
#include "report/ReportEdit.h"
#include "report/SizeFormat.h"
#include "scan/FileOps.h"
#include "scan/ScanDriver.h"
#include "scan/Trash.h"
#include "snapshot/SnapshotStore.h"
#include "ui/CommandIds.h"
#include "ui/Desktop.h"
#include "ui/dialogs/frmPrint.h"
#include "ui/dialogs/frmSave.h"

namespace ql {

namespace {
QString decode(std::string_view bytes) {
  return QFile::decodeName(QByteArray(bytes.data(), static_cast<qsizetype>(bytes.size())));
}
std::string encode(const QString& text) { return QFile::encodeName(text).toStdString(); }

// A node's path split at its source: the source as the user named it, the rest as the scan found
// it, so that a change reaches the folder without following a link below the source.
FoundPath foundOf(const ReportTree& tree, uint32_t node) {
  return foundBelow(std::string(tree.text(tree.rootOf(node))), tree.fullPath(node));
}
}  // namespace

ReportPane::ReportPane(ReportTree& tree, ScanDriver& driver, const Guard& guard, const MainOptions& options,
                       QWidget* parent)
    : QWidget(parent), tree_(tree), driver_(driver), guard_(guard) {
  setObjectName(QStringLiteral("picReport"));
  decimals_ = options.SizeFormatNachkommastellenFolders ? 1 : 0;
  noHardlinks_ = options.NoHardlinks != 0;
  model_ = std::make_unique<ReportModel>(tree_);
  baseline_ = std::make_unique<CompareBaseline>(tree_);
  model_->setSizeFormat(options.FileSizeFormat >= 0 && options.FileSizeFormat <= 3 ? options.FileSizeFormat : 0,
                        decimals_);

  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  layout->addWidget(paneTitle(TL(3640, "Ordner").toUpper(), QStringLiteral("lblReportTitle"), this));
  buildBar(options);
  layout->addWidget(bar_);
  for (QToolBar* row : bar_->rows()) layout->addWidget(row);

  view_ = new ReportView(*model_, this);
  view_->setObjectName(QStringLiteral("tvwPL"));
  view_->setUniformRowHeights(true);
  view_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  view_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  view_->header()->setStretchLastSection(false);
  view_->setColumnWidth(0, 320);
  for (int c = 1; c < ReportModel::AllColumns; ++c) view_->setColumnWidth(c, 110);
  for (int c = ReportModel::ColumnCount; c < ReportModel::AllColumns; ++c)
    view_->setColumnHidden(c, true);
  view_->setColumnHidden(ReportModel::ColPercent, !options.ColPercentVisible);
  view_->setColumnHidden(ReportModel::ColFiles, !options.ColFileVisible);
  view_->setColumnHidden(ReportModel::ColFolders, !options.ColFolderVisible);
  view_->installEventFilter(this);
  view_->setContextMenuPolicy(Qt::CustomContextMenu);
  layout->addWidget(view_, 1);

  connect(view_, &QWidget::customContextMenuRequested, this,
          guard_.wrap("tvwPL_MouseUp", [this](const QPoint& at) {
            const QModelIndex i = view_->toModel(view_->indexAt(at));
            const uint32_t n = model_->nodeOf(i);
            // Not on a files row nor on a folder that is gone.
            if (!i.isValid() || !view_->isEnabled() || !tree_.isLive(n) || !tree_.isFolder(n))
              return;
            view_->setCurrentIndex(i);
            reportPopup()->popup(view_->viewport()->mapToGlobal(at));
          }));
  model_->setRenamer([this](uint32_t node, const QString& name) {
    bool done = false;
    guard_.run("tvwPL_AfterEdit", [&] { done = renameFolder(node, name); });
    return done;
  });
  connect(view_->selectionModel(), &QItemSelectionModel::currentChanged, this,
          guard_.wrap("tvwPL_SelChange", [this](const QModelIndex& current, const QModelIndex&) {
            onCurrentChanged(view_->toModel(current));
          }));
  connect(view_, &ReportView::folderExpanded, this,
          guard_.wrap("tvwPL_Expand", [this](const QModelIndex& i) { onExpanded(i); }));
  // A click on a column title sorts. (The header reports no click when a drag of a column
  // border ends over a title, so that release never sorts.)
  view_->header()->setSectionsClickable(true);
  connect(view_->header(), &QHeaderView::sectionClicked, this,
          guard_.wrap("tvwPL_ColumnClick", [this](int section) { onColumnTitleClick(section); }));

  // A baseline is matched again whenever folders came or went, once the walk is done.
  connect(baseline_.get(), &CompareBaseline::loaded, this,
          guard_.wrap("Compare_Loaded", [this](const QString& error) { onBaselineLoaded(error); }));
  connect(baseline_.get(), &CompareBaseline::compared, this,
          guard_.wrap("Compare_Compared", [this] {
            model_->baselineChanged();
            if (changeSort_ >= 0) {  // the new values in the order asked for
              changeSortDescending_ = !changeSortDescending_;
              sortByChange(changeSort_);
            }
            Q_EMIT compared();
          }));
  connect(model_.get(), &ReportModel::structureChanged, this, [this] {
    baseline_->treeChanged();
    scheduleCompare();
  });
  connect(&driver_, &ScanDriver::finished, this, [this] { scheduleCompare(); });
  connect(&driver_, &ScanDriver::rescanFinished, this, [this] { scheduleCompare(); });
}

ReportPane::~ReportPane() { view_->setModel(nullptr); }

void ReportPane::buildBar(const MainOptions& o) {
  using namespace cmd::report;
  bar_ = new PaneBar(QStringLiteral("cbrReport"), QStringLiteral("Folders"), cmd::report::Bytes, this);
  PaneBar& b = *bar_;
  using T = CommandBar::Type;
  b.AddControl(T::Button, Rescan, 3535, "Aktualisieren", "view-refresh", true, 3536,
               "Ausgewählter Ordner neu einlesen");
  b.AddControl(T::Button, FullView, 3720, "Vollansicht", "view-fullscreen", true, 3719,
               "Alle anderen Listen ausblenden");
  b.AddControl(T::Button, CollapseAll, 3673, "Zuklappen", "collapse-all", true, 3562, "Alle Ordner zuklappen");
  b.AddControl(T::SplitButton, ExpandAll, 3674, "Aufklappen", "expand-all", false, 3563, "Alle Ordner aufklappen");
  b.AddPopupControl(ExpandAll, ExpandLevels, TL(3629, "1 Ordnerebene aufklappen"));
  for (int n = 2; n <= 10; ++n)
    b.AddPopupControl(ExpandAll, ExpandLevels + n - 1, TL(3646, "%1 Ordnerebenen aufklappen", {QString::number(n)}));
  b.AddControl(T::Button, Remove, 3539, "Entfernen", "list-remove", true, 3540, "Ausgewählte Quelle entfernen");
  b.AddControl(T::Button, RemoveAll, 3545, "Alle entfernen", "edit-clear", false, 3546, "Alle Quellen entfernen");
  b.AddControl(T::Button, Save, 3537, "Speichern", "document-save", true, 3538,
               "Ordnerliste in eine Textdatei speichern");
  b.AddControl(T::Button, Print, 3541, "Drucken", "document-print", true, 3542, "Ordnerliste drucken");
  b.AddControl(T::SplitButton, Compare, 4600, "Vergleichen", "quorlane-compare", false, 4601,
               "Mit einer früheren Messung der Quelle vergleichen");
  // The popup lists the snapshots of the source selected when it opens.
  if (QMenu* menu = b.control(Compare)->menu())
    connect(menu, &QMenu::aboutToShow, this,
            guard_.wrap("cbrReport_Compare", [this] { compareMenu(); }));
  b.AddControl(T::Button, PercentColumn, 3698, "Prozent", "quorlane-column-percent", true, 3699, "Spalte 'Prozent' anzeigen", true,
               o.ColPercentVisible);
  b.AddControl(T::Button, FilesColumn, 3676, "Dateien", "quorlane-column-files", false, 3565, "Spalte 'Dateianzahl' anzeigen", true,
               o.ColFileVisible);
  b.AddControl(T::Button, FoldersColumn, 3677, "Ordner", "quorlane-column-folders", false, 3566, "Spalte 'Ordneranzahl' anzeigen", true,
               o.ColFolderVisible);
  b.AddControl(T::Button, FitColumns, 3675, "Optimieren", "zoom-fit-best", false, 3564, "Spaltenbreite optimieren");
  // The units, the counting and the search stand on a second row: in one row a pane fitted to
  // its columns hid them behind the overflow arrow.
  b.addRow();
  b.AddSizeUnits(Decimals, o.SizeFormatNachkommastellenFolders);
  b.AddControl(T::Button, Allocated, 4442, "Belegt", "drive-harddisk", true, 4443,
               "Größe als belegter Platz auf der Platte statt der Dateilänge (liest die Quellen neu)",
               true, o.SizeAllocated != 0);
  b.AddControl(T::Button, LinksOnce, 4444, "Links einmal", "quorlane-links-once", false, 4445,
               "Eine Datei mit mehreren Namen nur einmal zählen (liest die Quellen neu)", true,
               o.LinksOnce != 0);
  search_ = new QLineEdit(bar_);
  search_->setObjectName(QStringLiteral("txtSearch"));
  search_->setMaximumWidth(180);
  search_->setClearButtonEnabled(true);
  connect(search_, &QLineEdit::returnPressed, this,
          guard_.wrap("txtSearch_KeyUp", [this] { startSearch(); }));
  b.AddWidget(SearchBox, search_, true);
  b.AddControl(T::Button, Search, 3678, "Suchen", "edit-find", false, 3630, "Suche starten");
  b.checkUnit(model_->unit());
  connect(bar_, &CommandBar::execute, this, [this](int id) { cbrReport_Execute(id); });
}

void ReportPane::cbrReport_Execute(int id) {
  guard_.run("cbrReport_Execute", [&] {
    using namespace cmd::report;
    // The level entries of the expand button are 100 to 109, and any other number from 100
    // up takes their road too, except the full view.
    if (id >= ExpandLevels && id != FullView) {
      expandToLevel(id - ExpandLevels);
      return;
    }
    if (id >= CompareSnapshots && id <= CompareSnapshotsLast) {
      if (static_cast<size_t>(id - CompareSnapshots) < snapshotFiles_.size())
        compareWith(snapshotFiles_[static_cast<size_t>(id - CompareSnapshots)]);
      return;
    }
    switch (id) {
      case Rescan:
        if (selectedNode() != kNoNode && !locked(selectedNode())) Q_EMIT rescanRequested(selectedNode());
        return;  // the scan says when it is done
      case Save: saveToFile(); break;
      case Print: printReport(); break;
      case Remove: driver_.removeSource(selectedNode()); break;
      case RemoveAll: driver_.clearAll(); break;
      case cmd::report::Bytes:
      case Kilobytes:
      case Megabytes:
      case Gigabytes: setSizeFormat(id - cmd::report::Bytes); break;
      case Decimals:
        decimals_ = bar_->isChecked(Decimals) ? 1 : 0;
        setSizeFormat(model_->unit());
        break;
      case PercentColumn: view_->setColumnHidden(ReportModel::ColPercent, !bar_->isChecked(id)); break;
      case FilesColumn: view_->setColumnHidden(ReportModel::ColFiles, !bar_->isChecked(id)); break;
      case FoldersColumn: view_->setColumnHidden(ReportModel::ColFolders, !bar_->isChecked(id)); break;
      case CollapseAll: view_->collapseAll(); break;
      case ExpandAll:
        // A tree deeper than the view opens is opened down to the deepest level it can take.
        if (static_cast<int>(tree_.deepestLevel()) < expandableLevels()) {
          view_->expandAll();
          break;
        }
        view_->expandToDepth(expandableLevels() - 1);
        reportUnexpandable();
        return;
      case FitColumns: fitColumns(); break;
      case SearchBox:
        startSearch();
        break;
      case Search:
        // In a bar too narrow for the search box the box waits in the overflow, where it
        // cannot be typed into: a field of its own comes up instead.
        if (search_->isHidden())
          popSearchField();
        else
          startSearch();
        break;
      case FullView: Q_EMIT fullViewRequested(); break;
      case Compare:
        if (QMenu* menu = bar_->control(Compare)->menu()) {
          QWidget* button = bar_->widgetForAction(bar_->control(Compare));
          menu->popup(button ? button->mapToGlobal(QPoint(0, button->height())) : QCursor::pos());
        }
        return;
      case CompareOther: {
        const QString file = QFileDialog::getOpenFileName(
            this, TL(4615, "Messung zum Vergleichen wählen"), QString(),
            TL(4616, "Exporte (*.json *.zst);;Alle Dateien (*)"));
        if (!file.isEmpty()) compareWith(encode(file));
        return;
      }
      case CompareOff:
        compareOff();
        break;
      case Allocated:
      case LinksOnce:
        Q_EMIT countingChanged(bar_->isChecked(Allocated), bar_->isChecked(LinksOnce));
        return;  // the new reads say how they go
      default: break;
    }
    Q_EMIT statusText(TL(3525, "OK."));
  }, {QString::number(id)});
}

int ReportPane::expandableLevels() { return ReportView::kLevels; }

void ReportPane::reportUnexpandable() {
  Q_EMIT statusText(TL(4045, "Ordner unterhalb von Ebene %1 können nicht aufgeklappt werden.",
                       {QString::number(expandableLevels())}));
}

// A folder opened by hand below the deepest level the view can lay out closes again.
void ReportPane::onExpanded(const QModelIndex& index) {
  const uint32_t node = model_->nodeOf(index);
  if (!tree_.isLive(node)) return;
  if (static_cast<int>(tree_.level(node)) >= expandableLevels()) {
    view_->collapse(index);
    reportUnexpandable();
  }
}

void ReportPane::setSizeFormat(int unit) {
  bar_->checkUnit(unit);
  model_->setSizeFormat(unit, decimals_);
}

void ReportPane::expandToLevel(int level) {
  if (tree_.liveCount() < 2) return;
  view_->expandToDepth(std::min(level, expandableLevels() - 1));
}

void ReportPane::expandSubfolders(bool expand) {
  const QModelIndex i = view_->currentIndex().siblingAtColumn(0);
  if (!i.isValid() || !tree_.isLive(model_->nodeOf(i))) return;
  if (expand) {
    const int level = static_cast<int>(tree_.level(model_->nodeOf(i)));
    const int depth = expandableLevels() - 1 - level;
    if (depth >= 0) view_->expandRecursively(i, depth);
    if (static_cast<int>(tree_.deepestLevel()) >= expandableLevels()) reportUnexpandable();
  } else {
    view_->collapseRecursively(i);
    Q_EMIT statusText(TL(3525, "OK."));
  }
  fitColumns();
}

QMenu* ReportPane::reportPopup() {
  using namespace cmd::popup;
  auto* menu = new QMenu(this);
  menu->setAttribute(Qt::WA_DeleteOnClose);
  const uint32_t node = selectedNode();
  if (node == kNoNode) return menu;
  const QString text = decode(tree_.text(node));
  auto add = [&](int id, const QString& caption, const char* proc, auto f) {
    QAction* a = menu->addAction(caption, this, guard_.wrap(proc, f));
    a->setData(id);
    return a;
  };
  const bool locked = this->locked(node);
  add(Rescan, TL(3648, "Ordner neu einlesen", {text}), "mnuRescan", [this] {
    if (selectedNode() != kNoNode) Q_EMIT rescanRequested(selectedNode());
  })->setEnabled(!locked);
  if (tree_.isRoot(node))
    add(RemoveSource, TL(3649, "Quelle entfernen", {text}), "mnuRemoveSource",
        [this] { driver_.removeSource(selectedNode()); });
  menu->addSeparator();
  add(ExpandBelow, TL(3713, "Alle Unterordner aufklappen"), "mnuExpandSub", [this] { expandSubfolders(true); });
  add(CollapseBelow, TL(3712, "Alle Unterordner zuklappen"), "mnuCollapseSub",
      [this] { expandSubfolders(false); });
  menu->addSeparator();
  if (!tree_.isRoot(node)) {
    QAction* rename = add(RenameFolder, TL(3718, "Ordner umbenennen"), "mnuRename", [this] { startRename(); });
    rename->setEnabled(!tree_.hasFlag(node, ReportTree::Junction) && !locked);
    menu->addSeparator();
    add(DeleteFolder, TL(3657, "Ordner löschen"), "mnuDeleteFolder", [this] { deleteFolder(false); })
        ->setEnabled(!locked);
    add(TrashFolder, TL(3656, "Ordner in den Papierkorb verschieben"), "mnuTrashFolder",
        [this] { deleteFolder(true); })->setEnabled(!locked);
    menu->addSeparator();
  }
  const std::string path = tree_.fullPath(node);
  // The desktop says only whether it took the path: a refusal is told in the status bar.
  const auto tell = [this](const QString& failed) {
    if (!failed.isEmpty()) Q_EMIT statusText(failed);
  };
  add(Open, TL(4048, "Öffnen"), "mnuOpen", [path, tell] { tell(openFolder(path)); });
  add(ShowInFileManager, TL(4049, "Im Dateimanager anzeigen"), "mnuShowInFileManager",
      [path, tell] { tell(showInFileManager({path})); });
  add(CopyPath, TL(4050, "Pfad kopieren"), "mnuCopyPath", [path] { copyPaths({path}); });
  return menu;
}

// Deletes the selected folder, or moves it to the trash, and takes its sums off every folder
// above it. The delete itself runs beside the event loop; the window is busy meanwhile.
void ReportPane::deleteFolder(bool toTrash) {
  const uint32_t node = selectedNode();
  if (node == kNoNode || tree_.isRoot(node) || !tree_.isFolder(node) || driver_.busy() || locked(node)) return;
  const std::string path = tree_.fullPath(node);
  const FoundPath found = foundOf(tree_, node);
  const uint64_t generation = tree_.generation();
  FolderDeleteResult result;
  bool refusedMount = false;
  std::string refused;  // a folder on the way is a link now: nothing was touched
  Q_EMIT busyChanged(true);
  struct Done {
    ReportPane* pane;
    ~Done() { Q_EMIT pane->busyChanged(false); }
  } done{this};
  const auto trash = [&] {
    if (const TrashResult r = moveToTrash(found); r.code == EXDEV) refused = r.text;
  };
  if (tree_.hasFlag(node, ReportTree::Junction)) {
    // A link to a folder goes as a link; another file system mounted here is never touched.
    struct stat st;
    if (const int err = statFound(found, st); err == EXDEV) {
      refused = foundFailureText(path, err);
    } else if (err == 0 && S_ISLNK(st.st_mode)) {
      if (toTrash)
        trash();
      else
        deleteFile(found, false);
    } else {
      refusedMount = true;
    }
  } else if (toTrash) {
    trash();
  } else {
    auto shared = std::make_shared<std::pair<std::atomic<bool>, FolderDeleteResult>>();
    QEventLoop loop;
    std::thread worker([shared, found, &loop] {
      FolderDeleteResult r = deleteFolderTree(found, true);
      shared->second = std::move(r);
      shared->first = true;
      QMetaObject::invokeMethod(&loop, "quit", Qt::QueuedConnection);
    });
    if (!shared->first) loop.exec(QEventLoop::ExcludeUserInputEvents);
    worker.join();
    result = std::move(shared->second);
    refusedMount = !result.mountsRefused.empty();
    if (result.redirected) refused = result.errors;
  }
  if (!refused.empty()) {
    warn(QString::fromStdString(refused));
    return;  // nothing was deleted: the row stays
  }
  if (refusedMount) {
    std::vector<std::string> mounts = result.mountsRefused;
    if (mounts.empty()) mounts.push_back(path);
    QStringList texts;
    for (const std::string& m : mounts) texts << QString::fromStdString(mountRefusedText(m));
    warn(texts.join(QLatin1Char('\n')));
    if (result.mountsRefused.empty()) return;  // nothing was deleted
  }
  if (tree_.generation() != generation || !tree_.isLive(node)) return;  // the report changed meanwhile
  // Whatever the delete said, the folder leaves the report; the next rescan puts right what stayed.
  const uint32_t parent = tree_.parent(node);
  removeWithSums(tree_, node);
  selectNode(parent);
  Q_EMIT folderDeleted(path);
}

uint32_t ReportPane::selectedNode() const {
  const QModelIndex i = view_->currentIndex();
  const uint32_t node = i.isValid() ? model_->nodeOf(i) : kNoNode;
  return tree_.isLive(node) ? node : kNoNode;
}

void ReportPane::selectNode(uint32_t node) {
  if (!tree_.isLive(node)) return;
  const QModelIndex i = model_->indexOf(node);
  view_->setCurrentIndex(i);
  view_->scrollToRow(i);
}

void ReportPane::startSearch() {
  const QString text = search_->text();
  if (tree_.empty() || text.isEmpty()) return;
  const std::vector<uint32_t> rows = tree_.preorder();
  // The search begins behind the selected row; with none, behind the first.
  size_t from = 1;
  const uint32_t current = selectedNode();
  for (size_t r = 0; r < rows.size(); ++r)
    if (rows[r] == current) from = r + 1;
  for (size_t k = 0; k < rows.size(); ++k) {
    const uint32_t n = rows[(from + k) % rows.size()];
    if (decode(tree_.text(n)).contains(text, Qt::CaseInsensitive)) {
      selectNode(n);
      break;
    }
  }
  search_->setFocus();
}

void ReportPane::popSearchField() {
  bar_->popSearchField(*search_, guard_, "txtSearch_KeyUp", [this] { startSearch(); });
}

ReportLook ReportPane::look() const {
  ReportLook look;
  look.unit = model_->unit();
  look.decimals = decimals_;
  look.allocated = bar_->isChecked(cmd::report::Allocated);
  look.linksOnce = bar_->isChecked(cmd::report::LinksOnce);
  for (int c = 0; c < ReportModel::ColumnCount; ++c) {
    look.visible[c] = !view_->isColumnHidden(c);
    look.titles[c] = model_->headerData(c, Qt::Horizontal, Qt::DisplayRole).toString();
  }
  if (look.allocated || look.linksOnce) {  // a printed report says how its sizes were counted
    ReportSaveOptions o;
    o.unit = look.unit;
    o.allocated = look.allocated;
    o.linksOnce = look.linksOnce;
    look.titles[ReportModel::ColSize] = ReportWriter::sizeHeading(TL(3623, "Größe"), o);
  }
  return look;
}

uint32_t ReportPane::firstSelectedNode() const {
  // Rows compare by the positions of their ancestors, from the top down.
  const auto chain = [this](uint32_t n) {
    std::vector<uint32_t> rows;
    for (; n != kSuperRoot && n != kNoNode; n = tree_.parent(n)) rows.push_back(tree_.node(n).row);
    std::reverse(rows.begin(), rows.end());
    return rows;
  };
  uint32_t first = kNoNode;
  std::vector<uint32_t> firstChain;
  for (const QModelIndex& i : view_->selectedRows()) {
    const uint32_t n = model_->nodeOf(i);
    if (!tree_.isLive(n)) continue;
    std::vector<uint32_t> c = chain(n);
    if (first == kNoNode || c < firstChain) {
      first = n;
      firstChain = std::move(c);
    }
  }
  return first;
}

void ReportPane::saveToFile() {
  if (tree_.empty()) return;
  frmSave dialog(tree_, model_.get(), firstSelectedNode(), look(), this);
  dialog.setLastFolder(lastSaveFolder_);
  dialog.exec();
  lastSaveFolder_ = dialog.lastFolder();
  window()->unsetCursor();
}

void ReportPane::printReport() {
  if (tree_.empty()) return;
  frmPrint dialog(tree_, model_.get(), firstSelectedNode(), look(), this);
  dialog.exec();
  window()->unsetCursor();
}

void ReportPane::setControlsEnabled(bool on) {
  bar_->setAllEnabled(on);
  view_->setEnabled(on);
}

void ReportPane::setGridFont(const QFont& font) { view_->setFont(font); }

void ReportPane::storeOptions(MainOptions& o) const {
  using namespace cmd::report;
  o.ColPercentVisible = bar_->isChecked(PercentColumn);
  o.ColFileVisible = bar_->isChecked(FilesColumn);
  o.ColFolderVisible = bar_->isChecked(FoldersColumn);
  o.SizeFormatNachkommastellenFolders = bar_->isChecked(Decimals);
  o.FileSizeFormat = model_->unit();
  o.FontSize = view_->font().pointSizeF();
}

void ReportPane::onColumnTitleClick(int section) {
  if (tree_.empty() || !view_->isEnabled()) return;
  if (section >= ReportModel::ColumnCount) {
    sortByChange(section);
    view_->setCurrentIndex(model_->index(0, 0));
    view_->scrollToTop();
    return;
  }
  changeSort_ = -1;
  model_->setChangeOrder(-1, true);
  sortByColumnTitle(tree_, section + 1);
  view_->setCurrentIndex(model_->index(0, 0));
  view_->scrollToTop();
}

// Every column fitted to its content, and the report made exactly as wide as its columns.
void ReportPane::fitColumns() {
  int width = 0;
  for (int c = 0; c < ReportModel::AllColumns; ++c) {
    view_->resizeColumnToContents(c);
    if (!view_->isColumnHidden(c)) width += view_->columnWidth(c);
  }
  if (tree_.empty()) return;  // an empty tree moves nothing
  width += view_->verticalScrollBar()->isVisible() ? view_->verticalScrollBar()->width()
                                                   : style()->pixelMetric(QStyle::PM_ScrollBarExtent);
  // Never narrower than the bar, or a fitted pane hides commands behind the overflow arrow.
  Q_EMIT preferredWidth(std::max(width + 2 * view_->frameWidth(), barWidth()));
}

int ReportPane::barWidth() const {
  int width = bar_->sizeHint().width();
  for (const QToolBar* row : bar_->rows()) width = std::max(width, row->sizeHint().width());
  return width;
}

void ReportPane::warn(const QString& text) {
  if (warn_)
    warn_(text);
  else
    QMessageBox::warning(this, QStringLiteral("Quorlane"), text);
}

// A folder renamed in place: on disk first, never over something that is there.
bool ReportPane::renameFolder(uint32_t node, const QString& name) {
  if (!tree_.isLive(node) || tree_.isRoot(node) || tree_.hasFlag(node, ReportTree::Junction) || locked(node))
    return false;
  const std::string error = renameNoReplace(foundOf(tree_, node), encode(name));
  if (!error.empty()) {
    warn(QString::fromStdString(error));
    return false;
  }
  tree_.setText(node, encode(name));
  onCurrentChanged(view_->currentIndex());
  return true;
}

// F2 renames exactly one selected folder below a source.
void ReportPane::startRename() {
  const QModelIndex current = view_->currentIndex().siblingAtColumn(0);
  if (view_->selectedRows().size() == 1 && (model_->flags(current) & Qt::ItemIsEditable) &&
      !locked(model_->nodeOf(current)))
    view_->edit(current);
}

// The selected row's folder (the files row stands for its folder).
void ReportPane::onCurrentChanged(const QModelIndex& current) {
  if (!current.isValid() || !view_->isEnabled()) return;
  uint32_t node = model_->nodeOf(current);
  if (!tree_.isLive(node)) return;
  if (!tree_.isFolder(node)) node = tree_.parent(node);
  QString text = decode(tree_.fullPath(node));
  // The folders of the baseline that are gone below it, counted.
  if (const QString gone =
          model_->indexOf(node, ReportModel::ColChange).data(Qt::ToolTipRole).toString();
      baseline_->change(node) && !baseline_->change(node)->isNew && !gone.isEmpty())
    text += QStringLiteral("  —  ") + gone;
  Q_EMIT statusText(text);
  Q_EMIT currentFolderChanged(node);
}

// --- Comparing --------------------------------------------------------------------------------

uint32_t ReportPane::compareSource() const {
  const uint32_t node = selectedNode();
  if (node != kNoNode) return tree_.rootOf(node);
  return tree_.roots().size() == 1 ? tree_.roots().front() : kNoNode;
}

QMenu* ReportPane::compareMenu() {
  using namespace cmd::report;
  QMenu* menu = bar_->control(Compare)->menu();
  menu->clear();
  const auto add = [menu](int id, const QString& caption) {
    QAction* a = menu->addAction(caption);
    a->setData(id);
    a->setObjectName(QStringLiteral("cmd%1").arg(id));
    return a;
  };
  snapshotFiles_.clear();
  const uint32_t source = compareSource();
  // The kept snapshots of the source, newest first: a listing of one small folder, no file read.
  if (source != kNoNode) {
    for (const SnapshotInfo& s : listSnapshots(std::string(tree_.text(source)))) {
      if (snapshotFiles_.size() > static_cast<size_t>(CompareSnapshotsLast - CompareSnapshots))
        break;
      const QString when =
          QLocale().toString(QDateTime::fromSecsSinceEpoch(s.time), QLocale::ShortFormat);
      const QStringList args{when, xFormatFileSizeAuto(s.bytes, true), groupedInteger(s.files)};
      add(CompareSnapshots + static_cast<int>(snapshotFiles_.size()),
          plural(s.files, TL(4630, "%1 – %2, %3 Datei", args),
                 TL(4631, "%1 – %2, %3 Dateien", args), TL(4614, "%1 – %2, %3 Dateien", args)));
      snapshotFiles_.push_back(s.file);
    }
    if (snapshotFiles_.empty())
      add(0, TL(4613, "Keine gespeicherten Messungen dieser Quelle"))->setEnabled(false);
  }
  menu->addSeparator();
  add(CompareOther, TL(4602, "Andere Messung..."))->setEnabled(source != kNoNode);
  add(CompareOff, TL(4603, "Vergleich aus"))
      ->setEnabled(baseline_->active() || baseline_->loading());
  return menu;
}

void ReportPane::compareWith(const std::string& file) {
  const uint32_t source = compareSource();
  if (source == kNoNode) {
    Q_EMIT statusText(TL(4620, "Wählen Sie zuerst die Quelle, die verglichen werden soll."));
    return;
  }
  ImportOptions o;
  o.filesLabel = TL(3514, "Dateien").toStdString();
  o.noHardlinks = noHardlinks_;
  o.allocated = bar_->isChecked(cmd::report::Allocated);
  o.linksOnce = bar_->isChecked(cmd::report::LinksOnce);
  const size_t slash = file.rfind('/');
  baselineName_ = decode(slash == std::string::npos ? file : file.substr(slash + 1));
  baseline_->load(file, std::string(tree_.text(source)), o);
  Q_EMIT statusText(TL(4610, "Lese die Vergleichsmessung '%1'...", {baselineName_}));
}

void ReportPane::compareOff() {
  const bool was = baseline_->active();
  baseline_->clear();
  model_->setBaseline(nullptr);
  model_->setChangeOrder(-1, true);
  for (int c = ReportModel::ColumnCount; c < ReportModel::AllColumns; ++c)
    view_->setColumnHidden(c, true);
  changeSort_ = -1;
  if (was) Q_EMIT baselineChanged(nullptr);
}

void ReportPane::onBaselineLoaded(const QString& error) {
  if (!error.isEmpty()) {  // the view stays as it was
    Q_EMIT statusText(TL(4612, "'%1' kann nicht verglichen werden: %2", {baselineName_, error}));
    return;
  }
  model_->setBaseline(baseline_.get());
  for (int c = ReportModel::ColumnCount; c < ReportModel::AllColumns; ++c)
    view_->setColumnHidden(c, false);
  Q_EMIT baselineChanged(baseline_.get());
  Q_EMIT statusText(TL(4611, "Vergleich mit '%1'", {baselineName_}));
  compareQueued_ = false;
  compareNow();
}

void ReportPane::scheduleCompare() {
  if (compareQueued_ || !baseline_->active()) return;
  compareQueued_ = true;
  QTimer::singleShot(0, this, guard_.wrap("Compare_Again", [this] { compareNow(); }));
}

// During a walk the rows keep what the last match found; the walk's end matches again.
void ReportPane::compareNow() {
  compareQueued_ = false;
  if (!baseline_->active() || driver_.busy()) return;
  if (!baseline_->compare()) {
    const QString source = decode(baseline_->source());
    compareOff();
    Q_EMIT statusText(TL(4619, "Vergleich beendet: '%1' ist nicht mehr im Bericht.", {source}));
  }
}

// The first click on a change column puts the largest growth first; the next turns it over.
void ReportPane::sortByChange(int section) {
  if (!baseline_->active()) return;
  changeSortDescending_ = section == changeSort_ ? !changeSortDescending_ : true;
  changeSort_ = section;
  // The gone rows take their places among the sorted rows as the tree's order ends.
  model_->setChangeOrder(section, changeSortDescending_);
  tree_.sortAllBy(model_->changeKey(section), changeSortDescending_);
}

bool ReportPane::eventFilter(QObject* watched, QEvent* event) {
  if (watched == view_ && event->type() == QEvent::KeyPress &&
      static_cast<QKeyEvent*>(event)->key() == Qt::Key_F2) {
    guard_.run("tvwPL_KeyUp", [this] { startRename(); });
    return true;
  }
  return QWidget::eventFilter(watched, event);
}

}  // namespace ql
