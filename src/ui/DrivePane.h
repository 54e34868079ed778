#pragma once
// The drive pane: its title, its command bar and the drive table with percent bars, the popup
// menu and the network locations the user adds. A scan of a drive is asked of the frame through
// scanRequested; the pane itself never reads a folder tree.
//
// Threads: the user-interface thread only; sizes come from the model's reader.

#include <QStyledItemDelegate>
#include <QTreeView>
#include <QWidget>
#include <functional>
#include <string>
#include <vector>

#include "app/Settings.h"
#include "ui/DriveModel.h"
#include "ui/PaneBar.h"
#include "failure/Guard.h"

class QMenu;

namespace ql {

namespace cmd::drives {
enum : int {
  Refresh = 200,
  Bytes = 201,  // 201 to 204: bytes, KB, MB, GB
  Kilobytes = 202,
  Megabytes = 203,
  Gigabytes = 204,
  Decimals = 205,
  ScanSelected = 206,
  ScanAll = 207,
  AddLocation = 208,
  PopupScan = 2000,
};
}  // namespace cmd::drives

// Draws a percent cell as a bar with its number on it.
class PercentBarDelegate : public QStyledItemDelegate {
 public:
  using QStyledItemDelegate::QStyledItemDelegate;
  void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
  QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

class DrivePane : public QWidget {
  Q_OBJECT
 public:
  // `stat` replaces statvfs (tests); empty: the system's.
  DrivePane(const Guard& guard, const MainOptions& options, StatvfsFn stat = {}, QWidget* parent = nullptr);
  ~DrivePane() override;

  // The commands of the bar, by number, as a click would run them.
  void cbrDrives_Execute(int id);

  // Rebuilds the table from the mount table, then adds the saved locations.
  void reloadDrives();
  // Asks for the scan of the selected row, or of every row in order.
  void scanDrives(bool onlySelected);
  // Adds a location; with an empty path the user is asked for a folder.
  void addLocation(std::string path);
  // Selects the row of the mount (or location) that holds `path`.
  void selectDrive(const std::string& path);
  // Reads the sizes of the row that holds `path` again (after a delete below it).
  void refreshDrive(const std::string& path);
  // Writes the location rows to the settings, in row order.
  void saveLocations() const;
  void fitColumns();

  // What the sources box lists of the drives: RAM disks and locations are left out.
  struct ComboDrive {
    std::string path;
    QString text;  // the mount point and, when there is one, " [label]"
    int image = 3;
  };
  std::vector<ComboDrive> comboDrives() const;

  int rowCount() const { return model_->rowCount(); }
  // The height that shows the title, the bar and every row, at the pane's present width.
  int preferredHeight() const;
  void storeOptions(MainOptions& o) const;
  QMenu* drivePopup();

  DriveModel& model() { return *model_; }
  QTreeView& view() { return *view_; }
  CommandBar& bar() { return *bar_; }

  // Test seams: the folder question of command 208, the mount table, the settings file.
  void setFolderQuestion(std::function<QString()> ask) { askFolder_ = std::move(ask); }
  void setMountSource(std::function<std::vector<MountEntry>()> source) { mounts_ = std::move(source); }
  void setSettingsFile(const QString& file) { settingsFile_ = file; }

 Q_SIGNALS:
  void scanRequested(std::vector<std::string> paths);
  // The rows changed in number or height, or the horizontal scroll bar came or went: the frame
  // sizes the pane again.
  void heightChanged();
  // A line for the status bar: what the desktop refused to open.
  void statusText(const QString& text);

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;

 private:
  void buildBar(const MainOptions& o);
  void setSizeFormat(int unit);
  int selectedRow() const;
  std::string selectedPath() const;
  void openPath(const std::string& path, bool parent);
  bool needsHorizontalBar() const;

  const Guard& guard_;
  DriveModel* model_ = nullptr;
  QWidget* title_ = nullptr;
  PaneBar* bar_ = nullptr;
  QTreeView* view_ = nullptr;
  std::function<QString()> askFolder_;
  std::function<std::vector<MountEntry>()> mounts_;
  QString settingsFile_;
};

}  // namespace ql
