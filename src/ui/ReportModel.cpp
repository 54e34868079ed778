#include "ui/ReportModel.h"

#include <QApplication>
#include <QColor>
#include <QFile>
#include <QPalette>
#include <QStyle>
#include <algorithm>

#include "lang/TL.h"
#include "report/SizeFormat.h"
#include "ui/CommandBar.h"
#include "ui/CompareBaseline.h"

namespace ql {

ReportModel::ReportModel(ReportTree& tree, QObject* parent) : QAbstractItemModel(parent), tree_(tree) {
  tree_.setObserver(this);
  if (auto* style = QApplication::style()) {
    folderIcon_ = QIcon::fromTheme(QStringLiteral("folder"), style->standardIcon(QStyle::SP_DirIcon));
    junctionIcon_ = QIcon::fromTheme(QStringLiteral("folder-remote"),
                                     style->standardIcon(QStyle::SP_DirLinkIcon));
    filesIcon_ = QIcon::fromTheme(QStringLiteral("text-x-generic"),
                                  style->standardIcon(QStyle::SP_FileIcon));
  }
  newIcon_ = commandIcon(QStringLiteral("quorlane-compare-new"));
  goneIcon_ = commandIcon(QStringLiteral("list-remove"));
}

ReportModel::~ReportModel() { tree_.setObserver(nullptr); }

namespace {
// Qt hashes an index by row plus internal id. Plain node numbers next to row numbers crowd into
// one dense range of the hash, and a hash of many persistent indexes then probes longer and
// longer. An odd multiplier spreads them, and its inverse brings the node back.
constexpr uint64_t kSpread = 0x9E3779B97F4A7C15ull;
constexpr uint64_t inverseOf(uint64_t a) {
  uint64_t x = a;  // Newton's iteration for the inverse modulo 2^64
  for (int i = 0; i < 6; ++i) x *= 2 - a * x;
  return x;
}
constexpr uint64_t kGather = inverseOf(kSpread);
static_assert(kSpread * kGather == 1);
static_assert(sizeof(quintptr) == 8);
// A gone row's id is its number with this bit, above every node.
constexpr uint64_t kGoneBit = ReportModel::kGoneKey;
quintptr idOf(uint64_t key) {
  return static_cast<quintptr>(key * kSpread);
}
uint64_t keyOf(const QModelIndex& index) {
  return static_cast<uint64_t>(index.internalId()) * kGather;
}
}  // namespace

uint32_t ReportModel::nodeOf(const QModelIndex& index) const {
  if (!index.isValid()) return kSuperRoot;
  const uint64_t key = keyOf(index);
  return (key & kGoneBit) ? kNoNode : static_cast<uint32_t>(key);
}

const ReportModel::GoneRow* ReportModel::goneRow(const QModelIndex& index) const {
  if (!index.isValid()) return nullptr;
  const uint64_t key = keyOf(index);
  if (!(key & kGoneBit) || (key & ~kGoneBit) >= gone_.size()) return nullptr;
  return &gone_[key & ~kGoneBit];
}

const ReportModel::GoneGroup* ReportModel::groupOf(uint32_t parent) const {
  if (goneGroups_.empty()) return nullptr;
  const auto it = goneGroups_.find(parent);
  return it == goneGroups_.end() || it->second.shown == 0 ? nullptr : &it->second;
}

int ReportModel::shownRow(uint32_t parent, uint32_t row) const {
  const GoneGroup* g = groupOf(parent);
  if (!g) return static_cast<int>(row);
  const auto end = g->before.begin() + g->shown;
  return static_cast<int>(
      row +
      static_cast<uint32_t>(std::upper_bound(g->before.begin(), end, row) - g->before.begin()));
}

int ReportModel::goneShownRow(uint32_t id) const {
  const GoneRow& r = gone_[id];
  return static_cast<int>(goneGroups_.at(r.parent).before[r.slot] + r.slot);
}

uint64_t ReportModel::rowKey(const QModelIndex& index) const {
  return index.isValid() ? keyOf(index) : kSuperRoot;
}

QModelIndex ReportModel::indexOfKey(uint64_t key, int column) const {
  if (!(key & kGoneBit)) return indexOf(static_cast<uint32_t>(key), column);
  const uint32_t id = static_cast<uint32_t>(key & ~kGoneBit);
  if (id >= gone_.size()) return {};
  return createIndex(goneShownRow(id), column, idOf(key));
}

QModelIndex ReportModel::indexOf(uint32_t node, int column) const {
  if (node == kSuperRoot || node == kNoNode) return {};
  const auto& n = tree_.node(node);
  return createIndex(shownRow(n.parent, n.row), column, idOf(node));
}

void ReportModel::setSizeFormat(int unit, int decimals) {
  if (unit < 0 || unit > 3) return;  // other codes change nothing in a grid
  unit_ = unit;
  decimals_ = decimals ? 1 : 0;
  // Only the presentation changes: no row is touched.
  Q_EMIT headerDataChanged(Qt::Horizontal, ColSize, ColChange);
  Q_EMIT layoutAboutToBeChanged();
  Q_EMIT layoutChanged();
}

QModelIndex ReportModel::index(int row, int column, const QModelIndex& parent) const {
  if (row < 0 || column < 0 || column >= AllColumns) return {};
  const uint32_t p = nodeOf(parent);
  if (p == kNoNode) return {};  // a gone row has no rows below it
  const auto& kids = tree_.children(p);
  auto r = static_cast<uint32_t>(row);
  if (const GoneGroup* g = groupOf(p)) {
    // The gone rows shown before this one: the slot s stands at row before[s] + s.
    uint32_t lo = 0, hi = g->shown;
    while (lo < hi) {
      const uint32_t mid = (lo + hi) / 2;
      if (g->before[mid] + mid < r)
        lo = mid + 1;
      else
        hi = mid;
    }
    if (lo < g->shown && g->before[lo] + lo == r)
      return createIndex(row, column, idOf(kGoneBit | g->rows[lo]));
    r -= lo;
  }
  if (r >= kids.size()) return {};
  return createIndex(row, column, idOf(kids[r]));
}

QModelIndex ReportModel::parent(const QModelIndex& child) const {
  if (!child.isValid()) return {};
  if (const GoneRow* g = goneRow(child)) return indexOf(g->parent);
  const uint32_t n = nodeOf(child);
  return n == kNoNode ? QModelIndex() : indexOf(tree_.parent(n));
}

int ReportModel::rowCount(const QModelIndex& parent) const {
  const uint32_t p = nodeOf(parent);
  if (parent.column() > 0 || p == kNoNode) return 0;
  const GoneGroup* g = groupOf(p);
  return static_cast<int>(tree_.children(p).size() + (g ? g->shown : 0));
}

int ReportModel::columnCount(const QModelIndex&) const {
  return AllColumns;
}

void ReportModel::setBaseline(const CompareBaseline* baseline) {
  baseline_ = baseline;
  baselineChanged();
}

void ReportModel::baselineChanged() {
  dropGoneRows();
  // The tree's rows keep their places; only their change cells are new.
  Q_EMIT layoutAboutToBeChanged();
  Q_EMIT layoutChanged();
  showGoneRows();
}

void ReportModel::setChangeOrder(int column, bool descending) {
  changeOrder_ = column >= ColumnCount && column < AllColumns ? column : -1;
  changeDescending_ = descending;
}

std::function<int64_t(uint32_t)> ReportModel::changeKey(int column) const {
  const CompareBaseline* b = baseline_;
  if (!b) return [](uint32_t) -> int64_t { return 0; };
  switch (column) {
    case ColChangePercent:
      return [b](uint32_t n) -> int64_t {
        const CompareBaseline::Change* c = b->change(n);
        if (!c) return 0;
        if (c->isNew || c->oldSize <= 0) return b->changeOf(n) > 0 ? INT64_MAX : 0;  // from nothing
        return static_cast<int64_t>(1e6 * static_cast<double>(b->changeOf(n)) /
                                    static_cast<double>(c->oldSize));
      };
    case ColChangeFiles:
      return [b](uint32_t n) { return b->filesChangeOf(n); };
    default:
      return [b](uint32_t n) { return b->changeOf(n); };
  }
}

// The same keys for a gone folder: it shrank by all it held, by 100 %.
int64_t ReportModel::goneKey(const GoneRow& gone, int column) const {
  switch (column) {
    case ColChangePercent:
      return gone.size > 0 ? -1000000 : 0;
    case ColChangeFiles:
      return -gone.files;
    default:
      return -gone.size;
  }
}

// The gone rows of one folder in the order of the change column the tree is sorted by, each after
// the tree's rows that this order puts first (ties included); with no such order, after them all,
// the largest loss first.
void ReportModel::placeGone(uint32_t parent, GoneGroup& group) {
  const auto kids = tree_.children(parent);
  std::sort(group.rows.begin(), group.rows.end());
  group.before.assign(group.rows.size(), static_cast<uint32_t>(kids.size()));
  if (changeOrder_ < 0) {
    std::stable_sort(group.rows.begin(), group.rows.end(),
                     [this](uint32_t a, uint32_t b) { return gone_[a].size > gone_[b].size; });
  } else if (baseline_) {
    const auto key = changeKey(changeOrder_);
    std::vector<int64_t> keys;
    keys.reserve(kids.size());
    for (const uint32_t k : kids) keys.push_back(key(k));
    std::sort(keys.begin(), keys.end());
    const int column = changeOrder_;
    const bool descending = changeDescending_;
    std::stable_sort(group.rows.begin(), group.rows.end(), [&](uint32_t a, uint32_t b) {
      const int64_t ka = goneKey(gone_[a], column), kb = goneKey(gone_[b], column);
      return descending ? ka > kb : ka < kb;
    });
    for (size_t s = 0; s < group.rows.size(); ++s) {
      const int64_t k = goneKey(gone_[group.rows[s]], column);
      group.before[s] = static_cast<uint32_t>(
          descending ? keys.end() - std::lower_bound(keys.begin(), keys.end(), k)
                     : std::upper_bound(keys.begin(), keys.end(), k) - keys.begin());
    }
  }
  for (size_t s = 0; s < group.rows.size(); ++s)
    gone_[group.rows[s]].slot = static_cast<uint32_t>(s);
}

void ReportModel::showGoneRows() {
  if (!baseline_) return;
  for (CompareBaseline::GoneFolder& f : baseline_->goneFolders()) {
    if (!tree_.isLive(f.parent) || !tree_.isFolder(f.parent)) continue;
    goneGroups_[f.parent].rows.push_back(static_cast<uint32_t>(gone_.size()));
    gone_.push_back(GoneRow{f.parent, 0, f.size, f.files, std::move(f.name)});
  }
  for (auto& [parent, group] : goneGroups_) {
    placeGone(parent, group);
    // Each run of gone rows that stand together comes in as one insertion.
    const QModelIndex p = indexOf(parent);
    const auto count = static_cast<uint32_t>(group.rows.size());
    for (uint32_t first = 0; first < count;) {
      uint32_t last = first;
      while (last + 1 < count && group.before[last + 1] == group.before[first]) ++last;
      beginInsertRows(p, static_cast<int>(group.before[first] + first),
                      static_cast<int>(group.before[first] + last));
      group.shown = last + 1;
      endInsertRows();
      first = last + 1;
    }
  }
}

void ReportModel::dropGoneRows() {
  for (auto& [parent, group] : goneGroups_) {
    const QModelIndex p = indexOf(parent);
    while (group.shown > 0) {
      const uint32_t last = group.shown - 1;
      uint32_t first = last;
      while (first > 0 && group.before[first - 1] == group.before[last]) --first;
      beginRemoveRows(p, static_cast<int>(group.before[first] + first),
                      static_cast<int>(group.before[last] + last));
      group.shown = first;
      endRemoveRows();
    }
  }
  goneGroups_.clear();
  gone_.clear();
}

QVariant ReportModel::goneData(const GoneRow& gone, int column, int role) const {
  switch (role) {
    case Qt::DisplayRole:
      switch (column) {
        case ColName:
          return gone.name;
        case ColChange:
          return sizeText(-gone.size);
        case ColChangePercent:
          if (gone.size <= 0) return {};
          return groupedFixed(-100.0, 1) + QLatin1String(" %");
        case ColChangeFiles:
          return groupedInteger(-gone.files);
      }
      break;
    case Qt::ForegroundRole:
      return QApplication::palette().color(QPalette::Disabled, QPalette::Text);
    case Qt::TextAlignmentRole:
      if (column != ColName) return int(Qt::AlignRight | Qt::AlignVCenter);
      break;
    case Qt::DecorationRole:
      if (column == ColName) return folderIcon_;
      if (column == ColChange) return goneIcon_;
      break;
    case Qt::ToolTipRole:
      if (column == ColName || column == ColChange)
        return TL(4632, "Nicht mehr da seit der Vergleichsmessung");
      break;
    case ChangeStateRole:
      if (column >= ColumnCount) return int(GoneFolder);
      break;
    case NodeRole:
      return QVariant::fromValue<quint32>(kNoNode);
  }
  return {};
}

QVariant ReportModel::changeData(uint32_t n, int column, int role) const {
  const CompareBaseline::Change* c = baseline_ ? baseline_->change(n) : nullptr;
  if (!c) return role == ChangeStateRole ? QVariant(int(NotCompared)) : QVariant();
  const auto signedText = [](const QString& text, int64_t value) {
    return value > 0 ? QLatin1Char('+') + text : text;
  };
  const int64_t change = baseline_->changeOf(n);
  const auto gone = [&] { return c->isNew ? CompareBaseline::Gone{} : baseline_->gone(n); };
  switch (role) {
    case Qt::DisplayRole:
      switch (column) {
        case ColChange:
          return signedText(sizeText(change), change);
        case ColChangePercent:
          if (c->isNew) return TL(4607, "neu");
          if (c->oldSize <= 0) return {};
          return signedText(
                     groupedFixed(
                         100.0 * static_cast<double>(change) / static_cast<double>(c->oldSize), 1),
                     change) +
                 QLatin1String(" %");
        case ColChangeFiles: {
          const int64_t files = baseline_->filesChangeOf(n);
          return signedText(groupedInteger(files), files);
        }
      }
      break;
    case Qt::DecorationRole:
      if (column != ColChange) break;
      if (c->isNew) return newIcon_;
      if (gone().count > 0) return goneIcon_;
      break;
    case Qt::ToolTipRole:
      if (column != ColChange) break;
      if (c->isNew) return TL(4608, "Neu seit der Vergleichsmessung");
      if (const CompareBaseline::Gone g = gone(); g.count > 0)
        return TL(
            4609, "%1 Ordner nicht mehr da (%2): %3",
            {QString::number(g.count), sizeText(-g.bytes), g.names.join(QStringLiteral(", "))});
      break;
    case ChangeStateRole:
      if (c->isNew) return int(New);
      return gone().count > 0 ? int(LostFolders) : int(Compared);
  }
  return {};
}

QString ReportModel::sizeText(int64_t size) const {
  if (unit_ == 0) return groupedInteger(size);
  return groupedFixed(static_cast<double>(size) / unitDivisor(unit_), decimals_ ? 2 : 0);
}

QVariant ReportModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid()) return {};
  if (const GoneRow* g = goneRow(index)) return goneData(*g, index.column(), role);
  const uint32_t n = nodeOf(index);
  if (n == kNoNode) return {};
  if (index.column() >= ColumnCount) {
    if (role == NodeRole) return QVariant::fromValue<quint32>(n);
    if (role == Qt::TextAlignmentRole) return int(Qt::AlignRight | Qt::AlignVCenter);
    return changeData(n, index.column(), role);
  }
  const auto& node = tree_.node(n);
  switch (role) {
    case Qt::EditRole:
      if (index.column() != ColName) break;
      [[fallthrough]];
    case Qt::DisplayRole:
      switch (index.column()) {
        case ColName: {
          if (rootCaption_ && tree_.isRoot(n))
            if (QString caption = rootCaption_(n); !caption.isEmpty()) return caption;
          const auto t = tree_.text(n);
          return QFile::decodeName(QByteArray(t.data(), static_cast<qsizetype>(t.size())));
        }
        case ColSize: return sizeText(node.size);
        case ColPercent: return groupedFixed(tree_.percent(n), decimals_ ? 2 : 0) + QLatin1String(" %");
        case ColFiles: return groupedInteger(node.files);
        case ColFolders:
          return (node.flags & ReportTree::HasFolders) ? QVariant(groupedInteger(tree_.folders(n))) : QVariant();
      }
      break;
    case Qt::TextAlignmentRole:
      if (index.column() != ColName) return int(Qt::AlignRight | Qt::AlignVCenter);
      break;
    case Qt::DecorationRole:
      if (index.column() == ColName) {
        if (!(node.flags & ReportTree::IsFolder)) return filesIcon_;
        return (node.flags & ReportTree::Junction) ? junctionIcon_ : folderIcon_;
      }
      break;
    case Qt::BackgroundRole:
      if (node.flags & ReportTree::Faded) {
        // The grey darkens by 6 a level; past level 42 it would go below black and stays there.
        const int grey = std::clamp(255 - static_cast<int>(tree_.level(n, 43)) * 6, 0, 255);
        return QColor(grey, grey, grey);
      }
      break;
    case NodeRole: return QVariant::fromValue<quint32>(n);
  }
  return {};
}

