#include "support/Globals.h"

namespace ql {

Globals& globals() {
  static Globals g;
  return g;
}

}  // namespace ql
