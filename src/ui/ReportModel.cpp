#include "ui/ReportModel.h"

#include <QApplication>
#include <QColor>
#include <QFile>
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
// one dense range of the hash, and the view's hash of expanded rows then probes longer and
// longer (expanding 300,000 folders took seconds). An odd multiplier spreads them, and its
// inverse brings the node back.
constexpr uint64_t kSpread = 0x9E3779B97F4A7C15ull;
constexpr uint64_t inverseOf(uint64_t a) {
  uint64_t x = a;  // Newton's iteration for the inverse modulo 2^64
  for (int i = 0; i < 6; ++i) x *= 2 - a * x;
  return x;
}
constexpr uint64_t kGather = inverseOf(kSpread);
static_assert(kSpread * kGather == 1);
quintptr idOf(uint32_t node) { return static_cast<quintptr>(node * kSpread); }
}  // namespace

uint32_t ReportModel::nodeOf(const QModelIndex& index) const {
  return index.isValid() ? static_cast<uint32_t>(static_cast<uint64_t>(index.internalId()) * kGather) : kSuperRoot;
}

QModelIndex ReportModel::indexOf(uint32_t node, int column) const {
  if (node == kSuperRoot || node == kNoNode) return {};
  return createIndex(static_cast<int>(tree_.node(node).row), column, idOf(node));
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
  const auto& kids = tree_.children(nodeOf(parent));
  if (static_cast<size_t>(row) >= kids.size()) return {};
  return createIndex(row, column, idOf(kids[static_cast<size_t>(row)]));
}

QModelIndex ReportModel::parent(const QModelIndex& child) const {
  if (!child.isValid()) return {};
  return indexOf(tree_.parent(nodeOf(child)));
}

int ReportModel::rowCount(const QModelIndex& parent) const {
  if (parent.column() > 0) return 0;
  return static_cast<int>(tree_.children(nodeOf(parent)).size());
}

int ReportModel::columnCount(const QModelIndex&) const {
  return AllColumns;
}

void ReportModel::setBaseline(const CompareBaseline* baseline) {
  baseline_ = baseline;
  baselineChanged();
}

void ReportModel::baselineChanged() {
  // Only the presentation changes, as with a new unit.
  Q_EMIT layoutAboutToBeChanged();
  Q_EMIT layoutChanged();
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
  const uint32_t n = nodeOf(index);
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

void ReportModel::beginInsert(uint32_t parent, int first, int last) {
  beginInsertRows(indexOf(parent), first, last);
}
void ReportModel::endInsert() {
  endInsertRows();
  Q_EMIT structureChanged();
}
void ReportModel::beginRemove(uint32_t parent, int first, int last) {
  beginRemoveRows(indexOf(parent), first, last);
}
void ReportModel::endRemove() {
  endRemoveRows();
  Q_EMIT structureChanged();
}
void ReportModel::beginReorder() { Q_EMIT layoutAboutToBeChanged(); }
void ReportModel::endReorder() {
  // Indices keep their node; only the rows moved.
  const QModelIndexList before = persistentIndexList();
  QModelIndexList after;
  after.reserve(before.size());
  for (const auto& i : before) after.push_back(indexOf(nodeOf(i), i.column()));
  changePersistentIndexList(before, after);
  Q_EMIT layoutChanged();
}
void ReportModel::beginReset() { beginResetModel(); }
void ReportModel::endReset() {
  endResetModel();
  Q_EMIT structureChanged();
}
void ReportModel::valuesChanged(uint32_t parent, int firstRow, int lastRow) {
  const QModelIndex p = indexOf(parent);
  Q_EMIT dataChanged(index(firstRow, 0, p), index(lastRow, AllColumns - 1, p));
}

}  // namespace ql
