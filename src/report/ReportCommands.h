#pragma once
// Commands on the report tree that do not depend on the view.

#include "report/ReportTree.h"

namespace ql {

// A click on a column title (columns counted from 1: name, size, percent, files, folders).
// Each level's direction turns over on its own; the key follows the title's place by the
// program's long-standing map: name by text, size by size, percent by files, files by
// folders, folders by text in plain byte order.
void sortByColumnTitle(ReportTree& tree, int column);

}  // namespace ql
