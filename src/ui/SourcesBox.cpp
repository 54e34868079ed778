#include "ui/SourcesBox.h"

#include <QAbstractItemView>
#include <QAbstractProxyModel>
#include <QCompleter>
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
  // Known entries that begin with the text typed are offered in a list below the box, never
  // written into it: Enter reads exactly what was typed (a folder above a hung mount must not
  // become the mount), and an entry is taken only when picked from the list.
  auto* completer = new QCompleter(model(), this);
  completer->setCompletionMode(QCompleter::PopupCompletion);
  completer->setCaseSensitivity(Qt::CaseSensitive);
  setCompleter(completer);
  // After the completer's own filter, so that this one sees the keys first.
  completer->popup()->installEventFilter(this);
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

// A root as short as "/" is never taken out this way.
bool SourcesBox::removeEntry(int i) {
  if (i < 0 || i >= count() || itemData(i).toByteArray().size() < 4) return false;
  removeItem(i);
  return true;
}

// Never an entry the user has typed over.
bool SourcesBox::removeShown() {
  const int i = currentIndex();
  if (i < 0 || itemText(i) != currentText() || !removeEntry(i)) return false;
  setCurrentIndex(std::min(i, count() - 1));
  return true;
}

// The row of the box behind the entry picked in the completion list; -1 when none is picked.
int SourcesBox::pickedRow() const {
  const QModelIndex picked = completer()->popup()->currentIndex();
  const auto* proxy = qobject_cast<const QAbstractProxyModel*>(completer()->completionModel());
  return picked.isValid() && proxy ? proxy->mapToSource(picked).row() : -1;
}

bool SourcesBox::completionKey(int key) {
  QAbstractItemView* popup = completer()->popup();
  if (key == Qt::Key_Return || key == Qt::Key_Enter) {
    const int row = pickedRow();
    popup->hide();
    if (row >= 0) setCurrentIndex(row);  // picked: the entry with its bytes
    Q_EMIT startRequested();
    return true;
  }
  if (key == Qt::Key_Delete && removeEntry(pickedRow())) {
    // The list showed the picked entry in the box: the box gets the typed text back.
    const QString typed = completer()->completionPrefix();
    lineEdit()->setText(typed);
    completer()->setCompletionPrefix(typed);
    if (completer()->completionCount() > 0)
      completer()->complete();
    else
      popup->hide();
    return true;
  }
  return false;
}

bool SourcesBox::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::KeyPress && watched == completer()->popup())
    return completionKey(static_cast<QKeyEvent*>(event)->key()) ||
           QComboBox::eventFilter(watched, event);
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
