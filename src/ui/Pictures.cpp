#include "ui/Pictures.h"

#include "ui/ScanSession.h"
#include "ui/TreemapPane.h"
#include "ui/TypesPane.h"

namespace ql {

Pictures::Pictures(ScanSession& session, const Guard& guard, QWidget* parent)
    : QObject(parent),
      session_(session),
      treemap_(new TreemapPane(session, guard, parent)),
      types_(new TypesPane(session, guard, parent)) {
  connect(types_, &TypesPane::extensionPicked, this,
          guard.wrap("lvwTypes_Click", [this](const std::string& extension, bool picked) {
            treemap_->setHighlight(picked ? extension : std::string(), picked);
            Q_EMIT extensionPicked(extension, picked);
          }));
  connect(&session, &ScanSession::treemapChanged, this, guard.wrap("Treemap_Refresh", [this] {
    treemap_->refresh();
    types_->refresh();
  }));
}

void Pictures::showFolder(uint32_t node, bool inTreemap, bool inTypes) {
  const ReportTree& tree = session_.tree();
  if ((!inTreemap && !inTypes) || !tree.isLive(node)) return;
  if (!tree.isFolder(node)) node = tree.parent(node);
  const std::string path = tree.fullPath(node);
  if (inTreemap) treemap_->showFolder(path);
  if (inTypes) types_->showFolder(path);
}

}  // namespace ql
