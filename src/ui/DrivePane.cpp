#include "ui/DrivePane.h"

#include <QApplication>
#include <QClipboard>
#include <QFileDialog>
#include <QGuiApplication>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QPainter>
#include <QResizeEvent>
#include <QScrollBar>
#include <QVBoxLayout>

#include "lang/TL.h"
#include "support/PathText.h"
#include "ui/Desktop.h"

namespace ql {

namespace {
constexpr int kBarWidth = 72;  // the least width of a percent bar
}  // namespace

void PercentBarDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const {
  const int percent = index.data(DriveModel::PercentRole).toInt();
  if (percent < 0 || !index.data(DriveModel::PercentRole).isValid()) {
    QStyledItemDelegate::paint(painter, option, index);
    return;
  }
  QStyleOptionViewItem opt(option);
  initStyleOption(&opt, index);
  const QString text = opt.text;
  opt.text.clear();
  const QWidget* widget = opt.widget;
  QStyle* style = widget ? widget->style() : QApplication::style();
  style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, widget);  // background and selection

  painter->save();
  const QRect frame = opt.rect.adjusted(3, 3, -4, -4);
  const QPalette& pal = opt.palette;
  painter->setPen(pal.color(QPalette::Mid));
  painter->setBrush(pal.color(QPalette::Base));
  painter->drawRect(frame);
  QRect fill = frame.adjusted(1, 1, 0, 0);
  fill.setWidth(fill.width() * percent / 100);
  QColor colour = pal.color(QPalette::Highlight);
  // An almost full drive catches the eye.
  if (index.column() == DriveModel::ColUsedPercent && percent >= 90) colour = QColor(0xd0, 0x45, 0x3a);
  colour.setAlpha(150);
  painter->fillRect(fill, colour);
  painter->setPen(pal.color(QPalette::Text));
  painter->drawText(frame, Qt::AlignCenter, text);
  painter->restore();
}

QSize PercentBarDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const {
  QSize size = QStyledItemDelegate::sizeHint(option, index);
  size.setWidth(std::max(size.width(), kBarWidth));
  return size;
}

DrivePane::DrivePane(const Guard& guard, const MainOptions& options, StatvfsFn stat, QWidget* parent)
    : QWidget(parent), guard_(guard) {
  setObjectName(QStringLiteral("picDrives"));
  model_ = new DriveModel(std::move(stat), this);
  model_->setSizeFormat(options.FileSizeFormatDrive >= 0 && options.FileSizeFormatDrive <= 3 ? options.FileSizeFormatDrive
                                                                                              : 3,
                        options.SizeFormatNachkommastellenDrive != 0);
  mounts_ = [] { return readMountTable(); };
  askFolder_ = [this] { return QFileDialog::getExistingDirectory(this, TL(3727, "UNC-Pfad hinzufügen")); };

  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  title_ = paneTitle(TL(3642, "Laufwerke").toUpper(), QStringLiteral("lblDrivesTitle"), this);
  layout->addWidget(title_);
  buildBar(options);
  layout->addWidget(bar_);

  view_ = new QTreeView(this);
  view_->setObjectName(QStringLiteral("lvwDiskinfo"));
  view_->setModel(model_);
  view_->setRootIsDecorated(false);
  view_->setUniformRowHeights(true);
  view_->setAllColumnsShowFocus(true);
  view_->setSelectionBehavior(QAbstractItemView::SelectRows);
  view_->setSelectionMode(QAbstractItemView::SingleSelection);
  view_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  view_->header()->setStretchLastSection(false);
  view_->header()->setSectionsMovable(false);
  auto* bars = new PercentBarDelegate(view_);
  view_->setItemDelegateForColumn(DriveModel::ColUsedPercent, bars);
  view_->setItemDelegateForColumn(DriveModel::ColFreePercent, bars);
  view_->setContextMenuPolicy(Qt::CustomContextMenu);
  view_->installEventFilter(this);
  layout->addWidget(view_, 1);

  connect(view_, &QAbstractItemView::doubleClicked, this,
          guard_.wrap("lvwDiskinfo_DblClick", [this](const QModelIndex& i) {
            if (i.isValid()) Q_EMIT scanRequested({model_->driveRow(i.row()).path});
          }));
  connect(view_, &QWidget::customContextMenuRequested, this,
          guard_.wrap("lvwDiskinfo_MouseUp", [this](const QPoint& at) {
            const QModelIndex i = view_->indexAt(at);
            if (!i.isValid() || !view_->isEnabled()) return;
            view_->setCurrentIndex(i);
            view_->setFocus();
            drivePopup()->popup(view_->viewport()->mapToGlobal(at));
          }));
  // Wider columns may bring the horizontal scroll bar, which would cover the last row.
  connect(model_, &DriveModel::sizesArrived, this, guard_.wrap("Drives_GetDriveFreeSpace", [this] {
            fitColumns();
            Q_EMIT heightChanged();
          }));
}

