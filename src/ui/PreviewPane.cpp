#include "ui/PreviewPane.h"

#include <QApplication>
#include <QBuffer>
#include <QDir>
#include <QFontDatabase>
#include <QImageReader>
#include <QLocale>
#include <QPainter>
#include <QPlainTextDocumentLayout>
#include <QPdfDocument>
#include <QPlainTextEdit>
#include <QProcess>
#include <QScrollBar>
#include <QStackedLayout>
#include <QStyle>
#include <QStringDecoder>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTextFrame>
#include <QTimer>
#include <QVideoSink>
#include <QVideoWidget>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "support/Logs.h"
#include "lang/TL.h"
#include "ui/Desktop.h"
#include "lists/PreviewFile.h"
#include "ui/PdfPage.h"
#include "ui/PreviewMedia.h"
#include "support/Path.h"
#include "support/PathText.h"

namespace ql {

namespace {

// Pictures larger than this are reduced once, on the worker, for drawing.
constexpr int kDrawLimit = 4096;
// Lines longer than this are broken: one endless line would take the text layout seconds.
constexpr int kLineBreakAt = 1000;
constexpr int64_t kResourceLimit = 16 << 20;
constexpr uint64_t kGone = ~uint64_t(0);
// A reader busy this long with a file nobody wants any more is taken for blocked in the kernel.
constexpr auto kAbandonAfter = std::chrono::milliseconds(1000);
// A page with pictures still coming shows without them after this long.
constexpr int kPageWaitMs = 300;
using Clock = std::chrono::steady_clock;

QString headFailureText(const HeadRead& h) {
  switch (h.failure) {
    case HeadRead::System: return QString::fromLocal8Bit(systemErrorText(h.err).c_str());
    case HeadRead::NotRegular: return TL(4261, "Die Datei ist keine reguläre Datei.");
    case HeadRead::TooLarge: return TL(4262, "Die Datei ist zu groß für die Vorschau.");
    case HeadRead::None: break;
  }
  return {};
}

QString decodeText(const QByteArray& bytes) {
  if (const auto bom = QStringConverter::encodingForData(bytes)) {
    QStringDecoder d(*bom);
    return d(bytes);
  }
  QStringDecoder utf8(QStringDecoder::Utf8);
  QString s = utf8(bytes);
  if (!utf8.hasError()) return s;
  return QString::fromLatin1(bytes);
}

// NUL shows as a blank, and endless lines are broken. Most texts need neither, and are kept
// as they are without a copy.
QString sanitize(QString s) {
  const QChar* const begin = s.constData();
  const QChar* const end = begin + s.size();
  qsizetype breaks = 0;
  bool nul = false;
  int column = 0;
  for (const QChar* c = begin; c != end; ++c) {
    const char16_t u = c->unicode();
    if (u == u'\n') {
      column = 0;
    } else {
      nul |= u == 0;
      if (++column > kLineBreakAt) {
        ++breaks;
        column = 1;
      }
    }
  }
  if (!nul && breaks == 0) return s;
  QString out(s.size() + breaks, Qt::Uninitialized);
  QChar* o = out.data();
  column = 0;
  for (const QChar* c = begin; c != end; ++c) {
    if (c->unicode() == u'\n') {
      column = 0;
    } else if (++column > kLineBreakAt) {
      *o++ = QLatin1Char('\n');
      column = 1;
    }
    *o++ = c->unicode() == 0 ? QLatin1Char(' ') : *c;
  }
  return out;
}

// Raw bytes of a file URL's path, so that names that are not UTF-8 stay intact.
std::string urlPathBytes(const QUrl& url) {
  return QByteArray::fromPercentEncoding(url.path(QUrl::FullyEncoded).toLatin1()).toStdString();
}

using Resources = QHash<QUrl, QVariant>;

// An HTML document that reads nothing: it is given what the reader prepared for it (pictures
// and style sheets of its page), and anything else it asks for stays empty.
class SafeDocument : public QTextDocument {
 public:
  SafeDocument(Resources resources, QObject* parent) : QTextDocument(parent), resources_(std::move(resources)) {}

 protected:
  QVariant loadResource(int, const QUrl& name) override { return resources_.value(baseUrl().resolved(name)); }

 private:
  Resources resources_;
};

// Reads a page's style sheets as its parser asks for them, and keeps them; on the reader.
class SheetReader : public QTextDocument {
 public:
  explicit SheetReader(Resources& found) : found_(found) {}

