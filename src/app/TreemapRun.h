#pragma once
// The runs with no window that draw the treemap and write the file-types table: one walk of the
// folder, or one reading of an export, feeds both (see treemap/TreemapData.h). Exit status as the
// silent run: 0 written, 1 a failure (told on standard error).

#include "app/CommandLine.h"
#include "report/ReportTree.h"
#include "treemap/TreemapData.h"

namespace ql {

// A collector for the job: an export's folder is known only once it is read.
TreemapCollector treemapCollector(const ParsedCommandLine& job, bool wantTree, bool wantTypes);
// Walks the job's folder, or reads its export, into the collector; 0, or 1 when the walk failed,
// the folder could not be read or the export is damaged. `top` gets the folder an export holds.
int readForTreemap(const ParsedCommandLine& job, TreemapCollector& collector,
                   std::string* top = nullptr);
// The collector's tree once readForTreemap() has filled it; an export's is cut to the folder the
// export holds (`top`), and is empty when nothing was collected there.
TreemapTree takeTreemap(const ParsedCommandLine& job, TreemapCollector& collector,
                        const std::string& top);
// --treemap PICTURE --compare OLD NEW: NEW's files into `now` as readForTreemap() reads them, and
// OLD's folders into `then` (its root in `thenRoot`), counted alike; 0, or 1 after a failure
// (told on standard error).
int readComparedForTreemap(const ParsedCommandLine& job, TreemapTree& now, ReportTree& then,
                           uint32_t& thenRoot);
// Writes the table of the job's types file; 0 or 1.
int writeTypesFile(const ParsedCommandLine& job, TreemapCollector& collector);
// --types alone: walk or export, and table.
int runTypes(const ParsedCommandLine& job);

}  // namespace ql
