#pragma once
// Path text. Paths are bytes as the file system has them; nothing here converts text or touches
// the disk.

#include <string>
#include <string_view>

namespace ql {

// Joins a folder path and a name with one "/", unless the folder already ends in one
// (so the children of "/" are "/usr", not "//usr").
std::string joinPath(std::string_view folder, std::string_view name);

// Folder form: a path that does not end in "/" gets one; "" gives "/". Blanks are part of a
// name and stay.
std::string addSlash(std::string_view path);

// Bare form: one trailing "/" is cut; "/" itself stays "/".
std::string removeSlash(std::string_view path);

// Text of a report root for a source path: the path without its trailing "/", except "/".
std::string rootText(std::string_view path);

// What stands behind the last point of a name, without the point; "" when there is none.
std::string extensionOf(std::string_view name);

// The system's text for an errno value.
std::string systemErrorText(int err);

// $XDG_DATA_HOME, else ~/.local/share (the home from HOME, else the password database); empty
// when neither gives an absolute path.
std::string xdgDataHome();

}  // namespace ql
