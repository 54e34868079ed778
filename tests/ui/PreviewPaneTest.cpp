// The file preview: the viewer each kind of file lands in, and files that must neither hang nor
// crash the window (a FIFO, a huge sparse file, broken pictures and documents, a PDF that sends
// its library round in circles, a page with huge pictures or one on a dead mount, a page that
// wants the network). Also the list's side of it: clicks, delete, and the preview command that
// both lists share.

#include <QBuffer>
#include <QElapsedTimer>
#include <QImage>
#include <QMediaPlayer>
#include <QPainter>
#include <QPdfWriter>
#include <QPlainTextEdit>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTest>
#include <QTextBrowser>
#include <QTimer>
#include <QTreeView>
#include <QVideoSink>
#include <QVideoWidget>

#include "MediaBytes.h"
#include "TestApp.h"
#include "TestFiles.h"
#include "TestFs.h"
#include "lists/PreviewFile.h"
#include "ui/FileListPane.h"
#include "ui/PreviewMedia.h"
#include "ui/PreviewPane.h"

namespace ql::test {
namespace {

QByteArray imageBytes(const QImage& image, const char* format) {
  QByteArray out;
  QBuffer buffer(&out);
  buffer.open(QIODevice::WriteOnly);
  image.save(&buffer, format);
  return out;
}

// The longest time the event loop went without a turn while the clock ran.
struct StallClock {
  QElapsedTimer clock;
  qint64 last = 0, longest = 0;
  QTimer tick;
  StallClock() {
    clock.start();
    QObject::connect(&tick, &QTimer::timeout, [this] {
      longest = std::max(longest, clock.elapsed() - last);
      last = clock.elapsed();
    });
    tick.start(10);
  }
};

// The smallest PDF whose page tree holds itself as its own kid.
QByteArray selfReferentialPdf() {
  QByteArray out = "%PDF-1.4\n";
  QList<qsizetype> offsets;
  for (const char* object :
       {"<</Type/Catalog/Pages 2 0 R>>", "<</Type/Pages/Kids[2 0 R]/Count 1>>"}) {
    offsets << out.size();
    out += QByteArray::number(offsets.size()) + " 0 obj" + object + "endobj\n";
  }
  const qsizetype xref = out.size();
  out += "xref\n0 3\n0000000000 65535 f \n";
  for (qsizetype o : offsets) out += QByteArray::number(o).rightJustified(10, '0') + " 00000 n \n";
  out += "trailer<</Size 3/Root 1 0 R>>\nstartxref\n" + QByteArray::number(xref) + "\n%%EOF\n";
  return out;
}

class PreviewTest : public ::testing::Test {
 protected:
  void SetUp() override {
    guiApp();
    pane.setPdfRenderer(QStringLiteral(QUORLANE_PROGRAM));
    pane.resize(300, 200);
    pane.show();
  }

  // Shows the file and waits for it to be in its viewer; the call itself must return at once.
  QWidget* show(const std::string& name, bool force = true, int boundMs = 500, int waitMs = 8000) {
    QElapsedTimer t;
    t.start();
    QSignalSpy spy(&pane, &PreviewPane::shown);
    pane.showFile(d / name, force);
    EXPECT_LT(t.elapsed(), boundMs) << name << ": the user-interface thread was held";
    if (pane.loading()) {
      EXPECT_TRUE(spy.wait(waitMs)) << name << ": never shown";
    }
    return pane.shownViewer();
  }
  QString text() { return pane.textViewer().toPlainText(); }

