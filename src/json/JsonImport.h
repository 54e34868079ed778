#pragma once
// Reads a JSON disk-usage export (format 1.x, as --export and other tools write it) into the
// report tree, as a walk of the same folder would have built it:
//  - one root, named by the export's root folder; one row per folder;
//  - sizes are the logical sizes (asize) of files, or dsize in allocated mode; folders themselves
//    add nothing; every name of a hard-linked file counts, or in links-once mode an `ino` with
//    `hlnkc` counts once in each folder holding it; two entries of the same name both count, as
//    two names of a listing would;
//  - a folder's own files get a files row when it also has folder rows and they hold a byte;
//  - an excluded entry (another file system, a pattern, ...) and a link to a folder are
//    junction rows: shown empty, counted as a folder, never entered;
//  - a folder marked read_error counts what the export holds of it.
// The text is read as it comes (no document is built, nothing recurses on the stack), so any
// size and depth of export can be read. Bad input leaves no trace in the tree: the result tells
// what is wrong and at which byte.
//
// Files themselves can be kept per folder in an ImportedFiles store and offered to a FileFeed.

#include <QString>
#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "report/ReportTree.h"
#include "support/Stop.h"

namespace ql {

class FileFeed;

// The files of each imported folder, compactly: names in one arena, fixed-size records, and per
// folder node one contiguous range. Belongs to one thread.
class ImportedFiles {
 public:
  struct File {
    std::string_view name;
    int64_t asize = 0;
    int64_t dsize = 0;
  };
  void clear();
  // The files directly in the folder of this tree node (not the files row: ask its folder).
  size_t count(uint32_t folderNode) const;
  File file(uint32_t folderNode, size_t index) const;
  size_t memoryBytes() const;

  // Used by the import: a folder's files are added in one go when it is complete; `names` holds
  // the names the records point into.
  struct Record {
    uint64_t nameOffset;
    uint32_t nameLength;
    int64_t asize;
    int64_t dsize;
  };
  void addFolder(uint32_t folderNode, const Record* files, size_t count, std::string_view names);
  // Forgets the folders added since the mark (a failed import).
  struct Mark {
    size_t records = 0, names = 0, nodes = 0;
  };
  Mark mark() const { return Mark{records_.size(), names_.size(), nodes_.size()}; }
  void rollback(const Mark& mark);

 private:
  struct Range {
    uint64_t first = 0;
    uint32_t count = 0;
  };
  std::string names_;
  std::vector<Record> records_;
  std::vector<Range> ranges_;  // by node index
  std::vector<uint32_t> nodes_;  // nodes with a range, in the order added
};

struct ImportResult {
  bool ok = false;
  QString error;  // what is wrong, with the byte
  uint64_t errorOffset = 0;
  uint32_t root = kNoNode;  // the root added
  int64_t size = 0, files = 0, folders = 0;
};

struct ImportOptions {
  std::string filesLabel = "Dateien";
  bool noHardlinks = false;  // links to folders and excluded entries get no row (as in a walk)
  bool allocated = false;    // sizes are dsize, not asize
  bool linksOnce =
      false;  // a file with an ino and hlnkc counts once per folder, as a walk counts it
  FileFeed* feed = nullptr;
  ImportedFiles* files = nullptr;
  const Stop* stop = nullptr;  // once requested, the reading ends (no tree)
  std::function<void(uint64_t bytes)> progress;  // bytes read so far, now and then
};

// Reads the export from the descriptor (not closed) and adds its root to `tree`; sorts the tree
// as the end of a walk does. A zstd-compressed export (known by its first bytes, whatever its
// name) is read as its decompressed text; damage in it names the byte of the compressed file.
ImportResult importJson(int fd, ReportTree& tree, const ImportOptions& options = {});
// The same from a file; "-" reads standard input.
ImportResult importJsonFile(const std::string& file, ReportTree& tree, const ImportOptions& options = {});

// Names longer than this are refused rather than held.
inline constexpr size_t kMaxImportName = 64 * 1024;
// Arrays and objects nested deeper than this are refused (a folder is one level, its entries
// one more), so the reader's own stack never runs full with levels.
inline constexpr uint64_t kMaxImportDepth = 4'000'000;

}  // namespace ql
