#pragma once

namespace ql {

// Sets up the C library's allocator for this program, before any thread starts:
//  - two pools at most: the walk's threads allocate little and briefly, and a pool of their own
//    for each would only strand memory;
//  - blocks of a megabyte and more always come straight from the system and go back to it when
//    freed. Otherwise the allocator raises that bound to the largest block freed so far, and
//    the preview's large texts and pictures would then be carved from the heap: its memory
//    would grow with each file shown, and growing a long document would copy it.
void tuneAllocator();

}  // namespace ql
