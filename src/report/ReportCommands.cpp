#include "report/ReportCommands.h"

namespace ql {

void sortByColumnTitle(ReportTree& tree, int column) {
  SortField field = SortField::Text;
  int kind = 0;
  switch (column) {
    case 1: kind = 1; break;
    case 2: field = SortField::Size; kind = 2; break;
    case 3: field = SortField::Files; kind = 2; break;
    case 4: field = SortField::Folders; kind = 2; break;
    default: break;
  }
  for (uint32_t level = 0; level <= tree.deepestLevel(); ++level) {
    SortDefinition& def = tree.sorter(level);
    def = SortDefinition{field, def.direction == 1 ? 0 : 1, kind};
  }
  tree.sortAll();
}

}  // namespace ql
