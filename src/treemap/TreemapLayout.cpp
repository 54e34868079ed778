#include "treemap/TreemapLayout.h"

#include <algorithm>
#include <cmath>

namespace ql {

namespace {

struct Item {
  int64_t size;
  uint32_t index;  // folder or file
  TreemapRect::Type type;
};

struct Box {
  double x, y, w, h;
};

// The worst aspect ratio of a row of areas `sum` (largest `most`, smallest `least`) along a side.
double worst(double sum, double most, double least, double side) {
  const double s2 = sum * sum, side2 = side * side;
  return std::max(side2 * most / s2, s2 / (side2 * least));
}

int toPixel(double v) {
  return static_cast<int>(std::lround(v));
}

// Squarified rows over `items` (largest first) in the box; `scale` is pixels per byte. Each item's
// edges are cumulated from the box's, so neighbours share an edge and round to the same pixel.
template <class Place>
void squarify(const std::vector<Item>& items, Box box, double scale, Place&& place) {
  size_t i = 0;
  while (i < items.size()) {
    const bool wide = box.w >= box.h;
    const double side = wide ? box.h : box.w;
    double sum = items[i].size * scale;
    const double most = sum;
    size_t end = i + 1;
    double least = sum;
    double current = worst(sum, most, least, side);
    for (; end < items.size(); ++end) {
      const double a = items[end].size * scale;
      const double next = worst(sum + a, most, a, side);
      if (next > current) break;
      sum += a, least = a, current = next;
    }
    // The last row takes what is left, so rounding drift never leaves a gap or spills over.
    double rowSum = 0;
    for (size_t k = i; k < end; ++k) rowSum += static_cast<double>(items[k].size);
    const double thick =
        end == items.size() ? (wide ? box.w : box.h) : std::min(sum / side, wide ? box.w : box.h);
    double done = 0;
    for (size_t k = i; k < end; ++k) {
      const double from = done / rowSum;
      done += static_cast<double>(items[k].size);
      const double to = k + 1 == end ? 1.0 : done / rowSum;
      if (wide)
        place(items[k], box.x, box.y + side * from, box.x + thick, box.y + side * to);
      else
        place(items[k], box.x + side * from, box.y, box.x + side * to, box.y + thick);
    }
    if (wide)
      box.x += thick, box.w -= thick;
    else
      box.y += thick, box.h -= thick;
    i = end;
  }
}

}  // namespace

TreemapLayout layoutTreemap(const TreemapTree& tree, int width, int height, uint32_t root) {
  TreemapLayout layout;
  layout.width = std::max(width, 0);
  layout.height = std::max(height, 0);
  if (root >= tree.folders.size() || layout.width == 0 || layout.height == 0 ||
      tree.folders[root].bytes <= 0)
    return layout;
  layout.rects.push_back(
      {0, 0, layout.width, layout.height, root, 0, 0, TreemapRect::Folder, FileKind::Other});
  // Folders waiting to be filled, by their place in `rects`: no recursion, so any depth will do.
  std::vector<size_t> waiting{0};
  std::vector<Item> items;
  while (!waiting.empty()) {
    const auto parent = static_cast<uint32_t>(waiting.back());
    const TreemapRect r = layout.rects[parent];
    waiting.pop_back();
    if (r.w < 3 || r.h < 3) continue;  // no room inside the frame
    const TreemapFolder& f = tree.folders[r.folder];
    const Box inside{r.x + 1.0, r.y + 1.0, r.w - 2.0, r.h - 2.0};
    const double scale = inside.w * inside.h / static_cast<double>(f.bytes);
    items.clear();
    for (uint32_t c : f.children)
      if (tree.folders[c].bytes > 0)
        items.push_back({tree.folders[c].bytes, c, TreemapRect::Folder});
    for (uint32_t k = 0; k < f.fileCount; ++k) {
      const int64_t size = TreemapTree::sizeOf(tree.files[f.firstFile + k]);
      if (size > 0) items.push_back({size, f.firstFile + k, TreemapRect::File});
    }
    // Largest first; among equals folders before files, each in their own order.
    std::stable_sort(items.begin(), items.end(),
                     [](const Item& a, const Item& b) { return a.size > b.size; });
    // Everything from the first item under a pixel on is the folder's rest.
    const auto small = std::find_if(items.begin(), items.end(),
                                    [scale](const Item& it) { return it.size * scale < 1.0; });
    if (small != items.end()) {
      int64_t rest = 0;
      for (auto it = small; it != items.end(); ++it) rest += it->size;
      items.erase(small, items.end());
      items.push_back({rest, 0, TreemapRect::Rest});
    }
    squarify(items, inside, scale, [&](const Item& it, double x0, double y0, double x1, double y1) {
      const int px = toPixel(x0), py = toPixel(y0), w = toPixel(x1) - px, h = toPixel(y1) - py;
      if (w < 1 || h < 1) return;  // the folder's grey shows here
      TreemapRect c{px,
                    py,
                    w,
                    h,
                    r.folder,
                    0,
                    static_cast<uint16_t>(std::min(r.depth + 1, 0xffff)),
                    it.type,
                    FileKind::Other,
                    0,
                    parent};
      if (it.type == TreemapRect::Folder) {
        c.folder = it.index;
        waiting.push_back(layout.rects.size());
      } else if (it.type == TreemapRect::File) {
        c.file = it.index;
        c.kind = TreemapTree::kindOf(tree.files[it.index]);
        if (it.index < tree.extensions.size()) c.extension = tree.extensions[it.index];
      }
      layout.rects.push_back(c);
    });
  }
  return layout;
}

int pickTreemap(const TreemapLayout& layout, int x, int y) {
  // A rectangle comes after every rectangle that holds it: the last one that holds the point is
  // the innermost.
  for (size_t i = layout.rects.size(); i-- > 0;)
    if (layout.rects[i].contains(x, y)) return static_cast<int>(i);
  return -1;
}

}  // namespace ql