DrivePane::~DrivePane() { view_->setModel(nullptr); }

void DrivePane::buildBar(const MainOptions& o) {
  using namespace cmd::drives;
  bar_ = new PaneBar(QStringLiteral("cbrDrives"), QStringLiteral("Drives"), cmd::drives::Bytes, this);
  PaneBar& b = *bar_;
  using T = CommandBar::Type;
  b.AddControl(T::Button, Refresh, 3535, "Aktualisieren", "view-refresh", true, 3633, "Laufwerksliste neu einlesen");
  b.AddControl(T::Button, ScanSelected, 3695, "Einlesen", "media-playback-start", true, 3697,
               "Ausgewähltes Laufwerk einlesen");
  b.AddControl(T::Button, ScanAll, 3696, "Alle einlesen", "media-seek-forward", false, 3694, "Alle Laufwerke einlesen");
  b.AddControl(T::Button, AddLocation, 3726, "Hinzufügen", "folder-remote", true, 3727, "UNC-Pfad hinzufügen");
  b.AddSizeUnits(Decimals, o.SizeFormatNachkommastellenDrive != 0);
  b.checkUnit(model_->unit());
  connect(bar_, &CommandBar::execute, this, [this](int id) { cbrDrives_Execute(id); });
}

void DrivePane::cbrDrives_Execute(int id) {
  guard_.run("cbrDrives_Execute", [&] {
    using namespace cmd::drives;
    switch (id) {
      case Refresh: reloadDrives(); break;
      case ScanSelected:
      case PopupScan: scanDrives(true); break;
      case ScanAll: scanDrives(false); break;
      case AddLocation: addLocation({}); break;
      case cmd::drives::Bytes:
      case Kilobytes:
      case Megabytes:
      case Gigabytes: setSizeFormat(id - cmd::drives::Bytes); break;
      case Decimals: setSizeFormat(model_->unit()); break;
      default: break;
    }
  }, {QString::number(id)});
}

void DrivePane::reloadDrives() {
  const std::string selected = selectedPath();
  model_->setMounts(mounts_());
  for (const std::string& path : LoadSavedNetworkFolders(settingsFile_)) model_->addLocation(path);
  if (!selected.empty()) selectDrive(selected);
  fitColumns();
  Q_EMIT heightChanged();
}

void DrivePane::scanDrives(bool onlySelected) {
  std::vector<std::string> paths;
  if (onlySelected) {
    const std::string path = selectedPath();
    if (!path.empty()) paths.push_back(path);
  } else {
    for (int r = 0; r < model_->rowCount(); ++r) paths.push_back(model_->driveRow(r).path);
  }
  if (!paths.empty()) Q_EMIT scanRequested(std::move(paths));
}

void DrivePane::addLocation(std::string path) {
  if (path.empty()) {
    const QString answer = askFolder_ ? askFolder_() : QString();
    if (answer.isEmpty()) return;
    path = pathBytes(answer);
  }
  const int row = model_->addLocation(path);
  view_->setCurrentIndex(model_->index(row, 0));
  fitColumns();
  Q_EMIT heightChanged();
}

void DrivePane::selectDrive(const std::string& path) {
  const int row = model_->rowOf(path);
  if (row < 0) return;
  view_->setCurrentIndex(model_->index(row, 0));
  view_->scrollTo(model_->index(row, 0));
}

void DrivePane::refreshDrive(const std::string& path) { model_->refreshRow(model_->rowOf(path)); }

void DrivePane::saveLocations() const { SaveNetworkFolders(model_->locations(), settingsFile_); }

void DrivePane::fitColumns() {
  for (int c = 0; c < DriveModel::ColumnCount; ++c) view_->resizeColumnToContents(c);
}

void DrivePane::setSizeFormat(int unit) {
  using namespace cmd::drives;
  bar_->checkUnit(unit);
  model_->setSizeFormat(unit, bar_->isChecked(Decimals));
  for (int c = DriveModel::ColUsedPercent; c <= DriveModel::ColTotal; ++c) view_->resizeColumnToContents(c);
  Q_EMIT heightChanged();
}

