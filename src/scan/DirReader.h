#pragma once
// The one loop that reads a folder: getdents64 on a folder descriptor, statx relative to it.
// It serves the walk, the files-only count and the file list of one folder. The callback is a
// template parameter, so it is inlined; nothing is allocated per entry, and no system call is
// made for an entry beyond what the caller asks of it.
//
// Every question by name is asked with AT_STATX_DONT_SYNC | AT_NO_AUTOMOUNT: it never triggers
// an automount and never waits on a network or FUSE server for fresh attributes.

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "support/Stop.h"

namespace ql {

inline constexpr int kStatxQuiet = AT_STATX_DONT_SYNC | AT_NO_AUTOMOUNT;

// The mount an entry lies on (for a mount point: the mount on it), from a statx that asked for
// STATX_MNT_ID. Kernels without mount ids give the device, which tells other file systems apart.
uint64_t mountIdFrom(const struct statx& sx);

// One entry of the listing; valid only during the callback.
class DirEntry {
 public:
  const char* name() const { return name_; }  // NUL-terminated
  // DT_DIR, DT_REG, DT_LNK, ...: from the listing, or from a statx when the listing did not tell.
  unsigned type() const { return type_; }
  bool isFolder() const { return type_ == DT_DIR; }
  bool isLink() const { return type_ == DT_LNK; }

  // The entry's own attributes (of a link, the link itself) with the fields the reader asks for;
  // nullptr when the entry is gone since the listing (or see error()). At most one system call
  // per entry.
  const struct statx* stat() {
    if (!haveStat_) {
      if (::statx(dirFd_, name_, AT_SYMLINK_NOFOLLOW | kStatxQuiet, mask_, &sx_) != 0) {
        error_ = errno;
        return nullptr;
      }
      haveStat_ = true;
    }
    return &sx_;
  }

  // For a link: the type (DT_*) of what it leads to, DT_UNKNOWN when it leads nowhere. Asks
  // only for the type.
  unsigned linkTargetType() const;
  bool linksToFolder() const { return linkTargetType() == DT_DIR; }

  // The mount the entry lies on, without entering or opening it; 0 when the entry is gone.
  uint64_t mountId() const;

  // Why the last question about this entry had no answer (errno), 0 when all were answered. A
  // reader tells "gone" from "no memory" by it: the latter must not pass as a missing entry.
  int error() const { return error_; }

 private:
  friend class DirReader;
  int dirFd_ = -1;
  unsigned type_ = DT_UNKNOWN;
  unsigned mask_ = 0;
  bool haveStat_ = false;
  mutable int error_ = 0;
  const char* name_ = nullptr;
  struct statx sx_;
};

class DirReader {
 public:
  enum class End {
    Complete,  // the whole listing was read
    Stopped,   // the stop word said so
    Cut,       // the callback asked to end
    Failed,    // reading the listing failed; `error` holds the errno
  };
  struct Result {
    End end = End::Complete;
    int error = 0;
  };

  // statxMask: the fields DirEntry::stat() asks for (STATX_TYPE is always added).
  explicit DirReader(unsigned statxMask = STATX_SIZE) : mask_(statxMask | STATX_TYPE) {}

  void setMask(unsigned statxMask) { mask_ = statxMask | STATX_TYPE; }

  // Reads the folder behind fd (which stays open) from where its offset stands. onEntry(DirEntry&)
  // is called for every entry but "." and ".."; returning false ends the reading. The stop word
  // is checked before each piece of the listing is fetched; stop may be null.
  template <class OnEntry>
  Result read(int fd, OnEntry&& onEntry, const Stop* stop = nullptr) {
    if (!buffer_) buffer_ = std::make_unique<char[]>(kBuffer);
    DirEntry e;
    e.dirFd_ = fd;
    for (;;) {
      if (stop && stop->requested()) return {End::Stopped, 0};
      const long n = ::syscall(SYS_getdents64, fd, buffer_.get(), kBuffer);
      if (n == 0) return {};
      if (n < 0) return {End::Failed, errno};
      for (long off = 0; off < n;) {
        const auto* d = reinterpret_cast<const Dirent64*>(buffer_.get() + off);
        off += d->d_reclen;
        const char* name = d->d_name;
        if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0))) continue;
        e.name_ = name;
        e.type_ = d->d_type;
        e.haveStat_ = false;
        e.error_ = 0;
        e.mask_ = mask_;
        if (e.type_ == DT_UNKNOWN) {
          // The file system does not tell types in its listing: ask once, for everything.
          e.mask_ |= STATX_MNT_ID;
          if (!e.stat()) {
            // Gone since the listing; no memory to ask is not an entry that is gone.
            if (e.error_ == ENOMEM) return {End::Failed, ENOMEM};
            continue;
          }
          e.type_ = IFTODT(e.sx_.stx_mode);
        }
        if (!onEntry(e)) return {End::Cut, 0};
      }
    }
  }

 private:
  struct Dirent64 {
    uint64_t d_ino;
    int64_t d_off;
    unsigned short d_reclen;
    unsigned char d_type;
    char d_name[];
  };
  static constexpr size_t kBuffer = 64 * 1024;
  unsigned mask_;
  std::unique_ptr<char[]> buffer_;  // made on the first read, kept for the next
};

}  // namespace ql
