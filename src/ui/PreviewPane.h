#pragma once
// The file preview: one pane, four viewers, chosen by the file's extension (lists/PreviewFile.h).
//  - rtfVorschau: a plain text view in the fixed font (also for rich text, shown as its source);
//  - WebBrowser1: HTML without network and scripts; pdfVorschau: the first page of a PDF,
//    fitted to the pane; PNG files go to the picture;
//  - picVorschau: a picture drawn top-left, reduced to fit, never enlarged;
//  - MPlayer4: sound and video, built on the first media file only.
//
// The window's thread never opens a file. Every file is read on the reader thread, bounded:
// text up to 4 MiB, pictures decoded under an allocation limit, an HTML page together with the
// pictures it names (within a budget, reduced to the pane's width; the page's view is served
// only from what the reader prepared). A PDF page is drawn by a helper process (ui/PdfPage.h)
// that is killed when it takes too long. A file that does not arrive in time is given up with
// its message, and a reader blocked in the kernel (a dead network mount) is left behind: the
// next file gets a new one. Results of a file that is no longer wanted are dropped. A file that
// cannot be shown leaves a message in the text view and a line in the notes log, never a dialog.
//
// Threads: the user-interface thread only, apart from the reader it starts (at a lower
// priority; one at a time, and those left behind end on their own) and the player, which runs
// on a thread of its own (ui/PreviewMedia.h).

#include <QElapsedTimer>
#include <QImage>
#include <QPointer>
#include <QWidget>
#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "failure/Guard.h"

class QFont;
class QPlainTextEdit;
class QProcess;
class QStackedLayout;
class QTextBrowser;
class QTextDocument;
class QTimer;
class QVideoWidget;

namespace ql {

class PreviewMedia;

// Shows a picture in the top left corner at the size zoomPictureSize gives for the box.
class PictureBox : public QWidget {
 public:
  explicit PictureBox(QWidget* parent = nullptr);
  // `fullSize` is the picture's own size; `image` may be a reduced copy of it.
  void setPicture(const QImage& image, QSize fullSize);
  void clear();
  bool hasPicture() const { return !image_.isNull(); }
  QSize drawnSize() const;  // for the box's present size

 protected:
  void paintEvent(QPaintEvent* e) override;
  void resizeEvent(QResizeEvent* e) override;

 private:
  QImage image_;
  QSize fullSize_;
  QImage scaled_;  // image_ at drawnSize(), made once per box size
};

// Draws the picture of `source` into `target` (the name the program has always used).
void ZoomPicture(const QImage& source, PictureBox& target);

class PreviewPane : public QWidget {
  Q_OBJECT
 public:
  static constexpr int64_t kTextLimit = 4 << 20;
  static constexpr int64_t kHtmlLimit = 1 << 20;  // parsed on this thread
  static constexpr int64_t kDocumentLimit = 128 << 20;  // PDF and pictures, read whole
  static constexpr int kPictureAllocationMiB = 256;
  static constexpr int kVideoWaitMs = 2001;
  // A file not read (or a PDF page not drawn) by then is given up with its message.
  static constexpr int kReadLimitMs = 5000;
  // An HTML page's pictures: decoded at most this much in all, and only for this long.
  static constexpr int64_t kPagePictureBudget = int64_t(64) << 20;
  static constexpr int kPagePictureTimeMs = 10000;
  // The application property naming the program that draws PDF pages; the window's start sets
  // it to the program itself. Without one a PDF gives its message.
  static constexpr const char* kPdfRendererProperty = "quorlanePdfRenderer";

  explicit PreviewPane(const Guard& guard, QWidget* parent = nullptr);
  ~PreviewPane() override;

  // Shows the file in the viewer of its class. The same path again is not reloaded unless
  // `force`, so that a repeated selection does not restart a video.
  void showFile(const std::string& path, bool force);
  // Empties every viewer and forgets the file; the text view takes the pane.
  void clear();

