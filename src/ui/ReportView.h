#pragma once
// The report's tree view. The report model is a tree, but the view is given a flat list of the
// rows now in sight, kept beside it: the view's own way of keeping expanded rows costs more than
// a hundred bytes for each, and "expand all" on a million files opens a quarter of a million
// folders. Which folders are open is the tree's Expanded flag, the one place the saved report
// reads it from too. The view draws the indentation and the arrows itself, and takes the keys
// and clicks that open and close folders.
//
// Its functions take and give the report model's indexes; the view's own (of the flat list) stay
// inside, except where Qt hands them over (the selection model, indexAt(), visualRect()): toView()
// and toModel() translate.
//
// Threads: the user-interface thread only.

#include <QTreeView>
#include <cstdint>
#include <memory>

namespace ql {

class ReportModel;
class ReportRows;

class ReportView : public QTreeView {
  Q_OBJECT
 public:
  // Folders open on this many levels at most: each level indents a row further, and below a few
  // thousand a name stands far beyond any window's width. Deeper folders stay closed.
  static constexpr int kLevels = 4096;

  explicit ReportView(ReportModel& model, QWidget* parent = nullptr);
  ~ReportView() override;

  QModelIndex toView(const QModelIndex& modelIndex) const;
  QModelIndex toModel(const QModelIndex& viewIndex) const;

  // These hide the view's own of the same name: they speak of the report model's rows.
  bool isExpanded(const QModelIndex& index) const;
  void expand(const QModelIndex& index);
  void collapse(const QModelIndex& index);
  // Every folder above kLevels open.
  void expandAll();
  void collapseAll();
  // Every folder down to `depth` (0: the sources) open, every other closed.
  void expandToDepth(int depth);
  // `index` and its folders `depth` levels below it open (-1: all); never below kLevels.
  void expandRecursively(const QModelIndex& index, int depth = -1);
  // `index` and every folder below it closed.
  void collapseRecursively(const QModelIndex& index);
  QModelIndex currentIndex() const;
  // These two open the folders that hold the row first.
  void setCurrentIndex(const QModelIndex& index);
  void scrollToRow(const QModelIndex& index);
  void edit(const QModelIndex& index);
  QModelIndexList selectedRows() const;

 Q_SIGNALS:
  // A folder was opened or closed by the user or by one of the functions above.
  void folderExpanded(const QModelIndex& index);
  void folderCollapsed(const QModelIndex& index);

 protected:
  void keyPressEvent(QKeyEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;

 private:
  bool onArrow(const QModelIndex& viewIndex, int x) const;
  void reveal(const QModelIndex& index);
  void setOpen(int row, bool open);

  std::unique_ptr<ReportRows> rows_;
};

}  // namespace ql
