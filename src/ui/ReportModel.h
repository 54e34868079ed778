#pragma once
// The report tree as a Qt item model, for QTreeView. The model holds no data of its own: it
// shows the ReportTree and follows its changes. Columns: name, size (in the chosen unit),
// percent, files, folders; with a baseline to compare with, also the change of size (signed, in
// the same unit), in percent and of files. Save and print know the first five.
//
// Threads: the owner thread of the tree only.

#include <QAbstractItemModel>
#include <QIcon>
#include <functional>

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
  // below it are gone (never on a new row).
  static constexpr int ChangeStateRole = Qt::UserRole + 2;
  enum ChangeState { NotCompared, Compared, New, LostFolders };

  explicit ReportModel(ReportTree& tree, QObject* parent = nullptr);
  ~ReportModel() override;

  ReportTree& tree() { return tree_; }
  // The measurement the change columns compare with; none (nullptr) leaves them empty.
  void setBaseline(const CompareBaseline* baseline);
  // The baseline's values changed: every change cell is drawn again.
  void baselineChanged();
  uint32_t nodeOf(const QModelIndex& index) const;
  QModelIndex indexOf(uint32_t node, int column = 0) const;

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

  ReportTree& tree_;
  int unit_ = 0;
  int decimals_ = 1;
  QIcon folderIcon_, junctionIcon_, filesIcon_;
  std::function<bool(uint32_t, const QString&)> renamer_;
  std::function<QString(uint32_t)> rootCaption_;
  const CompareBaseline* baseline_ = nullptr;
  QIcon newIcon_, goneIcon_;
};

}  // namespace ql
