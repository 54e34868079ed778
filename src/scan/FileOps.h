#pragma once
// The few file-system questions and changes the rest of the program makes by path.
// Paths are bytes as the file system has them; nothing here converts text.

#include <string>
#include <string_view>

#include "support/Path.h"

namespace ql {

// True when something exists under the path (a folder, or a file, as the original test allowed).
bool existFolder(const std::string& path);

// Creates a folder and every missing parent. Returns false with a text in errorText.
bool createPath(const std::string& path, std::string& errorText);

// Renames without ever replacing what is there: an existing target is an error and both stay.
// Returns "" on success, else the system's text.
std::string renameNoReplace(const std::string& from, const std::string& to);

}  // namespace ql
