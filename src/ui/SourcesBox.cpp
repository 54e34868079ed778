#include "ui/SourcesBox.h"

#include <QKeyEvent>
#include <QLineEdit>

#include "scan/FileOps.h"
#include "support/Path.h"
#include "ui/CommandBar.h"
#include "support/PathText.h"

namespace ql {

namespace {
// The image number of an entry; folders carry none.
constexpr int kImageRole = Qt::UserRole + 1;
}  // namespace

SourcesBox::SourcesBox(QWidget* parent) : QComboBox(parent) {
  setObjectName(QStringLiteral("cboOrdner"));
  setEditable(true);
  setInsertPolicy(QComboBox::NoInsert);
  setMinimumWidth(220);
  setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
  installEventFilter(this);
  lineEdit()->installEventFilter(this);
}

int SourcesBox::addSource(const std::string& path) {
  const QByteArray key = QByteArray::fromStdString(addSlash(path));
  for (int i = 0; i < count(); ++i) {
    if (itemData(i).toByteArray() == key) {
      setCurrentIndex(i);
      return i;
    }
  }
  addItem(commandIcon(QStringLiteral("folder")), pathText(path),
          key);
  setCurrentIndex(count() - 1);
  return count() - 1;
}

std::string SourcesBox::shownSource() const {
  const QString text = currentText();
  if (text.isEmpty()) return {};
  const int i = currentIndex();
  if (i >= 0 && itemText(i) == text) return itemData(i).toByteArray().toStdString();
  return pathBytes(text);
}

void SourcesBox::fill(const std::vector<DrivePane::ComboDrive>& drives,
                      const std::vector<std::string>& kept, const QString& lastText) {
  int root = -1;
  for (const DrivePane::ComboDrive& d : drives) {
    const QString icon = d.image == 6   ? QStringLiteral("drive-removable-media")
                         : d.image == 5 ? QStringLiteral("network-server")
                         : d.image == 4 ? QStringLiteral("drive-optical")
                                        : QStringLiteral("drive-harddisk");
    addItem(commandIcon(icon), d.text, QByteArray::fromStdString(addSlash(d.path)));
    setItemData(count() - 1, d.image, kImageRole);
    if (d.path == "/") root = count() - 1;
  }
  for (const std::string& folder : kept) {
    if (probePath(folder) != 0) continue;  // gone since: dropped without a word
    addSource(folder);
  }
  int selected = findText(lastText);
  if (selected < 0 && lastText.isEmpty()) selected = root;
  setCurrentIndex(selected);
  if (selected < 0) setEditText(lastText);
}

QList<ComboItem> SourcesBox::items() const {
  QList<ComboItem> items;
  for (int i = 0; i < count(); ++i) {
    const QVariant image = itemData(i, kImageRole);
    items.push_back({rootText(itemData(i).toByteArray().toStdString()),
                     image.isValid() ? image.toInt() : kComboFolderImage});
  }
  return items;
}

// A root as short as "/" is never taken out this way, nor an entry the user has typed over.
bool SourcesBox::removeShown() {
  const int i = currentIndex();
  if (i < 0 || itemText(i) != currentText()) return false;
  if (itemData(i).toByteArray().size() < 4) return false;
  removeItem(i);
  setCurrentIndex(std::min(i, count() - 1));
  return true;
}

bool SourcesBox::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::KeyPress && (watched == this || watched == lineEdit())) {
    const int key = static_cast<QKeyEvent*>(event)->key();
    if (key == Qt::Key_Return || key == Qt::Key_Enter) {
      Q_EMIT startRequested();
      return true;
    }
    if (key == Qt::Key_Delete && removeShown()) return true;
  }
  return QComboBox::eventFilter(watched, event);
}

}  // namespace ql
