#pragma once
// The two pictures of a folder below the report, the treemap and the file types: fed by the scan
// session and drawn again when its data changes, showing the folder the report has selected. A
// kind picked in the types keeps its colour in the treemap and dims the rest.
//
// Threads: the user-interface thread only.

#include <QObject>
#include <cstdint>
#include <string>

#include "failure/Guard.h"

class QWidget;

namespace ql {

class ScanSession;
class TreemapPane;
class TypesPane;

class Pictures : public QObject {
  Q_OBJECT
 public:
  Pictures(ScanSession& session, const Guard& guard, QWidget* parent);

  TreemapPane& treemap() { return *treemap_; }
  TypesPane& types() { return *types_; }
  // The folder of `node` (a files row's own folder) in those of the two that are shown.
  void showFolder(uint32_t node, bool inTreemap, bool inTypes);

 Q_SIGNALS:
  // A kind was picked in the types, or let go: the largest-files list narrows to it or widens.
  void extensionPicked(const std::string& extension, bool picked);

 private:
  ScanSession& session_;
  TreemapPane* treemap_;
  TypesPane* types_;
};

}  // namespace ql
