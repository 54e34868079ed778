#include "ui/ReportView.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QStyledItemDelegate>
#include <algorithm>
#include <unordered_map>
#include <vector>

#include "ui/ReportModel.h"

namespace ql {

// The rows in sight, in the order shown: each a row key of the report model and its level. The
// report model's changes arrive as it sends them and are applied where they fall; a reorder
// lays the list out anew.
class ReportRows : public QAbstractItemModel {
 public:
  explicit ReportRows(ReportModel& model);

  int size() const { return static_cast<int>(keys_.size()); }
  int level(int row) const { return levels_[static_cast<size_t>(row)]; }
  bool hasChildren(int row) const { return model_.rowCount(modelIndex(row, 0)) > 0; }
  bool isOpen(int row) const { return isOpenKey(keys_[static_cast<size_t>(row)]); }
  QModelIndex modelIndex(int row, int column) const {
    if (row < 0 || row >= size()) return {};
    return model_.indexOfKey(keys_[static_cast<size_t>(row)], column);
  }
  int rowOfModel(const QModelIndex& index) const {
    return index.isValid() ? rowOf(model_.rowKey(index)) : -1;
  }
  int subtreeEnd(int row) const {
    int end = row + 1;
    while (end < size() && levels_[static_cast<size_t>(end)] > levels_[static_cast<size_t>(row)])
      ++end;
    return end;
  }

  // One folder opened or closed in place; false when there was nothing to do.
  bool open(int row);
  bool close(int row);
  // The Expanded flags are set by `change`, then the rows are laid out anew.
  template <class F>
  void relayout(F&& change) {
    Q_EMIT layoutAboutToBeChanged();
    remember();
    change();
    rebuild();
    restore();
    Q_EMIT layoutChanged();
  }
  ReportTree& tree() { return model_.tree(); }
  ReportModel& model() { return model_; }

  QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override {
    if (parent.isValid() || row < 0 || row >= size() || column < 0 || column >= columnCount())
      return {};
    return createIndex(row, column);
  }
  QModelIndex parent(const QModelIndex&) const override { return {}; }
  int rowCount(const QModelIndex& parent = {}) const override {
    return parent.isValid() ? 0 : size();
  }
  int columnCount(const QModelIndex& parent = {}) const override {
    return parent.isValid() ? 0 : model_.columnCount();
  }
  QVariant data(const QModelIndex& index, int role) const override {
    return model_.data(modelIndex(index.row(), index.column()), role);
  }
  bool setData(const QModelIndex& index, const QVariant& value, int role) override {
    return model_.setData(modelIndex(index.row(), index.column()), value, role);
  }
  Qt::ItemFlags flags(const QModelIndex& index) const override {
    if (!index.isValid()) return model_.flags({});
    return model_.flags(modelIndex(index.row(), index.column())) | Qt::ItemNeverHasChildren;
  }
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override {
    return model_.headerData(section, orientation, role);
  }

 private:
  bool isOpenKey(uint64_t key) const {
    return !(key & ReportModel::kGoneKey) &&
           model_.tree().hasFlag(static_cast<uint32_t>(key), ReportTree::Expanded);
  }
  int rowOf(uint64_t key) const;
  void setRowOf(uint64_t key, int row);
  void renumber(int from);
  // The rows below `parent` in sight, each with its level, appended.
  void collect(const QModelIndex& parent, int level, std::vector<uint64_t>& keys,
               std::vector<uint16_t>& levels) const;
  void rebuild();
  void insertAt(int at, std::vector<uint64_t>&& keys, std::vector<uint16_t>&& levels);
  void eraseRange(int from, int to);
  void remember();
  void restore();
  void onInserted(const QModelIndex& parent, int first, int last);
  void onRemoving(const QModelIndex& parent, int first, int last);
  void onRemoved(const QModelIndex& parent);
  void arrowChanged(const QModelIndex& parent);