 protected:
  QVariant loadResource(int type, const QUrl& name) override {
    const QUrl url = baseUrl().resolved(name);
    if (type != QTextDocument::StyleSheetResource || !url.isLocalFile() || !url.host().isEmpty()) return {};
    HeadRead h = readFileHead(urlPathBytes(url), kResourceLimit, true);
    if (h.failure != HeadRead::None) return {};
    const QString sheet = QString::fromUtf8(h.bytes);
    found_.insert(url, sheet);
    return sheet;
  }

 private:
  Resources& found_;
};

// A picture's bytes that stop coming when `go` says no: a decoder asks for them piece by piece,
// so a page the user has left, or one out of time, stops decoding within a piece.
class StoppableBuffer : public QBuffer {
 public:
  StoppableBuffer(QByteArray* bytes, std::function<bool()> go) : QBuffer(bytes), go_(std::move(go)) {}

 protected:
  qint64 readData(char* data, qint64 max) override { return go_() ? QBuffer::readData(data, max) : -1; }

 private:
  std::function<bool()> go_;
};

// Every picture a parsed page names, as absolute URLs: images, and backgrounds of the page,
// its blocks, tables and cells.
QList<QUrl> picturesOf(const QTextDocument& doc) {
  QList<QUrl> urls;
  auto add = [&](const QTextFormat& f) {
    QString name;
    if (f.isImageFormat()) name = f.toImageFormat().name();
    if (!name.isEmpty()) urls << doc.baseUrl().resolved(QUrl(name));
    const QString background = f.stringProperty(QTextFormat::BackgroundImageUrl);
    if (!background.isEmpty()) urls << doc.baseUrl().resolved(QUrl(background));
  };
  std::vector<QTextFrame*> frames{doc.rootFrame()};
  while (!frames.empty()) {
    QTextFrame* f = frames.back();
    frames.pop_back();
    add(f->frameFormat());
    for (QTextFrame* child : f->childFrames()) frames.push_back(child);
  }
  for (QTextBlock b = doc.begin(); b.isValid(); b = b.next()) {
    add(b.blockFormat());
    for (auto it = b.begin(); !it.atEnd(); ++it) add(it.fragment().charFormat());
  }
  return urls;
}

// The pictures of a page, each at most `width` wide, within the page's budget and time; the
// rest are left out. On the reader.
void preparePictures(const QString& html, const QUrl& base, int width, Resources& out,
                     const std::function<bool()>& wanted) {
  QList<QUrl> urls;
  {
    SheetReader parsed(out);
    parsed.setBaseUrl(base);
    parsed.setHtml(html);
    urls = picturesOf(parsed);
  }
  const auto deadline = Clock::now() + std::chrono::milliseconds(PreviewPane::kPagePictureTimeMs);
  const auto go = [&] { return wanted() && Clock::now() < deadline; };
  int64_t used = 0;
  QSet<QUrl> tried;
  for (const QUrl& url : urls) {
    if (!go()) break;
    if (tried.contains(url) || out.contains(url) || !url.isLocalFile() || !url.host().isEmpty()) continue;
    tried.insert(url);
    HeadRead h = readFileHead(urlPathBytes(url), kResourceLimit, true);
    if (h.failure != HeadRead::None) continue;
    StoppableBuffer buffer(&h.bytes, go);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    QSize size = reader.size();
    if (size.isValid()) {
      if (int64_t(size.width()) * size.height() * 4 > int64_t(PreviewPane::kPictureAllocationMiB) << 20) continue;
      if (size.width() > width) size = QSize(width, std::max(1, int(int64_t(size.height()) * width / size.width())));
      if (used + int64_t(size.width()) * size.height() * 4 > PreviewPane::kPagePictureBudget) continue;
      // Decoders that can (JPEG) make the small picture straight away.
      if (size != reader.size() && reader.supportsOption(QImageIOHandler::ScaledSize)) reader.setScaledSize(size);
    }
    QImage image;
    if (!reader.read(&image) || image.isNull()) continue;
    if (image.width() > width) image = image.scaledToWidth(width, Qt::SmoothTransformation);
    if (used + image.sizeInBytes() > PreviewPane::kPagePictureBudget) continue;
    used += image.sizeInBytes();
    out.insert(url, image);
  }
}

// Where GStreamer looks for its plugins: the system path variables replace the default folders.
bool gstreamerPlaybackPresent(QString* why) {
  const QByteArray backend = qgetenv("QT_MEDIA_BACKEND");
  if (!backend.isEmpty() && backend != "gstreamer") return true;  // another backend decides itself
  QStringList dirs;
  for (const char* var : {"GST_PLUGIN_PATH_1_0", "GST_PLUGIN_PATH"})
    dirs += QString::fromLocal8Bit(qgetenv(var)).split(QLatin1Char(':'), Qt::SkipEmptyParts);
  QStringList system;
  for (const char* var : {"GST_PLUGIN_SYSTEM_PATH_1_0", "GST_PLUGIN_SYSTEM_PATH"})
    if (qEnvironmentVariableIsSet(var)) {
      system = QString::fromLocal8Bit(qgetenv(var)).split(QLatin1Char(':'), Qt::SkipEmptyParts);
      break;
    }
  if (system.isEmpty() && !qEnvironmentVariableIsSet("GST_PLUGIN_SYSTEM_PATH_1_0") &&
      !qEnvironmentVariableIsSet("GST_PLUGIN_SYSTEM_PATH")) {
    for (const QString& lib : {QStringLiteral("/usr/lib"), QStringLiteral("/usr/lib64"), QStringLiteral("/usr/local/lib")}) {
      system << lib + QStringLiteral("/gstreamer-1.0");
      for (const QString& arch : QDir(lib).entryList({QStringLiteral("*-linux-*")}, QDir::Dirs))
        system << lib + QLatin1Char('/') + arch + QStringLiteral("/gstreamer-1.0");
    }
  }
  dirs += system;
  for (const QString& d : dirs)
    if (QFileInfo::exists(d + QStringLiteral("/libgstplayback.so"))) return true;
  *why = QStringLiteral("the GStreamer plugin 'playback' (gstreamer1.0-plugins-base) is missing");
  return false;
}

}  // namespace

// --- The picture ------------------------------------------------------------------------------

PictureBox::PictureBox(QWidget* parent) : QWidget(parent) {
  setAutoFillBackground(true);
  QPalette p = palette();
  p.setColor(QPalette::Window, Qt::white);
  setPalette(p);
}

void PictureBox::setPicture(const QImage& image, QSize fullSize) {
  image_ = image;
  fullSize_ = fullSize.isValid() ? fullSize : image.size();
  scaled_ = QImage();
  update();
}

void PictureBox::clear() {
  image_ = scaled_ = QImage();
  fullSize_ = QSize();
  update();
}

QSize PictureBox::drawnSize() const { return zoomPictureSize(fullSize_, size()); }

void PictureBox::resizeEvent(QResizeEvent*) { scaled_ = QImage(); }

void PictureBox::paintEvent(QPaintEvent*) {
  if (image_.isNull()) return;
  const QSize want = drawnSize();
  if (scaled_.size() != want)
    scaled_ = image_.size() == want ? image_ : image_.scaled(want, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
  QPainter(this).drawImage(0, 0, scaled_);
}

void ZoomPicture(const QImage& source, PictureBox& target) {
  if (source.isNull()) return;
  target.setPicture(source, source.size());
}

// --- Reading on a worker ----------------------------------------------------------------------

struct PreviewPane::Result {
  Job job;
  uint64_t ticket = 0;
  std::string path;
  int width = 0;  // of the page's view, for its pictures
  int number = 0;
  QString error;  // not empty: the file cannot be shown
  QString text;
  QImage image;
  QSize fullSize;
  Resources resources;
};

// One reader thread and its mailbox for one job. The thread holds the mailbox too, so a reader
// the pane leaves behind (blocked in the kernel on a dead mount) ends on its own whenever its
// call returns, and touches nothing of the pane's.
struct PreviewPane::Reader {
  std::mutex m;
  std::condition_variable cv;
  std::function<void()> next;
  bool quit = false;
  Clock::time_point busySince{};  // the start of the job in hand; zero while waiting

  static std::shared_ptr<Reader> launch() {
    auto r = std::make_shared<Reader>();
    std::thread([r] { r->run(); }).detach();
    return r;
  }

  void run() {
    // The reader gives way to the window's thread: on two cores a text being decoded would
    // otherwise hold up the drawing of the list the user is moving through.
    ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), 10);
    std::unique_lock lock(m);
    for (;;) {
      cv.wait(lock, [&] { return quit || next; });
      if (quit) return;
      std::function<void()> job = std::move(next);
      next = nullptr;
      busySince = Clock::now();
      lock.unlock();
      job();
      job = nullptr;
      lock.lock();
      busySince = {};
    }
  }

