#include "ui/PdfPage.h"

#include <sys/resource.h>
#include <unistd.h>
#include <QBuffer>
#include <QCoreApplication>
#include <QImage>
#include <QPainter>
#include <QPdfDocument>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "lists/PreviewFile.h"
#include "ui/PreviewPane.h"

namespace ql {

namespace {

int fail(PdfPageStatus status, int number = 0) {
  if (number != 0) std::fprintf(stderr, "%d\n", number);
  return status;
}

int side(const char* text) {
  char* end = nullptr;
  const long v = std::strtol(text, &end, 10);
  if (end == text || *end != '\0' || v < 1) return 0;
  return static_cast<int>(std::min<long>(v, kPdfPageMaxSide));
}

// The page's size fitted into the box; a page without a usable size fills the box.
QSize fitted(QSizeF page, QSize box) {
  if (!(page.width() > 0) || !(page.height() > 0) || !std::isfinite(page.width()) ||
      !std::isfinite(page.height()))
    return box;
  const double f = std::min(box.width() / page.width(), box.height() / page.height());
  return {std::clamp(static_cast<int>(std::lround(page.width() * f)), 1, box.width()),
          std::clamp(static_cast<int>(std::lround(page.height() * f)), 1, box.height())};
}

}  // namespace

int renderPdfPageMain(int argc, char** argv) {
  if (argc != 5 || std::strcmp(argv[1], kRenderPdfPageOption) != 0) return fail(kPdfPageUsage);
  const QSize box(side(argv[3]), side(argv[4]));
  if (box.isEmpty()) return fail(kPdfPageUsage);
  // The window goes first: this process only draws a preview.
  ::setpriority(PRIO_PROCESS, 0, 10);
  const std::string path = QByteArray::fromPercentEncoding(argv[2]).toStdString();
  // The same bounded read as the preview's other files: never waits on a pipe, takes only
  // regular files and refuses what it would not show.
  HeadRead h = readFileHead(path, PreviewPane::kDocumentLimit, true);
  switch (h.failure) {
    case HeadRead::None:
      break;
    case HeadRead::System:
      return fail(kPdfPageSystem, h.err);
    case HeadRead::NotRegular:
      return fail(kPdfPageNotRegular);
    case HeadRead::TooLarge:
      return fail(kPdfPageTooLarge);
  }

  QCoreApplication app(argc, argv);
  QBuffer buffer(&h.bytes);
  buffer.open(QIODevice::ReadOnly);
  QPdfDocument doc;
  doc.load(&buffer);
  // A complete buffer is mostly taken at once; otherwise the document says when.
  while (doc.status() == QPdfDocument::Status::Loading)
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
  if (doc.status() != QPdfDocument::Status::Ready)
    return fail(kPdfPageDocument,
                static_cast<int>(doc.error()) == 0 ? -1 : static_cast<int>(doc.error()));
  if (doc.pageCount() < 1) return fail(kPdfPageNoPage);

  const QSize size = fitted(doc.pagePointSize(0), box);
  const QImage drawn = doc.render(0, size);
  if (drawn.isNull()) return fail(kPdfPageNoPage);
  // The library leaves the paper transparent; the preview shows it white, as printed.
  QImage page(drawn.size(), QImage::Format_RGB32);
  page.fill(Qt::white);
  QPainter(&page).drawImage(0, 0, drawn);

  QByteArray png;
  QBuffer out(&png);
  out.open(QIODevice::WriteOnly);
  page.save(&out, "PNG", 100);  // stored, not packed: quicker to write and to read back
  for (qsizetype at = 0; at < png.size();) {
    const ssize_t n =
        ::write(STDOUT_FILENO, png.constData() + at, static_cast<size_t>(png.size() - at));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return fail(kPdfPageSystem, errno);
    at += n;
  }
  return kPdfPageDrawn;
}

}  // namespace ql
