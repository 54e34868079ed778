#pragma once
// The kind of a file for the treemap's colours, told by its extension alone: the walk meets
// every file, and asking the MIME database (as the file lists do) would cost far too much there.

#include <cstdint>
#include <string_view>

namespace ql {

enum class FileKind : uint8_t {
  Other,
  Picture,
  Video,
  Audio,
  Archive,
  Document,
  Code,
  Program,
  Count
};

// What follows the last "." of a name, "" for none. A leading dot (".bashrc") starts no
// extension, and neither does a dot at the end.
std::string_view typeExtension(std::string_view name);

// The extension in lower case (ASCII), at most `size` bytes written to `out`; longer ones are cut.
size_t lowerExtension(std::string_view extension, char* out, size_t size);

FileKind kindOfExtension(std::string_view lowerCaseExtension);

}  // namespace ql
