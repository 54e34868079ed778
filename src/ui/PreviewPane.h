#pragma once
// The file preview: one pane, four viewers, chosen by the file's extension (lists/PreviewFile.h).
//  - rtfVorschau: a plain text view in the fixed font (also for rich text, shown as its source);
//  - WebBrowser1: HTML without network and scripts; pdfVorschau: the first page of a PDF;
//    PNG files go to the picture;
//  - picVorschau: a picture drawn top-left, reduced to fit, never enlarged;
//  - MPlayer4: sound and video, built on the first media file only.
//
// Every file is read on a worker thread, bounded: text up to 4 MiB, pictures decoded under an
// allocation limit. Results of a file that is no longer wanted are dropped. A file that cannot
// be shown leaves a message in the text view and a line in the notes log, never a dialog.
//
// Threads: the user-interface thread only, apart from the reads it starts (one at a time, at a
// lower priority) and the player, which runs on a thread of its own (ui/PreviewMedia.h).

#include <QElapsedTimer>
#include <QImage>
#include <QPointer>
#include <QWidget>
#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "ui/Guard.h"

class QBuffer;
class QFont;
class QThread;
class QThreadPool;
class QPdfDocument;
class QPdfView;
class QPlainTextEdit;
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

  explicit PreviewPane(const Guard& guard, QWidget* parent = nullptr);
  ~PreviewPane() override;

  // Shows the file in the viewer of its class. The same path again is not reloaded unless
  // `force`, so that a repeated selection does not restart a video.
  void showFile(const std::string& path, bool force);
  // Empties every viewer and forgets the file; the text view takes the pane.
  void Filelist_Preview_BildLoeschen();

  const std::string& lastPath() const { return last_; }
  // The viewer that holds the pane (one of the objects named above, or an empty widget).
  QWidget* shownViewer() const;
  QPlainTextEdit& textViewer() { return *text_; }
  PictureBox& pictureViewer() { return *picture_; }
  QPdfDocument& pdfDocument() { return *pdf_; }
  // The player on its own thread; none before the first media file, nor without a backend.
  const PreviewMedia* media() const { return media_.get(); }
  // 0 no player (none built yet, or no media backend works), 2 the player is there.
  int playerKind() const { return playerKind_; }
  // A file is being read or the player waits for its video size.
  bool loading() const { return loading_; }

 Q_SIGNALS:
  // The file asked for last is in its viewer, or its message is.
  void shown();

 private:
  struct Result;
  enum class Job { Text, Html, Pdf, Picture, Media };
  void start(Job job, const std::string& path);
  static void load(Result& r, const std::function<bool()>& wanted);  // on the reader
  void take(const std::shared_ptr<Result>& r);
  void setTextDocument(QTextDocument* doc);
  void setText(const QString& text);
  void showTextInSlices(QString text);
  void appendSlice();
  void showNotice();
  void showError(const std::string& path, int number, const QString& description);
  void showViewer(QWidget* w);
  void finish();
  void stopPlayer();
  bool makePlayer();
  void onPlayerBuilt(bool ok, const QString& why);
  void playMedia(const std::string& path);
  void pollVideoSize();
  void onPdfStatus();

  const Guard& guard_;
  QThreadPool* pool_ = nullptr;
  QStackedLayout* stack_ = nullptr;
  QPlainTextEdit* text_ = nullptr;
  QTextBrowser* browser_ = nullptr;
  QPdfView* pdfView_ = nullptr;
  QPdfDocument* pdf_ = nullptr;
  PictureBox* picture_ = nullptr;
  QWidget* empty_ = nullptr;
  std::unique_ptr<PreviewMedia> media_;
  QVideoWidget* video_ = nullptr;
  bool building_ = false;     // the player's thread is building it
  bool mediaLoaded_ = false;  // the player was given a file since its last stop
  uint64_t mediaTicket_ = 0;  // a media file waiting for the player
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
  QBuffer* pdfBuffer_ = nullptr;
  QString pendingText_;  // a long text still going into the view
  qsizetype pendingAt_ = 0;
  uint64_t pendingTicket_ = 0;
  uint64_t pdfTicket_ = 0;
};

}  // namespace ql