  // A newer job replaces one not yet begun: only the file asked for last is wanted.
  void post(std::function<void()> job) {
    std::lock_guard lock(m);
    next = std::move(job);
    cv.notify_one();
  }
  std::function<void()> takeNext() {
    std::lock_guard lock(m);
    return std::exchange(next, nullptr);
  }
  bool waiting() {
    std::lock_guard lock(m);
    return next != nullptr;
  }
  Clock::duration busyFor() {
    std::lock_guard lock(m);
    return busySince == Clock::time_point{} ? Clock::duration::zero() : Clock::now() - busySince;
  }
  void leave() {
    std::lock_guard lock(m);
    quit = true;
    next = nullptr;
    cv.notify_one();
  }
};

void PreviewPane::start(Job job, const std::string& path) {
  loading_ = true;
  reading_ = path;
  readLimit_->start();
  auto r = std::make_shared<Result>();
  r->job = job;
  r->ticket = ticket_;
  r->path = path;
  // The page's view may not have been shown yet: its width is the pane's, less a scroll bar.
  r->width = std::max(64, width() - style()->pixelMetric(QStyle::PM_ScrollBarExtent) -
                              2 * int(browser_->document()->documentMargin()));
  auto latest = latest_;
  const Send send = [latest, this](std::shared_ptr<Result> out) {
    if (latest->load() != out->ticket) return;
    QMetaObject::invokeMethod(
        qApp,
        [out, latest, this] {
          if (latest->load() == kGone) return;  // the pane is gone: `this` is not touched
          guard_.run("Filelist_Preview", [&] { take(out); });
        },
        Qt::QueuedConnection);
  };
  auto work = [r, latest, send] {
    // A file the user has already left is not read at all, nor decoded any further.
    const auto wanted = [&] { return latest->load() == r->ticket; };
    if (wanted()) load(r, wanted, send);
  };
  if (!reader_ || reader_->busyFor() >= kAbandonAfter) {
    if (reader_) reader_->leave();
    reader_ = Reader::launch();
  }
  reader_->post(std::move(work));
  watchReader();
}