  ReportModel& model_;
  std::vector<uint64_t> keys_;
  std::vector<uint16_t> levels_;
  std::vector<int32_t> nodeRows_;                   // by node, -1 where not in sight
  std::unordered_map<uint64_t, int32_t> goneRows_;  // the gone rows' keys in sight
  std::pair<int, int> removing_{-1, -1};
  bool resetting_ = false;
  QModelIndexList remembered_;
  std::vector<std::pair<uint64_t, int>> rememberedKeys_;
};

ReportRows::ReportRows(ReportModel& model) : model_(model) {
  rebuild();
  connect(&model, &QAbstractItemModel::dataChanged, this,
          [this](const QModelIndex& tl, const QModelIndex& br, const QList<int>& roles) {
            const int a = rowOfModel(tl), b = rowOfModel(br);
            if (a < 0 || b < 0) return;  // below a closed folder
            Q_EMIT dataChanged(index(std::min(a, b), tl.column()),
                               index(std::max(a, b), br.column()), roles);
          });
  connect(&model, &QAbstractItemModel::headerDataChanged, this,
          &QAbstractItemModel::headerDataChanged);
  connect(&model, &QAbstractItemModel::layoutAboutToBeChanged, this, [this] {
    Q_EMIT layoutAboutToBeChanged();
    remember();
  });
  connect(&model, &QAbstractItemModel::layoutChanged, this, [this] {
    rebuild();
    restore();
    Q_EMIT layoutChanged();
  });
  connect(&model, &QAbstractItemModel::modelAboutToBeReset, this, [this] { beginResetModel(); });
  connect(&model, &QAbstractItemModel::modelReset, this, [this] {
    rebuild();
    endResetModel();
  });
  connect(&model, &QAbstractItemModel::rowsInserted, this, &ReportRows::onInserted);
  connect(&model, &QAbstractItemModel::rowsAboutToBeRemoved, this, &ReportRows::onRemoving);
  connect(&model, &QAbstractItemModel::rowsRemoved, this, &ReportRows::onRemoved);
}

int ReportRows::rowOf(uint64_t key) const {
  if (key & ReportModel::kGoneKey) {
    const auto it = goneRows_.find(key);
    return it == goneRows_.end() ? -1 : it->second;
  }
  return key < nodeRows_.size() ? nodeRows_[key] : -1;
}

void ReportRows::setRowOf(uint64_t key, int row) {
  if (key & ReportModel::kGoneKey) {
    if (row < 0)
      goneRows_.erase(key);
    else
      goneRows_[key] = row;
    return;
  }
  if (key >= nodeRows_.size()) {
    if (row < 0) return;
    nodeRows_.resize(std::max<size_t>(key + 1, model_.tree().capacity()), -1);
  }
  nodeRows_[key] = row;
}

void ReportRows::renumber(int from) {
  for (int r = from; r < size(); ++r) setRowOf(keys_[static_cast<size_t>(r)], r);
}

void ReportRows::collect(const QModelIndex& parent, int level, std::vector<uint64_t>& keys,
                         std::vector<uint16_t>& levels) const {
  struct Step {
    QModelIndex parent;
    int next, count, level;
  };
  std::vector<Step> stack{{parent, 0, model_.rowCount(parent), level}};
  while (!stack.empty()) {
    Step& s = stack.back();
    if (s.next == s.count) {
      stack.pop_back();
      continue;
    }
    const QModelIndex i = model_.index(s.next++, 0, s.parent);
    const uint64_t key = model_.rowKey(i);
    keys.push_back(key);
    levels.push_back(static_cast<uint16_t>(std::min(s.level, 65535)));
    if (isOpenKey(key)) {
      const int count = model_.rowCount(i);
      if (count > 0) stack.push_back({i, 0, count, s.level + 1});  // `s` is not used after this
    }
  }
}

void ReportRows::rebuild() {
  if (nodeRows_.size() > model_.tree().capacity()) {  // a tree cleared: its room goes too
    nodeRows_.clear();
    nodeRows_.shrink_to_fit();
    goneRows_.clear();
  }
  for (uint64_t key : keys_) setRowOf(key, -1);
  keys_.clear();
  levels_.clear();
  collect({}, 0, keys_, levels_);
  keys_.shrink_to_fit();
  levels_.shrink_to_fit();
  renumber(0);
}

void ReportRows::insertAt(int at, std::vector<uint64_t>&& keys, std::vector<uint16_t>&& levels) {
  if (keys.empty()) return;
  beginInsertRows({}, at, at + static_cast<int>(keys.size()) - 1);
  keys_.insert(keys_.begin() + at, keys.begin(), keys.end());
  levels_.insert(levels_.begin() + at, levels.begin(), levels.end());
  renumber(at);
  endInsertRows();
}

void ReportRows::eraseRange(int from, int to) {
  for (int r = from; r < to; ++r) setRowOf(keys_[static_cast<size_t>(r)], -1);
  keys_.erase(keys_.begin() + from, keys_.begin() + to);
  levels_.erase(levels_.begin() + from, levels_.begin() + to);
  renumber(from);
}

bool ReportRows::open(int row) {
  if (row < 0 || row >= size() || isOpen(row)) return false;
  const uint64_t key = keys_[static_cast<size_t>(row)];
  if (key & ReportModel::kGoneKey) return false;
  model_.tree().setFlag(static_cast<uint32_t>(key), ReportTree::Expanded, true);
  std::vector<uint64_t> keys;
  std::vector<uint16_t> levels;
  collect(modelIndex(row, 0), level(row) + 1, keys, levels);
  insertAt(row + 1, std::move(keys), std::move(levels));
  Q_EMIT dataChanged(index(row, 0), index(row, 0));
  return true;
}

bool ReportRows::close(int row) {
  if (row < 0 || row >= size() || !isOpen(row)) return false;
  model_.tree().setFlag(static_cast<uint32_t>(keys_[static_cast<size_t>(row)]),
                        ReportTree::Expanded, false);
  if (const int end = subtreeEnd(row); end > row + 1) {
    beginRemoveRows({}, row + 1, end - 1);
    eraseRange(row + 1, end);
    endRemoveRows();
  }
  Q_EMIT dataChanged(index(row, 0), index(row, 0));
  return true;
}

// Across a new layout the view's own indexes (the current row, the selection) follow their rows.
void ReportRows::remember() {
  remembered_ = persistentIndexList();
  rememberedKeys_.clear();
  for (const QModelIndex& i : remembered_)
    rememberedKeys_.emplace_back(i.row() < size() ? keys_[static_cast<size_t>(i.row())] : kNoNode,
                                 i.column());
}

void ReportRows::restore() {
  QModelIndexList now;
  for (const auto& [key, column] : rememberedKeys_) {
    const int row = rowOf(key);
    now.push_back(row < 0 ? QModelIndex() : index(row, column));
  }
  changePersistentIndexList(remembered_, now);
  remembered_.clear();
  rememberedKeys_.clear();
}

// A folder that gains its first row or loses its last gains or loses its arrow.
void ReportRows::arrowChanged(const QModelIndex& parent) {
  if (const int row = rowOfModel(parent); row >= 0)
    Q_EMIT dataChanged(index(row, 0), index(row, 0));
}

void ReportRows::onInserted(const QModelIndex& parent, int first, int last) {
  const int parentRow = rowOfModel(parent);
  if (parent.isValid() && (parentRow < 0 || !isOpen(parentRow))) {
    arrowChanged(parent);
    return;
  }
  int at = parent.isValid() ? subtreeEnd(parentRow) : size();
  if (last + 1 < model_.rowCount(parent)) {
    at = rowOfModel(model_.index(last + 1, 0, parent));
    if (at < 0) {  // never: the row after the new ones stands in sight
      relayout([] {});
      return;
    }
  }
  const int level = parent.isValid() ? this->level(parentRow) + 1 : 0;
  std::vector<uint64_t> keys;
  std::vector<uint16_t> levels;
  for (int r = first; r <= last; ++r) {
    const QModelIndex i = model_.index(r, 0, parent);
    keys.push_back(model_.rowKey(i));
    levels.push_back(static_cast<uint16_t>(std::min(level, 65535)));
    if (isOpenKey(keys.back())) collect(i, level + 1, keys, levels);
  }
  insertAt(at, std::move(keys), std::move(levels));
  if (parent.isValid() && first == 0 && last + 1 == model_.rowCount(parent)) arrowChanged(parent);
}

void ReportRows::onRemoving(const QModelIndex& parent, int first, int last) {
  removing_ = {-1, -1};
  const int parentRow = rowOfModel(parent);
  if (parent.isValid() && (parentRow < 0 || !isOpen(parentRow))) return;
  const int from = rowOfModel(model_.index(first, 0, parent));
  const int lastRow = rowOfModel(model_.index(last, 0, parent));
  if (from < 0 || lastRow < 0) {  // never: the rows of an open folder stand in sight
    beginResetModel();
    resetting_ = true;
    return;
  }
  removing_ = {from, subtreeEnd(lastRow)};
  beginRemoveRows({}, removing_.first, removing_.second - 1);
}

void ReportRows::onRemoved(const QModelIndex& parent) {
  if (resetting_) {
    resetting_ = false;
    rebuild();
    endResetModel();
    return;
  }
  if (removing_.first >= 0) {
    eraseRange(removing_.first, removing_.second);
    removing_ = {-1, -1};
    endRemoveRows();
  }
  if (parent.isValid() && model_.rowCount(parent) == 0) arrowChanged(parent);
}

namespace {

// Column 0: the indentation of the row's level and the folder's arrow, then the cell as usual.
class NameDelegate : public QStyledItemDelegate {
 public:
  NameDelegate(ReportView& view, ReportRows& rows)
      : QStyledItemDelegate(&view), view_(view), rows_(rows) {}

