#include "ui/TypesPane.h"

#include <QCoreApplication>
#include <QHeaderView>
#include <QThreadPool>
#include <QVBoxLayout>
#include <unordered_map>

#include "lang/TL.h"
#include "report/SizeFormat.h"
#include "support/Path.h"
#include "support/PathText.h"
#include "ui/ScanSession.h"
#include "ui/TreemapPane.h"

namespace ql {

namespace {
enum Column { ColExtension, ColFiles, ColBytes, ColShare, ColLargest };
constexpr int kSortRole = Qt::UserRole + 1;
}  // namespace

TypesPane::TypesPane(ScanSession& session, const Guard& guard, QWidget* parent)
    : QWidget(parent), session_(session), guard_(guard) {
  setObjectName(QStringLiteral("lvwTypes"));
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  model_ = new QStandardItemModel(0, 5, this);
  model_->setHorizontalHeaderLabels({TL(4490, "Endung"), TL(4537, "Dateien"), TL(4538, "Größe"),
                                     TL(4539, "Anteil"), TL(4540, "Größte Datei")});
  model_->setSortRole(kSortRole);
  view_ = new QTreeView(this);
  view_->setModel(model_);
  view_->setRootIsDecorated(false);
  view_->setUniformRowHeights(true);
  view_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  view_->setSortingEnabled(true);
  view_->sortByColumn(ColBytes, Qt::DescendingOrder);
  column->addWidget(view_);
  connect(view_, &QTreeView::clicked, this,
          guard_.wrap("lvwTypes_Click", [this](const QModelIndex& i) { pickRow(i.row()); }));
}

TypesPane::~TypesPane() {
  *alive_ = false;
}

void TypesPane::showFolder(const std::string& path) {
  if (addSlash(path) == folder_) return;
  folder_ = addSlash(path);
  if (pickedOn_) {  // another folder has other kinds
    pickedOn_ = false;
    Q_EMIT extensionPicked(picked_, false);
  }
  refresh();
}

void TypesPane::refresh() {
  ++ticket_;
  if (!isVisible() || folder_.empty()) return;
  if (running_) {
    again_ = true;
    return;
  }
  start();
}

void TypesPane::pickRow(int row) {
  const QModelIndex i = model_->index(row, ColExtension);
  if (!i.isValid()) return;
  const std::string extension = i.data(Qt::UserRole).toString().toStdString();
  pickedOn_ = !(pickedOn_ && extension == picked_);
  picked_ = extension;
  if (!pickedOn_) view_->clearSelection();
  Q_EMIT extensionPicked(picked_, pickedOn_);
}

void TypesPane::start() {
  again_ = false;
  const TreemapPlace place = session_.treemapAt(folder_);
  model_->removeRows(0, model_->rowCount());
  if (!place.tree) return;
  running_ = true;
  QThreadPool::globalInstance()->start([this, alive = alive_, place, ticket = ticket_,
                                        path = folder_, allocated = session_.sizesAllocated()] {
    auto rows = std::make_shared<std::vector<TypesRow>>(
        typesBelow(*place.tree, place.folder(), path, allocated));
    const int64_t total = place.tree->folders[place.folder()].bytes;
    QMetaObject::invokeMethod(
        qApp,
        [this, alive, rows, ticket, total] {
          if (*alive) guard_.run("lvwTypes_Fill", [&] { accept(ticket, std::move(*rows), total); });
        },
        Qt::QueuedConnection);
  });
}

void TypesPane::accept(uint64_t ticket, std::vector<TypesRow> rows, int64_t total) {
  running_ = false;
  if (ticket != ticket_) {
    if (isVisible()) start();
    return;
  }
  view_->setSortingEnabled(false);  // one sort after all rows are in
  model_->removeRows(0, model_->rowCount());
  for (const TypesRow& r : rows) {
    auto cell = [](const QString& text, const QVariant& key) {
      auto* item = new QStandardItem(text);
      item->setData(key, kSortRole);
      return item;
    };
    const QString ext =
        r.extension.empty() ? TL(4541, "keine") : QString::fromStdString(r.extension);
    QList<QStandardItem*> line{
        cell(ext, ext), cell(QString::number(r.files), QVariant::fromValue<qint64>(r.files)),
        cell(xFormatFileSizeAuto(r.bytes, true), QVariant::fromValue<qint64>(r.bytes)),
        cell(total > 0
                 ? QString::number(
                       100.0 * static_cast<double>(r.bytes) / static_cast<double>(total), 'f', 1) +
                       QStringLiteral(" %")
                 : QString(),
             QVariant::fromValue<qint64>(r.bytes)),
        cell(QStringLiteral("%1 (%2)").arg(pathText(r.largest),
                                           xFormatFileSizeAuto(r.largestSize, true)),
             QVariant::fromValue<qint64>(r.largestSize))};
    line[0]->setData(QString::fromStdString(r.extension), Qt::UserRole);
    for (QStandardItem* item : line) item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
    line[0]->setTextAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    line[4]->setTextAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    model_->appendRow(line);
  }
  view_->setSortingEnabled(true);
  view_->sortByColumn(view_->header()->sortIndicatorSection(),
                      view_->header()->sortIndicatorOrder());
  for (int c = 0; c < ColLargest; ++c) view_->resizeColumnToContents(c);
  if (again_) start();
}

std::vector<TypesRow> typesBelow(const TreemapTree& tree, uint32_t folder, const std::string& path,
                                 bool allocated) {
  std::vector<TypesRow> rows;
  // Each folder that holds a largest file is listed once, however many kinds it leads.
  std::unordered_map<uint32_t, std::vector<std::string>> named;
  for (const TypeRow& t : tree.typesBelow(folder)) {
    TypesRow& r = rows.emplace_back();
    r.extension = t.extension;
    r.files = t.files;
    r.bytes = t.bytes;
    if (t.largestFile == TypeRow::kNoFile) continue;
    const TreemapFolder& f = tree.folders[t.largestFolder];
    r.largestSize = TreemapTree::sizeOf(tree.files[t.largestFile]);
    // The path from `folder` down to the one that holds it.
    std::vector<uint32_t> chain;
    for (uint32_t at = t.largestFolder; at != folder && at != 0; at = tree.parents[at])
      chain.push_back(at);
    r.largest = addSlash(path);
    for (auto it = chain.rbegin(); it != chain.rend(); ++it)
      r.largest += tree.folders[*it].name + '/';
    auto [names, fresh] = named.try_emplace(t.largestFolder);
    if (fresh) names->second = filesBySize(r.largest, allocated);
    const uint32_t rank = t.largestFile - f.firstFile;
    if (rank < names->second.size()) r.largest += names->second[rank];
  }
  return rows;
}

}  // namespace ql
