#pragma once
// The file-types table: one row an extension with its files, bytes and share of all bytes, in the
// report's CSV layout (headings and text fields in double quotes, ";" between, CR LF).

#include <string>
#include <vector>

#include "treemap/TreemapData.h"

namespace ql {

std::string typesTableCsv(const std::vector<TypeRow>& rows);

}  // namespace ql
