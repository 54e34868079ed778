// Pictures of the command icons on a light and on a dark palette, to look at by eye: the whole
// window after reading a folder, and a sheet of every icon of resources/icons at 16 and 32 pixels,
// enabled and disabled.
//
// usage: quorlane_iconshots OUTDIR [FOLDER]
// Writes OUTDIR/window-light.png, window-dark.png, sheet-light.png and sheet-dark.png. The window
// uses the Fusion style; settings go to a folder of their own, so a user's settings stay as they are.

#include <QApplication>
#include <QDir>
#include <QEventLoop>
#include <QPainter>
#include <QSettings>
#include <QStyle>
#include <QStyleFactory>
#include <QTemporaryDir>
#include <QTimer>
#include <cstdio>

#include "support/Globals.h"
#include "ui/CommandBar.h"
#include "ui/MainWindow.h"

using namespace ql;

namespace {

QPalette darkPalette() {
  QPalette p;
  const QColor window(0x2b, 0x2b, 0x2b), text(0xe6, 0xe6, 0xe6), dim(0x80, 0x80, 0x80);
  p.setColor(QPalette::Window, window);
  p.setColor(QPalette::Button, QColor(0x35, 0x35, 0x35));
  p.setColor(QPalette::Base, QColor(0x1e, 0x1e, 0x1e));
  p.setColor(QPalette::AlternateBase, QColor(0x26, 0x26, 0x26));
  for (auto role : {QPalette::WindowText, QPalette::ButtonText, QPalette::Text, QPalette::BrightText})
    p.setColor(role, text);
  for (auto role : {QPalette::WindowText, QPalette::ButtonText, QPalette::Text})
    p.setColor(QPalette::Disabled, role, dim);
  p.setColor(QPalette::Highlight, QColor(0x2f, 0x6f, 0xb3));
  p.setColor(QPalette::HighlightedText, Qt::white);
  p.setColor(QPalette::Light, QColor(0x45, 0x45, 0x45));
  p.setColor(QPalette::Midlight, QColor(0x3a, 0x3a, 0x3a));
  p.setColor(QPalette::Mid, QColor(0x25, 0x25, 0x25));
  p.setColor(QPalette::Dark, QColor(0x1a, 0x1a, 0x1a));
  p.setColor(QPalette::Shadow, Qt::black);
  return p;
}

QImage sheet(const QPalette& palette) {
  (void)commandIcon(QStringLiteral("folder"));  // registers the resources
  QStringList names = QDir(QStringLiteral(":/icons")).entryList({QStringLiteral("*.svg")});
  names.removeAll(QStringLiteral("quorlane.svg"));
  const int columns = 4, cellW = 330, cellH = 40;
  QImage image(columns * cellW, (int(names.size()) + columns - 1) / columns * cellH, QImage::Format_RGB32);
  image.fill(palette.color(QPalette::Window));
  QPainter painter(&image);
  painter.setPen(palette.color(QPalette::WindowText));
  for (int i = 0; i < names.size(); ++i) {
    const QString name = names[i].chopped(4);
    const QIcon icon = commandIcon(name);
    const int x = i % columns * cellW, y = i / columns * cellH;
    painter.drawPixmap(x + 4, y + 12, icon.pixmap(16, QIcon::Normal));
    painter.drawPixmap(x + 24, y + 12, icon.pixmap(16, QIcon::Disabled));
    painter.drawPixmap(x + 44, y + 4, icon.pixmap(32, QIcon::Normal));
    painter.drawText(x + 82, y + 25, name);
  }
  return image;
}

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  if (argc < 2) {
    std::fprintf(stderr, "usage: quorlane_iconshots OUTDIR [FOLDER]\n");
    return 2;
  }
  const QString out = QString::fromLocal8Bit(argv[1]);
  QDir().mkpath(out);
  QTemporaryDir config;
  globals().IniFile = config.filePath(QStringLiteral("Quorlane.ini"));
  QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, config.path());
  QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
  const std::pair<const char*, QPalette> palettes[] = {{"light", QApplication::style()->standardPalette()},
                                                      {"dark", darkPalette()}};
  for (const auto& [label, palette] : palettes) {
    QApplication::setPalette(palette);
    sheet(palette).save(QStringLiteral("%1/sheet-%2.png").arg(out, QLatin1String(label)));
    MainWindow w;
    w.resize(1400, 900);
    w.show();
    QCoreApplication::processEvents();
    if (argc > 2) {
      QEventLoop loop;
      QObject::connect(&w.session().driver(), &ScanDriver::finished, &loop, &QEventLoop::quit);
      QTimer::singleShot(60000, &loop, &QEventLoop::quit);
      w.session().readSources({argv[2]});
      loop.exec();
    }
    QCoreApplication::processEvents();
    w.grab().save(QStringLiteral("%1/window-%2.png").arg(out, QLatin1String(label)));
  }
  return 0;
}
