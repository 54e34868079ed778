#pragma once
// The treemap pane below the report: the folder selected in the report as a treemap, files
// coloured by kind with a legend, folders nested in thin frames. Double-click zooms into a
// folder, Backspace or the bar's button goes one level up, and the breadcrumb names where the
// view stands (each part leads there). Pointing names what lies there in the status bar; a click
// asks the window to select the file, a right click to offer the file list's menu for it.
// While the report is compared with a baseline, a switch on the bar colours each file by the
// growth of its folder's own files since then instead of by its kind, and the legend follows.
//
// Threads: the pane belongs to the user-interface thread. Layout and painting run on a worker
// (one at a time): the pane shows the last finished picture, asks again on a resize, a zoom or
// a change of the data, and drops a picture that was asked for before the latest request. The
// worker holds its tree through a shared pointer, so an edit of the store never reaches it.

#include <QImage>
#include <QLabel>
#include <QPointer>
#include <QToolButton>
#include <QWidget>
#include <memory>
#include <string>
#include <vector>

#include "failure/Guard.h"
#include "treemap/TreemapLayout.h"

namespace ql {

class CompareBaseline;
class ScanSession;

class TreemapPane : public QWidget {
  Q_OBJECT
 public:
  TreemapPane(ScanSession& session, const Guard& guard, QWidget* parent = nullptr);
  ~TreemapPane() override;

  // Shows a folder of the report; the zoom starts there.
  void showFolder(const std::string& path);
  // The data changed: the folder shown is drawn again (and left when it is gone).
  void refresh();
  // Zooms into a folder below the one shown, or one level up (not above the source).
  void zoomInto(const std::string& path);
  void goUp();
  // Files of this extension ("" for names without one) stand out; `on` false: none does.
  void setHighlight(const std::string& extension, bool on);
  bool highlighting() const { return highlightOn_; }
  // The report's baseline, nullptr for none: the growth switch is offered while there is one.
  void setBaseline(const CompareBaseline* baseline);
  QToolButton& growthSwitch() { return *growth_; }
  // The last finished picture has its files in the colours of growth.
  bool showsGrowth() const { return frame_ && frame_->growth; }

  const std::string& folder() const { return view_; }
  bool drawing() const { return running_; }
  // The last finished picture and what lies where on it.
  const QImage& picture() const { return frame_ ? frame_->image : empty_; }
  const TreemapLayout* layout() const { return frame_ ? &frame_->layout : nullptr; }
  QLabel& breadcrumb() { return *crumbs_; }
  QWidget& canvas() { return *canvas_; }

  // What lies at a point of the canvas.
  struct Hit {
    bool file = false;
    std::string folder;  // with "/"
    uint32_t rank = 0;   // the file's place in its folder, largest first
    int64_t size = 0;
  };
  bool hitAt(QPoint at, Hit& hit) const;
  // The name of a file by its folder and rank, when known; reads the folder on a worker
  // otherwise and calls back with the name (empty when it is gone).
  void nameOf(const Hit& hit, std::function<void(const std::string&)> then);

 Q_SIGNALS:
  void statusText(const QString& text);
  // A file was clicked (right click: `menu` at `global`).
  void fileClicked(const std::string& folder, const std::string& name, bool menu, QPoint global);

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  struct Frame {
    uint64_t ticket = 0;
    QImage image;
    TreemapLayout layout;
    std::shared_ptr<const TreemapTree> tree;
    uint32_t root = 0;  // the folder shown
    std::string top;    // its path
    bool growth = false;
  };
  struct Names {
    std::string folder;
    std::vector<std::string> byRank;  // names in the order of the tree's files
  };
  void request();
  void start();
  void accept(std::shared_ptr<Frame> frame);
  void paintCanvas();
  void pointAt(QPoint at);
  void clickAt(QPoint at, bool menu, QPoint global);
  void updateCrumbs();
  std::string pathOf(const Frame& f, uint32_t folder) const;
  // What the status adds for a folder: still being read, and its rows that have no area.
  QString unshownText(const std::string& folder) const;
  QPoint toLayout(QPoint at) const;

  ScanSession& session_;
  const Guard& guard_;
  QToolButton* up_ = nullptr;
  QToolButton* growth_ = nullptr;
  QWidget* kindsLegend_ = nullptr;
  QWidget* growthLegend_ = nullptr;
  QPointer<const CompareBaseline> baseline_;  // the report pane's, which may go first
  QLabel* crumbs_ = nullptr;
  QWidget* canvas_ = nullptr;
  std::string view_;       // the folder shown, with "/"
  std::string sourceTop_;  // the top of its tree: not left upwards
  std::string highlight_;
  bool highlightOn_ = false;
  QString notice_;  // instead of a picture
  std::shared_ptr<Frame> frame_;
  QImage empty_;
  uint64_t ticket_ = 0;
  bool running_ = false, again_ = false;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);  // the workers' way back
  std::shared_ptr<Names> names_;
  bool allocated_ = false;
};

// The names of a folder's files (every entry that is not a folder) in the order the treemap
// keeps them: largest first, equal sizes in the order they are listed.
std::vector<std::string> filesBySize(const std::string& folder, bool allocated);

}  // namespace ql
