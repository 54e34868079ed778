#include "scan/DirReader.h"

namespace ql {

uint64_t mountIdFrom(const struct statx& sx) {
  if (sx.stx_mask & STATX_MNT_ID) return sx.stx_mnt_id;
  return (uint64_t{sx.stx_dev_major} << 32) | sx.stx_dev_minor;
}

unsigned DirEntry::linkTargetType() const {
  struct statx t;
  if (::statx(dirFd_, name_, kStatxQuiet, STATX_TYPE, &t) != 0) {
    error_ = errno;
    return DT_UNKNOWN;
  }
  if (!(t.stx_mask & STATX_TYPE)) return DT_UNKNOWN;
  return IFTODT(t.stx_mode);
}

uint64_t DirEntry::mountId() const {
  if (haveStat_ && (mask_ & STATX_MNT_ID)) return mountIdFrom(sx_);
  struct statx t;
  if (::statx(dirFd_, name_, AT_SYMLINK_NOFOLLOW | kStatxQuiet, STATX_MNT_ID, &t) != 0) {
    error_ = errno;
    return 0;
  }
  return mountIdFrom(t);
}

}  // namespace ql
