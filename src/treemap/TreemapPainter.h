#pragma once
// Draws a treemap layout: files in the colour of their kind, shaded from a lighter top left to a
// darker bottom right so that neighbours stay apart; folders as a dark frame around a grey inside
// where the files too small to draw lie. Lives in the window's library: it needs Qt's painting.

#include <QColor>
#include <QImage>
#include <string>

#include "treemap/TreemapLayout.h"

namespace ql {

QColor treemapColor(FileKind kind);
QImage paintTreemap(const TreemapLayout& layout);
// PNG, or SVG for a name ending in ".svg" (any case), by the rules of OutputFile ("-" is standard
// output, a file is replaced only once complete). false with `error` on failure.
bool writeTreemapPicture(const TreemapLayout& layout, const std::string& fileName,
                         std::string& error);

}  // namespace ql
