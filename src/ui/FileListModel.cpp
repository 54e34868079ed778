#include "ui/FileListModel.h"

#include <QApplication>
#include <QFile>
#include <QStyle>
#include <numeric>

#include "lang/TL.h"
#include "report/SizeFormat.h"
#include "support/Path.h"

namespace ql {

FileListModel::FileListModel(std::vector<RowKey> columns, QObject* parent)
    : QAbstractTableModel(parent), columns_(std::move(columns)) {}

int FileListModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(shown_.size());
}

int FileListModel::columnCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(columns_.size());
}

int FileListModel::columnOf(RowKey key) const {
  for (size_t c = 0; c < columns_.size(); ++c)
    if (columns_[c] == key) return static_cast<int>(c);
  return -1;
}

QString FileListModel::sizeText(int64_t size) const {
  if (unit_ == Bytes) return groupedInteger(size);
  return groupedFixed(static_cast<double>(size) / unitDivisor(unit_), decimals_ ? 2 : 0);
}

QIcon FileListModel::iconOf(const FileType* type) const {
  auto it = icons_.constFind(type);
  if (it != icons_.constEnd()) return *it;
  static const QIcon fallback = QIcon::fromTheme(QStringLiteral("text-x-generic"),
                                                 QApplication::style()->standardIcon(QStyle::SP_FileIcon));
  QIcon icon = fallback;
  if (type && !type->iconName.isEmpty())
    icon = QIcon::fromTheme(type->iconName, QIcon::fromTheme(type->genericIconName, fallback));
  icons_.insert(type, icon);
  return icon;
}

QVariant FileListModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= static_cast<int>(shown_.size())) return {};
  const FileRow& r = row(index.row());
  const RowKey key = columns_[static_cast<size_t>(index.column())];
  switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
      switch (key) {
        case RowKey::Name: return r.text;
        case RowKey::Size: return sizeText(r.size);
        case RowKey::Folder: return r.folderText();
        case RowKey::Extension: return r.extension();
        case RowKey::Type: return r.type ? r.type->name : QString();
        case RowKey::Attributes: return r.attributes();
        case RowKey::Modified: return listDate(r.modified);
        case RowKey::Created: return listDate(r.created);
        case RowKey::Accessed: return listDate(r.accessed);
      }
      return {};
    case Qt::DecorationRole:
      if (key == RowKey::Name && showIcons_) return iconOf(r.type);
      return {};
    case Qt::ToolTipRole:
      // The largest-files list tells over any cell which folder the file lies in.
      if (r.where) return QStringLiteral(" %1 ").arg(r.where->text);
      return {};
    case Qt::TextAlignmentRole:
      if (key == RowKey::Size) return QVariant(Qt::AlignRight | Qt::AlignVCenter);
      return {};
    default: return {};
  }
}

QString FileListModel::sizeTitle() const {
  static const char* const words[] = {"Bytes", "KB", "MB", "GB"};
  const int u = std::clamp(unit_, 0, 3);
  return TL(3519, "Größe (%1)", {TL(3515 + u, QString::fromLatin1(words[u]))});
}

QVariant FileListModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole || section < 0 ||
      section >= static_cast<int>(columns_.size()))
    return QAbstractTableModel::headerData(section, orientation, role);
  switch (columns_[static_cast<size_t>(section)]) {
    case RowKey::Name: return TL(3582, "Dateiname");
    case RowKey::Size: return sizeTitle();
    case RowKey::Folder: return TL(3728, "Pfad");
    case RowKey::Extension: return TL(3584, "Endung");
    case RowKey::Type: return TL(3585, "Typ");
    case RowKey::Attributes: return TL(3586, "Attribute");
    case RowKey::Modified: return TL(3587, "Änderungsdatum");
    case RowKey::Created: return TL(3588, "Erstellungsdatum");
    case RowKey::Accessed: return TL(3589, "Zugriffsdatum");
  }
  return {};
}

Qt::ItemFlags FileListModel::flags(const QModelIndex& index) const {
  Qt::ItemFlags f = QAbstractTableModel::flags(index);
  if (index.isValid() && columns_[static_cast<size_t>(index.column())] == RowKey::Name) f |= Qt::ItemIsEditable;
  return f;
}

bool FileListModel::setData(const QModelIndex& index, const QVariant& value, int role) {
  if (role != Qt::EditRole || !index.isValid() || columns_[static_cast<size_t>(index.column())] != RowKey::Name)
    return false;
  const QString name = value.toString();
  if (name == row(index.row()).text) return false;  // nothing to do
  return renamer_ && renamer_(index.row(), name);
}

void FileListModel::setRows(std::vector<FileRow> rows, std::vector<uint32_t> order) {
  beginResetModel();
  rows_ = std::move(rows);
  if (order.size() == rows_.size()) {
    shown_ = std::move(order);
  } else {
    shown_.resize(rows_.size());
    std::iota(shown_.begin(), shown_.end(), 0u);
  }
  endResetModel();
}

void FileListModel::removeRows(const std::vector<int>& rowsDescending) {
  // Runs of neighbouring rows go in one step.
  for (size_t i = 0; i < rowsDescending.size();) {
    const int last = rowsDescending[i];
    int first = last;
    size_t j = i + 1;
    while (j < rowsDescending.size() && rowsDescending[j] == first - 1) first = rowsDescending[j++];
    if (first >= 0 && last < static_cast<int>(shown_.size())) {
      beginRemoveRows({}, first, last);
      shown_.erase(shown_.begin() + first, shown_.begin() + last + 1);
      endRemoveRows();
    }
    i = j;
  }
}

void FileListModel::renameRow(int i, std::string name) {
  FileRow& r = rows_[shown_[static_cast<size_t>(i)]];
  r.name = std::move(name);
  r.text = QFile::decodeName(QByteArray(r.name.data(), static_cast<qsizetype>(r.name.size())));
  r.type = fileTypeOf(r.name);
  Q_EMIT dataChanged(index(i, 0), index(i, columnCount() - 1));
}

void FileListModel::sort(const RowOrder& order) {
  order_ = order;
  Q_EMIT layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
  sortOrder(rows_, shown_, order_);
  Q_EMIT layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}

void FileListModel::setSizeFormat(int unit, bool decimals) {
  unit_ = std::clamp(unit, 0, 3);
  decimals_ = decimals;
  const int c = columnOf(RowKey::Size);
  Q_EMIT headerDataChanged(Qt::Horizontal, c, c);
  if (!shown_.empty()) Q_EMIT dataChanged(index(0, c), index(rowCount() - 1, c));
}

void FileListModel::setShowIcons(bool on) {
  showIcons_ = on;
  if (!shown_.empty()) Q_EMIT dataChanged(index(0, 0), index(rowCount() - 1, 0), {Qt::DecorationRole});
}

int FileListModel::findRow(const QString& text, int from, int to) const {
  to = std::min(to, rowCount() - 1);
  for (int i = std::max(from, 0); i <= to; ++i)
    if (row(i).text.contains(text, Qt::CaseInsensitive)) return i;
  return -1;
}

}  // namespace ql
