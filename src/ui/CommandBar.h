#pragma once
// A command bar: a toolbar whose controls are told apart by number. Captions and tooltips come
// through the text table; a check mark on a control is the live state of its option; one signal
// reports the number of the control that fired, and the window's handler switches on it.

#include <QAction>
#include <QHash>
#include <QLabel>
#include <QSet>
#include <QToolBar>

namespace ql {

class CommandBar : public QToolBar {
  Q_OBJECT
 public:
  enum Type { Button = 1, SplitButton = 4, EditBox = 6, Custom = 7, Label = 8 };

  CommandBar(const QString& objectName, const QString& title, QWidget* parent = nullptr);

  // Adds a control. The caption and tooltip are the German texts beside their text ids; an
  // empty tooltip takes the caption. `icon` names the icon (see commandIcon). Checkable
  // controls start with `checked`.
  QAction* AddControl(Type type, int id, int captionId, const QString& caption,
                      const QString& icon, bool beginGroup, int tooltipId,
                      const QString& tooltip, bool checkable = false, bool checked = false,
                      bool enabled = true);
  // A control of the popup of a split button.
  QAction* AddPopupControl(int parentId, int id, const QString& caption);
  // A custom widget (combo box, edit box) carried by the bar under an id.
  QAction* AddWidget(int id, QWidget* widget, bool beginGroup);

  QAction* control(int id) const { return controls_.value(id); }
  bool isChecked(int id) const;
  void setChecked(int id, bool on);
  // Every control on or off (the popups follow their button); controls marked unavailable
  // stay off.
  void setAllEnabled(bool on);
  // A command whose feature is not there yet: shown, but never enabled.
  void setUnavailable(int id);
  QList<int> ids() const { return order_; }
  // Controls added from now on go to a row of their own below the bar, so that a narrow pane
  // shows every command instead of hiding the last ones behind the overflow arrow. The caller
  // lays the row out below the bar; it follows the bar's icon size, button style and visibility.
  QToolBar* addRow();
  const QList<QToolBar*>& rows() const { return rows_; }
  void setVisible(bool visible) override;

 Q_SIGNALS:
  void execute(int id);

 private:
  QHash<int, QAction*> controls_;
  QList<int> order_;
  QSet<int> unavailable_;
  QList<QToolBar*> rows_;
  QToolBar* target_ = this;  // where controls are added
};

// The desktop theme's icon of a freedesktop name, or our own drawing of it (resources/icons/) where
// the theme has none or there is no theme. Names beginning with "quorlane-" are ours alone.
QIcon commandIcon(const QString& name);

// The bold title that stands over a pane (or first on its bar).
QLabel* paneTitle(const QString& text, const QString& objectName, QWidget* parent);

}  // namespace ql
