#pragma once
// Path text and the few file-system questions the rest of the program asks by path.
// Paths are bytes as the file system has them; nothing here converts text.

#include <string>
#include <string_view>

namespace ql {

// Joins a folder path and a name with one "/", unless the folder already ends in one
// (so the children of "/" are "/usr", not "//usr").
std::string joinPath(std::string_view folder, std::string_view name);

// Folder form: a path that does not end in "/" is trimmed of blanks and gets one; "" gives "/".
std::string addSlash(std::string_view path);

// Bare form: one trailing "/" is cut and the rest trimmed; "/" itself stays "/".
std::string removeSlash(std::string_view path);

// Text of a report root for a source path: the path without its trailing "/", except "/".
std::string rootText(std::string_view path);

// What stands behind the last point of a name, without the point; "" when there is none.
std::string extensionOf(std::string_view name);

// True when something exists under the path (a folder, or a file, as the original test allowed).
bool existFolder(const std::string& path);

// Creates a folder and every missing parent. Returns false with a text in errorText.
bool createPath(const std::string& path, std::string& errorText);

// Renames without ever replacing what is there: an existing target is an error and both stay.
// Returns "" on success, else the system's text.
std::string renameNoReplace(const std::string& from, const std::string& to);

// The system's text for an errno value, as "text".
std::string systemErrorText(int err);

}  // namespace ql
