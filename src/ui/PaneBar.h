#pragma once
// The command bar of a pane (the report, the two file lists, the drives). Besides the pane's own
// controls every such bar carries the same size-unit group: bytes, kilobytes, megabytes and
// gigabytes, of which one is checked, and the decimals toggle. Each pane numbers these its own
// way, so the bar is told where its units start. A pane's search box may end up in the overflow
// of a narrow bar; the bar then offers a search field of its own.

#include <QLineEdit>
#include <functional>

#include "failure/Guard.h"
#include "ui/CommandBar.h"

namespace ql {

class PaneBar : public CommandBar {
  Q_OBJECT
 public:
  // `firstUnit` is the id of bytes; kilobytes, megabytes and gigabytes take the next three.
  PaneBar(const QString& objectName, const QString& title, int firstUnit, QWidget* parent);

  // Adds the four units as a group of their own, then the decimals toggle under `decimalsId`.
  void AddSizeUnits(int decimalsId, bool decimalsOn);
  // Checks the control of `unit` (0 bytes to 3 gigabytes) and clears the other three.
  void checkUnit(int unit);
  // In a bar too narrow for its search box the box waits in the overflow, where it cannot be
  // typed into: this brings up a field of its own below the bar, with the box's text. Enter
  // hands the text to the box, closes the field and runs `search` (under `guard`, reported as
  // `procedure`).
  void popSearchField(QLineEdit& box, const Guard& guard, const char* procedure,
                      std::function<void()> search);

 private:
  int firstUnit_;
};

}  // namespace ql
