#include "ui/PaneFrame.h"

#include <QVBoxLayout>

#include "ui/DrivePane.h"
#include "ui/FileListPane.h"
#include "ui/ReportPane.h"
#include "ui/TreemapPane.h"
#include "ui/TypesPane.h"

namespace ql {

PaneFrame::PaneFrame(ReportPane* report, DrivePane* drives, FileListPane* files, FileListPane* top,
                     TreemapPane* treemap, TypesPane* types, QWidget* parent)
    : drives_(drives), files_(files), top_(top) {
  auto* filesArea = new QWidget(parent);
  auto* filesLayout = new QVBoxLayout(filesArea);
  filesLayout->setContentsMargins(0, 0, 0, 0);
  filesLayout->addWidget(files);
  filesLayout->addWidget(top);
  info_ = new Splitter(QStringLiteral("splInfo"), Splitter::PanesAbove, drives, filesArea, parent);
  pictures_ =
      new Splitter(QStringLiteral("splTreemap"), Splitter::PanesSideBySide, treemap, types, parent);
  report_ =
      new Splitter(QStringLiteral("splReport"), Splitter::PanesAbove, report, pictures_, parent);
  report_->setControl2Visible(false);
  // The pictures take the lower half and the types a third of it, at any size of the window.
  report_->setKeepProportion(true);
  report_->setProportion(50);
  pictures_->setKeepProportion(true);
  pictures_->setProportion(67);
  main_ =
      new Splitter(QStringLiteral("splMain"), Splitter::PanesSideBySide, report_, info_, parent);
  main_->setMinimumSize(1, 120);
  main_->setMinimumSize(2, 120);
}

void PaneFrame::show(bool report, bool drives, bool files, bool largest, bool treemap, bool types) {
  const bool pictures = treemap || types;
  if (pictures) {
    pictures_->setControl1Visible(true);
    pictures_->setControl2Visible(true);
    pictures_->setControl1Visible(treemap);
    pictures_->setControl2Visible(types);
  }
  report_->setControl1Visible(true);
  report_->setControl2Visible(pictures);
  report_->setControl1Visible(report || !pictures);
  const bool left = report || pictures;
  if (!drives && !files && !largest) {
    main_->setControl1Visible(true);
    main_->setControl2Visible(false);
    return;
  }
  info_->setControl1Visible(true);
  info_->setControl2Visible(true);
  info_->setControl1Visible(drives);
  if (drives) fitDriveTable();
  info_->setControl2Visible(files || largest);
  main_->setControl2Visible(true);
  main_->setControl1Visible(left);
  files_->setVisible(files);
  top_->setVisible(!files && largest);
  (files ? files_ : top_)->takePreview();
}

void PaneFrame::fitDriveTable() {
  if (!info_->Control1Visible()) return;
  if (drives_->rowCount() == 0) return;  // nothing measured yet: the pane keeps its place
  info_->setPosition(drives_->preferredHeight() + 5);
}

}  // namespace ql
