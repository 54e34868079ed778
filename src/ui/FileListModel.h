#pragma once
// The model of a file list: plain rows, columns chosen by the list, sizes shown in the unit of
// the list. Icons are looked up only for rows the view asks to draw, so a list of a million
// files costs the icon theme nothing but the rows on screen.

#include <QAbstractTableModel>
#include <QHash>
#include <QIcon>
#include <functional>
#include <vector>

#include "lists/FileRow.h"
#include "lists/RowSort.h"

namespace ql {

class FileListModel : public QAbstractTableModel {
  Q_OBJECT
 public:
  explicit FileListModel(std::vector<RowKey> columns, QObject* parent = nullptr);

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;
  bool setData(const QModelIndex& index, const QVariant& value, int role) override;

  const std::vector<RowKey>& columns() const { return columns_; }
  int columnOf(RowKey key) const;

  // Replaces every row; `order` lists them as they are to be shown (empty: as they come).
  void setRows(std::vector<FileRow> rows, std::vector<uint32_t> order = {});
  void clear() { setRows({}); }
  // The row shown at place i.
  const FileRow& row(int i) const { return rows_[shown_[static_cast<size_t>(i)]]; }
  // Takes rows out; `rowsDescending` lists row numbers from the last to the first.
  void removeRows(const std::vector<int>& rowsDescending);
  // Gives a row a new name (bytes) after a rename on the disk.
  void renameRow(int i, std::string name);

  void sort(const RowOrder& order);
  const RowOrder& order() const { return order_; }
  void setOrder(const RowOrder& order) { order_ = order; }

  // Unit 0 Bytes, 1 KB, 2 MB, 3 GB; decimals shows two places (never for bytes).
  void setSizeFormat(int unit, bool decimals);
  int unit() const { return unit_; }
  bool decimals() const { return decimals_; }
  void setShowIcons(bool on);
  bool showIcons() const { return showIcons_; }
  // The text of the size column's title.
  QString sizeTitle() const;

  // Called for an edited name; true when the file was renamed (the row then takes the name).
  void setRenamer(std::function<bool(int row, const QString& name)> renamer) { renamer_ = std::move(renamer); }

  // The first row from `from` to `to` whose name holds `text` (any case), or -1.
  int findRow(const QString& text, int from, int to) const;

 private:
  QString sizeText(int64_t size) const;
  QIcon iconOf(const FileType* type) const;

  std::vector<RowKey> columns_;
  std::vector<FileRow> rows_;     // as read; rows taken out stay here until the next setRows
  std::vector<uint32_t> shown_;   // the rows in view, in their order
  RowOrder order_;
  int unit_ = 0;
  bool decimals_ = false;
  bool showIcons_ = true;
  mutable QHash<const FileType*, QIcon> icons_;
  std::function<bool(int, const QString&)> renamer_;
};

}  // namespace ql
