#pragma once
// The options dialog: the four yes/no options that have no button of their own (the file-manager
// entry, one instance, links left out of the report, folder levels in colour) and the patterns
// of names and paths the walk leaves out, the snapshots kept after each scan, with OK, Cancel
// and Apply. Each option is written to the settings file when it is applied; the window reads
// the whole section back after the dialog has closed.
//
// Opening the dialog already brings the file-manager entry in line with the settings file.
//
// User-interface thread only.

#include <QDialog>

#include "failure/Guard.h"

class QCheckBox;
class QLabel;
class QPlainTextEdit;
class QPushButton;
class QSpinBox;

namespace ql {

class frmOptionen : public QDialog {
  Q_OBJECT
 public:
  explicit frmOptionen(QWidget* parent = nullptr);

  QCheckBox* chkKontextmenu = nullptr;
  QCheckBox* chkInstanz = nullptr;
  QCheckBox* chkDontShowHardlinks = nullptr;
  QCheckBox* chkFolderColorFade = nullptr;
  QLabel* lblExclude = nullptr;
  QPlainTextEdit* txtExclude = nullptr;  // shell patterns the walk leaves out, one a line
  // Snapshots after each completed scan: on or off, how many a folder, MB for all (0: no limit).
  QCheckBox* chkSnapshots = nullptr;
  QLabel* lblSnapshotKeep = nullptr;
  QSpinBox* txtSnapshotKeep = nullptr;
  QLabel* lblSnapshotBudget = nullptr;
  QSpinBox* txtSnapshotBudget = nullptr;
  QPushButton* cmdOK = nullptr;
  QPushButton* cmdCancel = nullptr;
  QPushButton* cmdApply = nullptr;

  bool changed() const { return changed_; }
  bool loaded() const { return loaded_; }

  void OptionenLaden();
  void OptionenSpeichern();

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  void OptionenGeaendert();

  Guard guard_{"frmOptionen"};
  bool changed_ = false;
  // False until the dialog has come up: what the load sets is no change of the user's.
  bool loaded_ = false;
};

}  // namespace ql