std::vector<DrivePane::ComboDrive> DrivePane::comboDrives() const {
  std::vector<ComboDrive> out;
  for (int r = 0; r < model_->rowCount(); ++r) {
    const DriveRow& row = model_->driveRow(r);
    if (row.location || row.type == DriveRam || row.type == DriveUnknown) continue;
    ComboDrive d;
    d.path = row.path;
    d.text = pathText(row.path);
    if (!row.label.isEmpty()) d.text += QStringLiteral(" [") + row.label + QLatin1Char(']');
    switch (row.type) {
      case DriveRemovable: d.image = 6; break;
      case DriveNetwork: d.image = 5; break;
      case DriveOptical: d.image = 4; break;
      default: d.image = 3; break;
    }
    out.push_back(std::move(d));
  }
  return out;
}

// Measured from size hints, not from where the layout last put things: a bar whose icons or
// captions just changed, or a pane that was hidden meanwhile, is laid out only later.
int DrivePane::preferredHeight() const {
  int height = 2 * view_->frameWidth();
  for (const QWidget* w : {title_, static_cast<QWidget*>(bar_)})
    if (!w->isHidden()) height += w->sizeHint().height();
  if (!view_->header()->isHidden()) height += view_->header()->sizeHint().height();
  const int rows = model_->rowCount();
  if (rows > 0) height += rows * view_->sizeHintForRow(0);
  if (needsHorizontalBar()) height += view_->horizontalScrollBar()->sizeHint().height();
  return height;
}

// Whether the columns are wider than the table, with no vertical scroll bar beside them.
bool DrivePane::needsHorizontalBar() const {
  return view_->horizontalScrollBarPolicy() != Qt::ScrollBarAlwaysOff &&
         view_->header()->length() > width() - 2 * view_->frameWidth();
}

// A narrower or wider pane may bring or take the horizontal scroll bar.
void DrivePane::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  const int columns = view_->header()->length() + 2 * view_->frameWidth();
  if ((event->oldSize().width() < columns) != (width() < columns)) Q_EMIT heightChanged();
}

void DrivePane::storeOptions(MainOptions& o) const {
  o.FileSizeFormatDrive = model_->unit();
  o.SizeFormatNachkommastellenDrive = bar_->isChecked(cmd::drives::Decimals) ? 1 : 0;
}

QMenu* DrivePane::drivePopup() {
  auto* menu = new QMenu(this);
  menu->setAttribute(Qt::WA_DeleteOnClose);
  const std::string path = selectedPath();
  menu->addAction(TL(3666, "Laufwerk einlesen"), this, guard_.wrap("mnuScanDrive", [this] {
                    cbrDrives_Execute(cmd::drives::PopupScan);
                  }))->setData(cmd::drives::PopupScan);
  menu->addSeparator();
  menu->addAction(TL(3730, "Öffnen"), this, guard_.wrap("mnuOpen", [this, path] { openPath(path, false); }));
  menu->addAction(TL(3731, "Im Dateimanager anzeigen"), this,
                  guard_.wrap("mnuShowInFileManager", [this, path] { openPath(path, true); }));
  menu->addAction(TL(3732, "Pfad kopieren"), this, guard_.wrap("mnuCopyPath", [path] {
                    QGuiApplication::clipboard()->setText(pathText(path));
                  }));
  return menu;
}

// The folder itself, or the folder that holds it with the folder selected, in the desktop's
// file manager; a refusal goes to the status bar.
void DrivePane::openPath(const std::string& path, bool parent) {
  std::string target = path;
  while (parent && target.size() > 1 && target.back() == '/') target.pop_back();
  const QString failed = parent ? showInFileManager({target}) : openFolder(target);
  if (!failed.isEmpty()) Q_EMIT statusText(failed);
}

int DrivePane::selectedRow() const {
  const QModelIndex i = view_->currentIndex();
  if (!i.isValid() || !view_->selectionModel()->isRowSelected(i.row(), {})) return -1;
  return i.row();
}

std::string DrivePane::selectedPath() const {
  const int row = selectedRow();
  return row < 0 ? std::string() : model_->driveRow(row).path;
}

bool DrivePane::eventFilter(QObject* watched, QEvent* event) {
  // A new font (from the options too) gives the rows a new height.
  if (watched == view_ && event->type() == QEvent::FontChange) {
    guard_.run("lvwDiskinfo_FontChanged", [&] {
      fitColumns();
      Q_EMIT heightChanged();
    });
  }
  if (watched == view_ && event->type() == QEvent::KeyPress) {
    const int key = static_cast<QKeyEvent*>(event)->key();
    bool handled = false;
    guard_.run("lvwDiskinfo_KeyUp", [&] {
      if (key == Qt::Key_Delete && model_->removeLocation(selectedRow())) {
        handled = true;
        fitColumns();
        Q_EMIT heightChanged();
      } else if (key == Qt::Key_Return || key == Qt::Key_Enter) {
        handled = true;
        scanDrives(true);
      }
    });
    if (handled) return true;
  }
  return QWidget::eventFilter(watched, event);
}

}  // namespace ql