// A file waiting behind a reader that has been busy too long goes to a new reader.
void PreviewPane::watchReader() {
  if (!reader_ || !reader_->waiting()) return;
  const auto busy = reader_->busyFor();
  if (busy >= kAbandonAfter) {
    auto job = reader_->takeNext();
    reader_->leave();
    reader_ = Reader::launch();
    if (job) reader_->post(std::move(job));
    return;
  }
  if (busy > Clock::duration::zero())
    readerWatch_->start(
        int(std::chrono::ceil<std::chrono::milliseconds>(kAbandonAfter - busy).count()) + 1);
}

// The file asked for last did not come in time: its reader is left behind, whatever holds it.
void PreviewPane::readerTimedOut() {
  if (!loading_ || reading_.empty()) return;
  if (pdfRun_) {
    dropPdfRun();
    showError(reading_, 0, TL(4264, "Die PDF-Datei ist beschädigt oder unvollständig."));
    return;
  }
  if (reader_) reader_->leave();
  reader_.reset();
  latest_->store(++ticket_);  // whatever it still sends is dropped
  showError(reading_, ETIMEDOUT, QString::fromLocal8Bit(systemErrorText(ETIMEDOUT).c_str()));
}

void PreviewPane::load(const std::shared_ptr<Result>& shared, const std::function<bool()>& wanted, const Send& send) {
  Result& r = *shared;
  const bool whole = r.job == Job::Picture;
  const int64_t limit = r.job == Job::Text ? kTextLimit : r.job == Job::Html ? kHtmlLimit : whole ? kDocumentLimit : 0;
  HeadRead h = readFileHead(r.path, limit, whole);
  if (h.failure != HeadRead::None) {
    r.number = h.err;
    r.error = headFailureText(h);
    send(shared);
    return;
  }
  if (!wanted()) return;
  switch (r.job) {
    case Job::Text: {
      const bool truncated = h.truncated();
      const qsizetype shown = h.bytes.size();
      QString decoded = decodeText(h.bytes);
      h.bytes = QByteArray();
      if (!wanted()) return;
      QString text = sanitize(std::move(decoded));
      if (truncated) {
        const QLocale l;
        text += QStringLiteral("\n\n") + TL(4260, "--- Angezeigt werden die ersten %1 von %2 ---",
                                            {l.formattedDataSize(shown), l.formattedDataSize(h.size)});
      }
      r.text = std::move(text);
      break;
    }
    case Job::Html: {
      // The page is laid out on the user-interface thread, where its view is; here it is only
      // parsed for the pictures it names. Its text goes first, so that a picture that takes
      // long (or blocks on a dead mount) does not keep the page away.
      QStringDecoder decoder(QStringConverter::encodingForHtml(h.bytes).value_or(QStringConverter::Utf8));
      r.text = decoder(h.bytes);
      send(std::make_shared<Result>(r));
      auto pictures = std::make_shared<Result>();
      pictures->job = Job::HtmlPictures;
      pictures->ticket = r.ticket;
      pictures->path = r.path;
      preparePictures(r.text, fileUrl(r.path), r.width, pictures->resources, wanted);
      if (wanted()) send(pictures);
      return;
    }
    case Job::Picture: {
      QBuffer buffer(&h.bytes);
      buffer.open(QIODevice::ReadOnly);
      QImageReader reader(&buffer);
      const QSize size = reader.size();
      if (size.isValid() && int64_t(size.width()) * size.height() * 4 > int64_t(kPictureAllocationMiB) << 20) {
        r.error = TL(4263, "Das Bild ist zu groß für die Vorschau.");
        break;
      }
      QImage image;
      if (!reader.read(&image) || image.isNull()) {
        r.error = reader.errorString();
        break;
      }
      r.fullSize = image.size();
      if (image.width() > kDrawLimit || image.height() > kDrawLimit)
        image = image.scaled(kDrawLimit, kDrawLimit, Qt::KeepAspectRatio, Qt::SmoothTransformation);
      r.image = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
      break;
    }
    case Job::HtmlPictures:
    case Job::Media: break;  // only made sure that it is a regular file
  }
  if (wanted()) send(shared);
}

