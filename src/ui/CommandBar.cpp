#include "ui/CommandBar.h"

#include <QBuffer>
#include <QFile>
#include <QGuiApplication>
#include <QIconEngine>
#include <QImageReader>
#include <QMenu>
#include <QPainter>
#include <QPalette>
#include <QPixmapCache>
#include <QToolButton>

#include "lang/TL.h"

// Outside the namespace: the macro declares the resource's global initialiser.
static void registerIcons() {
  static const bool done = [] {
    Q_INIT_RESOURCE(quorlane_icons);
    return true;
  }();
  (void)done;
}

namespace ql {

namespace {

// Our icons are drawn in one ink, "currentColor", plus a few accents of middle brightness. The
// ink becomes the palette's text colour when the icon is painted, so an outline has the contrast
// of the captions beside it on a light, a dark or a high-contrast palette alike; a disabled
// command takes the disabled text colour, and its accents fade towards the button's colour.
class PaletteIconEngine final : public QIconEngine {
 public:
  PaletteIconEngine(QString name, QByteArray svg) : name_(std::move(name)), svg_(std::move(svg)) {}

  QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
    return scaledPixmap(size, mode, state, 1.0);
  }

  QPixmap scaledPixmap(const QSize& size, QIcon::Mode mode, QIcon::State, qreal scale) override {
    const QPalette palette = QGuiApplication::palette();
    const QColor ink =
        mode == QIcon::Disabled   ? palette.color(QPalette::Disabled, QPalette::ButtonText)
        : mode == QIcon::Selected ? palette.color(QPalette::Active, QPalette::HighlightedText)
                                  : palette.color(QPalette::Active, QPalette::ButtonText);
    const QSize pixels = size * scale;
    if (isNull() || pixels.isEmpty()) return {};
    const QString key =
        QStringLiteral("ql-icon/%1/%2x%3/%4/%5")
            .arg(name_)
            .arg(pixels.width())
            .arg(pixels.height())
            .arg(ink.rgba(), 0, 16)
            .arg(mode == QIcon::Disabled ? palette.color(QPalette::Button).rgba() : 0u, 0, 16);
    QPixmap pm;
    if (!QPixmapCache::find(key, &pm)) {
      QByteArray text = svg_;
      text.replace("currentColor", ink.name().toLatin1());
      if (mode == QIcon::Disabled) {
        const QColor button = palette.color(QPalette::Button);
        for (const char* accent : kAccents)
          text.replace(accent, mix(ink, button).name().toLatin1());
      }
      QBuffer buffer(&text);
      buffer.open(QIODevice::ReadOnly);
      QImageReader reader(&buffer, "svg");
      reader.setScaledSize(pixels);
      pm = QPixmap::fromImage(reader.read());
      QPixmapCache::insert(key, pm);
    }
    pm.setDevicePixelRatio(scale);
    return pm;
  }

  void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State state) override {
    const qreal scale = painter->device() ? painter->device()->devicePixelRatio() : 1.0;
    painter->drawPixmap(rect, scaledPixmap(rect.size(), mode, state, scale));
  }

  QSize actualSize(const QSize& size, QIcon::Mode, QIcon::State) override {
    const int side = qMin(size.width(), size.height());
    return {side, side};
  }

  QList<QSize> availableSizes(QIcon::Mode, QIcon::State) override { return {{16, 16}, {32, 32}}; }
  QString iconName() override { return name_; }
  bool isNull() override { return svg_.isEmpty(); }
  QString key() const override { return QStringLiteral("QuorlanePaletteIcon"); }
  QIconEngine* clone() const override { return new PaletteIconEngine(*this); }

 private:
  // The accents the drawings use (green go, red stop, blue the rest).
  static constexpr const char* kAccents[] = {"#2ea043", "#e5484d", "#3584e4"};

  static QColor mix(const QColor& a, const QColor& b) {
    return QColor((a.red() + b.red()) / 2, (a.green() + b.green()) / 2, (a.blue() + b.blue()) / 2);
  }

  QString name_;
  QByteArray svg_;
};

}  // namespace

