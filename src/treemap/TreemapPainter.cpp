#include "treemap/TreemapPainter.h"

#include <QBuffer>
#include <QLinearGradient>
#include <QPainter>
#include <QSvgGenerator>
#include <array>
#include <cctype>
#include <cmath>

#include "output/OutputFile.h"
#include "treemap/TreemapGrowth.h"

namespace ql {

namespace {
const QColor kFrame(64, 64, 64);
const QColor kRest(160, 160, 160);

// The colour of each folder's files, once a picture.
std::vector<QRgb> growthColors(std::span<const float> growth) {
  std::vector<QRgb> colors(growth.size());
  for (size_t i = 0; i < growth.size(); ++i) colors[i] = growthColor(growth[i]).rgb();
  return colors;
}

QColor fileColor(const TreemapRect& r, const std::vector<QRgb>& folderColors) {
  return folderColors.empty() ? treemapColor(r.kind) : QColor(folderColors[r.folder]);
}

void paint(QPainter& p, const TreemapLayout& layout, const TreemapLook& look) {
  const std::vector<QRgb> folderColors = growthColors(look.growth);
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
        const QColor c = fileColor(r, folderColors);
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

// Cushions: the first folder's ridge height and the factor for each level below; the light comes
// from the top left and mostly from the front (y grows downwards), so a flat top keeps nearly the
// kind's own colour.
constexpr double kRidge = 0.35, kRidgeFactor = 0.75;
constexpr double kAmbient = 0.3, kDirect = 0.9;
const double kLightNorm = std::sqrt(1.0 + 4.0 + 100.0);
const double kLx = -1 / kLightNorm, kLy = -2 / kLightNorm, kLz = 10 / kLightNorm;

// z = x2·x² + x1·x + y2·y² + y1·y: the ridges of a rectangle and every folder it lies in.
struct Surface {
  double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
};

// A parabola over [from, to] of height h at its middle (slope ±4h at the ends, for any width).
void addRidge(double from, double to, double h, double& s1, double& s2) {
  s1 += 4 * h * (to + from) / (to - from);
  s2 -= 4 * h / (to - from);
}

// Washed towards a light grey: still tells its kind, but gives way to the marked ones.
QRgb dim(QRgb c) {
  return qRgb((qRed(c) + 3 * 205) / 4, (qGreen(c) + 3 * 205) / 4, (qBlue(c) + 3 * 205) / 4);
}

class Raster {
 public:
  Raster(QImage& image)
      : bits_(reinterpret_cast<QRgb*>(image.bits())), stride_(image.bytesPerLine() / 4) {}

  void fill(int x, int y, int w, int h, QRgb c) {
    for (int row = y; row < y + h; ++row) std::fill_n(bits_ + row * stride_ + x, w, c);
  }

  // Diagonal stripes, one pixel in six.
  void hatch(int x, int y, int w, int h, QRgb c) {
    for (int row = y; row < y + h; ++row)
      for (int col = x + (6 - (x + row) % 6) % 6; col < x + w; col += 6)
        bits_[row * stride_ + col] = c;
  }

  void cushion(int x, int y, int w, int h, const Surface& s, QRgb c) {
    columns_.resize(static_cast<size_t>(w));
    for (int i = 0; i < w; ++i) columns_[i] = -(2 * s.x2 * (x + i + 0.5) + s.x1);
    const int r = qRed(c), g = qGreen(c), b = qBlue(c);
    for (int row = y; row < y + h; ++row) {
      const double ny = -(2 * s.y2 * (row + 0.5) + s.y1);
      QRgb* out = bits_ + row * stride_ + x;
      for (int i = 0; i < w; ++i) {
        const double nx = columns_[i];
        const double facing = (nx * kLx + ny * kLy + kLz) / std::sqrt(nx * nx + ny * ny + 1);
        const int light = static_cast<int>(256 * (kAmbient + kDirect * std::max(facing, 0.0)));
        out[i] = qRgb(std::min(r * light >> 8, 255), std::min(g * light >> 8, 255),
                      std::min(b * light >> 8, 255));
      }
    }
  }

 private:
  QRgb* bits_;
  qsizetype stride_;
  std::vector<double> columns_;
};

bool isMarked(const TreemapRect& r, const TreemapLook& look) {
  switch (look.mark) {
    case TreemapLook::Mark::None:
      return true;
    case TreemapLook::Mark::Kind:
      return r.type == TreemapRect::File && r.kind == look.kind;
    case TreemapLook::Mark::Extension:
      return r.type == TreemapRect::File && r.extension == look.extension;
  }
  return true;
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

QColor growthColor(float growth) {
  const QColor same(175, 175, 175), grown(240, 130, 20), shrunk(40, 110, 210);
  if (growth == kNewFolder) return QColor(215, 25, 35);
  const double t = std::sqrt(std::min(std::abs(static_cast<double>(growth)), 1.0));
  const QColor& to = growth > 0 ? grown : shrunk;
  auto mix = [t](int a, int b) { return static_cast<int>(std::lround(a + (b - a) * t)); };
  return QColor(mix(same.red(), to.red()), mix(same.green(), to.green()),
                mix(same.blue(), to.blue()));
}

QImage paintTreemap(const TreemapLayout& layout, const TreemapLook& look) {
  QImage image(std::max(layout.width, 1), std::max(layout.height, 1), QImage::Format_RGB32);
  image.fill(kRest);
  if (layout.rects.empty()) return image;
  // Straight into the pixels: a large tree has hundreds of thousands of rectangles, each shaded
  // pixel by pixel.
  Raster raster(image);
  std::array<double, 64> ridges;  // by depth; deeper ones are too low to see
  for (size_t d = 0; d < ridges.size(); ++d) ridges[d] = kRidge * std::pow(kRidgeFactor, d);
  std::vector<Surface> surfaces(look.cushions ? layout.rects.size() : 0);
  const std::vector<QRgb> folderColors = growthColors(look.growth);
  const QRgb frame = kFrame.rgb(), rest = kRest.rgb(),
             dimRest = look.mark == TreemapLook::Mark::None ? rest : dim(rest);
  for (size_t i = 0; i < layout.rects.size(); ++i) {
    const TreemapRect& r = layout.rects[i];
    if (look.cushions) {
      Surface s = i == 0 ? Surface{} : surfaces[r.parent];
      if (r.depth < ridges.size()) {
        addRidge(r.x, r.x + r.w, ridges[r.depth], s.x1, s.x2);
        addRidge(r.y, r.y + r.h, ridges[r.depth], s.y1, s.y2);
      }
      surfaces[i] = s;
    }
    switch (r.type) {
      case TreemapRect::Folder:
        raster.fill(r.x, r.y, r.w, r.h, frame);
        if (r.w > 2 && r.h > 2) raster.fill(r.x + 1, r.y + 1, r.w - 2, r.h - 2, dimRest);
        break;
      case TreemapRect::Rest:
      case TreemapRect::File: {
        QRgb c = r.type == TreemapRect::Rest ? rest : fileColor(r, folderColors).rgb();
        if (!isMarked(r, look)) c = dim(c);
        if (look.cushions)
          raster.cushion(r.x, r.y, r.w, r.h, surfaces[i], c);
        else
          raster.fill(r.x, r.y, r.w, r.h, c);
        break;
      }
    }
  }
  for (const TreemapRect& r : layout.rects)
    if (r.type == TreemapRect::Folder && r.folder == look.reading)
      raster.hatch(r.x, r.y, r.w, r.h, frame);
  return image;
}

bool writeTreemapPicture(const TreemapLayout& layout, const std::string& fileName,
                         std::string& error, const TreemapLook& look) {
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
    paint(p, layout, look);
  } else if (!paintTreemap(layout, look).save(&buffer, "PNG")) {
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
