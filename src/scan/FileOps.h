#pragma once
// The few file-system questions and changes the rest of the program makes by path.
// Paths are bytes as the file system has them; nothing here converts text.

#include <string>
#include <string_view>

#include "support/Path.h"

namespace ql {

// Opens a folder of any path length, piece by piece below PATH_MAX. Returns the descriptor, or -errno.
int openFolderPath(const std::string& path);

// 0 when something exists at the path (any length), else the errno (ENOENT when nothing is there).
// Never triggers an automount, never waits on a dead network mount.
int probePath(const std::string& path);

// Creates a folder and every missing parent. Returns false with a text in errorText.
bool createPath(const std::string& path, std::string& errorText);

// Renames without ever replacing what is there: an existing target is an error and both stay.
// Returns "" on success, else the system's text.
std::string renameNoReplace(const std::string& from, const std::string& to);

}  // namespace ql