QIcon commandIcon(const QString& name) {
  if (name.isEmpty()) return {};
  registerIcons();
  QIcon ours;
  QFile file(QStringLiteral(":/icons/%1.svg").arg(name));
  if (file.open(QIODevice::ReadOnly)) ours = QIcon(new PaletteIconEngine(name, file.readAll()));
  // Names of our own are never asked of the theme: its lookup shortens a name it lacks at the
  // dashes, and "quorlane-..." would end at the program's own icon.
  if (name.startsWith(QLatin1String("quorlane-"))) return ours;
  return QIcon::fromTheme(name, ours);
}

CommandBar::CommandBar(const QString& objectName, const QString& title, QWidget* parent)
    : QToolBar(title, parent) {
  setObjectName(objectName);
}

QAction* CommandBar::AddControl(Type type, int id, int captionId, const QString& caption,
                                const QString& icon, bool beginGroup, int tooltipId,
                                const QString& tooltip, bool checkable, bool checked,
                                bool enabled) {
  if (beginGroup && !target_->actions().isEmpty()) target_->addSeparator();
  const QString text = captionId > 0 ? TL(captionId, caption) : caption;
  auto* action = new QAction(commandIcon(icon), text, this);
  const QString tip = tooltip.isEmpty() ? text : (tooltipId > 0 ? TL(tooltipId, tooltip) : tooltip);
  action->setToolTip(tip);
  action->setStatusTip(tip);
  action->setCheckable(checkable);
  action->setChecked(checked);
  action->setEnabled(enabled);
  action->setData(id);
  action->setObjectName(QStringLiteral("cmd%1").arg(id));
  if (type == SplitButton) {
    auto* menu = new QMenu(this);
    action->setMenu(menu);
    connect(menu, &QMenu::triggered, this, [this](QAction* a) { Q_EMIT execute(a->data().toInt()); });
  }
  target_->addAction(action);
  if (type == SplitButton)
    if (auto* button = qobject_cast<QToolButton*>(target_->widgetForAction(action)))
      button->setPopupMode(QToolButton::MenuButtonPopup);
  connect(action, &QAction::triggered, this, [this, id] { Q_EMIT execute(id); });
  controls_.insert(id, action);
  order_.push_back(id);
  return action;
}

QAction* CommandBar::AddPopupControl(int parentId, int id, const QString& caption) {
  QAction* parent = controls_.value(parentId);
  if (!parent || !parent->menu()) return nullptr;
  QAction* a = parent->menu()->addAction(caption);
  a->setData(id);
  a->setObjectName(QStringLiteral("cmd%1").arg(id));
  controls_.insert(id, a);
  return a;
}

QAction* CommandBar::AddWidget(int id, QWidget* widget, bool beginGroup) {
  if (beginGroup && !target_->actions().isEmpty()) target_->addSeparator();
  QAction* a = target_->addWidget(widget);
  a->setData(id);
  controls_.insert(id, a);
  order_.push_back(id);
  return a;
}

QToolBar* CommandBar::addRow() {
  auto* row = new QToolBar(windowTitle(), parentWidget());
  row->setObjectName(objectName() + QStringLiteral("Row%1").arg(rows_.size() + 2));
  row->setIconSize(iconSize());
  row->setToolButtonStyle(toolButtonStyle());
  connect(this, &QToolBar::iconSizeChanged, row, &QToolBar::setIconSize);
  connect(this, &QToolBar::toolButtonStyleChanged, row, &QToolBar::setToolButtonStyle);
  rows_.push_back(row);
  target_ = row;
  return row;
}

void CommandBar::setVisible(bool visible) {
  QToolBar::setVisible(visible);
  for (QToolBar* row : rows_) row->setVisible(visible);
}

bool CommandBar::isChecked(int id) const {
  const QAction* a = controls_.value(id);
  return a && a->isChecked();
}

void CommandBar::setChecked(int id, bool on) {
  if (QAction* a = controls_.value(id)) a->setChecked(on);
}

void CommandBar::setAllEnabled(bool on) {
  for (int id : order_) controls_.value(id)->setEnabled(on && !unavailable_.contains(id));
}

void CommandBar::setUnavailable(int id) {
  unavailable_.insert(id);
  if (QAction* a = controls_.value(id)) a->setEnabled(false);
}

QLabel* paneTitle(const QString& text, const QString& objectName, QWidget* parent) {
  auto* title = new QLabel(text, parent);
  title->setObjectName(objectName);
  title->setContentsMargins(6, 3, 6, 3);
  QFont bold = title->font();
  bold.setBold(true);
  title->setFont(bold);
  return title;
}

}  // namespace ql