  void paint(QPainter* painter, const QStyleOptionViewItem& option,
             const QModelIndex& index) const override {
    const int row = index.row();
    const int indent = view_.indentation();
    const int level = rows_.level(row);
    QStyle* style = view_.style();
    QStyleOptionViewItem whole = option;
    initStyleOption(&whole, index);
    style->drawPrimitive(QStyle::PE_PanelItemViewItem, &whole, painter, &view_);
    if (rows_.hasChildren(row)) {
      QStyleOption arrow;
      arrow.initFrom(&view_);
      arrow.rect = QRect(option.rect.left() + level * indent, option.rect.top(), indent,
                         option.rect.height());
      arrow.state = QStyle::State_Item | QStyle::State_Children |
                    (rows_.isOpen(row) ? QStyle::State_Open : QStyle::State_None) |
                    (option.state & (QStyle::State_Selected | QStyle::State_Enabled));
      style->drawPrimitive(QStyle::PE_IndicatorBranch, &arrow, painter, &view_);
    }
    QStyleOptionViewItem cell = option;
    cell.rect.setLeft(option.rect.left() + (level + 1) * indent);
    QStyledItemDelegate::paint(painter, cell, index);
  }

  QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override {
    QSize s = QStyledItemDelegate::sizeHint(option, index);
    s.rwidth() += (rows_.level(index.row()) + 1) * view_.indentation();
    return s;
  }