  const std::string& lastPath() const { return last_; }
  // The viewer that holds the pane (one of the objects named above, or an empty widget).
  QWidget* shownViewer() const;
  QPlainTextEdit& textViewer() { return *text_; }
  PictureBox& pictureViewer() { return *picture_; }
  PictureBox& pdfViewer() { return *pdfPage_; }
  // The program run as the PDF helper, instead of the application property's.
  void setPdfRenderer(const QString& program) { pdfRenderer_ = program; }
  // The player on its own thread; none before the first media file, nor without a backend.
  const PreviewMedia* media() const { return media_.get(); }
  // 0 no player (none built yet, or no media backend works), 2 the player is there.
  int playerKind() const { return playerKind_; }
  // A file is being read or the player waits for its video size.
  bool loading() const { return loading_; }

 Q_SIGNALS:
  // The file asked for last is in its viewer, or its message is.
  void shown();

 protected:
  void resizeEvent(QResizeEvent* e) override;

 private:
  struct Result;
  struct Reader;
  enum class Job { Text, Html, HtmlPictures, Picture, Media };
  using Send = std::function<void(std::shared_ptr<Result>)>;
  void start(Job job, const std::string& path);
  // On the reader: the file's content, handed over through `send` (a page twice: first its
  // text, then its pictures).
  static void load(const std::shared_ptr<Result>& r, const std::function<bool()>& wanted, const Send& send);
  void take(const std::shared_ptr<Result>& r);
  void watchReader();
  void readerTimedOut();
  void showPage(bool withPictures);
  void renderPdf(const std::string& path);
  QSize pdfBox() const;
  void pdfDone(QProcess* run, const std::string& path);
  void dropPdfRun();
  void setTextDocument(QTextDocument* doc);
  void setText(const QString& text);
  void showTextInSlices(QString text);
  void appendSlice();
  void showNotice();
  void showError(const std::string& path, int number, const QString& description);
  void showViewer(QWidget* w);
  void finish();
  void forget();
  void stopPlayer();
  bool makePlayer();
  void onPlayerBuilt(bool ok, const QString& why);
  void playMedia(const std::string& path);
  void pollVideoSize();

  const Guard& guard_;
  std::shared_ptr<Reader> reader_;  // started on the first file
  QTimer* readerWatch_ = nullptr;   // a file waiting behind a reader that may be blocked
  QTimer* readLimit_ = nullptr;     // the time the file asked for last may take
  std::string reading_;             // that file, while the reader has it
  QStackedLayout* stack_ = nullptr;
  QPlainTextEdit* text_ = nullptr;
  QTextBrowser* browser_ = nullptr;
  std::shared_ptr<Result> page_;  // the HTML page asked for last, its pictures when they came
  bool pageShown_ = false;
  QTimer* pageWait_ = nullptr;    // how long a page waits for its pictures before it shows
  PictureBox* pdfPage_ = nullptr;
  QProcess* pdfRun_ = nullptr;    // the helper drawing the page asked for last
  std::string pdfPath_;           // the PDF whose page is shown, drawn for pdfBox_
  QSize pdfBox_;
  QTimer* pdfRedraw_ = nullptr;   // a grown pane draws the page again, once it rests
  QString pdfRenderer_;
  PictureBox* picture_ = nullptr;
  QWidget* empty_ = nullptr;
  std::unique_ptr<PreviewMedia> media_;
  QVideoWidget* video_ = nullptr;
  bool building_ = false;     // the player's thread is building it
  bool mediaLoaded_ = false;  // the player was given a file since its last stop
  uint64_t mediaTicket_ = 0;  // a media file waiting for the player
  std::string mediaPath_;     // the file given to the player last
  QTimer* videoWait_ = nullptr;
  QElapsedTimer videoClock_;
  QSize notedVideoSize_;
  bool playerTried_ = false;
  int playerKind_ = 0;
  std::string last_;
  uint64_t ticket_ = 0;  // the file asked for last; older results are dropped
  bool loading_ = false;
  // The ticket of the file wanted, shared with the workers; gone with the pane.
  std::shared_ptr<std::atomic<uint64_t>> latest_ = std::make_shared<std::atomic<uint64_t>>(0);
  QString pendingText_;  // a long text still going into the view
  qsizetype pendingAt_ = 0;
  uint64_t pendingTicket_ = 0;
};

}  // namespace ql