// --- The pane ---------------------------------------------------------------------------------

PreviewPane::PreviewPane(const Guard& guard, QWidget* parent) : QWidget(parent), guard_(guard) {
  setObjectName(QStringLiteral("picPreview"));
  QImageReader::setAllocationLimit(kPictureAllocationMiB);
  // One reader at a time: a newer file makes a waiting one void, and the other core stays free.
  readerWatch_ = new QTimer(this);
  readerWatch_->setSingleShot(true);
  connect(readerWatch_, &QTimer::timeout, this, guard_.wrap("Filelist_Preview", [this] { watchReader(); }));
  readLimit_ = new QTimer(this);
  readLimit_->setSingleShot(true);
  readLimit_->setInterval(kReadLimitMs);
  connect(readLimit_, &QTimer::timeout, this, guard_.wrap("Filelist_Preview", [this] { readerTimedOut(); }));
  pdfRedraw_ = new QTimer(this);
  pdfRedraw_->setSingleShot(true);
  pdfRedraw_->setInterval(150);
  connect(pdfRedraw_, &QTimer::timeout, this, guard_.wrap("Filelist_Preview", [this] {
            const QSize box = pdfBox();
            if (!loading_ && shownViewer() == pdfPage_ && !pdfPath_.empty() &&
                (box.width() > pdfBox_.width() || box.height() > pdfBox_.height()))
              renderPdf(pdfPath_);  // the page drawn now stays until the larger one is there
          }));
  pageWait_ = new QTimer(this);
  pageWait_->setSingleShot(true);
  pageWait_->setInterval(kPageWaitMs);
  connect(pageWait_, &QTimer::timeout, this, guard_.wrap("Filelist_Preview", [this] { showPage(false); }));
  stack_ = new QStackedLayout(this);
  stack_->setContentsMargins(0, 0, 0, 0);

  text_ = new QPlainTextEdit(this);
  text_->setObjectName(QStringLiteral("rtfVorschau"));
  text_->setReadOnly(true);
  text_->setFrameShape(QFrame::NoFrame);
  text_->setLineWrapMode(QPlainTextEdit::NoWrap);  // wrapping would lay out every line of a long file
  text_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
  QPalette p = text_->palette();
  p.setColor(QPalette::Base, Qt::white);
  p.setColor(QPalette::Text, Qt::black);
  text_->setPalette(p);
  stack_->addWidget(text_);

  browser_ = new QTextBrowser(this);
  browser_->setObjectName(QStringLiteral("WebBrowser1"));
  browser_->setFrameShape(QFrame::NoFrame);
  browser_->setOpenLinks(false);
  browser_->setOpenExternalLinks(false);
  browser_->setPalette(p);
  stack_->addWidget(browser_);

  pdfPage_ = new PictureBox(this);
  pdfPage_->setObjectName(QStringLiteral("pdfVorschau"));
  stack_->addWidget(pdfPage_);

  picture_ = new PictureBox(this);
  picture_->setObjectName(QStringLiteral("picVorschau"));
  stack_->addWidget(picture_);
  empty_ = new QWidget(this);
  empty_->setObjectName(QStringLiteral("picEmpty"));
  stack_->addWidget(empty_);
  stack_->setCurrentWidget(text_);

  videoWait_ = new QTimer(this);
  videoWait_->setInterval(50);
  connect(videoWait_, &QTimer::timeout, this, guard_.wrap("Filelist_Preview", [this] { pollVideoSize(); }));
}

PreviewPane::~PreviewPane() {
  latest_->store(kGone);
  if (reader_) reader_->leave();
  dropPdfRun();
  media_.reset();  // before the video widget goes
}

