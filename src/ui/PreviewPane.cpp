#include "ui/PreviewPane.h"

#include <QApplication>
#include <QBuffer>
#include <QDir>
#include <QFontDatabase>
#include <QImageReader>
#include <QLocale>
#include <QPainter>
#include <QPdfDocument>
#include <QPdfPageNavigator>
#include <QPdfView>
#include <QPlainTextDocumentLayout>
#include <QPlainTextEdit>
#include <QStackedLayout>
#include <QStringDecoder>
#include <QTextBrowser>
#include <QThreadPool>
#include <QTimer>
#include <QVideoSink>
#include <QVideoWidget>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>

#include "app/Logs.h"
#include "lang/TL.h"
#include "lists/Desktop.h"
#include "lists/PreviewFile.h"
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

// An HTML document that fetches nothing from the network: only local files, regular and of a
// bounded size, read without ever waiting on a pipe.
class SafeDocument : public QTextDocument {
 public:
  using QTextDocument::QTextDocument;

 protected:
  QVariant loadResource(int, const QUrl& name) override {
    const QUrl url = baseUrl().resolved(name);
    if (!url.isLocalFile() || !url.host().isEmpty()) return {};
    HeadRead h = readFileHead(urlPathBytes(url), kResourceLimit, true);
    if (h.failure != HeadRead::None) return {};
    return h.bytes;
  }
};

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
  int number = 0;
  QString error;  // not empty: the file cannot be shown
  QString text;
  QByteArray bytes;
  QImage image;
  QSize fullSize;
};

void PreviewPane::start(Job job, const std::string& path) {
  loading_ = true;
  auto r = std::make_shared<Result>();
  r->job = job;
  r->ticket = ticket_;
  r->path = path;
  auto latest = latest_;
  pool_->start([r, latest, this] {
    // The reader gives way to the window's thread: on two cores a text being decoded would
    // otherwise hold up the drawing of the list the user is moving through.
    static thread_local bool lowered = false;
    if (!lowered) {
      ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), 10);
      lowered = true;
    }
    // A file the user has already left is not read at all, nor decoded any further.
    const auto wanted = [&] { return latest->load() == r->ticket; };
    if (!wanted()) return;
    load(*r, wanted);
    if (!wanted()) return;
    QMetaObject::invokeMethod(
        qApp,
        [r, latest, this] {
          if (latest->load() == kGone) return;  // the pane is gone: `this` is not touched
          guard_.run("Filelist_Preview", [&] { take(r); });
        },
        Qt::QueuedConnection);
  });
}

void PreviewPane::load(Result& r, const std::function<bool()>& wanted) {
  const bool whole = r.job == Job::Pdf || r.job == Job::Picture;
  const int64_t limit = r.job == Job::Text ? kTextLimit : r.job == Job::Html ? kHtmlLimit : whole ? kDocumentLimit : 0;
  HeadRead h = readFileHead(r.path, limit, whole);
  if (h.failure != HeadRead::None) {
    r.number = h.err;
    r.error = headFailureText(h);
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
      // Parsed on the user-interface thread: a document laid out elsewhere does not follow
      // its view (pictures and widths stay as the worker saw them).
      QStringDecoder decoder(QStringConverter::encodingForHtml(h.bytes).value_or(QStringConverter::Utf8));
      r.text = decoder(h.bytes);
      break;
    }
    case Job::Pdf: r.bytes = std::move(h.bytes); break;
    case Job::Picture: {
      QBuffer buffer(&h.bytes);
      buffer.open(QIODevice::ReadOnly);
      QImageReader reader(&buffer);
      const QSize size = reader.size();
      if (size.isValid() && int64_t(size.width()) * size.height() * 4 > int64_t(kPictureAllocationMiB) << 20) {
        r.error = TL(4263, "Das Bild ist zu groß für die Vorschau.");
        return;
      }
      QImage image;
      if (!reader.read(&image) || image.isNull()) {
        r.error = reader.errorString();
        return;
      }
      r.fullSize = image.size();
      if (image.width() > kDrawLimit || image.height() > kDrawLimit)
        image = image.scaled(kDrawLimit, kDrawLimit, Qt::KeepAspectRatio, Qt::SmoothTransformation);
      r.image = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
      break;
    }
    case Job::Media: break;  // only made sure that it is a regular file
  }
}

