#pragma once
// Two panes and a draggable bar between them. The splitter is the panes' container: it lays
// them out, paints the bar into the gap it leaves, and takes the mouse there. With full drag the
// panes follow the mouse; without, a checkered bar follows it and the panes move once, on
// release. Sizes are pixels; the first pane's size is the position.
//
// Limits are checked in a fixed order so that the first pane's minimum wins over everything;
// one pane always shows. Invalid values raise SplitterError 380.

#include <QColor>
#include <QWidget>
#include <stdexcept>

namespace ql {

struct SplitterError : std::runtime_error {
  SplitterError(int number, const QString& source, const QString& text)
      : std::runtime_error(text.toStdString()), number(number), source(source) {}
  int number;
  QString source;
};

class Splitter : public QWidget {
  Q_OBJECT
 public:
  enum Orientation { PanesAbove = 1, PanesSideBySide = 2 };

  explicit Splitter(QWidget* parent = nullptr);
  // A named splitter that binds two panes at once.
  Splitter(const QString& name, Orientation orientation, QWidget* first, QWidget* second,
           QWidget* parent = nullptr);

  bool FullDrag() const { return fullDrag_; }
  void setFullDrag(bool on) { fullDrag_ = on; }
  int orientation() const { return orientation_; }
  void setOrientation(int orientation);
  // Percent, 0 to 100.
  double Proportion() const { return std::min(proportion_, 1.0) * 100.0; }
  void setProportion(double percent);
  int Position() const { return position_; }
  void setPosition(int pixels);
  QColor LineColor() const { return lineColor_; }
  void setLineColor(QColor c) { lineColor_ = c; }
  QColor FillColor() const { return fillColor_; }  // invalid: the background's colour
  void setFillColor(QColor c) { fillColor_ = c; }
  bool KeepProportion() const { return keepProportion_; }
  void setKeepProportion(bool on) { keepProportion_ = on; }
  int SplitterSize() const { return splitterSize_; }
  void setSplitterSize(int pixels);
  // Index 1 or 2; 0 or less means no limit.
  int MinimumSize(int index) const;
  void setMinimumSize(int index, int pixels);
  int MaximumSize(int index) const;
  void setMaximumSize(int index, int pixels);  // takes effect at the next validation
  bool Control1Visible() const { return control1Visible_; }
  void setControl1Visible(bool on);
  bool Control2Visible() const { return control2Visible_; }
  void setControl2Visible(bool on);
  bool DrawSplitterbar() const { return drawBar_; }
  void setDrawSplitterbar(bool on) { drawBar_ = on; update(); }
  QWidget* Control1() const { return control1_; }
  void setControl1(QWidget* w);
  QWidget* Control2() const { return control2_; }
  void setControl2(QWidget* w);
  void Bind(QWidget* control1, QWidget* control2);
  // Lays the panes out again.
  void Resize();
  bool dragging() const { return dragging_; }

 Q_SIGNALS:
  // Before a drag: set *cancel to refuse it.
  void BeginDrag(int x, int y, bool* cancel);
  void AfterResize();

 protected:
  void mousePressEvent(QMouseEvent* e) override;
  void mouseMoveEvent(QMouseEvent* e) override;
  void mouseReleaseEvent(QMouseEvent* e) override;
  void keyPressEvent(QKeyEvent* e) override;
  void resizeEvent(QResizeEvent* e) override;
  void paintEvent(QPaintEvent* e) override;

 private:
  bool configured() const { return control1_ && control2_; }
  int extent() const { return orientation_ == PanesSideBySide ? width() : height(); }
  void pValidatePosition();
  void pSetProportion();
  void pMoveControls();
  void placeBar();
  [[noreturn]] void invalidValue() const;
  void replaceControl(QWidget*& slot, QWidget* w);

  bool control1Visible_ = true, control2Visible_ = true;
  bool drawBar_ = false, keepProportion_ = false, fullDrag_ = true, dragging_ = false;
  double proportion_ = 0.5;
  int position_ = 128, splitterSize_ = 4;
  int minimumSize_[2] = {8, 8}, maximumSize_[2] = {-1, -1};
  int orientation_ = PanesAbove;
  QPoint dragStart_;
  int dragStartPosition_ = 0;
  QColor lineColor_ = QColor(200, 200, 200), fillColor_;
  QWidget* control1_ = nullptr;
  QWidget* control2_ = nullptr;
  QWidget* bar_ = nullptr;  // the drawn bar of a drag without full drag
};

}  // namespace ql