QWidget* PreviewPane::shownViewer() const { return stack_->currentWidget(); }

void PreviewPane::showViewer(QWidget* w) {
  if (stack_->currentWidget() != w) stack_->setCurrentWidget(w);
}

void PreviewPane::finish() {
  loading_ = false;
  Q_EMIT shown();
}

void PreviewPane::setTextDocument(QTextDocument* doc) {
  // The view deletes a document it made itself; the ones made here are deleted here.
  QTextDocument* old = text_->document();
  if (old->parent() != text_) old = nullptr;
  text_->setDocument(doc);
  doc->setParent(text_);
  if (old) old->deleteLater();
}

void PreviewPane::setText(const QString& text) {
  pendingText_.clear();
  auto* doc = new QTextDocument;
  doc->setDocumentLayout(new QPlainTextDocumentLayout(doc));
  doc->setUndoRedoEnabled(false);
  doc->setDefaultFont(text_->font());
  doc->setPlainText(text);
  setTextDocument(doc);
}

// A view lays out all of a document it is given at once: for a hundred thousand lines that
// alone holds the window up for a fifth of a second. So a long text goes in piece by piece, at
// line ends, each piece a turn of the event loop.
void PreviewPane::showTextInSlices(QString text) {
  constexpr qsizetype kSlice = 64 * 1024;
  qsizetype end = std::min(text.size(), kSlice);
  if (end < text.size())
    if (const qsizetype line = text.lastIndexOf(QLatin1Char('\n'), end - 1); line > 0) end = line + 1;
  setText(text.left(end));
  showViewer(text_);
  if (end >= text.size()) {
    finish();
    return;
  }
  pendingText_ = std::move(text);
  pendingAt_ = end;
  pendingTicket_ = ticket_;
  QTimer::singleShot(0, this, guard_.wrap("Filelist_Preview", [this] { appendSlice(); }));
}

void PreviewPane::appendSlice() {
  if (pendingText_.isEmpty() || pendingTicket_ != ticket_) return;  // another file since
  constexpr qsizetype kSlice = 64 * 1024;
  qsizetype end = std::min(pendingText_.size(), pendingAt_ + kSlice);
  if (end < pendingText_.size())
    if (const qsizetype line = pendingText_.lastIndexOf(QLatin1Char('\n'), end - 1); line > pendingAt_) end = line + 1;
  QTextCursor cursor(text_->document());
  cursor.movePosition(QTextCursor::End);
  cursor.insertText(pendingText_.mid(pendingAt_, end - pendingAt_));
  pendingAt_ = end;
  if (pendingAt_ >= pendingText_.size()) {
    pendingText_.clear();
    finish();
    return;
  }
  QTimer::singleShot(0, this, guard_.wrap("Filelist_Preview", [this] { appendSlice(); }));
}

void PreviewPane::showFile(const std::string& path, bool force) {
  if (!force && path == last_) return;
  last_ = path;
  latest_->store(++ticket_);
  forget();
  const PreviewClass cls = previewClassOf(path);
  if (cls != kPreviewMedia) stopPlayer();  // stopped before it is hidden, so sound ends at once
  const std::string key = previewKey(path);
  switch (cls) {
    case kPreviewNone: showNotice(); break;
    case kPreviewText: start(Job::Text, path); break;
    case kPreviewDocument:
      if (key == "/htm/" || key == "/html/")
        start(Job::Html, path);
      else if (key == "/pdf/")
        renderPdf(path);
      else if (key == "/png/")
        start(Job::Picture, path);
      else
        showNotice();  // office files and the like have no viewer here
      break;
    case kPreviewPicture: start(Job::Picture, path); break;
    case kPreviewMedia: start(Job::Media, path); break;
  }
}

void PreviewPane::showNotice() {
  setText(QStringLiteral("\n") + TL(3670, " - Unbekanntes Dateiformat - "));
  showViewer(text_);
  finish();
}

void PreviewPane::showError(const std::string& path, int number, const QString& description) {
  WriteErrorLog(QString::number(number) + QStringLiteral(" - ") + description + QStringLiteral(" (") + pathText(path) +
                QLatin1Char(')'));
  last_.clear();  // the next attempt is not skipped
  stopPlayer();
  setText(TL(3671, "Die Datei '%1' kann nicht angezeigt werden!%!%!", {pathText(path)}) + QStringLiteral("ERROR: ") +
          description);
  showViewer(text_);
  finish();
}

