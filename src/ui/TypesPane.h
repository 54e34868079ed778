#pragma once
// The file-types pane beside the treemap: for the folder the treemap shows, one row an extension
// (lower case, "none" for names without one) with its files, bytes, share of the folder and the
// largest file of that kind; largest first, sorted anew by a click on a title. A click on a row
// picks that kind (the treemap marks it, the largest-files list shows only it); a second click
// on it, or on the free space below the rows, lets it go.
//
// Threads: the user-interface thread. The rows are counted, and the largest files named, on a
// worker from the tree the store handed out; a result asked for before the latest is dropped.

#include <QStandardItemModel>
#include <QTreeView>
#include <QWidget>
#include <memory>
#include <string>
#include <vector>

#include "failure/Guard.h"
#include "ui/TreemapStore.h"

namespace ql {

class ScanSession;

struct TypesRow {
  std::string extension;  // lower case, "" for none
  int64_t files = 0, bytes = 0;
  std::string largest;  // the largest file's path
  int64_t largestSize = 0;
};

// The rows of everything below `folder` of a tree whose folder 0 is `top` (a path with "/").
// The largest files are named from the disk; one that cannot be found keeps its folder's path.
std::vector<TypesRow> typesBelow(const TreemapTree& tree, uint32_t folder, const std::string& path,
                                 bool allocated);

class TypesPane : public QWidget {
  Q_OBJECT
 public:
  TypesPane(ScanSession& session, const Guard& guard, QWidget* parent = nullptr);
  ~TypesPane() override;

  void showFolder(const std::string& path);
  void refresh();
  QTreeView& view() { return *view_; }
  QStandardItemModel& model() { return *model_; }
  bool counting() const { return running_; }
  // The kind picked ("" for names without an extension), when one is.
  bool picked(std::string& extension) const {
    extension = picked_;
    return pickedOn_;
  }
  // Picks the kind of row `row` as a click does (a row of the kind picked lets it go).
  void pickRow(int row);

 Q_SIGNALS:
  void extensionPicked(const std::string& extension, bool picked);

 private:
  void start();
  void accept(uint64_t ticket, std::vector<TypesRow> rows, int64_t total);

  ScanSession& session_;
  const Guard& guard_;
  QTreeView* view_ = nullptr;
  QStandardItemModel* model_ = nullptr;
  std::string folder_;
  std::string picked_;
  bool pickedOn_ = false;
  uint64_t ticket_ = 0;
  bool running_ = false, again_ = false;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace ql
