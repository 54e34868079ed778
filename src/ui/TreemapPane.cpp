#include "ui/TreemapPane.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <QCoreApplication>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QThreadPool>
#include <QVBoxLayout>
#include <algorithm>

#include "lang/TL.h"
#include "report/SizeFormat.h"
#include "support/Path.h"
#include "support/PathText.h"
#include "treemap/TreemapGrowth.h"
#include "treemap/TreemapPainter.h"
#include "ui/CommandBar.h"
#include "ui/CompareBaseline.h"
#include "ui/ScanSession.h"
#include "ui/TreemapStore.h"

namespace ql {

namespace {
QString kindName(FileKind kind) {
  switch (kind) {
    case FileKind::Picture:
      return TL(4527, "Bilder");
    case FileKind::Video:
      return TL(4528, "Videos");
    case FileKind::Audio:
      return TL(4529, "Musik");
    case FileKind::Archive:
      return TL(4530, "Archive");
    case FileKind::Document:
      return TL(4531, "Dokumente");
    case FileKind::Code:
      return TL(4532, "Quelltext");
    case FileKind::Program:
      return TL(4533, "Programme");
    default:
      return TL(4534, "Sonstige");
  }
}

QString shareText(int64_t part, int64_t whole) {
  return whole > 0 ? QString::number(100.0 * static_cast<double>(part) / static_cast<double>(whole),
                                     'f', 1) +
                         QStringLiteral(" %")
                   : QString();
}
}  // namespace

std::vector<std::string> filesBySize(const std::string& folder, bool allocated) {
  std::vector<std::pair<int64_t, std::string>> files;
  const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return {};
  if (DIR* dir = ::fdopendir(fd)) {
    while (const dirent* e = ::readdir(dir)) {
      const std::string_view name = e->d_name;
      if (name == "." || name == "..") continue;
      struct stat st;
      if (::fstatat(fd, e->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0 || S_ISDIR(st.st_mode)) continue;
      files.emplace_back(allocated ? int64_t{st.st_blocks} * 512 : int64_t{st.st_size}, name);
    }
    ::closedir(dir);
  } else {
    ::close(fd);
  }
  std::stable_sort(files.begin(), files.end(),
                   [](const auto& a, const auto& b) { return a.first > b.first; });
  std::vector<std::string> names;
  names.reserve(files.size());
  for (auto& f : files) names.push_back(std::move(f.second));
  return names;
}

TreemapPane::TreemapPane(ScanSession& session, const Guard& guard, QWidget* parent)
    : QWidget(parent), session_(session), guard_(guard) {
  setObjectName(QStringLiteral("picTreemap"));
  setFocusPolicy(Qt::StrongFocus);
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(2);
  auto* bar = new QHBoxLayout;
  bar->setContentsMargins(2, 2, 2, 0);
  up_ = new QToolButton(this);
  up_->setIcon(commandIcon(QStringLiteral("go-up")));
  up_->setToolTip(TL(4524, "Eine Ebene höher (Rücktaste)"));
  up_->setAutoRaise(true);
  connect(up_, &QToolButton::clicked, this, guard_.wrap("Treemap_Up", [this] { goUp(); }));
  crumbs_ = new QLabel(this);
  crumbs_->setTextFormat(Qt::RichText);
  connect(crumbs_, &QLabel::linkActivated, this,
          guard_.wrap("Treemap_Crumb", [this](const QString& link) {
            const std::string path = pathBytes(link);
            if (path.size() >= sourceTop_.size()) zoomInto(path);
          }));
  growth_ = new QToolButton(this);
  growth_->setText(TL(4670, "Nach Wachstum färben"));
  growth_->setToolTip(TL(4671,
                         "Jede Datei in der Farbe dessen, was die Dateien direkt in "
                         "ihrem Ordner seit der verglichenen Messung zugelegt haben"));
  growth_->setCheckable(true);
  growth_->setAutoRaise(true);
  growth_->hide();  // until there is a baseline
  connect(growth_, &QToolButton::toggled, this,
          guard_.wrap("Treemap_Growth", [this](bool) { request(); }));
  bar->addWidget(up_);
  bar->addWidget(crumbs_, 1);
  bar->addWidget(growth_);
  column->addLayout(bar);
  canvas_ = new QWidget(this);
  // The legend below the picture: one swatch a kind, three to a row, so that every name is whole
  // in the pane at its first width (a third of the report's).
  kindsLegend_ = new QWidget(this);
  auto* legend = new QGridLayout(kindsLegend_);
  legend->setContentsMargins(2, 0, 2, 2);
  legend->setHorizontalSpacing(4);
  legend->setVerticalSpacing(0);
  const int kinds = static_cast<int>(FileKind::Count);
  const int perRow = 3;
  for (int k = 1; k <= kinds; ++k) {
    const auto kind = static_cast<FileKind>(k % kinds);
    QPixmap swatch(10, 10);
    swatch.fill(treemapColor(kind));
    auto* icon = new QLabel(this);
    icon->setPixmap(swatch);
    const int row = (k - 1) / perRow, col = (k - 1) % perRow * 2;
    legend->addWidget(icon, row, col);
    legend->addWidget(new QLabel(kindName(kind), this), row, col + 1);
  }
  legend->setColumnStretch(perRow * 2, 1);
  // The growth colours instead, in one row from new to shrunk.
  growthLegend_ = new QWidget(this);
  auto* steps = new QHBoxLayout(growthLegend_);
  steps->setContentsMargins(2, 0, 2, 2);
  steps->setSpacing(4);
  const std::pair<float, QString> shown[] = {{kNewFolder, TL(4672, "Neuer Ordner")},
                                             {1.0f, QStringLiteral("+100 %")},
                                             {0.25f, QStringLiteral("+25 %")},
                                             {0.0f, TL(4673, "Unverändert")},
                                             {-0.5f, QStringLiteral("−50 %")}};
  for (const auto& [growth, text] : shown) {
    QPixmap swatch(10, 10);
    swatch.fill(growthColor(growth));
    auto* icon = new QLabel(growthLegend_);
    icon->setPixmap(swatch);
    steps->addWidget(icon);
    steps->addWidget(new QLabel(text, growthLegend_));
  }
  steps->addStretch(1);
  growthLegend_->hide();
  canvas_->setObjectName(QStringLiteral("picTreemapCanvas"));
  canvas_->setMouseTracking(true);
  canvas_->setMinimumSize(40, 40);
  canvas_->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
  canvas_->installEventFilter(this);
  // A folder read again is hatched while it is read.
  connect(&session_, &ScanSession::busyChanged, this,
          guard_.wrap("Treemap_Busy", [this](bool) { request(); }));
  column->addWidget(canvas_, 1);
  column->addWidget(kindsLegend_);
  column->addWidget(growthLegend_);
}

TreemapPane::~TreemapPane() {
  *alive_ = false;
}

void TreemapPane::showFolder(const std::string& path) {
  view_ = addSlash(path);
  request();
}

void TreemapPane::refresh() {
  request();
}

void TreemapPane::zoomInto(const std::string& path) {
  view_ = addSlash(path);
  request();
}

void TreemapPane::goUp() {
  if (view_.size() <= sourceTop_.size() || view_.size() < 2) return;
  const size_t cut = view_.rfind('/', view_.size() - 2);
  if (cut == std::string::npos) return;
  view_.resize(cut + 1);
  request();
}

void TreemapPane::setHighlight(const std::string& extension, bool on) {
  if (extension == highlight_ && on == highlightOn_) return;
  highlight_ = extension;
  highlightOn_ = on;
  request();
}

void TreemapPane::setBaseline(const CompareBaseline* baseline) {
  baseline_ = baseline;
  growth_->setVisible(baseline != nullptr);
  request();
}

// A new request makes any picture under way stale; only one worker draws at a time.
void TreemapPane::request() {
  ++ticket_;
  if (!isVisible() || view_.empty()) return;
  if (running_) {
    again_ = true;
    return;
  }
  start();
}

void TreemapPane::start() {
  again_ = false;
  const TreemapPlace place = session_.treemapAt(view_);
  allocated_ = session_.sizesAllocated();
  if (!place.tree) {
    // Nothing kept for it (yet): a source still being read, or a folder made since.
    notice_ = session_.busy() ? TL(4525, "Wird eingelesen...")
                              : TL(4526, "Für diesen Ordner sind keine Dateien bekannt.");
    frame_.reset();
    kindsLegend_->show();
    growthLegend_->hide();
    sourceTop_.clear();
    updateCrumbs();
    canvas_->update();
    return;
  }
  notice_.clear();
  sourceTop_ = place.top;
  updateCrumbs();
  running_ = true;
  const QSize size = canvas_->size();
  // A folder read again shows what it held before, hatched: the one shown, or one below it.
  TreemapLook look;
  const std::string reading = session_.readingFolder();
  std::vector<uint32_t> chain;
  if (!reading.empty() && view_.compare(0, reading.size(), reading) == 0)
    look.reading = place.folder();
  else if (!reading.empty() && reading.compare(0, view_.size(), view_) == 0 &&
           findTreemapFolder(*place.tree, std::string_view(reading).substr(place.top.size()),
                             chain))
    look.reading = chain.back();
  // The baseline's folders go with the job: it reads them, never the report.
  std::shared_ptr<const ReportTree> then;
  uint32_t thenRoot = kNoNode;
  if (growth_->isChecked() && baseline_ && place.top == addSlash(baseline_->source()))
    then = baseline_->folders(thenRoot);
  auto job = [place, size, look, then, thenRoot, ticket = ticket_, top = view_,
              highlight = highlight_, on = highlightOn_] {
    auto frame = std::make_shared<Frame>();
    frame->ticket = ticket;
    frame->top = top;
    frame->tree = place.tree;
    frame->root = place.folder();
    const TreemapTree& tree = *frame->tree;
    frame->layout =
        layoutTreemap(tree, std::max(size.width(), 1), std::max(size.height(), 1), frame->root);
    std::vector<float> growth;
    TreemapLook shown = look;
    if (then) {
      growth = folderGrowth(tree, frame->root, *then, thenRoot);
      shown.growth = growth;
      frame->growth = true;
    }
    frame->image = paintTreemap(frame->layout, shown);
    if (on) {  // the files of other kinds fade
      QPainter p(&frame->image);
      const QColor fade(255, 255, 255, 190);
      for (const TreemapRect& r : frame->layout.rects)
        if (r.type == TreemapRect::File && tree.extensionName(r.extension) != highlight)
          p.fillRect(QRect(r.x, r.y, r.w, r.h), fade);
    }
    return frame;
  };
  QThreadPool::globalInstance()->start([this, job, alive = alive_] {
    std::shared_ptr<Frame> frame = job();
    QMetaObject::invokeMethod(
        qApp,
        [this, alive, frame] {
          if (*alive) guard_.run("Treemap_Draw", [&] { accept(frame); });
        },
        Qt::QueuedConnection);
  });
}

void TreemapPane::accept(std::shared_ptr<Frame> frame) {
  running_ = false;
  if (frame->ticket == ticket_) {
    frame_ = std::move(frame);
    kindsLegend_->setVisible(!frame_->growth);
    growthLegend_->setVisible(frame_->growth);
    canvas_->update();
  }
  if (again_ || frame_ == nullptr || frame_->ticket != ticket_) {
    if (isVisible() && !view_.empty()) start();
  }
}

void TreemapPane::updateCrumbs() {
  // Each folder from the source down, a link to itself.
  QString html;
  std::string at = sourceTop_.empty() ? view_ : sourceTop_;
  auto link = [](const std::string& path, const QString& text) {
    return QStringLiteral("<a href=\"%1\">%2</a>")
        .arg(pathText(path).toHtmlEscaped(), text.toHtmlEscaped());
  };
  html = link(at, pathText(removeSlash(at)));
  for (size_t from = at.size(); from < view_.size();) {
    const size_t end = view_.find('/', from);
    html += QStringLiteral(" › ") +
            link(view_.substr(0, end + 1), pathText(view_.substr(from, end - from)));
    from = end + 1;
  }
  crumbs_->setText(html);
  up_->setEnabled(!sourceTop_.empty() && view_.size() > sourceTop_.size());
}

std::string TreemapPane::pathOf(const Frame& f, uint32_t folder) const {
  std::vector<const std::string*> names;
  for (uint32_t i = folder; i != f.root && i != 0; i = f.tree->parents[i])
    names.push_back(&f.tree->folders[i].name);
  std::string path = f.top;
  for (auto it = names.rbegin(); it != names.rend(); ++it) path += **it + '/';
  return path;
}

// The picture is stretched to the canvas until the one of its size comes.
QPoint TreemapPane::toLayout(QPoint at) const {
  if (!frame_ || canvas_->width() <= 0 || canvas_->height() <= 0) return at;
  return {at.x() * frame_->layout.width / canvas_->width(),
          at.y() * frame_->layout.height / canvas_->height()};
}

bool TreemapPane::hitAt(QPoint at, Hit& hit) const {
  if (!frame_) return false;
  const QPoint p = toLayout(at);
  const int i = pickTreemap(frame_->layout, p.x(), p.y());
  if (i < 0) return false;
  const TreemapRect& r = frame_->layout.rects[static_cast<size_t>(i)];
  const TreemapFolder& f = frame_->tree->folders[r.folder];
  hit.file = r.type == TreemapRect::File;
  hit.folder = pathOf(*frame_, r.folder);
  hit.rank = hit.file ? r.file - f.firstFile : 0;
  hit.size = hit.file ? TreemapTree::sizeOf(frame_->tree->files[r.file]) : f.bytes;
  return true;
}

void TreemapPane::nameOf(const Hit& hit, std::function<void(const std::string&)> then) {
  if (names_ && names_->folder == hit.folder) {
    then(hit.rank < names_->byRank.size() ? names_->byRank[hit.rank] : std::string());
    return;
  }
  // A folder of many files takes a while to list: never on this thread.
  QThreadPool::globalInstance()->start(
      [this, alive = alive_, hit, then = std::move(then), allocated = allocated_] {
        auto names = std::make_shared<Names>();
        names->folder = hit.folder;
        names->byRank = filesBySize(hit.folder, allocated);
        QMetaObject::invokeMethod(
            qApp,
            [this, alive, names, hit, then] {
              if (!*alive) return;
              guard_.run("Treemap_Names", [&] {
                names_ = names;
                then(hit.rank < names->byRank.size() ? names->byRank[hit.rank] : std::string());
              });
            },
            Qt::QueuedConnection);
      });
}

void TreemapPane::pointAt(QPoint at) {
  Hit hit;
  if (!hitAt(at, hit)) {
    Q_EMIT statusText(QString());
    return;
  }
  const QString size = xFormatFileSizeAuto(hit.size, true);
  const QString share =
      shareText(hit.size, frame_->tree->folders[frame_->root].bytes) + unshownText(hit.folder);
  if (!hit.file) {
    Q_EMIT statusText(QStringLiteral("%1   %2   %3").arg(pathText(hit.folder), size, share));
    return;
  }
  nameOf(hit, [this, hit, size, share](const std::string& name) {
    Hit now;
    const QPoint at = canvas_->mapFromGlobal(QCursor::pos());
    if (canvas_->underMouse() && hitAt(at, now) &&
        (now.folder != hit.folder || now.rank != hit.rank))
      return;  // the mouse has moved on
    Q_EMIT statusText(QStringLiteral("%1   %2   %3").arg(pathText(hit.folder + name), size, share));
  });
}

QString TreemapPane::unshownText(const std::string& folder) const {
  QString text;
  const std::string reading = session_.readingFolder();
  if (!reading.empty() && folder.compare(0, reading.size(), reading) == 0)
    text += QStringLiteral("   ") + TL(4525, "Wird eingelesen...");
  // Links to folders, other mounts and excluded entries hold no bytes: they get no area, and
  // the report knows them as rows of their folder.
  const ReportTree& tree = session_.tree();
  const uint32_t node = session_.nodeOfPath(folder);
  if (node == kNoNode) return text;
  QStringList names;
  for (uint32_t c : tree.children(node)) {
    if (!tree.hasFlag(c, ReportTree::Junction)) continue;
    if (names.size() == 3) {
      names << QStringLiteral("...");
      break;
    }
    names << pathText(tree.text(c));
  }
  if (!names.isEmpty())
    text += QStringLiteral("   ") +
            TL(4660, "Ohne Fläche (Verknüpfung, anderes Laufwerk, ausgelassen): %1",
               {names.join(QStringLiteral(", "))});
  return text;
}

void TreemapPane::clickAt(QPoint at, bool menu, QPoint global) {
  Hit hit;
  if (!hitAt(at, hit) || !hit.file) return;
  nameOf(hit, [this, hit, menu, global](const std::string& name) {
    if (!name.empty()) Q_EMIT fileClicked(hit.folder, name, menu, global);
  });
}

void TreemapPane::paintCanvas() {
  QPainter p(canvas_);
  if (frame_ && notice_.isEmpty()) {
    p.drawImage(canvas_->rect(), frame_->image);
    return;
  }
  p.fillRect(canvas_->rect(), palette().window());
  p.drawText(canvas_->rect(), Qt::AlignCenter, notice_);
}

bool TreemapPane::eventFilter(QObject* watched, QEvent* event) {
  if (watched != canvas_) return QWidget::eventFilter(watched, event);
  switch (event->type()) {
    case QEvent::Paint:
      paintCanvas();
      return true;
    case QEvent::Resize:
      guard_.run("Treemap_Resize", [this] { request(); });
      break;
    case QEvent::Show:
      guard_.run("Treemap_Show", [this] { request(); });
      break;
    case QEvent::MouseMove:
      guard_.run("Treemap_MouseMove",
                 [&] { pointAt(static_cast<QMouseEvent*>(event)->position().toPoint()); });
      break;
    case QEvent::MouseButtonRelease: {
      auto* e = static_cast<QMouseEvent*>(event);
      guard_.run("Treemap_MouseUp", [&] {
        clickAt(e->position().toPoint(), e->button() == Qt::RightButton,
                e->globalPosition().toPoint());
      });
      break;
    }
    case QEvent::MouseButtonDblClick: {
      auto* e = static_cast<QMouseEvent*>(event);
      guard_.run("Treemap_DblClick", [&] {
        Hit hit;
        if (hitAt(e->position().toPoint(), hit) && hit.folder != view_) zoomInto(hit.folder);
      });
      return true;
    }
    default:
      break;
  }
  return QWidget::eventFilter(watched, event);
}

void TreemapPane::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Backspace) {
    guard_.run("Treemap_KeyDown", [this] { goUp(); });
    return;
  }
  QWidget::keyPressEvent(event);
}

}  // namespace ql
