#pragma once
// The report tree as a Qt item model, for QTreeView. The model shows the ReportTree and follows
// its changes. Columns: name, size (in the chosen unit), percent, files, folders; with a baseline
// to compare with, also the change of size (signed, in the same unit), in percent and of files.
// Save and print know the first five and read the tree, not the model.
//
// With a baseline, each folder of it that is gone is a row of the model below its folder (only
// the topmost gone folder of a branch), greyed and with its old size as the change. These rows
// are the model's own: the tree knows nothing of them, no node stands behind them (nodeOf() gives
// kNoNode), and they go before any row of the tree comes or goes, so they never outlive the rows
// they were matched against.
//
// Threads: the owner thread of the tree only.

#include <QAbstractItemModel>
#include <QIcon>
#include <functional>
#include <unordered_map>
#include <vector>

#include "report/ReportTree.h"

namespace ql {

class CompareBaseline;

class ReportModel : public QAbstractItemModel, private TreeObserver {
  Q_OBJECT
 public:
  enum Column { ColName, ColSize, ColPercent, ColFiles, ColFolders, ColumnCount };
  enum ChangeColumn { ColChange = ColumnCount, ColChangePercent, ColChangeFiles, AllColumns };
  static constexpr int NodeRole = Qt::UserRole + 1;
  // On a change column: 0 the row is not compared, 1 it was there, 2 it is new; 3 some folders
  // below it are gone (never on a new row); 4 the row is a folder that is gone.
  static constexpr int ChangeStateRole = Qt::UserRole + 2;
  enum ChangeState { NotCompared, Compared, New, LostFolders, GoneFolder };

  explicit ReportModel(ReportTree& tree, QObject* parent = nullptr);
  ~ReportModel() override;

  ReportTree& tree() { return tree_; }
  // The measurement the change columns compare with; none (nullptr) leaves them empty.
  void setBaseline(const CompareBaseline* baseline);
  // The baseline's values changed: every change cell is drawn again, the gone rows are new.
  void baselineChanged();
  // kSuperRoot for no index, kNoNode for a gone folder's row.
  uint32_t nodeOf(const QModelIndex& index) const;
  QModelIndex indexOf(uint32_t node, int column = 0) const;
  bool isGone(const QModelIndex& index) const { return goneRow(index) != nullptr; }
  // A row's key, stable while the row stands: its node, or for a gone row its number with
  // kGoneKey set. indexOfKey() brings the row's index back.
  static constexpr uint64_t kGoneKey = uint64_t{1} << 32;
  uint64_t rowKey(const QModelIndex& index) const;
  QModelIndex indexOfKey(uint64_t key, int column = 0) const;

  // What the tree is sorted by for a change column, in the order the column shows.
  std::function<int64_t(uint32_t node)> changeKey(int column) const;
  // The change column the tree is sorted by next (-1: another column): the gone rows then stand
  // among a folder's rows where their change puts them, else after them.
  void setChangeOrder(int column, bool descending);

  // Unit 0 Bytes, 1 KB, 2 MB, 3 GB; decimals 1 shows two places (never for bytes).
  void setSizeFormat(int unit, int decimals);
  int unit() const { return unit_; }
  int decimals() const { return decimals_; }

  QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
  QModelIndex parent(const QModelIndex& child) const override;
  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;
  bool setData(const QModelIndex& index, const QVariant& value, int role) override;

  // Renames a folder row on disk; true when done. Without it, folder names cannot be edited.
  // What a source's row shows in place of its path, where the function gives a text (an imported
  // source names its file and date); the path stays the node's text.
  void setRootCaption(std::function<QString(uint32_t root)> caption) { rootCaption_ = std::move(caption); }
  void setRenamer(std::function<bool(uint32_t node, const QString& name)> renamer) {
    renamer_ = std::move(renamer);
  }

 Q_SIGNALS:
  // Rows came or went (not a sort, not a value): what was matched by path may be out of date.
  void structureChanged();

 private:
  void beginInsert(uint32_t parent, int first, int last) override;
  void endInsert() override;
  void beginRemove(uint32_t parent, int first, int last) override;
  void endRemove() override;
  void beginReorder() override;
  void endReorder() override;
  void beginReset() override;
  void endReset() override;
  void valuesChanged(uint32_t parent, int firstRow, int lastRow) override;

  QString sizeText(int64_t size) const;
  QVariant changeData(uint32_t node, int column, int role) const;

  // A gone folder's row. Its id is its place in gone_; `slot` its place among its folder's gone
  // rows, as shown.
  struct GoneRow {
    uint32_t parent = 0, slot = 0;
    int64_t size = 0, files = 0;
    QString name;
  };
  // The gone rows below one folder, as shown: the one in slot s stands before the folder's row
  // `before[s]` of the tree (before[] never decreases). Only the first `shown` are in the model.
  struct GoneGroup {
    std::vector<uint32_t> rows;
    std::vector<uint32_t> before;
    uint32_t shown = 0;
  };
  const GoneRow* goneRow(const QModelIndex& index) const;
  QVariant goneData(const GoneRow& gone, int column, int role) const;
  int64_t goneKey(const GoneRow& gone, int column) const;
  const GoneGroup* groupOf(uint32_t parent) const;
  // The row shown for the tree's row `row` below `parent`, past the gone rows before it.
  int shownRow(uint32_t parent, uint32_t row) const;
  int goneShownRow(uint32_t id) const;
  void placeGone(uint32_t parent, GoneGroup& group);
  void showGoneRows();
  void dropGoneRows();

  ReportTree& tree_;
  int unit_ = 0;
  int decimals_ = 1;
  QIcon folderIcon_, junctionIcon_, filesIcon_;
  std::function<bool(uint32_t, const QString&)> renamer_;
  std::function<QString(uint32_t)> rootCaption_;
  const CompareBaseline* baseline_ = nullptr;
  QIcon newIcon_, goneIcon_;
  std::vector<GoneRow> gone_;
  std::unordered_map<uint32_t, GoneGroup> goneGroups_;  // by parent node
  int changeOrder_ = -1;
  bool changeDescending_ = true;
};

}  // namespace ql
