// Measures the file preview while the user moves through a folder with the arrow key, down,
// up and down again: the longest time the user-interface thread goes without serving its event
// loop, and the resident memory after each pass. Memory that keeps growing after the first pass
// grows with the files shown.
//
// usage: QT_QPA_PLATFORM=offscreen quorlane_previewbench [FOLDER] [FILES] [STEP_MS] [PASSES]
// FOLDER is filled with FILES mixed files when missing (default /tmp/quorlane-preview1000,
// 1000 files): text small and large (every 50th 8 MiB), HTML, PNG, JPEG, BMP, PDF, WAV, AVI,
// unknown ones.
// STEP_MS is the time between two key presses (default 30, a held key's repeat rate); PASSES
// defaults to 3.

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QKeyEvent>
#include <QPainter>
#include <QPdfWriter>
#include <QTextBrowser>
#include <QTimer>
#include <QTreeView>
#include <cstdio>
#include <malloc.h>
#include <algorithm>
#include <fstream>
#include <vector>

#include "MediaBytes.h"
#include "support/Allocator.h"
#include "ui/FileListPane.h"
#include "ui/PreviewPane.h"

using namespace ql;

namespace {

long rssKiB() {
  std::ifstream in("/proc/self/status");
  std::string line;
  while (std::getline(in, line))
    if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
  return 0;
}

MainOptions previewShown() {
  MainOptions o;
  o.FilePreview = 1;
  o.FilelistTile = 1;
  return o;
}

// The file list with the preview beside it, on the screen, with the folder read.
struct ListWithPreview {
  Guard guard;
  MainOptions options = previewShown();
  FileListPane files{FileListPane::Kind::Files, guard, options};
  PreviewPane preview{guard};

