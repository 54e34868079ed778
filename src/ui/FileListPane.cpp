#include "ui/FileListPane.h"

#include <QApplication>
#include <QHeaderView>
#include <QKeyEvent>
#include <QMenu>
#include <QMessageBox>
#include <QShortcut>
#include <QShowEvent>
#include <QVBoxLayout>
#include <algorithm>

#include "lang/Plural.h"
#include "lang/TL.h"
#include "report/SizeFormat.h"
#include "scan/FileOps.h"
#include "scan/Trash.h"
#include "support/Path.h"
#include "support/PathText.h"
#include "ui/Desktop.h"
#include "ui/PreviewPane.h"
#include "ui/Splitter.h"

namespace ql {

using namespace cmd::files;

namespace {

std::vector<RowKey> columnsOf(FileListPane::Kind kind) {
  if (kind == FileListPane::Kind::Files)
    return {RowKey::Name, RowKey::Size, RowKey::Extension, RowKey::Type, RowKey::Attributes,
            RowKey::Modified, RowKey::Created, RowKey::Accessed};
  return {RowKey::Name,       RowKey::Size,     RowKey::Folder,  RowKey::Extension, RowKey::Type,
          RowKey::Attributes, RowKey::Modified, RowKey::Created, RowKey::Accessed};
}

// "12 Dateien mit insgesamt 3,5 MB", in the form the count takes.
QString filesInTotal(int64_t count, const QString& total) {
  const QStringList args{QString::number(count), total};
  return plural(count, TL(4400, "%1 Datei mit insgesamt %2", args),
                TL(4401, "%1 Dateien mit insgesamt %2", args),
                TL(3527, "%1 Dateien mit insgesamt %2", args));
}

// Qt draws an ascending order as an arrow pointing down; here the arrow points the way the
// values go down the list, so largest first is an arrow pointing down.
Qt::SortOrder arrowOf(bool descending) {
  return descending ? Qt::AscendingOrder : Qt::DescendingOrder;
}

}  // namespace

FileListPane::FileListPane(Kind kind, const Guard& guard, const MainOptions& o, QWidget* parent)
    : QWidget(parent), kind_(kind), guard_(guard), model_(std::make_unique<FileListModel>(columnsOf(kind))) {
  setObjectName(kind == Kind::Files ? QStringLiteral("picFiles") : QStringLiteral("picTOP"));
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  buildBar(o);
  layout->addWidget(bar_);
  buildView(o);
  buildPreviewSplit(o);
  layout->addWidget(splitPreview_, 1);

  if (kind_ == Kind::Files) {
    reader_ = new FolderFilesReader(this);
    connect(reader_, &FolderFilesReader::finished, this,
            guard_.wrap("FileList_ScanFolderR", [this] { onReadFinished(); }));
  }
  // ESC ends a folder read wherever the focus is in the window.
  escape_ = new QShortcut(QKeySequence(Qt::Key_Escape), this);
  escape_->setContext(Qt::WindowShortcut);
  escape_->setEnabled(false);
  connect(escape_, &QShortcut::activated, this, guard_.wrap("Form_KeyUp", [this] { stopReading(); }));
  if (kind_ == Kind::Top) {  // rows hidden by the baseline stay hidden through new rows and sorts
    connect(model_.get(), &QAbstractItemModel::modelReset, this, [this] { applyNewOrGrown(); });
    connect(model_.get(), &QAbstractItemModel::layoutChanged, this, [this] { applyNewOrGrown(); });
  }
}

void FileListPane::setNewOrGrownFilter(std::function<bool(const std::string&, int64_t)> keep) {
  newOrGrown_ = std::move(keep);
  if (QAction* toggle = bar_->control(NewOrGrown))
    toggle->setVisible(static_cast<bool>(newOrGrown_));
  applyNewOrGrown();
}

void FileListPane::applyNewOrGrown() {
  const bool on = newOrGrown_ && bar_->isChecked(NewOrGrown);
  for (int r = 0; r < model_->rowCount(); ++r)
    view_->setRowHidden(r, {}, on && !newOrGrown_(pathOf(r), model_->row(r).size));
}

FileListPane::~FileListPane() { view_->setModel(nullptr); }

void FileListPane::buildBar(const MainOptions& o) {
  const bool files = kind_ == Kind::Files;
  bar_ = new PaneBar(files ? QStringLiteral("cbrFiles") : QStringLiteral("cbrTOP"),
                     files ? QStringLiteral("Files") : QStringLiteral("Largest files"), UnitBytes, this);
  PaneBar& b = *bar_;
  using T = CommandBar::Type;
  title_ = paneTitle(files ? TL(3644, "Dateien").toUpper() : TL(3721, "Größten Dateien").toUpper(),
                     QStringLiteral("lblTitle"), bar_);
  b.AddWidget(Title, title_, false);
  if (files) {
    b.AddControl(T::Button, Refresh, 3535, "Aktualisieren", "view-refresh", true, 3636, "Dateiliste neu einlesen");
  } else {
    limit_ = new QSpinBox(bar_);
    limit_->setObjectName(QStringLiteral("txtTopCount"));
    limit_->setRange(0, TopFiles::kMaximum);
    limit_->setValue(100);
    limit_->setFixedWidth(64);
    // Every change of the text is checked, also one the spin box would not take as a value.
    connect(limit_->findChild<QLineEdit*>(), &QLineEdit::textChanged, this,
            guard_.wrap("cbrTOP_ControlNotify", [this] { onLimitEdited(); }));
    connect(limit_, &QSpinBox::editingFinished, this,
            guard_.wrap("cbrTOP_ControlNotify", [this] { onLimitEdited(); }));
    b.AddWidget(Limit, limit_, false);
    // Shown only while the report compares with a baseline.
    b.AddControl(T::Button, NewOrGrown, 4617, "Neu oder größer", "quorlane-compare-new", false,
                 4618, "Nur Dateien, die seit der Vergleichsmessung neu oder gewachsen sind", true)
        ->setVisible(false);
  }
  b.AddControl(T::Button, Delete, 3692, "Löschen", "edit-delete", true, 3654, "Ausgewählte Datei(en) löschen");
  b.AddControl(T::Button, Trash, 3693, "Papierkorb", "user-trash", false, 3655,
               "Ausgewählte Datei(en) in den Papierkorb verschieben");
  b.AddControl(T::Button, Symbols, 3637, "Symbole", "view-preview", true, 3638, "Dateisymbole anzeigen", true,
               files ? o.ShowIcons : o.ShowIconsTop);
  b.AddControl(T::Button, FullView, 3720, "Vollansicht", "view-fullscreen", false, 3719,
               "Alle anderen Liste ausblenden");
  b.AddControl(T::Button, Preview, 3679, "Vorschau", "document-preview", true, 3668, "Dateivorschau einblenden",
               true, o.FilePreview);
  b.AddControl(T::Button, Tile, 3680, "Teilung", "view-split-left-right", false, 3669, "Fensterteilung umschalten",
               true, o.FilelistTile);
  b.AddControl(T::Button, files ? Optimize : TopOptimize, 3675, "Optimieren", "zoom-fit-best", true, 3564,
               "Spaltenbreite optimieren");
  b.AddSizeUnits(Decimals, files ? o.SizeFormatNachkommastellenFiles : o.SizeFormatNachkommastellenTop);
  struct Toggle {
    int caption;
    const char* text;
    int tip;
    const char* tipText;
    const char* icon;
  };
  static const Toggle fileToggles[] = {
      {3681, "Größe", 3658, "Spalte 'Größe'", "quorlane-column-size"},
      {3682, "Endung", 3659, "Spalte 'Endung'", "quorlane-column-extension"},
      {3683, "Typ", 3660, "Spalte 'Typ'", "quorlane-column-type"},
      {3684, "Attribute", 3661, "Spalte 'Attribute'", "quorlane-column-attributes"},
      {3685, "Änderung", 3662, "Spalte 'Änderungsdatum'", "quorlane-column-modified"},
      {3686, "Erstellt", 3663, "Spalte 'Erstellungsdatum'", "quorlane-column-created"},
      {3687, "Zugriff", 3664, "Spalte 'Zugriffsdatum'", "quorlane-column-accessed"},
  };
  static const Toggle path = {3728, "Pfad", 3729, "Spalte 'Pfad'", "quorlane-column-path"};
  std::vector<Toggle> toggles(std::begin(fileToggles), std::end(fileToggles));
  if (!files) toggles.insert(toggles.begin() + 1, path);
  for (size_t i = 0; i < toggles.size(); ++i) {
    const int shown = files ? o.FileColumn[i] : o.TopColumn[i];
    b.AddControl(T::Button, FirstColumn + static_cast<int>(i), toggles[i].caption,
                 QString::fromUtf8(toggles[i].text), toggles[i].icon, i == 0, toggles[i].tip, QString::fromUtf8(toggles[i].tipText),
                 true, shown != 0);
  }
  search_ = new QLineEdit(bar_);
  search_->setObjectName(QStringLiteral("txtSearch"));
  search_->setFixedWidth(100);
  search_->setClearButtonEnabled(true);
  connect(search_, &QLineEdit::returnPressed, this, guard_.wrap("txtSearch_KeyUp", [this] { startSearch(); }));
  b.AddWidget(SearchBox, search_, true);
  b.AddControl(T::Button, Search, 3678, "Suchen", "edit-find", false, 3639, "Suche starten");
  connect(bar_, &CommandBar::execute, this, [this](int id) { cbrExecute(id); });
}

void FileListPane::buildView(const MainOptions& o) {
  const bool files = kind_ == Kind::Files;
  view_ = new QTreeView(this);
  view_->setObjectName(files ? QStringLiteral("lvwFiles") : QStringLiteral("lvwTOP"));
  view_->setRootIsDecorated(false);
  view_->setUniformRowHeights(true);
  view_->setAllColumnsShowFocus(true);
  view_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  view_->setSelectionBehavior(QAbstractItemView::SelectRows);
  view_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  view_->setContextMenuPolicy(Qt::CustomContextMenu);
  view_->setModel(model_.get());
  view_->header()->setStretchLastSection(false);
  view_->header()->setSectionsClickable(true);
  view_->header()->setSortIndicatorShown(true);
  // Fitting a column looks at the rows around the view, not at a hundred thousand of them.
  view_->header()->setResizeContentsPrecision(100);
  view_->header()->setSortIndicator(1, arrowOf(model_->order().descending));
  model_->setSizeFormat(files ? o.FileSizeFormatFiles : o.FileSizeFormatTop,
                        files ? o.SizeFormatNachkommastellenFiles : o.SizeFormatNachkommastellenTop);
  bar_->checkUnit(model_->unit());
  model_->setShowIcons(files ? o.ShowIcons : o.ShowIconsTop);
  const int toggles = model_->columnCount() - 1;
  for (int i = 0; i < toggles; ++i)
    view_->setColumnHidden(i + 1, !(files ? o.FileColumn[i] : o.TopColumn[i]));
  view_->setColumnWidth(0, 260);
  view_->installEventFilter(this);
  view_->viewport()->installEventFilter(this);
  model_->setRenamer([this](int row, const QString& name) {
    bool done = false;
    guard_.run(kind_ == Kind::Files ? "lvwFiles_GridCellAfterEditing" : "lvwTOP_GridCellAfterEditing",
               [&] { done = renameRow(row, name); });
    return done;
  });
  connect(view_->header(), &QHeaderView::sectionClicked, this,
          guard_.wrap(files ? "lvwFiles_GridColumnTitleClick" : "lvwTOP_GridColumnTitleClick",
                      [this](int section) { onTitleClick(section); }));
  connect(view_, &QTreeView::doubleClicked, this,
          guard_.wrap(files ? "lvwFiles_ItemDblClick" : "lvwTOP_ItemDblClick", [this](const QModelIndex& i) {
            if (!i.isValid()) return;
            // What the desktop refused goes to the status bar, not into a message in the way.
            if (const QString failed = openWithDefault(pathOf(i.row())); !failed.isEmpty()) say(failed);
          }));
  connect(view_, &QWidget::customContextMenuRequested, this,
          guard_.wrap(files ? "lvwFiles_MouseUp" : "lvwTOP_MouseUp", [this](const QPoint& at) {
            const QModelIndex i = view_->indexAt(at);
            if (!i.isValid()) {
              view_->clearSelection();
              say(QString());
              return;
            }
            if (!view_->selectionModel()->isRowSelected(i.row(), {})) {
              view_->selectionModel()->setCurrentIndex(
                  i, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
            }
            showSelectionSize();
            popupMenu()->popup(view_->viewport()->mapToGlobal(at));
          }));
}

RowKey FileListPane::keyOfColumn(int column) const {
  return model_->columns()[static_cast<size_t>(std::clamp(column, 0, model_->columnCount() - 1))];
}

void FileListPane::cbrExecute(int id) {
  guard_.run(kind_ == Kind::Files ? "cbrFiles_Execute" : "cbrTOP_Execute", [&] {
    const bool files = kind_ == Kind::Files;
    const int lastToggle = FirstColumn + model_->columnCount() - 2;
    if (id >= FirstColumn && id <= lastToggle && !(files && id == Optimize)) {
      toggleColumn(id);
      return;
    }
    switch (id) {
      case Refresh:
        if (files) refresh();
        break;
      case Delete: deleteFiles(false); break;
      case Trash: deleteFiles(true); break;
      case Symbols:
        model_->setShowIcons(bar_->isChecked(Symbols));
        // The file list reads its folder again, so that the icons and types are fresh.
        if (files && folder_.size() > 1) readFolder(folder_, true, root_);
        break;
      case FullView: Q_EMIT fullViewRequested(); break;
      case Optimize:
      case TopOptimize: fitColumns(); break;
      case UnitBytes:
      case UnitBytes + 1:
      case UnitBytes + 2:
      case UnitBytes + 3: setSizeFormat(id - UnitBytes); break;
      case Decimals: setSizeFormat(model_->unit()); break;
      case Search:
        if (search_->isHidden())
          bar_->popSearchField(*search_, guard_, "txtSearch_KeyUp", [this] { startSearch(); });
        else
          startSearch();
        break;
      case Preview:
      case Tile: onPreviewCommand(id); break;
      case NewOrGrown:
        applyNewOrGrown();
        break;
      default: break;
    }
  }, {QString::number(id)});
}

void FileListPane::setSizeFormat(int unit) {
  bar_->checkUnit(unit);
  model_->setSizeFormat(unit, bar_->isChecked(Decimals));
  view_->resizeColumnToContents(model_->columnOf(RowKey::Size));
}

void FileListPane::toggleColumn(int id) {
  view_->setColumnHidden(id - FirstColumn + 1, !bar_->isChecked(id));
  fitColumns();
}

void FileListPane::fitColumns() {
  for (int c = 0; c < model_->columnCount(); ++c)
    if (!view_->isColumnHidden(c)) view_->resizeColumnToContents(c);
}

// --- Reading a folder -------------------------------------------------------------------------

void FileListPane::readFolder(const std::string& folder, bool force,
                                       const std::string& root) {
  if (kind_ != Kind::Files) return;
  const std::string path = addSlash(folder);
  if (!force && path == folder_) return;  // the same folder is not read again
  folder_ = path;
  root_ = root.empty() ? removeSlash(path) : root;
  readOnly_ = false;
  model_->clear();
  if (holdsPreview()) preview_->clear();
  say(TL(3526, "Dateiliste wird geladen... (Abbruch: ESC-Taste)"));
  escape_->setEnabled(true);
  reader_->start(path, model_->order(), root_, allocated_);
}

void FileListPane::onReadFinished() {
  escape_->setEnabled(false);
  FolderListing listing = reader_->takeListing();
  const int64_t total = listing.total;
  model_->setRows(std::move(listing.rows), std::move(listing.order));
  view_->scrollToTop();
  fitColumns();
  say(filesInTotal(model_->rowCount(),
                   FormatSize(model_->unit(), total, true, false, true).trimmed()));
  selectPending();
}

void FileListPane::showRows(const std::string& folder, std::vector<FileRow> rows, bool onDisk,
                                     const std::string& root) {
  if (reader_) reader_->cancel();
  escape_->setEnabled(false);
  folder_ = addSlash(folder);
  root_ = root.empty() ? removeSlash(folder_) : root;
  readOnly_ = !onDisk;
  int64_t total = 0;
  for (const FileRow& r : rows) total += r.size;
  std::vector<uint32_t> order = freshOrder(rows, model_->order());
  model_->setRows(std::move(rows), std::move(order));
  view_->scrollToTop();
  fitColumns();
  say(filesInTotal(model_->rowCount(),
                   FormatSize(model_->unit(), total, true, false, true).trimmed()));
  selectPending();
}

void FileListPane::stopReading() {
  if (reader_ && reader_->busy()) reader_->stop();
}

void FileListPane::refresh() {
  if (kind_ != Kind::Files || model_->rowCount() == 0 || readOnly_) return;
  readFolder(folder_, true, root_);
}

void FileListPane::clearList() {
  if (reader_) reader_->cancel();
  escape_->setEnabled(false);
  folder_.clear();
  root_.clear();
  readOnly_ = false;
  collector_.reset();
  collected_.clear();
  model_->clear();
  status_.clear();
  if (holdsPreview()) preview_->clear();
}

// --- The largest files ------------------------------------------------------------------------

int FileListPane::limit() const { return limit_ ? std::clamp(limit_->value(), TopFiles::kMinimum, TopFiles::kMaximum) : 100; }

std::shared_ptr<TopFiles> FileListPane::beginRead() {
  model_->clear();
  say(QString());
  collector_ = std::make_shared<TopFiles>(limit());
  return collector_;
}

void FileListPane::setExtensionFilter(const std::string& extension, bool all) {
  if (kind_ != Kind::Top || (filtered_ != all && filter_ == extension)) return;
  filter_ = extension;
  filtered_ = !all;
  std::vector<FileRow> rows = filtered_ ? TopFiles::ofExtension(collected_, filter_) : collected_;
  std::vector<uint32_t> order = freshOrder(rows, model_->order());
  model_->setRows(std::move(rows), std::move(order));
}

void FileListPane::selectFile(const std::string& name, std::function<void()> then) {
  selectName_ = name;
  afterSelect_ = std::move(then);
  if (!reading()) selectPending();
}

void FileListPane::selectPending() {
  const std::string name = std::exchange(selectName_, {});
  const std::function<void()> then = std::exchange(afterSelect_, {});
  if (name.empty()) return;
  for (int i = 0; i < model_->rowCount(); ++i) {
    if (model_->row(i).name != name) continue;
    const QModelIndex at = model_->index(i, 0);
    view_->selectionModel()->setCurrentIndex(
        at, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    view_->scrollTo(at);
    showSelectionSize();
    if (then) then();
    return;
  }
}

void FileListPane::endRead(const std::string& source, const std::string& root) {
  if (!collector_) return;
  root_ = root.empty() ? source : root;
  collected_ = collector_->result();
  collector_.reset();
  std::vector<FileRow> rows = filtered_ ? TopFiles::ofExtension(collected_, filter_) : collected_;
  std::vector<uint32_t> order = freshOrder(rows, model_->order());
  model_->setRows(std::move(rows), std::move(order));
  fitColumns();
  const QStringList args{QString::number(model_->rowCount()), pathText(source)};
  title_->setText(plural(model_->rowCount(), TL(4402, "%1 größte Datei von '%2'", args),
                         TL(3723, "%1 größten Dateien von '%2'", args),
                         TL(3723, "%1 größten Dateien von '%2'", args)));
  title_->setToolTip(pathText(source));
}

// A number below 5 becomes 5, anything that is no number 100; an emptied box is refilled at once.
void FileListPane::onLimitEdited() {
  if (fixingLimit_) return;
  fixingLimit_ = true;
  const QString text = limit_->findChild<QLineEdit*>()->text().trimmed();
  bool numeric = false;
  const int value = text.toInt(&numeric);
  if (!numeric)
    limit_->setValue(100);
  else if (value < TopFiles::kMinimum)
    limit_->setValue(TopFiles::kMinimum);
  fixingLimit_ = false;
}

// --- Search, sort, selection ------------------------------------------------------------------

void FileListPane::startSearch() {
  const QString text = search_->text();
  const int count = model_->rowCount();
  if (count == 0 || text.isEmpty()) return;
  const QModelIndex current = view_->currentIndex();
  int start = 1;
  if (current.isValid() && view_->selectionModel()->isRowSelected(current.row(), {}))
    start = current.row() + 1;
  else if (const auto sel = view_->selectionModel()->selectedRows(); !sel.isEmpty())
    start = sel.first().row() + 1;
  if (start >= count) start = 0;
  int hit = model_->findRow(text, start, count - 1);
  if (hit < 0 && start > 0) hit = model_->findRow(text, 0, start);
  if (hit >= 0) {
    const QModelIndex i = model_->index(hit, 0);
    view_->selectionModel()->setCurrentIndex(i, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    view_->scrollTo(i);
    showSelectionSize();
    if (kind_ == Kind::Files) previewSelection(false);
  }
  search_->setFocus();
}

void FileListPane::onTitleClick(int section) {
  if (model_->rowCount() == 0) return;
  // One direction for the list, whichever column: a click on another title turns it over too.
  RowOrder order{keyOfColumn(section), !model_->order().descending};
  QApplication::setOverrideCursor(Qt::WaitCursor);
  model_->sort(order);
  QApplication::restoreOverrideCursor();
  view_->header()->setSortIndicator(section, arrowOf(order.descending));
  view_->scrollToTop();
  fitColumns();
}

std::vector<int> FileListPane::selectedRowsDescending() const {
  std::vector<int> rows;
  for (const QModelIndex& i : view_->selectionModel()->selectedRows()) rows.push_back(i.row());
  std::sort(rows.begin(), rows.end(), std::greater<>());
  return rows;
}

void FileListPane::showSelectionSize() {
  const auto rows = view_->selectionModel()->selectedRows();
  int64_t sum = 0;
  for (const QModelIndex& i : rows) sum += model_->row(i.row()).size;
  say(TL(3665, "%1 ausgewählte Datei(en) mit %2",
         {QString::number(rows.size()), xFormatFileSize(model_->unit(), sum, true)}));
}

std::string FileListPane::pathOf(int row) const {
  const FileRow& r = model_->row(row);
  return (kind_ == Kind::Files ? folder_ : r.folder()) + r.name;
}

FoundPath FileListPane::foundOf(int row) const {
  return foundBelow(root_, pathOf(row));
}

// --- Rename -----------------------------------------------------------------------------------

void FileListPane::startRename() {
  const auto rows = view_->selectionModel()->selectedRows();
  if (rows.size() != 1) return;
  const QModelIndex i = model_->index(rows.first().row(), 0);
  view_->setCurrentIndex(i);
  view_->edit(i);
}

// Never replaces a file of the new name: that is an error, and both stay.
bool FileListPane::renameRow(int row, const QString& name) {
  if (readOnly_) return false;
  const FileRow& r = model_->row(row);
  if (name.isEmpty() || name.contains(QLatin1Char('/')) || name == QLatin1String(".") || name == QLatin1String("..")) {
    warn(TL(4047, "Der Name '%1' ist nicht zulässig.", {name}));
    return false;
  }
  std::string newName = pathBytes(name);
  const std::string error = renameNoReplace(foundOf(row), newName, r.inode);
  if (!error.empty()) {
    warn(QString::fromStdString(error));
    return false;
  }
  model_->renameRow(row, std::move(newName));
  return true;
}

// --- Delete and trash -------------------------------------------------------------------------

int FileListPane::deleteFiles(bool toTrash) {
  const std::vector<int> rows = selectedRowsDescending();
  if (rows.empty() || readOnly_) return 0;
  std::vector<std::string> folders;
  QApplication::setOverrideCursor(Qt::WaitCursor);
  QStringList failures;
  qsizetype failed = 0;
  struct Gone {
    std::string folder, name;
    int64_t size;
  };
  std::vector<Gone> gone;
  for (int row : rows) {
    const FoundPath path = foundOf(row);
    const uint64_t inode = model_->row(row).inode;
    if (toTrash) {
      const TrashResult r = moveToTrash(path, inode);
      if (r.code != 0) failures << QString::fromStdString(trashErrorText(r));
    } else if (const std::string error = deleteFile(path, true, inode); !error.empty()) {
      failures << QString::fromStdString(error);
    }
    const std::string folder = kind_ == Kind::Files ? folder_ : model_->row(row).folder();
    if (failures.size() == failed) gone.push_back({folder, model_->row(row).name, model_->row(row).size});
    failed = failures.size();
    if (std::find(folders.begin(), folders.end(), folder) == folders.end()) folders.push_back(folder);
  }
  // Every selected row goes, done or not: the list shows what was asked, the next read corrects it.
  model_->removeRows(rows);
  if (holdsPreview()) preview_->clear();  // the file shown may be gone
  QApplication::restoreOverrideCursor();
  for (const QString& f : failures) warn(f);
  say(QString());
  for (const Gone& g : gone) Q_EMIT fileGone(g.folder, g.name, g.size);
  Q_EMIT filesDeleted(folders);
  return static_cast<int>(rows.size());
}

// --- Popup ------------------------------------------------------------------------------------

QMenu* FileListPane::popupMenu() {
  using namespace cmd::filePopup;
  auto* menu = new QMenu(this);
  menu->setAttribute(Qt::WA_DeleteOnClose);
  const std::vector<int> rows = selectedRowsDescending();
  const bool one = rows.size() == 1;
  auto add = [&](int id, const QString& text, const char* proc, auto f) {
    QAction* a = menu->addAction(text, this, guard_.wrap(proc, f));
    a->setData(id);
    return a;
  };
  if (one) {
    add(OpenFolder, TL(3717, "Dateipfad öffnen"), "mnuOpenFolder", [this] {
      const auto sel = selectedRowsDescending();
      if (sel.empty()) return;
      const std::string folder = kind_ == Kind::Files ? folder_ : model_->row(sel.back()).folder();
      if (const QString failed = openFolder(folder); !failed.isEmpty()) say(failed);
    });
    menu->addSeparator();
    add(Rename, TL(3716, "Datei umbenennen"), "mnuRename", [this] { startRename(); })->setEnabled(!readOnly_);
    menu->addSeparator();
  }
  add(cmd::filePopup::Delete, TL(3654, "Datei(en) löschen"), "mnuDelete", [this] { deleteFiles(false); })
      ->setEnabled(!readOnly_);
  add(cmd::filePopup::Trash, TL(3655, "Datei(en) in den Papierkorb verschieben"), "mnuTrash", [this] {
    deleteFiles(true);
  })->setEnabled(!readOnly_);
  menu->addSeparator();
  if (rows.empty()) return menu;
  std::vector<std::string> paths;
  for (auto it = rows.rbegin(); it != rows.rend(); ++it) paths.push_back(pathOf(*it));
  if (one)
    add(Open, TL(4048, "Öffnen"), "mnuOpen", [this, p = paths.front()] {
      if (const QString failed = openWithDefault(p); !failed.isEmpty()) say(failed);
    });
  add(ShowInFileManager, TL(4049, "Im Dateimanager anzeigen"), "mnuShowInFileManager", [this, paths] {
    if (const QString failed = showInFileManager(paths); !failed.isEmpty()) say(failed);
  });
  add(CopyPath, TL(4050, "Pfad kopieren"), "mnuCopyPath", [paths] { copyPaths(paths); });
  return menu;
}

// --- Keys and mouse ---------------------------------------------------------------------------

bool FileListPane::eventFilter(QObject* watched, QEvent* event) {
  const char* proc = kind_ == Kind::Files ? "lvwFiles_KeyUp" : "lvwTOP_KeyUp";
  if (watched == view_ && event->type() == QEvent::KeyRelease) {
    const int key = static_cast<QKeyEvent*>(event)->key();
    guard_.run(proc, [&] {
      switch (key) {
        case Qt::Key_PageUp:
        case Qt::Key_PageDown:
        case Qt::Key_Up:
        case Qt::Key_Down:
        case Qt::Key_Home:
        case Qt::Key_End:
          showSelectionSize();
          previewSelection(kind_ == Kind::Top);  // the file list does not reload the same file
          break;
        default: break;
      }
    });
  } else if (watched == view_ && event->type() == QEvent::KeyPress &&
             static_cast<QKeyEvent*>(event)->key() == Qt::Key_F2) {
    guard_.run(proc, [this] { startRename(); });
    return true;
  } else if (watched == view_->viewport() && event->type() == QEvent::MouseButtonRelease) {
    auto* mouse = static_cast<QMouseEvent*>(event);
    guard_.run(kind_ == Kind::Files ? "lvwFiles_MouseUp" : "lvwTOP_MouseUp", [&] {
      if (mouse->button() == Qt::RightButton) return;  // the popup handles it
      if (!view_->indexAt(mouse->position().toPoint()).isValid()) {
        view_->clearSelection();
        say(QString());
        previewSelection(false);
      } else {
        showSelectionSize();
        previewSelection(true);  // a click shows the file again, a video starts over
      }
    });
  }
  return QWidget::eventFilter(watched, event);
}

void FileListPane::setControlsEnabled(bool on) {
  bar_->setAllEnabled(on);
  view_->setEnabled(on);
}

void FileListPane::setGridFont(const QFont& font) {
  view_->setFont(font);
  fitColumns();
}

void FileListPane::storeOptions(MainOptions& o) const {
  const bool files = kind_ == Kind::Files;
  (files ? o.ShowIcons : o.ShowIconsTop) = bar_->isChecked(Symbols) ? 1 : 0;
  (files ? o.FileSizeFormatFiles : o.FileSizeFormatTop) = model_->unit();
  (files ? o.SizeFormatNachkommastellenFiles : o.SizeFormatNachkommastellenTop) = bar_->isChecked(Decimals) ? 1 : 0;
  const int toggles = model_->columnCount() - 1;
  for (int i = 0; i < toggles; ++i) (files ? o.FileColumn[i] : o.TopColumn[i]) = view_->isColumnHidden(i + 1) ? 0 : 1;
  o.FilePreview = bar_->isChecked(Preview) ? 1 : 0;
  o.FilelistTile = bar_->isChecked(Tile) ? 1 : 0;
}

// --- Preview ----------------------------------------------------------------------------------

void FileListPane::buildPreviewSplit(const MainOptions& o) {
  splitPreview_ = new Splitter(this);
  splitPreview_->setObjectName(QStringLiteral("splFilesAndPreview"));
  previewHost_ = new QWidget(this);
  auto* hostLayout = new QVBoxLayout(previewHost_);
  hostLayout->setContentsMargins(0, 0, 0, 0);
  splitPreview_->Bind(view_, previewHost_);
  splitPreview_->setOrientation(o.FilelistTile ? Splitter::PanesSideBySide : Splitter::PanesAbove);
  splitPreview_->setKeepProportion(true);
  splitPreview_->setProportion(50);
  splitPreview_->setControl2Visible(o.FilePreview != 0);
}

void FileListPane::setPreview(PreviewPane* preview, FileListPane* partner) {
  preview_ = preview;
  partner_ = partner;
}

bool FileListPane::holdsPreview() const { return preview_ && preview_->parentWidget() == previewHost_; }

void FileListPane::takePreview() {
  if (!preview_ || holdsPreview()) return;
  preview_->clear();
  previewHost_->layout()->addWidget(preview_);
  preview_->show();
}

void FileListPane::previewSelection(bool force) {
  if (!holdsPreview()) return;
  const auto rows = view_->selectionModel()->selectedRows();
  if (!bar_->isChecked(Preview) || rows.isEmpty()) {
    preview_->clear();
    return;
  }
  int first = rows.first().row();
  for (const QModelIndex& i : rows) first = std::min(first, i.row());
  preview_->showFile(pathOf(first), force);
}

// 318 and 319 act on both bars alike; the check mark has turned over with the click.
void FileListPane::onPreviewCommand(int id) {
  const bool on = bar_->isChecked(id);
  for (FileListPane* pane : {this, partner_}) {
    if (!pane) continue;
    pane->bar_->setChecked(id, on);
    if (id == Preview)
      pane->splitPreview_->setControl2Visible(on);
    else
      pane->splitPreview_->setOrientation(on ? Splitter::PanesSideBySide : Splitter::PanesAbove);
  }
  if (id == Preview) previewSelection(false);
}

// The status bar's list panel speaks for the list in view: a list out of sight keeps its text
// for when it is shown again.
void FileListPane::say(const QString& text) {
  status_ = text;
  if (isVisibleTo(window())) Q_EMIT statusText(text);
}

void FileListPane::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  if (!event->spontaneous()) Q_EMIT statusText(status_);
}

void FileListPane::warn(const QString& text) {
  if (warn_)
    warn_(text);
  else
    QMessageBox::warning(this, QStringLiteral("Quorlane"), text);
}

}  // namespace ql
