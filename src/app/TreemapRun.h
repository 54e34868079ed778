#pragma once
// The runs with no window that draw the treemap and write the file-types table: one walk of the
// folder feeds both (see treemap/TreemapData.h). Exit status as the silent run: 0 written,
// 1 a failure (told on standard error).

#include "app/CommandLine.h"
#include "treemap/TreemapData.h"

namespace ql {

// Walks the job's folder into the collector; 0, or 1 when the walk failed or the folder
// could not be read.
int walkForTreemap(const ParsedCommandLine& job, TreemapCollector& collector);
// Writes the table of the job's types file; 0 or 1.
int writeTypesFile(const ParsedCommandLine& job, TreemapCollector& collector);
// --types alone: walk and table.
int runTypes(const ParsedCommandLine& job);

}  // namespace ql
