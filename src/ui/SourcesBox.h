#pragma once
// The sources box of the main bar: the drives first, then the folders read or kept from the
// last run. An entry keeps its path as bytes, so a folder whose name is not UTF-8 is read as it
// was found; a text typed over an entry is taken as typed. Return reads what the box shows,
// Delete takes the entry shown out of the box. Typing offers the known entries that begin with
// the text in a list; Return there reads the entry picked, or the text typed when none is
// picked, and Delete takes the picked entry out of the box.

#include <QComboBox>
#include <string>
#include <vector>

#include "ui/DrivePane.h"

namespace ql {

class SourcesBox : public QComboBox {
  Q_OBJECT
 public:
  explicit SourcesBox(QWidget* parent = nullptr);

  // Puts a source in the box, or selects it when it is there already (byte for byte: /a/B and
  // /a/b are two), and returns its index.
  int addSource(const std::string& path);
  // The source the box shows: the entry's bytes, or the text typed over it; "" when empty.
  std::string shownSource() const;
  // Fills the box at start: the drives, then the kept folders that are still there, and shows
  // the text of the last run (the root drive when there was none).
  void fill(const std::vector<DrivePane::ComboDrive>& drives, const std::vector<std::string>& kept,
            const QString& lastText);
  // What the settings keep of the box: every entry with its image.
  QList<ComboItem> items() const;

 Q_SIGNALS:
  void startRequested();

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  bool removeEntry(int row);
  bool removeShown();
  int pickedRow() const;
  // A key pressed while the completion list shows; true when it was handled here.
  bool completionKey(int key);
};

}  // namespace ql
