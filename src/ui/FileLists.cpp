#include "ui/FileLists.h"

#include "ui/CommandIds.h"
#include "ui/CompareBaseline.h"
#include "ui/FileListPane.h"
#include "ui/PreviewPane.h"
#include "ui/ScanSession.h"

namespace ql {

FileLists::FileLists(ScanSession& session, const Guard& guard, const MainOptions& options,
                     QWidget* parent)
    : QObject(parent),
      files_(new FileListPane(FileListPane::Kind::Files, guard, options, parent)),
      top_(new FileListPane(FileListPane::Kind::Top, guard, options, parent)),
      preview_(new PreviewPane(guard, parent)) {
  files_->setAllocated(options.SizeAllocated != 0);
  preview_->hide();  // until a list takes it
  files_->setPreview(preview_, top_);
  top_->setPreview(preview_, files_);
  for (FileListPane* pane : {files_, top_}) {
    const bool folderList = pane == files_;
    pane->bar().control(cmd::files::FullView)->setCheckable(true);
    connect(pane, &FileListPane::statusText, this, &FileLists::statusText);
    connect(pane, &FileListPane::fileGone, this,
            guard.wrap("Filelist_DeleteFiles",
                       [&session](const std::string& folder, const std::string& name, qint64 size) {
                         session.treemapFileGone(folder, name, size);
                       }));
    connect(pane, &FileListPane::fullViewRequested, this,
            guard.wrap("cbrFiles_Execute",
                       [this, folderList] { Q_EMIT fullViewRequested(folderList); }));
    connect(pane, &FileListPane::filesDeleted, this,
            guard.wrap("Filelist_DeleteFiles",
                       [this, folderList](const std::vector<std::string>& folders) {
                         Q_EMIT filesDeleted(folders, folderList);
                       }));
  }
  session.setLargestFiles(
      {[this] { return top_->beginRead(); },
       [this](const std::string& source, const std::string& root) { top_->endRead(source, root); },
       [this] { top_->clearList(); }});
}

void FileLists::setAllocated(bool allocated) {
  files_->setAllocated(allocated);
}

void FileLists::setBaseline(const CompareBaseline* baseline) {
  if (!baseline)
    top_->setNewOrGrownFilter({});
  else
    top_->setNewOrGrownFilter([baseline](const std::string& path, int64_t size) {
      return baseline->newOrGrown(path, size);
    });
}

}  // namespace ql