// --- The pane ---------------------------------------------------------------------------------

PreviewPane::PreviewPane(const Guard& guard, QWidget* parent) : QWidget(parent), guard_(guard) {
  setObjectName(QStringLiteral("picPreview"));
  QImageReader::setAllocationLimit(kPictureAllocationMiB);
  // One reader: a newer file makes the queued ones void, and the other core stays free.
  pool_ = new QThreadPool(this);
  pool_->setMaxThreadCount(1);
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

  pdf_ = new QPdfDocument(this);
  pdfView_ = new QPdfView(this);
  pdfView_->setObjectName(QStringLiteral("pdfVorschau"));
  pdfView_->setFrameShape(QFrame::NoFrame);
  pdfView_->setPageMode(QPdfView::PageMode::SinglePage);
  pdfView_->setZoomMode(QPdfView::ZoomMode::FitToWidth);
  pdfView_->setDocument(pdf_);
  stack_->addWidget(pdfView_);
  connect(pdf_, &QPdfDocument::statusChanged, this, guard_.wrap("WebBrowser1_DocumentComplete", [this] { onPdfStatus(); }));

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
  pool_->clear();
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
  videoWait_->stop();
  picture_->clear();
  browser_->clear();
  if (pdf_->status() != QPdfDocument::Status::Null) pdf_->close();
  setText(QString());
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
        start(Job::Pdf, path);
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
  if (!r->error.isEmpty()) {
    showError(r->path, r->number, r->error);
    return;
  }
  switch (r->job) {
    case Job::Text:
      showTextInSlices(std::move(r->text));
      break;
    case Job::Html: {
      // The view deletes a document it made itself; the ones made here are deleted here.
      QTextDocument* old = browser_->document();
      if (old->parent() != browser_) old = nullptr;
      auto* doc = new SafeDocument(browser_);
      doc->setBaseUrl(fileUrl(r->path));
      doc->setHtml(r->text);
      browser_->setDocument(doc);
      if (old) old->deleteLater();
      showViewer(browser_);
      finish();
      break;
    }
    case Job::Pdf: {
      if (pdfBuffer_) pdfBuffer_->deleteLater();
      pdfBuffer_ = new QBuffer(this);
      pdfBuffer_->setData(std::move(r->bytes));
      pdfBuffer_->open(QIODevice::ReadOnly);
      pdfTicket_ = ticket_;
      pdf_->load(pdfBuffer_);
      onPdfStatus();  // a complete buffer is often taken at once
      break;
    }
    case Job::Picture:
      picture_->setPicture(r->image, r->fullSize);
      showViewer(picture_);
      finish();
      break;
    case Job::Media: playMedia(r->path); break;
  }
}

void PreviewPane::onPdfStatus() {
  if (pdfTicket_ != ticket_ || !loading_) return;
  switch (pdf_->status()) {
    case QPdfDocument::Status::Ready:
      pdfView_->pageNavigator()->jump(0, QPointF(), 0);
      showViewer(pdfView_);
      finish();
      break;
    case QPdfDocument::Status::Error: {
      const auto e = pdf_->error();
      showError(last_, static_cast<int>(e),
                e == QPdfDocument::Error::IncorrectPassword || e == QPdfDocument::Error::UnsupportedSecurityScheme
                    ? TL(4265, "Die PDF-Datei ist durch ein Kennwort geschützt.")
                    : TL(4264, "Die PDF-Datei ist beschädigt oder unvollständig."));
      break;
    }
    default: break;
  }
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
    if (ticket != ticket_ || last_.empty()) return;  // not about the file shown
    videoWait_->stop();
    showError(last_, e, text);
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
  if (mediaTicket_ == ticket_ && loading_) playMedia(last_);
}

void PreviewPane::stopPlayer() {
  videoWait_->stop();
  if (media_ && mediaLoaded_) media_->stop();
  mediaLoaded_ = false;
}

void PreviewPane::playMedia(const std::string& path) {
  if (!playerTried_) makePlayer();
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

void PreviewPane::Filelist_Preview_BildLoeschen() {
  latest_->store(++ticket_);
  stopPlayer();
  browser_->clear();
  if (pdf_->status() != QPdfDocument::Status::Null) pdf_->close();
  picture_->clear();
  setText(QString());
  last_.clear();
  showViewer(text_);
  loading_ = false;
}

}  // namespace ql
