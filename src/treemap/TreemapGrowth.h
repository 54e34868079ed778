#pragma once
// How each folder of a treemap changed against an earlier measurement of the same folder, for the
// picture coloured by growth. Folders are matched by their path below the top on each side, byte
// for byte, as the comparison of two reports matches them. What counts is a folder's own files
// (the bytes directly in it): the growth of a subfolder shows on the subfolder's own files.

#include <cstdint>
#include <limits>
#include <vector>

#include "report/ReportTree.h"
#include "treemap/TreemapData.h"

namespace ql {

// The earlier measurement holds no such folder.
constexpr float kNewFolder = std::numeric_limits<float>::infinity();

// By folder of `now`: (now - then) / then of each own-file bytes, at least -1; a folder whose
// files held nothing then and hold a byte now has grown by the largest float. Only `top` and the
// folders below it get a value (the others 0). `then`'s `thenTop` is the folder that `now`'s
// folder 0 was then. One pass over the folders and files below `top`.
std::vector<float> folderGrowth(const TreemapTree& now, uint32_t top, const ReportTree& then,
                                uint32_t thenTop);

}  // namespace ql
