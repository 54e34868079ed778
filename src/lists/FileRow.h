#pragma once
// A row of the file lists: one file, its sizes, times, attribute letters and type. Names and
// folders stay bytes; their text is made once, for display, search and sorting.
//
// Type names and icon names come from the file's name alone (the MIME glob patterns), never from
// its contents, and are kept per name ending: a folder of a million files asks the MIME database
// once per kind of file. The cache may be asked from any thread.

#include <QString>
#include <cstdint>
#include <memory>
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

// The folder of rows in the largest-files list, held once for all of its rows.
struct RowFolder {
  std::string bytes;  // with a trailing "/"
  QString text;       // for display
};

// A folder listing holds a hundred thousand of these at once: texts every row of a folder would
// repeat are shared, and what can be worked out from the name is, when shown.
struct FileRow {
  std::string name;  // as the file system gave it
  QString text;      // the name for display
  std::shared_ptr<const RowFolder> where;  // the largest-files list only
  const FileType* type = nullptr;
  int64_t size = 0;
  int64_t modified = 0;  // seconds since the epoch
  int64_t created = -1;  // -1: the file system keeps no birth time
  int64_t accessed = 0;
  uint64_t inode = 0;       // from the folder read, checked before a change; 0 when not known
  uint8_t attributeBits = 0;  // see attributeLetters()

  const std::string& folder() const;  // "" in a folder's own list
  const QString& folderText() const;
  QString extension() const;  // what follows the last ".", upper-cased
  const QString& attributes() const;
};

// Attribute letters: "S" not a regular file, "H" hidden (a name beginning with "."), "R" the
// owner may not write, "E" encrypted, "L" a symbolic link, "C" compressed, "I" not for dumps,
// "P" sparse. `attributes` are statx's attribute bits.
QString attributeLetters(std::string_view name, uint32_t mode, int64_t size, uint64_t blocks,
                         uint64_t attributes);
// The same as one bit per letter, in that order; attributeText() makes the letters of them.
uint8_t attributeBitsOf(std::string_view name, uint32_t mode, int64_t size, uint64_t blocks,
                        uint64_t attributes);
const QString& attributeText(uint8_t bits);

// Fills the derived fields (text, attributes, type) of a row whose bytes are set.
void completeRow(FileRow& row, uint32_t mode, uint64_t blocks, uint64_t attributes);

// The birth time of a statx answer, or -1 where there is none to show: not given, or given as
// zero (file systems and disk images that keep no birth time may fill the field with nothing).
inline int64_t birthTimeOf(const struct statx& sx) {
  return (sx.stx_mask & STATX_BTIME) && sx.stx_btime.tv_sec > 0 ? sx.stx_btime.tv_sec : -1;
}

// "dd/mm/yyyy hh:mm:ss" in local time, whatever the regional settings; "" for -1.
QString listDate(int64_t secondsSinceEpoch);

}  // namespace ql