  ListWithPreview(const QString& folder, QSize size) {
    preview.setPdfRenderer(QStringLiteral(QUORLANE_PROGRAM));  // the program draws PDF pages
    files.setPreview(&preview, nullptr);
    files.takePreview();
    files.resize(size);
    files.show();
    files.readFolder(QFile::encodeName(folder).toStdString());
    while (files.reading()) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
  }
};

void write(const QString& path, const QByteArray& bytes) {
  QFile f(path);
  if (f.open(QIODevice::WriteOnly)) f.write(bytes);
}

void makeFolder(const QString& dir, int count) {
  QDir().mkpath(dir);
  QImage photo(2400, 1600, QImage::Format_RGB32);
  QPainter(&photo).fillRect(photo.rect(), QLinearGradient(0, 0, 2400, 1600));
  photo.save(dir + QStringLiteral("/proto.jpg"), "JPEG", 85);
  QImage small(640, 480, QImage::Format_RGB32);
  small.fill(Qt::darkCyan);
  QByteArray line = QByteArray("The quick brown fox jumps over the lazy dog, 0123456789.\n");
  QByteArray big;
  while (big.size() < (8 << 20)) big += line;
  const QByteArray wav = test::wavBytes();
  const QByteArray avi = test::mjpegAvi(320, 240, 30);
  for (int i = 0; i < count; ++i) {
    const QString base = dir + QStringLiteral("/f%1").arg(i, 4, 10, QLatin1Char('0'));
    switch (i % 10) {
      case 0: write(base + ".txt", line.repeated(200)); break;
      case 1: write(base + ".log", i % 50 == 1 ? big : line.repeated(5000)); break;
      case 2: write(base + ".html", "<html><body><h1>Page</h1><p>" + line.repeated(100) + "</p></body></html>"); break;
      case 3: small.save(base + ".png", "PNG"); break;
      case 4: QFile::copy(dir + "/proto.jpg", base + ".jpg"); break;
      case 5: small.save(base + ".bmp", "BMP"); break;
      case 6: {
        QPdfWriter pdf(base + ".pdf");
        QPainter p(&pdf);
        p.drawText(200, 200, QStringLiteral("Page one"));
        break;
      }
      case 7: write(base + ".csv", line.repeated(2000)); break;
      case 8:
        if (i % 40 == 8) write(base + ".wav", wav);
        else if (i % 40 == 28) write(base + ".avi", avi);
        else write(base + ".dat", line);
        break;
      case 9: write(base + ".xml", "<a>" + line.repeated(500) + "</a>"); break;
    }
  }
  QFile::remove(dir + QStringLiteral("/proto.jpg"));
}

// Pictures of each viewer in a list window, for a look by eye: --shots OUTDIR.
int shots(const QString& out) {
  QDir().mkpath(out + "/files");
  const QString f = out + "/files/";
  write(f + "a_notes.txt", "Plain text in the fixed font.\n\tIndented line\nÄÖÜ äöü ß — UTF-8\n");
  write(f + "b_page.html", "<html><body><h1>Heading</h1><p>Some <b>bold</b> text and a picture:</p>"
                           "<p><img src='h_red.png' width=200></p><img src='http://127.0.0.1:9/x.png'>"
                           "<script>document.write('SCRIPT')</script></body></html>");
  {
    QPdfWriter pdf(f + "c_doc.pdf");
    QPainter p(&pdf);
    QFont font = p.font();
    font.setPointSize(24);
    p.setFont(font);
    p.drawText(500, 1000, QStringLiteral("First page of a PDF"));
    p.drawRect(500, 1500, 6000, 3000);
  }
  QImage img(800, 500, QImage::Format_RGB32);
  QPainter(&img).fillRect(img.rect(), QLinearGradient(0, 0, 800, 500));
  { QPainter p(&img); p.setPen(Qt::red); p.drawLine(0, 0, 799, 499); }
  img.save(f + "d_pic.png", "PNG");
  QImage red(300, 100, QImage::Format_RGB32);
  red.fill(Qt::red);
  red.save(f + "h_red.png", "PNG");
  img.save(f + "e_photo.jpg", "JPEG");
  write(f + "f_fake.bmp", "no picture");
  write(f + "g_other.xyz", "x");
  write(f + "i_clip.avi", test::mjpegAvi(320, 240, 50));
  ListWithPreview shown(f, QSize(1000, 500));
  FileListPane& files = shown.files;
  PreviewPane& preview = shown.preview;
  files.model().sort({RowKey::Name, false});
  for (int row = 0; row < files.model().rowCount(); ++row) {
    files.view().setCurrentIndex(files.model().index(row, 0));
    files.previewSelection(true);
    QElapsedTimer t;
    t.start();
    while ((preview.loading() || t.elapsed() < 300) && t.elapsed() < 5000)
      QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    const std::string name = files.model().row(row).name;
    if (qEnvironmentVariableIsSet("QL_SHOT_DUMP"))
      if (auto* b = preview.findChild<QTextBrowser*>(); b && preview.shownViewer() == b)
        std::printf("%s\n", qPrintable(b->document()->toHtml()));
    files.grab().save(out + "/" + QString::fromStdString(name) + ".png");
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  tuneAllocator();  // as the program itself does
  QApplication app(argc, argv);
  if (argc > 2 && QByteArray(argv[1]) == "--shots") return shots(QString::fromLocal8Bit(argv[2]));
  const QString dir = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("/tmp/quorlane-preview1000");
  const int count = argc > 2 ? std::atoi(argv[2]) : 1000;
  const int stepMs = argc > 3 ? std::atoi(argv[3]) : 30;
  const int passes = argc > 4 ? std::max(1, std::atoi(argv[4])) : 3;
  if (!QDir(dir).exists()) makeFolder(dir, count);

  ListWithPreview shown(dir, QSize(1200, 700));
  FileListPane& files = shown.files;
  const int rows = files.model().rowCount();
  QTreeView& view = files.view();
  view.setFocus();
  view.setCurrentIndex(files.model().index(0, 0));
  files.previewSelection(true);

  // The watchdog: a timer that should fire every 5 ms; the longest gap is the longest stall.
  QElapsedTimer clock;
  clock.start();
  qint64 lastTick = 0, worst = 0;
  int at = 0, pass = 0, worstAt = -1, worstPass = 0, over50 = 0;
  QTimer watchdog;
  watchdog.setInterval(5);
  QObject::connect(&watchdog, &QTimer::timeout, [&] {
    const qint64 now = clock.elapsed();
    if (lastTick && now - lastTick > 50) ++over50;
    if (lastTick && now - lastTick > worst) {
      worst = now - lastTick;
      worstAt = at;
      worstPass = pass + 1;
    }
    lastTick = now;
  });
  long rssFirst = 0;
  std::vector<long> rssAfterPass;
  QTimer keys;
  keys.setInterval(stepMs);
  QObject::connect(&keys, &QTimer::timeout, [&] {
    if (pass == 0 && at == 1 && !rssFirst) rssFirst = rssKiB();
    const bool down = pass % 2 == 0;
    if (down ? at + 1 >= rows : at == 0) {
      rssAfterPass.push_back(rssKiB());
      if (++pass == passes) {
        keys.stop();
        QTimer::singleShot(3000, &app, &QCoreApplication::quit);  // what is under way settles
        return;
      }
    }
    const int key = pass % 2 == 0 ? Qt::Key_Down : Qt::Key_Up;
    QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier);
    QKeyEvent release(QEvent::KeyRelease, key, Qt::NoModifier);
    QApplication::sendEvent(&view, &press);
    QApplication::sendEvent(&view, &release);
    at += pass % 2 == 0 ? 1 : -1;
  });
  QElapsedTimer total;
  total.start();
  watchdog.start();
  keys.start();
  app.exec();
  const long rssSettled = rssKiB();
  // What the allocator keeps without using it, told apart from what is still in use.
  ::malloc_trim(0);
  const long rssTrimmed = rssKiB();
  std::printf("files: %d, %d passes, step %d ms, run %.1f s\n", rows, passes, stepMs, total.elapsed() / 1000.0);
  std::printf("longest stall of the user-interface thread: %lld ms (pass %d, file %d); %d stalls over 50 ms\n",
              static_cast<long long>(worst), worstPass, worstAt, over50);
  std::printf("resident memory: %ld MiB after the first file", rssFirst / 1024);
  for (size_t i = 0; i < rssAfterPass.size(); ++i) std::printf(", %ld MiB after pass %zu", rssAfterPass[i] / 1024, i + 1);
  std::printf("\n  %ld MiB settled, %ld MiB with the allocator's free memory given back\n", rssSettled / 1024,
              rssTrimmed / 1024);
  return 0;
}
