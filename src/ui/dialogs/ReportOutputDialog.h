#pragma once
// What the save and print dialogs share: the choice of all folders or the selected one, the
// choice of levels, OK and Cancel, and the private copy of the report they work from. The
// selected folder is watched: when it goes from the tree while the dialog is open, its choice
// goes too.
//
// Threads: the user-interface thread.

#include <QDialog>
#include <QString>
#include <cstdint>
#include <functional>

#include "output/BranchCopy.h"
#include "ui/ReportModel.h"
#include "report/ReportTree.h"
#include "failure/Guard.h"

class QAbstractItemModel;
class QButtonGroup;
class QGridLayout;
class QLabel;
class QLineEdit;
class QPushButton;

namespace ql {

// How the report looks on the screen, for output that should look the same.
struct ReportLook {
  int unit = 0;      // 0 Bytes, 1 KB, 2 MB, 3 GB
  int decimals = 1;  // 1: two places
  bool allocated = false, linksOnce = false;  // how the sizes were counted
  bool visible[ReportModel::ColumnCount] = {true, true, true, true, true};
  QString titles[ReportModel::ColumnCount];
};

class ReportOutputDialog : public QDialog {
  Q_OBJECT
 public:
  QButtonGroup* optWhat() const { return optWhat_; }
  QButtonGroup* optLevels() const { return optLevels_; }
  QLineEdit* txtLevels() const { return txtLevels_; }
  QPushButton* OKButton() const { return OKButton_; }
  QPushButton* CancelButton() const { return CancelButton_; }
  bool busy() const { return busy_; }
  // Where a failure the user can mend is told; a message box unless replaced (tests).
  void setWarningHandler(std::function<void(const QString&)> warn) { warn_ = std::move(warn); }

  void reject() override;

 protected:
  // `watch` is the model over `tree`; its changes tell the dialog that the tree changed.
  ReportOutputDialog(const char* module, ReportTree& tree, QAbstractItemModel* watch, uint32_t selected,
                     const ReportLook& look, bool print, QWidget* parent);

  void closeEvent(QCloseEvent* event) override;

  // The start of the copy: the selected folder when chosen and still there, else every source.
  uint32_t chosenBranch() const;
  // The number in the levels box; an empty box is 0.
  int levelsNumber() const;
  // Makes the copy in slices, keeping the window alive between them; starts again when the
  // tree changes under it. False when the branch went away meanwhile.
  bool copyBranch(BranchCopy& copy, const std::function<void(size_t expandedFolders)>& progress = {});
  // OK, Cancel and the choices off while the dialog works.
  void setBusy(bool on);
  // A file that could not be written: its name and why, in a short message. The error report
  // is for faults of the program; a full disk or a folder without permission is none.
  void tellNotWritten(const QString& file, const QString& reason);

  ReportTree& tree_;
  const ReportLook look_;
  const Guard guard_;
  QGridLayout* extra_ = nullptr;  // the row below the choices: format or zoom

 private:
  void refreshSelection();

  uint32_t selected_;
  uint64_t generation_;
  bool treeChanged_ = false;
  bool busy_ = false;
  std::function<void(const QString&)> warn_;
  QButtonGroup* optWhat_ = nullptr;
  QButtonGroup* optLevels_ = nullptr;
  QLineEdit* txtLevels_ = nullptr;
  QPushButton* OKButton_ = nullptr;
  QPushButton* CancelButton_ = nullptr;
};

}  // namespace ql
