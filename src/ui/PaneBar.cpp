#include "ui/PaneBar.h"

#include <algorithm>

#include "lang/TL.h"

namespace ql {

PaneBar::PaneBar(const QString& objectName, const QString& title, int firstUnit, QWidget* parent)
    : CommandBar(objectName, title, parent), firstUnit_(firstUnit) {}

void PaneBar::AddSizeUnits(int decimalsId, bool decimalsOn) {
  static const struct {
    int textId;
    const char* text;
    const char* icon;
  } units[] = {{3567, "Bytes", "quorlane-unit-bytes"},
               {3568, "Kilobytes", "quorlane-unit-kilobytes"},
               {3569, "Megabytes", "quorlane-unit-megabytes"},
               {3570, "Gigabytes", "quorlane-unit-gigabytes"}};
  for (int u = 0; u < 4; ++u) {
    const QString text = QString::fromLatin1(units[u].text);
    AddControl(Button, firstUnit_ + u, units[u].textId, text, QString::fromLatin1(units[u].icon),
               u == 0, units[u].textId, text, true);
  }
  AddControl(Button, decimalsId, 3691, QStringLiteral("Dezimal"),
             QStringLiteral("quorlane-decimals"), false, 3653,
             QStringLiteral("Nachkommastellen anzeigen"), true, decimalsOn);
}

void PaneBar::checkUnit(int unit) {
  for (int u = 0; u < 4; ++u) setChecked(firstUnit_ + u, u == unit);
}

void PaneBar::popSearchField(QLineEdit& box, const Guard& guard, const char* procedure,
                             std::function<void()> search) {
  auto* field = new QLineEdit(box.text(), this);
  field->setObjectName(QStringLiteral("txtSearchPopup"));
  field->setWindowFlags(Qt::Popup);
  field->setAttribute(Qt::WA_DeleteOnClose);
  field->setPlaceholderText(TL(3678, "Suchen"));
  field->setMinimumWidth(std::clamp(box.maximumWidth(), 120, 240));
  connect(field, &QLineEdit::returnPressed, this,
          guard.wrap(procedure, [&box, field, search = std::move(search)] {
            box.setText(field->text());
            field->close();
            search();
          }));
  const QWidget* row = rows().isEmpty() ? static_cast<QWidget*>(this) : rows().last();
  field->move(row->mapToGlobal(QPoint(0, row->height())));
  field->show();
  field->setFocus();
}

}  // namespace ql
