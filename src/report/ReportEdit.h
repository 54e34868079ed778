#pragma once
// Changes of the report tree that keep its sums true: every folder's size, file and folder
// counts are those of its rows. Rescan, delete and trash all correct the tree through here.
//
// Sums are checked: a change that would overflow any folder on the way up changes nothing and
// says so, so a wrapped value is never stored.

#include <cstdint>

#include "report/ReportTree.h"

namespace ql {

struct SumChange {
  int64_t size = 0;
  int64_t files = 0;
  int64_t folders = 0;
};

// Adds the change (negative values take away) to `from` and every folder above it, and gives
// each of them and their rows new percentages. False, with nothing changed, on overflow.
bool adjustUp(ReportTree& tree, uint32_t from, const SumChange& change);

// Takes a row and everything below it out of the report, and its sums off every folder above.
// A source goes as a whole. False, with nothing changed, when the sums above would not add up.
bool removeWithSums(ReportTree& tree, uint32_t node);

// The row of a folder's own files, or kNoNode.
uint32_t filesRowOf(const ReportTree& tree, uint32_t folder);

// Percentages of every row from `node` up to its source.
void refreshPercentsUp(ReportTree& tree, uint32_t node);

}  // namespace ql
