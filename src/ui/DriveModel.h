#pragma once
// The drive table's rows: one per listed mount, then the network locations the user added. A row
// comes at once with what the mount table tells; its sizes follow from the size reader when the
// mount answers, and stay empty when it does not answer within the limit.
//
// Threads: the user-interface thread only. Results of the reader's workers arrive as a queued
// call to this model.

#include <QAbstractTableModel>
#include <QIcon>
#include <QString>
#include <map>
#include <string>
#include <vector>

#include "drives/DriveSizes.h"
#include "drives/MountTable.h"

namespace ql {

struct DriveRow {
  std::string path;  // mount point or location, bytes; a location ends in "/"
  QString label;  // the volume label; empty when there is none
  QString fileSystem;
  int type = DriveUnknown;  // of a location: DriveNetwork when its mount is a network one
  bool location = false;    // added by the user: removed by Delete and saved at exit
  uint64_t request = 0;   // the size read whose answer this row waits for
  SizeFigures sizes;
};

class DriveModel : public QAbstractTableModel {
  Q_OBJECT
 public:
  enum Column { ColDrive, ColName, ColFileSystem, ColType, ColUsedPercent, ColFreePercent, ColUsed, ColFree,
                ColTotal, ColCluster, ColumnCount };
  // The percent of the bar columns as a number (-1 when unknown), for the delegate.
  static constexpr int PercentRole = Qt::UserRole + 1;

  explicit DriveModel(StatvfsFn stat = {}, QObject* parent = nullptr);

  // The table anew from these mounts; the locations are the caller's to add again.
  void setMounts(const std::vector<MountEntry>& mounts);
  // Appends a location row; its sizes are read like a mount's, its file system is that of the
  // listed mount that holds it. Returns its row.
  int addLocation(const std::string& path);
  // Removes a location row; a drive row stays. True when a row went.
  bool removeLocation(int row);
  // Reads the sizes of a row again.
  void refreshRow(int row);
  // The row of the mount or location that holds `path`, or -1.
  int rowOf(std::string_view path) const;

  const DriveRow& driveRow(int row) const { return rows_[static_cast<size_t>(row)]; }
  std::vector<std::string> locations() const;

  void setSizeFormat(int unit, bool decimals);
  int unit() const { return unit_; }
  bool decimals() const { return decimals_; }

  // Waits for the reads under way, at most until `deadline`, taking their results in; for
  // callers without an event loop.
  void waitForSizes(SizeReader::Clock::time_point deadline);

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

  static QString typeText(int type);

 Q_SIGNALS:
  void sizesArrived();

 private:
  void startRead(DriveRow& row);
  void collect();
  QString sizeText(int64_t bytes) const;
  const QIcon& driveIcon(int type, bool location) const;

  SizeReader reader_;
  std::vector<MountEntry> mounts_;  // as last set: the locations' file systems are found in it
  std::vector<DriveRow> rows_;
  int unit_ = 0;
  bool decimals_ = false;
  size_t waiting_ = 0;  // reads started and not yet taken in
  mutable std::map<int, QIcon> icons_;
};

}  // namespace ql
