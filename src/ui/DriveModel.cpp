#include "ui/DriveModel.h"

#include <QApplication>
#include <QFile>
#include <QIcon>
#include <QStyle>
#include <algorithm>
#include <map>

#include "lang/TL.h"
#include "report/SizeFormat.h"
#include "support/PathText.h"

namespace ql {

namespace {
QIcon lookUpIcon(int type, bool location) {
  struct Look {
    const char* theme;
    QStyle::StandardPixmap fallback;
  };
  Look look{"drive-harddisk", QStyle::SP_DriveHDIcon};
  if (location)
    look = type == DriveNetwork ? Look{"folder-remote", QStyle::SP_DriveNetIcon}
                                : Look{"folder", QStyle::SP_DirIcon};
  else if (type == DriveRemovable) look = {"drive-removable-media", QStyle::SP_DriveFDIcon};
  else if (type == DriveNetwork) look = {"network-server", QStyle::SP_DriveNetIcon};
  else if (type == DriveOptical) look = {"drive-optical", QStyle::SP_DriveCDIcon};
  else if (type == DriveRam) look = {"media-flash", QStyle::SP_ComputerIcon};
  else if (type != DriveLocal) look = {"drive-harddisk", QStyle::SP_DriveHDIcon};
  return QIcon::fromTheme(QString::fromLatin1(look.theme), QApplication::style()->standardIcon(look.fallback));
}

}  // namespace

DriveModel::DriveModel(StatvfsFn stat, QObject* parent) : QAbstractTableModel(parent), reader_(std::move(stat)) {
  // A worker only posts; the model takes the results in on its own thread.
  reader_.setNotify([this] { QMetaObject::invokeMethod(this, [this] { collect(); }, Qt::QueuedConnection); });
}

// The theme is asked once a kind: a view asks for the icon of every row it paints.
const QIcon& DriveModel::driveIcon(int type, bool location) const {
  const int key = location ? (type == DriveNetwork ? -1 : -2) : type;
  auto it = icons_.find(key);
  if (it == icons_.end()) it = icons_.emplace(key, lookUpIcon(type, location)).first;
  return it->second;
}

QString DriveModel::typeText(int type) {
  switch (type) {
    case DriveRemovable: return TL(3509, "Wechseldatenträger");
    case DriveLocal: return TL(3506, "Lokaler Datenträger");
    case DriveNetwork: return TL(3508, "Netzlaufwerk");
    case DriveOptical: return QStringLiteral("CD/DVD");
    case DriveRam: return TL(3507, "RAM-Disk");
    default: return QStringLiteral("?");
  }
}

void DriveModel::setMounts(const std::vector<MountEntry>& mounts) {
  beginResetModel();
  mounts_ = mounts;
  rows_.clear();
  for (const MountEntry& m : mounts) {
    DriveRow r;
    r.path = m.mountPoint;
    const std::string label = volumeLabelOf(m);
    r.label = pathText(label);
    r.fileSystem = QString::fromStdString(m.fsType);
    r.type = driveTypeOf(m);
    rows_.push_back(std::move(r));
  }
  for (DriveRow& r : rows_) startRead(r);
  endResetModel();
}

int DriveModel::addLocation(const std::string& path) {
  DriveRow r;
  r.path = path.empty() || path.back() != '/' ? path + '/' : path;
  r.location = true;
  // Told by the mount table alone: asking the folder itself could wait on a dead share.
  std::vector<std::string> points;
  for (const MountEntry& m : mounts_) points.push_back(m.mountPoint);
  const std::string holder = mountOf(points, r.path);
  for (const MountEntry& m : mounts_)
    if (!holder.empty() && m.mountPoint == holder) {
      r.fileSystem = QString::fromStdString(m.fsType);
      r.type = isNetworkFileSystem(m.fsType) ? DriveNetwork : DriveLocal;
    }
  const int at = rowCount();
  beginInsertRows({}, at, at);
  rows_.push_back(std::move(r));
  startRead(rows_.back());
  endInsertRows();
  return at;
}

bool DriveModel::removeLocation(int row) {
  if (row < 0 || row >= rowCount() || !rows_[static_cast<size_t>(row)].location) return false;
  beginRemoveRows({}, row, row);
  rows_.erase(rows_.begin() + row);
  endRemoveRows();
  return true;
}

void DriveModel::refreshRow(int row) {
  if (row < 0 || row >= rowCount()) return;
  startRead(rows_[static_cast<size_t>(row)]);
}

void DriveModel::startRead(DriveRow& row) {
  row.request = reader_.start(row.path);
  if (row.request != 0) ++waiting_;
  // Until the answer comes, and for good when it does not come, the sizes are empty.
  row.sizes = SizeFigures{};
}

void DriveModel::collect() {
  const auto results = reader_.take();
  if (results.empty()) return;  // an earlier call took them in
  for (const auto& [request, sizes] : results) {
    if (waiting_ > 0) --waiting_;
    for (size_t r = 0; r < rows_.size(); ++r) {
      if (rows_[r].request != request) continue;
      rows_[r].sizes = figuresOf(sizes);
      const int row = static_cast<int>(r);
      Q_EMIT dataChanged(index(row, ColUsedPercent), index(row, ColCluster));
    }
  }
  Q_EMIT sizesArrived();
}

void DriveModel::waitForSizes(SizeReader::Clock::time_point deadline) {
  reader_.waitForResults(waiting_, deadline);
  collect();
}

int DriveModel::rowOf(std::string_view path) const {
  std::vector<std::string> paths;
  paths.reserve(rows_.size());
  for (const DriveRow& r : rows_) paths.push_back(r.path);
  const std::string best = mountOf(paths, path);
  if (best.empty()) return -1;
  for (size_t r = 0; r < rows_.size(); ++r)
    if (rows_[r].path == best) return static_cast<int>(r);
  return -1;
}

std::vector<std::string> DriveModel::locations() const {
  std::vector<std::string> out;
  for (const DriveRow& r : rows_)
    if (r.location) out.push_back(r.path);
  return out;
}

void DriveModel::setSizeFormat(int unit, bool decimals) {
  if (unit < 0 || unit > 3) return;
  unit_ = unit;
  decimals_ = decimals;
  Q_EMIT headerDataChanged(Qt::Horizontal, ColUsed, ColTotal);
  if (!rows_.empty()) Q_EMIT dataChanged(index(0, ColUsed), index(rowCount() - 1, ColTotal));
}

QString DriveModel::sizeText(int64_t bytes) const {
  if (unit_ == 0) return groupedInteger(bytes);
  return groupedFixed(static_cast<double>(bytes) / unitDivisor(unit_), decimals_ ? 2 : 0);
}

int DriveModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

int DriveModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : ColumnCount; }

