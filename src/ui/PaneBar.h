#pragma once
// The command bar of a pane (the report, the two file lists, the drives). Besides the pane's own
// controls every such bar carries the same size-unit group: bytes, kilobytes, megabytes and
// gigabytes, of which one is checked, and the decimals toggle. Each pane numbers these its own
// way, so the bar is told where its units start.

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

 private:
  int firstUnit_;
};

}  // namespace ql
