#pragma once
// A row of the file lists: one file, its sizes, times, attribute letters and type. Names and
// folders stay bytes; their text is made once, for display, search and sorting.
//
// Type names and icon names come from the file's name alone (the MIME glob patterns), never from
// its contents, and are kept per name ending: a folder of a million files asks the MIME database
// once per kind of file. The cache may be asked from any thread.

#include <QString>
#include <cstdint>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace ql {

// What the MIME database says of a kind of file; entries live as long as the program.
struct FileType {
  QString name;      // the type's comment, "" when the name matches nothing
  QString iconName;  // theme icon name
  QString genericIconName;
};

// The type of a file by its name. Thread-safe.
const FileType* fileTypeOf(std::string_view name);

struct FileRow {
  std::string name;    // as the file system gave it
  std::string folder;  // with a trailing "/"; the largest-files list only
  QString text;        // the name for display
  QString folderText;  // the folder for display (largest-files list)
  QString extension;   // what follows the last ".", upper-cased
  QString attributes;
  const FileType* type = nullptr;
  int64_t size = 0;
  int64_t modified = 0;  // seconds since the epoch
  int64_t created = -1;  // -1: the file system keeps no birth time
  int64_t accessed = 0;
  uint64_t inode = 0;  // from the folder read, checked before a change; 0 when not known
};

// Attribute letters: "S" not a regular file, "H" hidden (a name beginning with "."), "R" the
// owner may not write, "E" encrypted, "L" a symbolic link, "C" compressed, "I" not for dumps,
// "P" sparse. `attributes` are statx's attribute bits.
QString attributeLetters(std::string_view name, uint32_t mode, int64_t size, uint64_t blocks,
                         uint64_t attributes);

// Fills the derived fields (text, extension, attributes, type) of a row whose bytes are set.
void completeRow(FileRow& row, uint32_t mode, uint64_t blocks, uint64_t attributes);

// "dd/mm/yyyy hh:mm:ss" in local time, whatever the regional settings; "" for -1.
QString listDate(int64_t secondsSinceEpoch);

}  // namespace ql
