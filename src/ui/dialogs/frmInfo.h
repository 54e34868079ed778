#pragma once
// The about box: the program's icon, name and version, what it does, the maker's home page and
// mail address as links, and the Qt version it runs on.
//
// User-interface thread only.

#include <QDialog>
#include <QIcon>

#include "failure/Guard.h"

class QLabel;
class QPushButton;

namespace ql {

// The program's own icon, built into the program.
QIcon programIcon();

class frmInfo : public QDialog {
  Q_OBJECT
 public:
  explicit frmInfo(QWidget* parent = nullptr);

  QLabel* lblVersion = nullptr;
  QLabel* lblLinks = nullptr;
  QLabel* lblQt = nullptr;
  QPushButton* cmdClose = nullptr;

 private:
  Guard guard_{"frmInfo"};
};

}  // namespace ql
