#include "treemap/TreemapPainter.h"

#include <QBuffer>
#include <QLinearGradient>
#include <QPainter>
#include <QSvgGenerator>
#include <cctype>

#include "output/OutputFile.h"

namespace ql {

namespace {
const QColor kFrame(64, 64, 64);
const QColor kRest(160, 160, 160);

void paint(QPainter& p, const TreemapLayout& layout) {
  p.setPen(Qt::NoPen);
  for (const TreemapRect& r : layout.rects) {
    const QRect box(r.x, r.y, r.w, r.h);
    switch (r.type) {
      case TreemapRect::Folder:
        p.fillRect(box, kFrame);
        if (r.w > 2 && r.h > 2) p.fillRect(box.adjusted(1, 1, -1, -1), kRest);
        break;
      case TreemapRect::Rest:
        p.fillRect(box, kRest);
        break;
      case TreemapRect::File: {
        const QColor c = treemapColor(r.kind);
        if (r.w < 3 && r.h < 3) {
          p.fillRect(box, c);
          break;
        }
        QLinearGradient shade(box.topLeft(), box.bottomRight() + QPoint(1, 1));
        shade.setColorAt(0, c.lighter(135));
        shade.setColorAt(0.5, c);
        shade.setColorAt(1, c.darker(150));
        p.fillRect(box, shade);
        break;
      }
    }
  }
}

bool isSvg(const std::string& name) {
  if (name.size() < 4) return false;
  std::string tail = name.substr(name.size() - 4);
  for (char& c : tail) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return tail == ".svg";
}
}  // namespace

QColor treemapColor(FileKind kind) {
  switch (kind) {
    case FileKind::Picture:
      return QColor(46, 160, 67);
    case FileKind::Video:
      return QColor(200, 40, 40);
    case FileKind::Audio:
      return QColor(230, 140, 20);
    case FileKind::Archive:
      return QColor(140, 70, 180);
    case FileKind::Document:
      return QColor(40, 110, 210);
    case FileKind::Code:
      return QColor(20, 170, 170);
    case FileKind::Program:
      return QColor(210, 190, 30);
    default:
      return QColor(205, 180, 150);
  }
}

QImage paintTreemap(const TreemapLayout& layout) {
  QImage image(std::max(layout.width, 1), std::max(layout.height, 1), QImage::Format_RGB32);
  image.fill(kRest);
  QPainter p(&image);
  paint(p, layout);
  return image;
}

bool writeTreemapPicture(const TreemapLayout& layout, const std::string& fileName,
                         std::string& error) {
  QByteArray bytes;
  QBuffer buffer(&bytes);
  buffer.open(QIODevice::WriteOnly);
  if (isSvg(fileName)) {
    QSvgGenerator svg;
    svg.setOutputDevice(&buffer);
    svg.setSize(QSize(layout.width, layout.height));
    svg.setViewBox(QRect(0, 0, layout.width, layout.height));
    svg.setTitle(QStringLiteral("Quorlane"));
    QPainter p(&svg);
    paint(p, layout);
  } else if (!paintTreemap(layout).save(&buffer, "PNG")) {
    error = "the picture could not be made";
    return false;
  }
  OutputFile file;
  if (file.open(fileName) &&
      file.write(std::string_view(bytes.constData(), static_cast<size_t>(bytes.size()))) &&
      file.commit())
    return true;
  error = file.error();
  return false;
}

}  // namespace ql