QVariant DriveModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= rowCount()) return {};
  const DriveRow& r = rows_[static_cast<size_t>(index.row())];
  const SizeFigures& s = r.sizes;
  const int col = index.column();
  if (role == Qt::DisplayRole || role == Qt::ToolTipRole) {
    switch (col) {
      case ColDrive: return pathText(r.path);
      case ColName:
        return r.label.isEmpty() && !r.location ? TL(4100, "(ohne Bezeichnung)") : r.label;
      case ColFileSystem: return r.fileSystem;
      case ColType:
        if (!r.location) return typeText(r.type);
        return r.type == DriveNetwork ? TL(4341, "Netzwerk") : TL(4340, "Ordner");
      case ColUsedPercent: return s.known ? QString::number(s.usedPercent) + QLatin1Char('%') : QString();
      case ColFreePercent: return s.known ? QString::number(s.freePercent) + QLatin1Char('%') : QString();
      case ColUsed: return s.known ? sizeText(s.used) : QString();
      case ColFree: return s.known ? sizeText(s.free) : QString();
      case ColTotal: return s.known ? sizeText(s.total) : QString();
      case ColCluster: return s.known && s.cluster > 0 ? xFormatFileSizeAuto(s.cluster, true) : QString();
      default: return {};
    }
  }
  if (role == PercentRole) {
    if (!s.known) return -1;
    if (col == ColUsedPercent) return s.usedPercent;
    if (col == ColFreePercent) return s.freePercent;
    return {};
  }
  if (role == Qt::DecorationRole && col == ColDrive) return driveIcon(r.type, r.location);
  if (role == Qt::TextAlignmentRole && col >= ColUsedPercent)
    return QVariant::fromValue(Qt::Alignment(Qt::AlignRight | Qt::AlignVCenter));
  return {};
}

QVariant DriveModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal) return {};
  if (role == Qt::TextAlignmentRole && section >= ColUsedPercent)
    return QVariant::fromValue(section <= ColFreePercent ? Qt::Alignment(Qt::AlignCenter)  // over the bars
                                                         : Qt::Alignment(Qt::AlignRight | Qt::AlignVCenter));
  if (role != Qt::DisplayRole) return {};
  const QString unitWords[] = {TL(3515, "Bytes"), TL(3516, "KB"), TL(3517, "MB"), TL(3518, "GB")};
  const QString& unitWord = unitWords[unit_];
  switch (section) {
    case ColDrive: return TL(3575, "Laufwerk");
    case ColName: return TL(3576, "Name");
    case ColFileSystem: return TL(3577, "Dateisystem");
    case ColType: return TL(3578, "Typ");
    case ColUsedPercent: return TL(3579, "Belegt");
    case ColFreePercent: return TL(3580, "Frei");
    case ColUsed: return TL(3520, "Belegt (%1)", {unitWord});
    case ColFree: return TL(3521, "Frei (%1)", {unitWord});
    case ColTotal: return TL(3522, "Gesamt (%1)", {unitWord});
    case ColCluster: return TL(4101, "Cluster");
    default: return {};
  }
}

}  // namespace ql
