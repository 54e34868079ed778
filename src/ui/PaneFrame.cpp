#include "ui/PaneFrame.h"

#include <QToolBar>
#include <QTreeView>
#include <QVBoxLayout>

#include "app/Settings.h"
#include "ui/CommandIds.h"
#include "ui/DrivePane.h"
#include "ui/FileListPane.h"
#include "ui/ReportPane.h"
#include "ui/TreemapPane.h"
#include "ui/TypesPane.h"

namespace ql {

PaneFrame::PaneFrame(ReportPane* report, DrivePane* drives, FileListPane* files, FileListPane* top,
                     TreemapPane* treemap, TypesPane* types, QWidget* parent)
    : reportPane_(report), types_(types), drives_(drives), files_(files), top_(top) {
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
  place(report, drives, files, largest, treemap, types);
  // "Vollansicht" is checked on the bar of the pane that stands alone, and a click takes it back.
  reportPane_->bar().setChecked(cmd::report::FullView, report && !drives && !files && !largest);
  files_->bar().setChecked(cmd::files::FullView, files && !report && !drives);
  top_->bar().setChecked(cmd::files::FullView, !files && largest && !report && !drives);
  // A closed file list holds nothing and reads nothing.
  if (!files || !info_->Control2Visible()) files_->clearList();
}

void PaneFrame::place(bool report, bool drives, bool files, bool largest, bool treemap,
                      bool types) {
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

bool PaneFrame::setGridFont(double points) {
  if (points < 8 || points > 18) return false;
  QFont f = reportPane_->view().font();
  f.setPointSizeF(points);
  reportPane_->setGridFont(f);
  drives_->view().setFont(f);
  for (FileListPane* pane : {files_, top_}) pane->setGridFont(f);
  return true;
}

void PaneFrame::stepGridFont(int step) {
  if (!setGridFont(reportPane_->view().font().pointSizeF() + step)) return;
  // Rows have a new height: the columns and the drive table are measured again.
  reportPane_->fitColumns();
  QTreeView& drives = drives_->view();
  for (int c = 0; c < drives.model()->columnCount(); ++c) drives.resizeColumnToContents(c);
  fitDriveTable();
}

void PaneFrame::setBarLook(QToolBar& mainBar, bool big, bool text) {
  for (QToolBar* bar :
       {&mainBar, static_cast<QToolBar*>(&reportPane_->bar()),
        static_cast<QToolBar*>(&drives_->bar()), static_cast<QToolBar*>(&files_->bar()),
        static_cast<QToolBar*>(&top_->bar())}) {
    bar->setIconSize(big ? QSize(32, 32) : QSize(16, 16));
    bar->setToolButtonStyle(text ? Qt::ToolButtonTextUnderIcon : Qt::ToolButtonIconOnly);
  }
  // Bigger buttons need a wider report to show them all.
  if (main_->Control1Visible() && main_->Position() < reportPane_->barWidth())
    main_->setPosition(reportPane_->barWidth());
  fitDriveTable();
}

void PaneFrame::setControlsEnabled(bool on) {
  reportPane_->setControlsEnabled(on);
  for (FileListPane* pane : {files_, top_}) pane->setControlsEnabled(on);
  types_->view().setEnabled(on);
}

void PaneFrame::setWarningHandler(const std::function<void(const QString&)>& warn) {
  reportPane_->setWarningHandler(warn);
  for (FileListPane* pane : {files_, top_}) pane->setWarningHandler(warn);
}

void PaneFrame::storeOptions(MainOptions& o) {
  reportPane_->storeOptions(o);
  files_->storeOptions(o);
  top_->storeOptions(o);
  drives_->storeOptions(o);
  drives_->saveLocations();
}

}  // namespace ql
