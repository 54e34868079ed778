#include "support/Allocator.h"

#include <malloc.h>

namespace ql {

void tuneAllocator() {
  ::mallopt(M_ARENA_MAX, 2);
  ::mallopt(M_MMAP_THRESHOLD, 1 << 20);
}

}  // namespace ql