void PreviewPane::take(const std::shared_ptr<Result>& r) {
  if (r->ticket != ticket_) return;  // the user has moved on
  if (r->job != Job::HtmlPictures) {
    readLimit_->stop();
    reading_.clear();
  }
  if (!r->error.isEmpty()) {
    showError(r->path, r->number, r->error);
    return;
  }
  switch (r->job) {
    case Job::Text:
      showTextInSlices(std::move(r->text));
      break;
    case Job::Html:
      page_ = r;
      pageShown_ = false;
      pageWait_->start();
      break;
    case Job::HtmlPictures:
      if (!page_ || page_->ticket != r->ticket) return;
      page_->resources = std::move(r->resources);
      showPage(true);
      break;
    case Job::Picture:
      picture_->setPicture(r->image, r->fullSize);
      showViewer(picture_);
      finish();
      break;
    case Job::Media: playMedia(r->path); break;
  }
}

// The page goes into its view with what the reader prepared for it: without its pictures while
// they are still coming, and again, laid out anew, once they are there.
void PreviewPane::showPage(bool withPictures) {
  if (!page_ || page_->ticket != ticket_) return;
  if (!withPictures && pageShown_) return;
  pageWait_->stop();
  // The view deletes a document it made itself; the ones made here are deleted here.
  QTextDocument* old = browser_->document();
  if (old->parent() != browser_) old = nullptr;
  const int scrolled = browser_->verticalScrollBar()->value();
  auto* doc = new SafeDocument(withPictures ? page_->resources : Resources(), browser_);
  doc->setBaseUrl(fileUrl(page_->path));
  doc->setHtml(page_->text);
  browser_->setDocument(doc);
  if (old) old->deleteLater();
  if (pageShown_) {
    browser_->verticalScrollBar()->setValue(scrolled);
    return;
  }
  pageShown_ = true;
  showViewer(browser_);
  finish();
}

// --- PDF --------------------------------------------------------------------------------------

// The page is drawn for the pane's size in pixels.
QSize PreviewPane::pdfBox() const {
  return (size() * devicePixelRatioF()).boundedTo({kPdfPageMaxSide, kPdfPageMaxSide}).expandedTo({64, 64});
}

void PreviewPane::resizeEvent(QResizeEvent* e) {
  QWidget::resizeEvent(e);
  if (!pdfPath_.empty()) pdfRedraw_->start();
}

void PreviewPane::renderPdf(const std::string& path) {
  dropPdfRun();
  loading_ = true;
  reading_ = path;
  readLimit_->start();
  const QString program =
      pdfRenderer_.isEmpty() ? qApp->property(kPdfRendererProperty).toString() : pdfRenderer_;
  const QSize box = pdfBox();
  pdfBox_ = box;
  auto* run = new QProcess(this);
  pdfRun_ = run;
  run->setStandardInputFile(QProcess::nullDevice());
  connect(run, &QProcess::finished, this, guard_.wrap("Filelist_Preview", [this, run, path] { pdfDone(run, path); }));
  connect(run, &QProcess::errorOccurred, this, guard_.wrap("Filelist_Preview", [this, run, path](QProcess::ProcessError e) {
            if (e == QProcess::FailedToStart) pdfDone(run, path);
          }));
  run->start(program, {QString::fromLatin1(kRenderPdfPageOption),
                       QString::fromLatin1(QByteArray::fromStdString(path).toPercentEncoding("/")),
                       QString::number(box.width()), QString::number(box.height())});
}

void PreviewPane::pdfDone(QProcess* run, const std::string& path) {
  if (run != pdfRun_) return;
  pdfRun_ = nullptr;
  run->deleteLater();
  readLimit_->stop();
  reading_.clear();
  const int number = run->readAllStandardError().trimmed().toInt();
  if (run->error() == QProcess::FailedToStart) {
    showError(path, 0, run->errorString());
    return;
  }
  if (run->exitStatus() == QProcess::NormalExit) {
    switch (run->exitCode()) {
      case kPdfPageDrawn: {
        const QImage page = QImage::fromData(run->readAllStandardOutput(), "PNG");
        if (page.isNull()) break;
        pdfPage_->setPicture(page, page.size());
        pdfPath_ = path;
        showViewer(pdfPage_);
        finish();
        return;
      }
      case kPdfPageSystem:
        showError(path, number, QString::fromLocal8Bit(systemErrorText(number).c_str()));
        return;
      case kPdfPageNotRegular: showError(path, 0, TL(4261, "Die Datei ist keine reguläre Datei.")); return;
      case kPdfPageTooLarge: showError(path, 0, TL(4262, "Die Datei ist zu groß für die Vorschau.")); return;
      case kPdfPageDocument:
        if (number == int(QPdfDocument::Error::IncorrectPassword) ||
            number == int(QPdfDocument::Error::UnsupportedSecurityScheme)) {
          showError(path, number, TL(4265, "Die PDF-Datei ist durch ein Kennwort geschützt."));
          return;
        }
        break;
      default: break;
    }
  }
  // A page that cannot be drawn, or a helper that fell over on it.
  showError(path, number, TL(4264, "Die PDF-Datei ist beschädigt oder unvollständig."));
}

