#pragma once
// The save dialog: writes the report, all sources or the selected folder, to a column text or a
// semicolon table. The chosen branch is copied first and written from the copy on a worker
// thread, so the window stays alive and nothing done to the tree meanwhile reaches the file. The
// file is written beside the target and replaces it only when complete (see ReportWriter).
//
// Threads: the user-interface thread; the write itself runs on a thread of its own.

#include <string>

#include "ui/dialogs/ReportOutputDialog.h"
#include "ui/dialogs/cCommonDialog.h"

class QComboBox;

namespace ql {

class frmSave : public ReportOutputDialog {
  Q_OBJECT
 public:
  frmSave(ReportTree& tree, QAbstractItemModel* watch, uint32_t selected, const ReportLook& look,
          QWidget* parent = nullptr);

  // Writes the report. `FileName` "" asks the user; `Levels` -1 takes the dialog's choice, 0 all
  // levels, n the top rows and n levels below them. True when a file was written.
  bool SPEICHERN(std::string FileName, int Levels);

  cCommonDialog& commonDialog() { return dialog_; }
  QComboBox* cboFormat() const { return cboFormat_; }
  // The folder the save-file dialog starts in; afterwards, the folder last saved to.
  void setLastFolder(const QString& folder) { lastFolder_ = folder; }
  const QString& lastFolder() const { return lastFolder_; }

 private:
  QComboBox* cboFormat_ = nullptr;
  cCommonDialog dialog_;
  QString lastFolder_;
};

}  // namespace ql
