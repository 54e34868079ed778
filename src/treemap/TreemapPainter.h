#pragma once
// Draws a treemap layout: files in the colour of their kind, folders as a dark frame around a grey
// inside where the files too small to draw lie. Lives in the window's library: it needs Qt's
// painting.
//
// Files are cushions: each folder adds a ridge along both of its sides (lower for deeper ones),
// and a file is lit by how its surface faces a light from the top left, so that a folder's files
// read as one bulge and nesting shows without labels. The flat look shades each file alone.
// Links to folders, other mounts and excluded entries hold no bytes and so get no area.

#include <QColor>
#include <QImage>
#include <span>
#include <string>

#include "treemap/TreemapLayout.h"

namespace ql {

struct TreemapLook {
  bool cushions = true;
  // Files of one kind or extension keep their colours; everything else is dimmed.
  enum class Mark : uint8_t { None, Kind, Extension } mark = Mark::None;
  FileKind kind = FileKind::Other;
  uint16_t extension = 0;  // an id of TreemapTree::extensionNames
  // A folder still being read (an index of TreemapTree::folders): hatched over, since what it
  // shows is what it held before.
  uint32_t reading = UINT32_MAX;
  // By folder, as folderGrowth() gives it: when set, files take the colour of their folder's
  // growth instead of their kind's.
  std::span<const float> growth = {};
};

QColor treemapColor(FileKind kind);
// New folders red; grown ones from grey towards orange, shrunk ones towards blue, both by the
// square root of the change up to 100 %, so that a few percent already show; unchanged ones grey.
QColor growthColor(float growth);
QImage paintTreemap(const TreemapLayout& layout, const TreemapLook& look = {});
// PNG, or SVG for a name ending in ".svg" (any case), by the rules of OutputFile ("-" is standard
// output, a file is replaced only once complete). false with `error` on failure.
bool writeTreemapPicture(const TreemapLayout& layout, const std::string& fileName,
                         std::string& error, const TreemapLook& look = {});

}  // namespace ql
