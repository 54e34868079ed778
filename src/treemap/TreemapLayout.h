#pragma once
// Places a TreemapTree in a picture of whole pixels, squarified (rows of rectangles kept as near
// to squares as the sizes allow). Pure: the same tree and size give the same layout.
//
// A folder is a rectangle with a frame of one pixel around what lies in it; its files and
// subfolders share the inside by their bytes, largest first. What would get less than a pixel
// (with everything smaller after it) is one grey "rest" of its folder, and whatever rounds to an
// empty rectangle is not placed: the folder's own grey shows there. Rectangles are whole pixels:
// each lies inside its folder's inside, and none overlaps another of the same folder.

#include <cstdint>
#include <vector>

#include "treemap/TreemapData.h"

namespace ql {

struct TreemapRect {
  enum Type : uint8_t { Folder, File, Rest };
  int x = 0, y = 0, w = 0, h = 0;
  uint32_t folder = 0;  // the folder itself, or the one the file or rest lies in
  uint32_t file = 0;    // File: index into TreemapTree::files
  uint16_t depth = 0;   // 0 for the folder laid out
  Type type = Folder;
  FileKind kind = FileKind::Other;
  uint16_t extension = 0;  // File: the id in TreemapTree::extensionNames
  uint32_t parent = 0;     // the rectangle of the folder it lies in (0 for the first)
  bool contains(int px, int py) const { return px >= x && py >= y && px < x + w && py < y + h; }
};

struct TreemapLayout {
  int width = 0, height = 0;
  std::vector<TreemapRect> rects;  // a folder always before what lies in it
};

// `root` is the folder that fills the picture: 0 for the walked one, another to zoom in.
TreemapLayout layoutTreemap(const TreemapTree& tree, int width, int height, uint32_t root = 0);

// The innermost rectangle that holds the point (a file where there is one), -1 for none.
int pickTreemap(const TreemapLayout& layout, int x, int y);

}  // namespace ql
