#pragma once
// The desktop's trash (the freedesktop.org layout): a file or folder is moved in with a note of
// where it came from and when, so that the file manager can put it back. Paths are bytes.

#include <cstdint>
#include <string>

#include "scan/FileOps.h"

namespace ql {

// code 0: done; else an errno value, and text its system text.
struct TrashResult {
  int code = 0;
  std::string text;
};

// Moves a file or folder into the trash: the home trash ($XDG_DATA_HOME/Trash, by default
// ~/.local/share/Trash) when it lies on the same mount as the item; otherwise the trash at the
// top of the item's mount ($topdir/.Trash/$uid when $topdir/.Trash is a sticky folder and no link,
// else $topdir/.Trash-$uid, made 0700). The note info/<name>.trashinfo is written first, made
// exclusively (a taken name gives "name.2", "name.3", ...), with Path= the percent-encoded bytes
// (absolute for the home trash, relative to the top for a mount's trash) and the local
// DeletionDate; then the item is renamed into files/. When the rename fails, the note goes again
// and the error is returned. Nothing is ever copied across file systems.
TrashResult moveToTrash(const std::string& path);
// The same for a found path: the folder that holds the item is reached by the rules of FoundPath
// (EXDEV with its message when a folder on the way is a link now), the note names the folder so
// reached, and with `inode` not 0 an item of another inode is not moved (ESTALE).
TrashResult moveToTrash(const FoundPath& path, uint64_t inode = 0);

// A failure as the lists show it: the text with the code in brackets.
std::string trashErrorText(const TrashResult& result);

// The bytes of a path in the form of a trash note: every byte but letters, digits, "-._~/" as
// "%XX".
std::string percentEncodePath(const std::string& path);

}  // namespace ql
