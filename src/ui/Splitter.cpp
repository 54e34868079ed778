#include "ui/Splitter.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <cmath>

#include "support/Globals.h"

namespace ql {

namespace {
// The checkered bar of a drag without full drag, drawn over the panes.
class DrawnBar : public QWidget {
 public:
  explicit DrawnBar(QWidget* parent) : QWidget(parent) { setAttribute(Qt::WA_TransparentForMouseEvents); }

 protected:
  void paintEvent(QPaintEvent*) override {
    QPainter p(this);
    p.fillRect(rect(), QBrush(palette().color(QPalette::WindowText), Qt::Dense4Pattern));
  }
};
}  // namespace

Splitter::Splitter(QWidget* parent) : QWidget(parent) {
  setMouseTracking(true);
  setFocusPolicy(Qt::ClickFocus);
  setOrientation(PanesAbove);
}

Splitter::Splitter(const QString& name, Orientation orientation, QWidget* first, QWidget* second,
                   QWidget* parent)
    : Splitter(parent) {
  setObjectName(name);
  setOrientation(orientation);
  Bind(first, second);
}

void Splitter::invalidValue() const {
  throw SplitterError(380, globals().Apptitle + QStringLiteral(".cSplitter"),
                      QStringLiteral("Invalid property value"));
}

void Splitter::setOrientation(int orientation) {
  orientation_ = orientation;
  setCursor(orientation == PanesAbove ? Qt::SizeVerCursor : Qt::SizeHorCursor);
  Resize();
}

void Splitter::setProportion(double percent) {
  if (!(percent >= 0 && percent <= 100)) invalidValue();
  proportion_ = percent / 100.0;
  Resize();
}

void Splitter::setPosition(int pixels) {
  position_ = pixels;
  pValidatePosition();
  pSetProportion();
  Resize();
}

void Splitter::setSplitterSize(int pixels) {
  if (pixels < 0) invalidValue();
  splitterSize_ = pixels;
  Resize();
}

int Splitter::MinimumSize(int index) const {
  if (index != 1 && index != 2) throw std::out_of_range("MinimumSize index");
  return minimumSize_[index - 1];
}

void Splitter::setMinimumSize(int index, int pixels) {
  if (index != 1 && index != 2) throw std::out_of_range("MinimumSize index");
  if (minimumSize_[index - 1] == pixels) return;
  minimumSize_[index - 1] = pixels;
  Resize();
}

int Splitter::MaximumSize(int index) const {
  if (index != 1 && index != 2) throw std::out_of_range("MaximumSize index");
  return maximumSize_[index - 1];
}

void Splitter::setMaximumSize(int index, int pixels) {
  if (index != 1 && index != 2) throw std::out_of_range("MaximumSize index");
  maximumSize_[index - 1] = pixels;
}

void Splitter::setControl1Visible(bool on) {
  if (control1Visible_ == on) return;
  control1Visible_ = on;
  if (!on && !control2Visible_) control2Visible_ = true;  // one pane always shows
  Resize();
}

void Splitter::setControl2Visible(bool on) {
  if (control2Visible_ == on) return;
  control2Visible_ = on;
  if (!on && !control1Visible_) control1Visible_ = true;
  Resize();
}

// A pane that is replaced goes back where the new one came from, hidden.
void Splitter::replaceControl(QWidget*& slot, QWidget* w) {
  if (slot == w) return;
  QWidget* old = slot;
  QWidget* previousParent = w ? w->parentWidget() : nullptr;
  slot = w;
  if (old) {
    old->hide();
    old->setParent(previousParent && previousParent != this ? previousParent : nullptr);
  }
  if (w) {
    w->setParent(this);
    w->show();
  }
  Resize();
}

void Splitter::setControl1(QWidget* w) { replaceControl(control1_, w); }
void Splitter::setControl2(QWidget* w) { replaceControl(control2_, w); }

void Splitter::Bind(QWidget* control1, QWidget* control2) {
  control1_ = control1;
  control2_ = control2;
  control1->setParent(this);
  control2->setParent(this);
  Resize();
}

// The limits in a fixed order, each correcting the position: the first pane's minimum wins.
void Splitter::pValidatePosition() {
  const int e = extent();
  if (maximumSize_[1] > 0 && e - position_ - splitterSize_ > maximumSize_[1])
    position_ = e - maximumSize_[1] - splitterSize_;
  if (maximumSize_[0] > 0 && position_ > maximumSize_[0]) position_ = maximumSize_[0];
  if (minimumSize_[1] > 0 && e - position_ - splitterSize_ < minimumSize_[1])
    position_ = e - minimumSize_[1] - splitterSize_;
  if (minimumSize_[0] > 0 && position_ < minimumSize_[0]) position_ = minimumSize_[0];
}

void Splitter::pSetProportion() {
  const int e = extent();
  if (e > 0) proportion_ = static_cast<double>(position_) / e;
}

void Splitter::Resize() {
  if (!configured()) return;
  if (keepProportion_) {
    position_ = static_cast<int>(std::lround(std::min(proportion_, 1.0) * extent()));
    pValidatePosition();
  }
  pMoveControls();
  Q_EMIT AfterResize();
}

void Splitter::pMoveControls() {
  if (!configured()) return;
  if (!control1Visible_) {
    control1_->hide();
    control2_->show();
    control2_->setGeometry(rect());
  } else if (!control2Visible_) {
    control2_->hide();
    control1_->show();
    control1_->setGeometry(rect());
  } else {
    control1_->show();
    control2_->show();
    const int p = position_, s = splitterSize_;
    if (orientation_ == PanesSideBySide) {
      control1_->setGeometry(0, 0, p, height());
      control2_->setGeometry(p + s, 0, width() - p - s, height());
    } else {
      control1_->setGeometry(0, 0, width(), p);
      control2_->setGeometry(0, p + s, width(), height() - p - s);
    }
  }
  update();
}

void Splitter::placeBar() {
  if (!bar_) bar_ = new DrawnBar(this);
  if (orientation_ == PanesSideBySide)
    bar_->setGeometry(position_, 0, splitterSize_, height());
  else
    bar_->setGeometry(0, position_, width(), splitterSize_);
  bar_->show();
  bar_->raise();
}

void Splitter::mousePressEvent(QMouseEvent* e) {
  if (e->button() != Qt::LeftButton || !configured()) return;
  bool cancel = false;
  const QPoint at = e->position().toPoint();
  Q_EMIT BeginDrag(at.x(), at.y(), &cancel);
  if (cancel) return;
  dragging_ = true;
  dragStart_ = e->globalPosition().toPoint();
  dragStartPosition_ = position_;
  if (!fullDrag_) placeBar();
}

void Splitter::mouseMoveEvent(QMouseEvent* e) {
  if (!configured() || !dragging_) return;
  const QPoint moved = e->globalPosition().toPoint() - dragStart_;
  position_ = dragStartPosition_ + (orientation_ == PanesSideBySide ? moved.x() : moved.y());
  pValidatePosition();
  if (fullDrag_)
    pMoveControls();
  else
    placeBar();
}

void Splitter::mouseReleaseEvent(QMouseEvent* e) {
  if (!configured() || !dragging_) return;
  const QPoint moved = e->globalPosition().toPoint() - dragStart_;
  position_ = dragStartPosition_ + (orientation_ == PanesSideBySide ? moved.x() : moved.y());
  pValidatePosition();
  if (bar_) bar_->hide();
  pMoveControls();
  pSetProportion();
  dragging_ = false;
  Q_EMIT AfterResize();
}

// Escape during a drag puts the bar back where the drag began.
void Splitter::keyPressEvent(QKeyEvent* e) {
  if (e->key() != Qt::Key_Escape || !dragging_) return QWidget::keyPressEvent(e);
  dragging_ = false;
  position_ = dragStartPosition_;
  if (bar_) bar_->hide();
  pMoveControls();
}

void Splitter::resizeEvent(QResizeEvent*) { Resize(); }

void Splitter::paintEvent(QPaintEvent*) {
  if (!drawBar_ || !configured() || !control1Visible_ || !control2Visible_) return;
  QPainter p(this);
  const QColor fill = fillColor_.isValid() ? fillColor_ : palette().color(QPalette::Window);
  for (int i = 0; i < splitterSize_; ++i) {
    p.setPen(i == 0 || i == splitterSize_ - 1 ? lineColor_ : fill);
    const int at = position_ + i;
    if (orientation_ == PanesSideBySide)
      p.drawLine(at, 0, at, height());
    else
      p.drawLine(0, at, width(), at);
  }
}

}  // namespace ql