  bool app = (guiApp(), true);  // before any widget
  TempDir d;
  Guard guard;
  PreviewPane pane{guard};
};

// Each kind lands in its viewer; a large picture is reduced to the pane, and a PDF's first page is
// fitted to it.
TEST_F(PreviewTest, EachKindLandsInItsViewer) {
  writeFile(d / "notes.TXT", "hello\tworld\n");
  writeFile(d / "page.html", "<html><body><h1>Title</h1></body></html>");
  QImage big(6000, 2000, QImage::Format_RGB32);
  big.fill(Qt::blue);
  writeFile(d / "big.bmp", imageBytes(big, "BMP"));
  {
    QPdfWriter pdf(QString::fromStdString(d / "doc.pdf"));
    QPainter(&pdf).drawText(100, 100, QStringLiteral("first page"));
  }
  writeFile(d / "README", "no extension");

  EXPECT_EQ(show("notes.TXT")->objectName(), "rtfVorschau");
  EXPECT_EQ(text(), "hello\tworld\n");
  EXPECT_EQ(show("page.html")->objectName(), "WebBrowser1");
  EXPECT_TRUE(pane.findChild<QTextBrowser*>()->toPlainText().contains("Title"));
  EXPECT_EQ(show("big.bmp")->objectName(), "picVorschau");
  EXPECT_EQ(pane.pictureViewer().drawnSize(), QSize(300, 100));
  EXPECT_EQ(zoomPictureSize({5000, 10}, {300, 200}), QSize(300, 1));  // never below one pixel
  EXPECT_EQ(show("doc.pdf")->objectName(), "pdfVorschau");
  EXPECT_EQ(pane.pdfViewer().drawnSize().height(), 200);  // upright: the pane's height
  EXPECT_EQ(show("README")->objectName(), "rtfVorschau");
  EXPECT_EQ(text(), "\n - Unbekanntes Dateiformat - ");
}

TEST_F(PreviewTest, BadFilesGiveTheirMessageAndNeverHang) {
  const QString cannot = QStringLiteral("kann nicht angezeigt werden!");
  // A FIFO named like text: opening it must not wait for a writer.
  ASSERT_EQ(::mkfifo((d / "x.txt").c_str(), 0644), 0);
  show("x.txt");
  EXPECT_TRUE(text().contains(cannot) && text().contains("ERROR: ")) << text().toStdString();
  EXPECT_TRUE(pane.lastPath().empty());  // so that the next attempt is not skipped
  // A file that is gone since the list was read.
  show("vanished.txt");
  EXPECT_TRUE(text().contains("No such file")) << text().toStdString();
  // 10 GB of text: only the head is read, and the last line says how much of how much.
  makeFile(d / "huge.log", int64_t(10) << 30);
  EXPECT_EQ(show("huge.log")->objectName(), "rtfVorschau");
  EXPECT_LT(text().size(), 4.3 * (1 << 20));
  EXPECT_TRUE(text().endsWith("4.00 MiB von 10.00 GiB ---")) << text().right(80).toStdString();
  // Text in PNG clothing: the message, no dialog.
  writeFile(d / "fake.png", "this is no picture at all");
  EXPECT_EQ(show("fake.png")->objectName(), "rtfVorschau");
  EXPECT_TRUE(text().contains(cannot));
  // A JPEG cut in the middle shows what there is, or the message; it must not take the program.
  QImage photo(400, 300, QImage::Format_RGB32);
  photo.fill(Qt::darkGreen);
  writeFile(d / "cut.jpg", imageBytes(photo, "JPEG").left(300));
  const QString shown = show("cut.jpg")->objectName();
  EXPECT_TRUE(shown == "picVorschau" || text().contains(cannot));
}

// Damaged PDFs give their message naming the file, and the window keeps turning meanwhile; the
// self-referential page tree keeps the PDF library busy for good, so it is given up.
TEST_F(PreviewTest, PdfsThatCannotBeDrawnGiveTheirMessageWhileTheWindowTurns) {
  writeFile(d / "loop.pdf", selfReferentialPdf());
  makeDir(d / "folder.pdf");
  const struct {
    const char* name;
    const char* why;
  } cases[] = {{"loop.pdf", "beschädigt"}, {"folder.pdf", "keine reguläre Datei"}};
  for (const auto& c : cases) {
    StallClock stalls;
    EXPECT_EQ(show(c.name, true, 500, 20000)->objectName(), "rtfVorschau") << c.name;
    EXPECT_LT(stalls.longest, 500) << c.name;
    EXPECT_TRUE(text().contains(QString::fromStdString("'" + d / c.name + "'")))
        << text().toStdString();
    EXPECT_TRUE(text().contains(QString::fromUtf8(c.why))) << text().toStdString();
  }
}

// A page's pictures are decoded on the reader, reduced to the pane's width, and the page is laid
// out with them: the heading stays above them and the window never waits for a picture.
TEST_F(PreviewTest, PageWithHugePicturesNeverHoldsTheWindow) {
  QImage big(2500, 2500, QImage::Format_RGB32);
  big.fill(Qt::darkCyan);
  writeFile(d / "p0.png", imageBytes(big, "PNG"));
  QByteArray html = "<html><body><h1>Heading</h1>";
  constexpr int kPictures = 8;
  const auto picture = [&](int i) { return d / ("p" + std::to_string(i) + ".png"); };
  for (int i = 0; i < kPictures; ++i) {
    if (i > 0) {
      ASSERT_EQ(::link(picture(0).c_str(), picture(i).c_str()), 0);
    }
    html += "<p><img src='p" + QByteArray::number(i) + ".png'></p>";
  }
  writeFile(d / "pictures.html", html + "</body></html>");
  StallClock stalls;
  ASSERT_EQ(show("pictures.html")->objectName(), "WebBrowser1");
  auto* browser = pane.findChild<QTextBrowser*>();
  const auto image = [&](int i) {
    return browser->document()
        ->resource(QTextDocument::ImageResource, QUrl::fromLocalFile(qpath(picture(i))))
        .value<QImage>();
  };
  // grab() is what a paint of the page asks for.
  EXPECT_TRUE(
      QTest::qWaitFor([&] { return browser->grab(), !image(kPictures - 1).isNull(); }, 20000));
  EXPECT_LT(stalls.longest, 500) << "the window decoded pictures";
  for (int i = 0; i < kPictures; ++i) {
    ASSERT_FALSE(image(i).isNull()) << i;
    EXPECT_LE(image(i).width(), browser->viewport()->width()) << i;
  }
}

// A picture on a dead mount holds its reader in the kernel; neither the window nor the next
// file waits for it, and a file on the dead mount itself is given up with its message.
TEST_F(PreviewTest, DeadMountHoldsNeitherTheWindowNorTheNextFile) {
  if (::geteuid() != 0) GTEST_SKIP() << "mounting FUSE needs root";
  // The window's thread moves into a mount namespace of its own; readers it starts follow it,
  // and nobody else ever sees the dead mount.
  if (!privateMounts()) GTEST_SKIP() << "no mount namespace";
  makeDir(d / "dead");
  const int fuse = mountDeadFuse(d / "dead");
  if (fuse < 0) GTEST_SKIP() << "no FUSE mount";
  // Detaching the mount and closing the server's end frees whatever waits on it.
  std::atomic<bool> released{false};
  const auto release = [&] {
    if (released.exchange(true)) return;
    ::umount2((d / "dead").c_str(), MNT_DETACH);
    ::close(fuse);
  };
  ASSERT_EQ(::mkfifo((d / "fifo.png").c_str(), 0644), 0);
  writeFile(d / "page.html",
            "<h1>Heading</h1><img src='dead/pic.png'><img src='fifo.png'><p>words</p>");
  writeFile(d / "after.txt", "after");
  {
    const std::jthread hung = watchdog(30, release);
    StallClock stalls;
    ASSERT_EQ(show("page.html")->objectName(), "WebBrowser1");
    EXPECT_TRUE(pane.findChild<QTextBrowser*>()->toPlainText().contains("words"));
    pane.findChild<QTextBrowser*>()->grab();
    EXPECT_EQ(show("after.txt", true, 500, 4000)->objectName(), "rtfVorschau");  // not held up
    EXPECT_EQ(text(), "after");
    show("dead/notes.txt", true, 500, 15000);
    EXPECT_TRUE(text().contains(qpath("'" + d / "dead/notes.txt" + "'"))) << text().toStdString();
    EXPECT_TRUE(text().contains("timed out")) << text().toStdString();
    EXPECT_EQ(show("after.txt", true, 500, 4000)->objectName(), "rtfVorschau");
    EXPECT_EQ(text(), "after");
    EXPECT_LT(stalls.longest, 500);
    EXPECT_FALSE(released) << "the window was held on the dead mount";
  }
  release();
}

TEST_F(PreviewTest, HtmlFetchesNothingFromTheNetwork) {
  QTcpServer server;
  ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
  const QString url = QStringLiteral("http://127.0.0.1:%1/").arg(server.serverPort());
  writeFile(d / "remote.htm", ("<html><head><link rel=stylesheet href='" + url +
                               "s.css'>"
                               "<script>document.write('SCRIPT RAN')</script></head><body>"
                               "<img src='" +
                               url + "a.png'><p>local words</p></body></html>")
                                  .toUtf8());
  ASSERT_EQ(show("remote.htm")->objectName(), "WebBrowser1");
  auto* browser = pane.findChild<QTextBrowser*>();
  browser->grab();  // lays the page out, which is when pictures are asked for
  QTest::qWait(300);
  EXPECT_FALSE(server.hasPendingConnections());
  EXPECT_TRUE(browser->toPlainText().contains("local words"));
  EXPECT_FALSE(browser->toPlainText().contains("SCRIPT RAN"));
}

TEST_F(PreviewTest, SamePathIsNotReloadedUnlessForcedAndOnlyTheLastFileWins) {
  writeFile(d / "a.txt", "first");
  show("a.txt");
  writeFile(d / "a.txt", "changed");
  show("a.txt", false);
  EXPECT_EQ(text(), "first");
  show("a.txt", true);
  EXPECT_EQ(text(), "changed");
  // Quick moves through the list: whatever arrives late for an earlier file is dropped.
  for (int i = 0; i < 20; ++i)
    writeFile(d / ("f" + std::to_string(i) + ".txt"), QByteArray::number(i));
  for (int i = 0; i < 20; ++i) pane.showFile(d / ("f" + std::to_string(i) + ".txt"), false);
  QSignalSpy spy(&pane, &PreviewPane::shown);
  ASSERT_TRUE(pane.loading() ? spy.wait(5000) : true);
  QTest::qWait(200);
  EXPECT_EQ(text(), "19");
  pane.clear();
  EXPECT_TRUE(text().isEmpty() && pane.lastPath().empty());
}

TEST_F(PreviewTest, MediaFilesPlayAndStopWhenTheFileChangesWithoutHoldingTheWindow) {
  writeFile(d / "silence.wav", wavBytes());
  writeFile(d / "empty.mp4", "");
  writeFile(d / "after.txt", "after");
  // GStreamer's own waits (a second for a file that does not start) must stay on the player's
  // thread.
  StallClock stalls;
  QWidget* w = show("silence.wav");
  if (pane.playerKind() == 0) GTEST_SKIP() << "no media backend works here";
  EXPECT_EQ(w->objectName(), "MPlayer4");
  ASSERT_NE(pane.media(), nullptr);
  for (int i = 0; i < 300 && pane.media()->source().isEmpty(); ++i) QTest::qWait(10);
  EXPECT_TRUE(pane.media()->source().toLocalFile().endsWith("silence.wav"));
  // A video after a text: the pane waits for its picture size, which the player's thread
  // finds and hands to the widget.
  writeFile(d / "clip.avi", mjpegAvi(64, 48, 20));
  show("after.txt");
  EXPECT_EQ(show("clip.avi")->objectName(), "MPlayer4");
  auto* video = pane.findChild<QVideoWidget*>();
  ASSERT_NE(video, nullptr);
  for (int i = 0; i < 300 && video->videoSink()->videoSize().isEmpty(); ++i) QTest::qWait(10);
  EXPECT_EQ(video->videoSink()->videoSize(), QSize(64, 48));
  show("empty.mp4");  // an error or an empty picture; either way it comes back
  if (text().contains("ERROR: ")) {
    EXPECT_TRUE(text().contains(QString::fromStdString("'" + d / "empty.mp4" + "'")))
        << text().toStdString();
  }
  show("after.txt");
  EXPECT_EQ(pane.shownViewer()->objectName(), "rtfVorschau");
  for (int i = 0; i < 300 && !pane.media()->source().isEmpty(); ++i) QTest::qWait(10);
  EXPECT_TRUE(pane.media()->source().isEmpty());
  EXPECT_EQ(pane.media()->state(), QMediaPlayer::StoppedState);
  EXPECT_LT(stalls.longest, 500) << "the window waited for the player";
}

// The list's side: a click previews, the bar commands act on both lists, a delete empties.
TEST(PreviewListTest, ClickPreviewsAndBothBarsFollowTheCommands) {
  guiApp();
  TempDir d;
  writeFile(d / "one.txt", "one");
  writeFile(d / "two.txt", "two");
  Guard guard;
  MainOptions o;
  o.FilePreview = 0;
  FileListPane files(FileListPane::Kind::Files, guard, o), top(FileListPane::Kind::Top, guard, o);
  PreviewPane preview(guard);  // goes before the lists that hold it
  files.setPreview(&preview, &top);
  top.setPreview(&preview, &files);
  files.takePreview();
  files.resize(600, 400);
  files.show();
  files.readFolder(d.path());
  ASSERT_TRUE(QTest::qWaitFor([&] { return !files.reading(); }, 5000));
  ASSERT_EQ(files.model().rowCount(), 2);

  QTreeView& view = files.view();
  auto click = [&](int row) {
    const QRect r = view.visualRect(files.model().index(row, 0));
    QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, r.center());
    QSignalSpy spy(&preview, &PreviewPane::shown);
    if (preview.loading()) spy.wait(5000);
  };
  click(0);
  EXPECT_TRUE(preview.lastPath().empty()) << "nothing is loaded while the preview is closed";

  files.bar().setChecked(cmd::files::Preview, true);  // what the click on the button does first
  files.cbrExecute(cmd::files::Preview);
  EXPECT_TRUE(top.bar().isChecked(cmd::files::Preview));

  click(1);
  EXPECT_EQ(preview.lastPath(), files.pathOf(1));
  EXPECT_EQ(preview.textViewer().toPlainText(), files.pathOf(1) == d / "one.txt" ? "one" : "two");

  files.setWarningHandler([](const QString&) {});
  EXPECT_EQ(files.deleteFiles(false), 1);
  EXPECT_TRUE(preview.lastPath().empty());
  EXPECT_TRUE(preview.textViewer().toPlainText().isEmpty());

  // The other list takes the preview over, emptied; the first no longer drives it.
  click(0);
  top.takePreview();
  EXPECT_TRUE(top.holdsPreview() && !files.holdsPreview());
  EXPECT_TRUE(preview.lastPath().empty());
  click(0);
  EXPECT_TRUE(preview.lastPath().empty());
}

}  // namespace
}  // namespace ql::test
