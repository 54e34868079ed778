#pragma once
// The few file-system questions and changes the rest of the program makes by path.
// Paths are bytes as the file system has them; nothing here converts text.

#include <atomic>
#include <string>
#include <string_view>
#include <vector>

#include "support/Path.h"

namespace ql {

// Opens a folder of any path length, piece by piece below PATH_MAX. Returns the descriptor, or -errno.
int openFolderPath(const std::string& path);

// The same as O_PATH: a handle for *at calls that needs no read permission. Returns it, or -errno.
int openFolderHandle(const std::string& path);

// 0 when something exists at the path (any length), else the errno (ENOENT when nothing is there).
// Never triggers an automount, never waits on a dead network mount.
int probePath(const std::string& path);

// Creates a folder and every missing parent. Returns false with a text in errorText.
bool createPath(const std::string& path, std::string& errorText);

// Renames without ever replacing what is there: an existing target is an error and both stay.
// Returns "" on success, else the system's text.
std::string renameNoReplace(const std::string& from, const std::string& to);

// Removes one file (or a link, as a link). A file that is not there counts as removed. On failure
// returns "<path> (<system text>)"; with `force`, a failure for want of permission first gives the
// owner write and search permission on the containing folder (when the user owns it) and tries once
// more. Returns "" on success.
std::string deleteFile(const std::string& path, bool force);

struct FolderDeleteResult {
  bool ok = false;                         // the folder is gone
  std::string errors;                      // texts of single failures, blank-separated
  std::vector<std::string> mountsRefused;  // mount points met inside; never entered
};

// Deletes a folder and everything in it, relative to folder descriptors, so that a path swapped
// during the delete cannot redirect it. A symbolic link is removed as a link, never followed. A
// mount point inside (a subfolder on another mount, told before it is opened and checked again
// after) is not entered and is named in mountsRefused; the start folder itself may be neither a
// mount point nor a link. Any path length, any depth: the descent is a loop with a bounded number
// of open descriptors. With `force`, a folder the user owns gets owner permissions when it is in
// the way. `stop` may be null; when it holds `stopValue` the delete ends early (ok false).
// A failure that leaves the folder gone anyway (someone else removed it) counts as success.
FolderDeleteResult deleteFolderTree(const std::string& path, bool force,
                                    const std::atomic<int>* stop = nullptr, int stopValue = 0);

// The message for a mount point that a folder delete did not enter.
std::string mountRefusedText(const std::string& path);

}  // namespace ql
