#include "ui/CommandBar.h"

#include <QApplication>
#include <QMenu>
#include <QStyle>
#include <QToolButton>

#include "lang/TL.h"

namespace ql {

QIcon commandIcon(const QString& name) {
  if (name.isEmpty()) return {};
  static const QHash<QString, QStyle::StandardPixmap> fallback = {
      {QStringLiteral("folder-new"), QStyle::SP_FileDialogNewFolder},
      {QStringLiteral("media-playback-start"), QStyle::SP_MediaPlay},
      {QStringLiteral("process-stop"), QStyle::SP_BrowserStop},
      {QStringLiteral("view-refresh"), QStyle::SP_BrowserReload},
      {QStringLiteral("document-save"), QStyle::SP_DialogSaveButton},
      {QStringLiteral("application-exit"), QStyle::SP_DialogCloseButton},
      {QStringLiteral("help-about"), QStyle::SP_MessageBoxInformation},
      {QStringLiteral("go-home"), QStyle::SP_DirHomeIcon},
      {QStringLiteral("drive-harddisk"), QStyle::SP_DriveHDIcon},
      {QStringLiteral("view-list-details"), QStyle::SP_FileDialogDetailedView},
      {QStringLiteral("view-list-tree"), QStyle::SP_DirIcon},
      {QStringLiteral("list-remove"), QStyle::SP_TrashIcon},
      {QStringLiteral("edit-clear"), QStyle::SP_DialogResetButton},
  };
  QIcon icon = QIcon::fromTheme(name);
  if (icon.isNull() && fallback.contains(name))
    icon = QApplication::style()->standardIcon(fallback.value(name));
  return icon;
}

CommandBar::CommandBar(const QString& objectName, const QString& title, QWidget* parent)
    : QToolBar(title, parent) {
  setObjectName(objectName);
}

QAction* CommandBar::AddControl(Type type, int id, int captionId, const QString& caption,
                                const QString& icon, bool beginGroup, int tooltipId,
                                const QString& tooltip, bool checkable, bool checked,
                                bool enabled) {
  if (beginGroup && !actions().isEmpty()) addSeparator();
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
  addAction(action);
  if (type == SplitButton)
    if (auto* button = qobject_cast<QToolButton*>(widgetForAction(action)))
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
  if (beginGroup && !actions().isEmpty()) addSeparator();
  QAction* a = addWidget(widget);
  a->setData(id);
  controls_.insert(id, a);
  order_.push_back(id);
  return a;
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