// The helper drawing a page nobody wants any more is killed. It is not waited for: one held in
// the kernel (a dead mount) goes whenever it can, and its object with it.
void PreviewPane::dropPdfRun() {
  QProcess* run = std::exchange(pdfRun_, nullptr);
  if (!run) return;
  disconnect(run, nullptr, this, nullptr);
  if (run->state() == QProcess::NotRunning) {
    run->deleteLater();
    return;
  }
  run->setParent(nullptr);
  QObject::connect(run, &QProcess::finished, run, &QObject::deleteLater);
  run->kill();
}

// --- Sound and video --------------------------------------------------------------------------

bool PreviewPane::makePlayer() {
  playerTried_ = true;
  QString why;
  if (!gstreamerPlaybackPresent(&why)) {
    WriteErrorLog(QStringLiteral("QMediaPlayer: 0 - ") + why);
    return false;
  }
  building_ = true;
  PreviewMedia::Callbacks callbacks;
  callbacks.built = guard_.wrap("Filelist_Preview", [this](bool ok, const QString& text) { onPlayerBuilt(ok, text); });
  callbacks.failed = guard_.wrap("MPlayer4_Error", [this](uint64_t ticket, int e, const QString& text) {
    if (ticket != ticket_ || mediaPath_.empty()) return;  // not about the file shown
    videoWait_->stop();
    showError(mediaPath_, e, text);
  });
  media_ = std::make_unique<PreviewMedia>(this, std::move(callbacks));
  return true;
}

void PreviewPane::onPlayerBuilt(bool ok, const QString& why) {
  building_ = false;
  if (ok) {
    video_ = new QVideoWidget(this);
    video_->setObjectName(QStringLiteral("MPlayer4"));
    stack_->addWidget(video_);
    media_->setVideoSink(video_->videoSink());
    // Queued: the sink tells of a new size while it holds the lock that videoSize() takes.
    connect(video_->videoSink(), &QVideoSink::videoSizeChanged, this,
            guard_.wrap("Filelist_Preview", [this] { pollVideoSize(); }), Qt::QueuedConnection);
    playerKind_ = 2;
  } else {
    WriteErrorLog(QStringLiteral("QMediaPlayer: ") + why);
    media_.reset();
  }
  // The media file that waited for the player, if the user is still on it.
  if (mediaTicket_ == ticket_ && loading_) playMedia(mediaPath_);
}

void PreviewPane::stopPlayer() {
  videoWait_->stop();
  if (media_ && mediaLoaded_) media_->stop();
  mediaLoaded_ = false;
}

void PreviewPane::playMedia(const std::string& path) {
  if (!playerTried_) makePlayer();
  mediaPath_ = path;
  if (building_) {
    mediaTicket_ = ticket_;  // played once the player is there
    return;
  }
  if (playerKind_ == 0) {
    showViewer(empty_);  // without a player a media file shows nothing
    finish();
    return;
  }
  notedVideoSize_ = video_->videoSink()->videoSize();
  media_->play(fileUrl(path), ticket_);
  mediaLoaded_ = true;
  if (stack_->currentWidget() == video_) {  // a player already in the pane is not set again
    finish();
    return;
  }
  videoClock_.start();
  videoWait_->start();
}

// The pane takes the player once it has its video size, or after the wait at the latest.
void PreviewPane::pollVideoSize() {
  if (!videoWait_->isActive()) return;
  if (video_->videoSink()->videoSize() == notedVideoSize_ && videoClock_.elapsed() < kVideoWaitMs) return;
  videoWait_->stop();
  showViewer(video_);
  finish();
}

// Every viewer emptied, and whatever is still on its way for an earlier file given up.
void PreviewPane::forget() {
  videoWait_->stop();
  readLimit_->stop();
  reading_.clear();
  pageWait_->stop();
  page_.reset();
  dropPdfRun();
  pdfRedraw_->stop();
  pdfPath_.clear();
  picture_->clear();
  pdfPage_->clear();
  browser_->clear();
  setText(QString());
}

void PreviewPane::clear() {
  latest_->store(++ticket_);
  stopPlayer();
  forget();
  last_.clear();
  showViewer(text_);
  loading_ = false;
}

}  // namespace ql