  void updateEditorGeometry(QWidget* editor, const QStyleOptionViewItem& option,
                            const QModelIndex& index) const override {
    QStyleOptionViewItem cell = option;
    cell.rect.setLeft(option.rect.left() + (rows_.level(index.row()) + 1) * view_.indentation());
    QStyledItemDelegate::updateEditorGeometry(editor, cell, index);
  }

 private:
  ReportView& view_;
  ReportRows& rows_;
};

}  // namespace

ReportView::ReportView(ReportModel& model, QWidget* parent)
    : QTreeView(parent), rows_(std::make_unique<ReportRows>(model)) {
  setRootIsDecorated(false);
  setItemsExpandable(false);
  setExpandsOnDoubleClick(false);
  setModel(rows_.get());
  setItemDelegateForColumn(0, new NameDelegate(*this, *rows_));
}

ReportView::~ReportView() {
  setModel(nullptr);
}

QModelIndex ReportView::toView(const QModelIndex& modelIndex) const {
  const int row = rows_->rowOfModel(modelIndex);
  return row < 0 ? QModelIndex() : rows_->index(row, modelIndex.column());
}

QModelIndex ReportView::toModel(const QModelIndex& viewIndex) const {
  return viewIndex.isValid() ? rows_->modelIndex(viewIndex.row(), viewIndex.column())
                             : QModelIndex();
}

bool ReportView::isExpanded(const QModelIndex& index) const {
  const int row = rows_->rowOfModel(index);
  return row >= 0 && rows_->isOpen(row);
}

void ReportView::setOpen(int row, bool open) {
  const QModelIndex index = rows_->modelIndex(row, 0);
  if (open ? rows_->open(row) : rows_->close(row)) {
    if (open)
      Q_EMIT folderExpanded(index);
    else
      Q_EMIT folderCollapsed(index);
  }
}

void ReportView::expand(const QModelIndex& index) {
  if (const int row = rows_->rowOfModel(index); row >= 0) setOpen(row, true);
}

void ReportView::collapse(const QModelIndex& index) {
  if (const int row = rows_->rowOfModel(index); row >= 0) setOpen(row, false);
}

namespace {
// Sets the Expanded flag of `top` and the folders below it: `open(level)` says, by the level
// below `top`, whether a folder with rows below it is open.
template <class F>
void setOpenBelow(ReportTree& tree, uint32_t top, F&& open) {
  int level = top == kSuperRoot ? -1 : 0;
  tree.forEachPreorder(
      top,
      [&](uint32_t n) {
        if (n != kSuperRoot)
          tree.setFlag(n, ReportTree::Expanded, !tree.children(n).empty() && open(level));
        ++level;
        return true;
      },
      [&](uint32_t) { --level; });
}
}  // namespace

void ReportView::expandAll() {
  rows_->relayout(
      [this] { setOpenBelow(rows_->tree(), kSuperRoot, [](int l) { return l < kLevels; }); });
}

void ReportView::collapseAll() {
  rows_->relayout([this] { setOpenBelow(rows_->tree(), kSuperRoot, [](int) { return false; }); });
}

void ReportView::expandToDepth(int depth) {
  rows_->relayout(
      [&] { setOpenBelow(rows_->tree(), kSuperRoot, [depth](int l) { return l <= depth; }); });
}

void ReportView::expandRecursively(const QModelIndex& index, int depth) {
  const uint32_t node = rows_->model().nodeOf(index);
  if (node == kNoNode || node == kSuperRoot) return;
  const int top = static_cast<int>(rows_->tree().level(node));
  rows_->relayout([&] {
    setOpenBelow(rows_->tree(), node,
                 [depth, top](int l) { return (depth < 0 || l <= depth) && top + l < kLevels; });
  });
}

void ReportView::collapseRecursively(const QModelIndex& index) {
  const uint32_t node = rows_->model().nodeOf(index);
  if (node == kNoNode || node == kSuperRoot) return;
  rows_->relayout([&] { setOpenBelow(rows_->tree(), node, [](int) { return false; }); });
}

QModelIndex ReportView::currentIndex() const {
  return toModel(QTreeView::currentIndex());
}

// A row inside closed folders is brought into sight by opening them, from the top down.
void ReportView::reveal(const QModelIndex& index) {
  if (!index.isValid() || rows_->rowOfModel(index) >= 0) return;
  std::vector<QModelIndex> closed;
  for (QModelIndex p = index.parent(); p.isValid(); p = p.parent())
    if (!isExpanded(p)) closed.push_back(p);
  for (auto p = closed.rbegin(); p != closed.rend(); ++p) expand(*p);
}

void ReportView::setCurrentIndex(const QModelIndex& index) {
  reveal(index);
  QTreeView::setCurrentIndex(toView(index));
}

void ReportView::scrollToRow(const QModelIndex& index) {
  reveal(index);
  scrollTo(toView(index));
}

void ReportView::edit(const QModelIndex& index) {
  QTreeView::edit(toView(index));
}

QModelIndexList ReportView::selectedRows() const {
  QModelIndexList rows;
  for (const QModelIndex& i : selectionModel()->selectedRows(0)) rows.push_back(toModel(i));
  return rows;
}

bool ReportView::onArrow(const QModelIndex& viewIndex, int x) const {
  if (!viewIndex.isValid() || viewIndex.column() != 0 || !rows_->hasChildren(viewIndex.row()))
    return false;
  const int left = visualRect(viewIndex).left() + rows_->level(viewIndex.row()) * indentation();
  return x >= left && x < left + indentation();
}

void ReportView::keyPressEvent(QKeyEvent* event) {
  const QModelIndex current = QTreeView::currentIndex();
  const int row = current.row();
  if (current.isValid() && (event->modifiers() & ~Qt::KeypadModifier) == Qt::NoModifier) {
    const bool folder = rows_->hasChildren(row);
    switch (event->key()) {
      case Qt::Key_Plus:
        setOpen(row, true);
        return;
      case Qt::Key_Minus:
        setOpen(row, false);
        return;
      case Qt::Key_Asterisk:
        expandRecursively(toModel(current), -1);
        return;
      case Qt::Key_Right:
        if (folder && !rows_->isOpen(row)) {
          setOpen(row, true);
          return;
        }
        if (folder && row + 1 < rows_->size()) {  // to the first row inside
          QTreeView::setCurrentIndex(rows_->index(row + 1, current.column()));
          return;
        }
        break;
      case Qt::Key_Left: {
        if (folder && rows_->isOpen(row)) {
          setOpen(row, false);
          return;
        }
        int up = row - 1;  // to the folder that holds the row
        while (up >= 0 && rows_->level(up) >= rows_->level(row)) --up;
        if (up >= 0) QTreeView::setCurrentIndex(rows_->index(up, current.column()));
        return;
      }
      default:
        break;
    }
  }
  QTreeView::keyPressEvent(event);
}

void ReportView::mousePressEvent(QMouseEvent* event) {
  const QModelIndex at = indexAt(event->position().toPoint());
  if (event->button() == Qt::LeftButton && onArrow(at, event->position().toPoint().x())) {
    setOpen(at.row(), !rows_->isOpen(at.row()));
    return;
  }
  QTreeView::mousePressEvent(event);
}

void ReportView::mouseDoubleClickEvent(QMouseEvent* event) {
  const QModelIndex at = indexAt(event->position().toPoint());
  if (event->button() == Qt::LeftButton && at.isValid() && rows_->hasChildren(at.row()) &&
      !onArrow(at, event->position().toPoint().x())) {
    setOpen(at.row(), !rows_->isOpen(at.row()));
    return;
  }
  QTreeView::mouseDoubleClickEvent(event);
}

}  // namespace ql
