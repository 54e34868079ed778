#pragma once
// The mounted file systems the drive table shows, read from the kernel's mount table. Nothing
// here touches a mounted file system: the table, /sys and /dev/disk are all local, so a dead
// network mount cannot make the listing wait.
//
// Any thread; no state.

#include <string>
#include <string_view>
#include <vector>

namespace ql {

// Kinds of drive, numbered as the table and the sources box know them.
enum DriveType : int {
  DriveUnknown = 0,
  DriveRemovable = 2,
  DriveLocal = 3,
  DriveNetwork = 4,
  DriveOptical = 5,
  DriveRam = 6,
};

struct MountEntry {
  std::string mountPoint;  // bytes, escapes decoded
  std::string fsType;      // "ext4", "fuse.sshfs", ...
  std::string source;      // "/dev/sda1", "server:/export", "tmpfs"
  std::string root;        // the folder of the file system that is mounted here ("/" unless a bind)
  unsigned major = 0, minor = 0;
  bool hasDevice = false;  // major:minor known (mountinfo); /proc/mounts has no such field
};

// Decodes the octal escapes the kernel writes for blank, tab, newline and backslash (\040,
// \011, \012, \134). Any other backslash stays as it is.
std::string decodeMountField(std::string_view field);

// Parses /proc/self/mountinfo or /proc/self/mounts text (the form is told by the line). Lines
// that do not parse are skipped.
std::vector<MountEntry> parseMountTable(std::string_view text);

// File systems that hold no user data: kernel interfaces, snap images, container layers.
bool isPseudoMount(const MountEntry& m);

// What the drive table lists, in the byte order of the mount points: a mount point hidden by a
// later mount on the same point goes, pseudo file systems go, and a bind mount of a folder
// already listed (the same device with the same or an enclosing root) is shown once, where it
// was mounted first.
std::vector<MountEntry> listedMounts(const std::vector<MountEntry>& all);

// The system's mount table, as listed; empty when it cannot be read.
std::vector<MountEntry> readMountTable();

// Whether a file system type is one whose data lies on another machine (nfs, cifs, sshfs, 9p...).
bool isNetworkFileSystem(std::string_view fsType);

// The type code of a mount. Whether a block device is removable is asked of /sys.
int driveTypeOf(const MountEntry& m);

// The volume label of a mount's device from /dev/disk/by-label, or "" when it has none.
std::string volumeLabelOf(const MountEntry& m);

// The longest of `mountPoints` that holds `path`, compared by whole path components, byte for
// byte ("/home" holds "/home/a" but not "/homer"); "" when none does.
std::string mountOf(const std::vector<std::string>& mountPoints, std::string_view path);

}  // namespace ql
