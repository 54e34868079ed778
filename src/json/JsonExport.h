#pragma once
// Writes a folder tree as the JSON disk-usage export (format 1.2):
//   [1, 2, {metadata}, [{root info}, entry, [{folder info}, entry, ...], ...]]
// A folder is an array whose first element is its info object; every other entry is an object.
//
// The walk streams: each folder is listed once, its part of the text is written as soon as the
// folders before it are out, and then it is forgotten; so memory follows the folders under way,
// not the tree. Workers read folders ahead of the writer, always the first one in the writer's
// order that no one has taken, and never more than a bounded number ahead; the writer reads a
// folder itself when no worker has taken it yet, and reads ahead instead of waiting. When the
// disk keeps the readers waiting, more workers are started (up to 16) to keep more reads in
// flight. Each folder's entries come in the order of its listing, so the text is the same for
// any number of threads.
//
// Per entry: name (bytes, JSON-escaped; bytes that are not UTF-8 are written as they are), asize
// (st_size), dsize (st_blocks * 512), ino, nlink, and hlnkc for a non-folder with more than one
// name. A folder on another mount is written as {"name":..,"excluded":"othfs"} and never entered;
// a link is a file with "notreg" (never followed; one that leads to a folder also gets "dirlink",
// which other readers pass over); a folder that cannot be read gets "read_error":true.

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "support/Stop.h"

namespace ql {

struct ExportResult {
  bool ok = false;
  std::string error;  // what failed, for the user: "<path>: <system text>"
  bool writeFailed = false;
  uint64_t folders = 0;
  uint64_t entries = 0;
  // Entries that are not folders (excluded ones left out) and the sum of their asize.
  uint64_t files = 0;
  uint64_t bytes = 0;
};

// Walks `source` and writes the export to `fd` (not closed). threads <= 1: the writer alone.
// `stop` (may be null) ends the walk when it holds a nonzero value. `compress`: as one zstd frame.
// `excludes`: shell patterns (see ExcludeList); a match is written {"name":..,"excluded":PATTERN}.
ExportResult exportJson(const std::string& source, int fd, int threads, const Stop* stop = nullptr,
                        bool compress = false, const std::vector<std::string>& excludes = {});

// The same into a file, by the rules of OutputFile: "-" is standard output, a pipe or a device is
// written into, a file is written beside itself and renamed when complete (so it is either the
// old one or the whole new one), and a link is followed only where it is safe.
// A name ending in ".zst" (any case) gets the text zstd-compressed; "-" is always plain.
ExportResult exportJsonToFile(const std::string& source, const std::string& file, int threads,
                              const Stop* stop = nullptr,
                              const std::vector<std::string>& excludes = {});

// Appends `bytes` as a JSON string body (no quotes): '"', '\\' and control bytes are escaped,
// everything else, valid UTF-8 or not, is written as it is.
void appendJsonEscaped(std::string& out, std::string_view bytes);

}  // namespace ql