QVariant ReportModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal) return {};
  if (role == Qt::TextAlignmentRole && section != ColName)
    return int(Qt::AlignRight | Qt::AlignVCenter);
  if (role != Qt::DisplayRole) return {};
  static const char* units[] = {"Bytes", "KB", "MB", "GB"};
  switch (section) {
    case ColName: return TL(3571, "Name");
    case ColSize:
      return TL(3519, "Größe (%1)", {TL(3515 + unit_, QString::fromLatin1(units[unit_]))});
    case ColPercent: return TL(3698, "Prozent");
    case ColFiles: return TL(3573, "Dateien");
    case ColFolders: return TL(3574, "Ordner");
    case ColChange:
      return TL(4604, "Änderung (%1)", {TL(3515 + unit_, QString::fromLatin1(units[unit_]))});
    case ColChangePercent:
      return TL(4605, "Änderung %");
    case ColChangeFiles:
      return TL(4606, "Änderung Dateien");
  }
  return {};
}

Qt::ItemFlags ReportModel::flags(const QModelIndex& index) const {
  if (nodeOf(index) == kNoNode) return Qt::NoItemFlags;  // a gone row: nothing to select or open
  Qt::ItemFlags f = QAbstractItemModel::flags(index);
  if (!index.isValid() || index.column() != ColName || !renamer_) return f;
  const uint32_t n = nodeOf(index);
  // Folders below a source can be renamed; a source and the files row cannot.
  if (!tree_.isRoot(n) && tree_.isFolder(n) && !tree_.hasFlag(n, ReportTree::Junction))
    f |= Qt::ItemIsEditable;
  return f;
}

