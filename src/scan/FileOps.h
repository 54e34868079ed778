#pragma once
// The few file-system questions and changes the rest of the program makes by path.
// Paths are bytes as the file system has them; nothing here converts text.

#include <sys/stat.h>
#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "support/Path.h"
#include "support/Stop.h"

namespace ql {

// A path the scan found, in two parts: `root` is the source as the user named it and is followed
// as given; `rest` holds the names the scan found below it, joined with "/" ("" for the root
// itself). Whatever works on a FoundPath reaches every folder of `rest` without following a link
// and without leaving the root's mount, and then works relative to the folder so reached: a
// folder on the way swapped for a link (before or during the change) cannot redirect it.
struct FoundPath {
  std::string root;
  std::string rest;
  std::string full() const;
};

// Splits `path` below the source `root` it begins with. A path that does not lie below `root`
// gives an empty root, which every operation refuses.
FoundPath foundBelow(const std::string& root, const std::string& path);

// Opens the folder that holds the last name of `p` as a handle (O_PATH) and gives that name.
// The descriptor, or -errno; -EXDEV when a folder on the way is a link or lies on another mount.
int openFoundParent(const FoundPath& p, std::string& name);

// Opens the folder `p` names for reading, by the same rules (the folder itself no link either).
int openFoundFolder(const FoundPath& p);

// lstat of what `p` names, reached by the same rules. 0 or the errno (EXDEV as above).
int statFound(const FoundPath& p, struct stat& st);

// The message for an operation on `path` refused with EXDEV by the rules above, else the
// system's text for `err` after the path.
std::string foundFailureText(const std::string& path, int err);

// The message for a file whose inode is no longer the one the list read.
std::string replacedFileText(const std::string& path);

// Opens a folder of any path length, piece by piece below PATH_MAX. Returns the descriptor, or -errno.
int openFolderPath(const std::string& path);

// The same as O_PATH: a handle for *at calls that needs no read permission. Returns it, or -errno.
int openFolderHandle(const std::string& path);

// 0 when something exists at the path (any length), else the errno (ENOENT when nothing is there).
// Never triggers an automount, never waits on a dead network mount.
int probePath(const std::string& path);

// Creates a folder and every missing parent. Returns false with a text in errorText.
bool createPath(const std::string& path, std::string& errorText);

// renameat2 with RENAME_NOREPLACE, and where the file system cannot promise that, a link and
// unlink for a file, a check and rename for a folder. 0 or the errno.
int renameNoReplaceAt(int fromDir, const char* from, int toDir, const char* to);

// Renames without ever replacing what is there: an existing target is an error and both stay.
// Returns "" on success, else the system's text.
std::string renameNoReplace(const std::string& from, const std::string& to);

// Renames what `from` names to `newName` in the same folder, never replacing, relative to the
// folder reached by the rules of FoundPath. With `inode` not 0, what is there must still be that
// inode. Returns "" on success, else the message.
std::string renameNoReplace(const FoundPath& from, const std::string& newName, uint64_t inode = 0);

// Removes one file (or a link, as a link). A file that is not there counts as removed. On failure
// returns "<path> (<system text>)"; with `force`, a failure for want of permission first gives the
// owner write and search permission on the containing folder (when the user owns it) and tries once
// more. Returns "" on success.
std::string deleteFile(const std::string& path, bool force);
// The same for a found path; with `inode` not 0 a file of another inode there is not removed.
std::string deleteFile(const FoundPath& path, bool force, uint64_t inode = 0);

struct FolderDeleteResult {
  bool ok = false;                         // the folder is gone
  std::string errors;                      // texts of single failures, blank-separated
  std::vector<std::string> mountsRefused;  // mount points met inside; never entered
  bool redirected = false;                 // a folder on the way is a link now: nothing touched
};

// Deletes a folder and everything in it, relative to folder descriptors, so that a path swapped
// during the delete cannot redirect it. A symbolic link is removed as a link, never followed. A
// mount point inside (a subfolder on another mount, told before it is opened and checked again
// after) is not entered and is named in mountsRefused; the start folder itself may be neither a
// mount point nor a link. Any path length, any depth: the descent is a loop with a bounded number
// of open descriptors. With `force`, a folder the user owns gets owner permissions when it is in
// the way. `stop` may be null; once it is requested the delete ends early (ok false).
// A failure that leaves the folder gone anyway (someone else removed it) counts as success.
FolderDeleteResult deleteFolderTree(const std::string& path, bool force,
                                    const Stop* stop = nullptr);
// The same for a found path: the folder that holds it is reached by the rules of FoundPath and
// kept open, so the last step, the removal of the emptied folder, goes there too.
FolderDeleteResult deleteFolderTree(const FoundPath& path, bool force,
                                    const Stop* stop = nullptr);

// The message for a mount point that a folder delete did not enter.
std::string mountRefusedText(const std::string& path);

}  // namespace ql
