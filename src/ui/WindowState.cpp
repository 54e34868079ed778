#include "ui/WindowState.h"

#include <QGuiApplication>
#include <QMessageBox>
#include <QScreen>
#include <QSettings>

#include "lang/TL.h"

namespace ql {

namespace {
QSettings barSettings() {
  return QSettings(QStringLiteral("Velmora Works"), QStringLiteral("Quorlane"));
}
}  // namespace

double screenDpi(const QWidget& window) {
  const QScreen* s = window.screen() ? window.screen() : QGuiApplication::primaryScreen();
  return s ? s->logicalDotsPerInchX() : 96.0;
}

RestoredPlace restoreWindowPlace(QMainWindow& window) {
  const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
  const double px = screenDpi(window);
  const FormPosition pos =
      FensterpositionLaden(pixelsToTwips(screen.width(), px), pixelsToTwips(screen.height(), px));
  window.setGeometry(static_cast<int>(twipsToPixels(pos.Left, px)),
                     static_cast<int>(twipsToPixels(pos.Top, px)),
                     static_cast<int>(twipsToPixels(pos.Width, px)),
                     static_cast<int>(twipsToPixels(pos.Height, px)));
  return RestoredPlace{pos.WindowState, static_cast<int>(twipsToPixels(pos.TVW, px))};
}

void saveWindowPlace(const QMainWindow& window, int reportWidth) {
  const double px = screenDpi(window);
  const QRect normal =
      window.normalGeometry().isValid() ? window.normalGeometry() : window.geometry();
  FormPosition pos;
  pos.WindowState = window.isMinimized() ? 1 : window.isMaximized() ? 2 : 0;
  pos.Left = pixelsToTwips(normal.x(), px);
  pos.Top = pixelsToTwips(normal.y(), px);
  pos.Width = pixelsToTwips(normal.width(), px);
  pos.Height = pixelsToTwips(normal.height(), px);
  pos.TVW = pixelsToTwips(reportWidth, px);
  FensterpositionSpeichern(pos);
}

void restoreBarLayouts(QMainWindow& window, QToolBar& reportBar) {
  QSettings layouts = barSettings();
  window.restoreState(layouts.value(QStringLiteral("Toolbar1")).toByteArray());
  reportBar.setVisible(layouts.value(QStringLiteral("Toolbar2"), true).toBool());
}

void saveBarLayouts(const QMainWindow& window, const QToolBar& reportBar) {
  QSettings layouts = barSettings();
  layouts.setValue(QStringLiteral("Toolbar1"), window.saveState());
  layouts.setValue(QStringLiteral("Toolbar2"), !reportBar.isHidden());
}

bool storeLanguage(QWidget* parent, int language) {
  const auto store = [language] {
    StoreSettings(QStringLiteral("Allgemein"), QStringLiteral("Lang"), language);
  };
  // The language of this run takes back a change agreed earlier, without a question.
  if (language == ql::language()) {
    store();
    return true;
  }
  const QString text = TL(
      4621, "Die Sprache wechselt mit einem Neustart: Quorlane startet neu, wenn Sie es beenden.");
  if (QMessageBox::information(parent, QStringLiteral("Quorlane"), text,
                               QMessageBox::Ok | QMessageBox::Cancel) != QMessageBox::Ok)
    return false;
  store();
  return true;
}

}  // namespace ql