bool ReportModel::setData(const QModelIndex& index, const QVariant& value, int role) {
  if (role != Qt::EditRole || !(flags(index) & Qt::ItemIsEditable)) return false;
  const QString name = value.toString();
  if (index.data().toString() == name) return false;  // the same name touches nothing
  return renamer_(nodeOf(index), name);
}

// The gone rows leave before the tree changes: they belong to the match of the tree as it was.
void ReportModel::beginInsert(uint32_t parent, int first, int last) {
  dropGoneRows();
  beginInsertRows(indexOf(parent), first, last);
}
void ReportModel::endInsert() {
  endInsertRows();
  Q_EMIT structureChanged();
}
void ReportModel::beginRemove(uint32_t parent, int first, int last) {
  dropGoneRows();
  beginRemoveRows(indexOf(parent), first, last);
}
void ReportModel::endRemove() {
  endRemoveRows();
  Q_EMIT structureChanged();
}
void ReportModel::beginReorder() { Q_EMIT layoutAboutToBeChanged(); }
void ReportModel::endReorder() {
  for (auto& [parent, group] : goneGroups_) placeGone(parent, group);
  // Indices keep their node or gone row; only the rows moved.
  const QModelIndexList before = persistentIndexList();
  QModelIndexList after;
  after.reserve(before.size());
  for (const auto& i : before) after.push_back(indexOfKey(keyOf(i), i.column()));
  changePersistentIndexList(before, after);
  Q_EMIT layoutChanged();
}
void ReportModel::beginReset() {
  beginResetModel();
  goneGroups_.clear();
  gone_.clear();
}
void ReportModel::endReset() {
  endResetModel();
  Q_EMIT structureChanged();
}
void ReportModel::valuesChanged(uint32_t parent, int firstRow, int lastRow) {
  if (lastRow < firstRow) return;
  const QModelIndex p = indexOf(parent);
  Q_EMIT dataChanged(index(shownRow(parent, static_cast<uint32_t>(firstRow)), 0, p),
                     index(shownRow(parent, static_cast<uint32_t>(lastRow)), AllColumns - 1, p));
}

}  // namespace ql
