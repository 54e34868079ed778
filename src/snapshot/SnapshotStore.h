#pragma once
// Snapshots: each completed measurement of a source kept as a compressed JSON export, so that a
// later one can be compared with it ("what filled the disk since last month?").
//
// Layout under snapshotRoot():
//   <hash>/source                               the source's path, as its bytes
//   <hash>/<time>_<bytes>_<files>.json.zst      one file per measurement
// <hash> is 32 hex digits of the SHA-256 of the path bytes. <time> is UTC, "20250131T235959.123Z",
// so the names sort by time. Bytes (the sum of asize) and files (entries that are not folders)
// stand in the name: a listing reads the folder and stats each file, and never decompresses one.
// A snapshot is a plain export as --export writes it: `--import` reads it, and so does any reader
// of the format after `zstd -d`.
//
// Writes are atomic: the export goes to a hidden temporary file beside its place, is synced and
// renamed; a full disk, a stop or an interrupt leaves no half file and the older snapshots as they
// were. Names starting with "." are never listed; prune sweeps stale ones a kill left behind.
//
// Free functions, callable from any thread; several processes may share the store (nothing is
// rewritten in place, so there is nothing to lock).

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "json/JsonExport.h"
#include "support/Stop.h"

namespace ql {

struct SnapshotInfo {
  std::string file;    // full path of the .json.zst
  int64_t time = 0;    // seconds since the epoch (UTC)
  int64_t bytes = 0;   // sum of the logical sizes of the files
  int64_t files = 0;   // entries that are not folders
  std::string source;  // the source's path
  int64_t stored = 0;  // bytes the snapshot takes on disk
};

struct SnapshotResult {
  bool ok = false;
  std::string error;  // "<path>: <system text>"
  SnapshotInfo info;
};

// $XDG_DATA_HOME/Quorlane/snapshots, by default ~/.local/share/Quorlane/snapshots.
std::string snapshotRoot();
// The path a source is kept under: absolute (relative to the working folder), no "." parts, no
// repeated or trailing "/". Symbolic links are not resolved: the path is what was measured.
std::string snapshotSourcePath(const std::string& source);
// The folder of a source's snapshots (it may not exist yet).
std::string snapshotFolder(const std::string& source);

// The snapshots of one source, newest first. A file in its folder that is not a whole snapshot
// (a name that does not parse, not a zstd frame, empty) is named in `error` (one line each) and
// left out. No snapshots is an empty list and no error.
std::vector<SnapshotInfo> listSnapshots(const std::string& source, std::string* error = nullptr);
// The snapshots of every source, newest first.
std::vector<SnapshotInfo> listAllSnapshots(std::string* error = nullptr);

// Walks `source` with the export's walk (threads, stop and excludes as exportJson takes them)
// and keeps the result as its newest snapshot. `timeMs` (ms since the epoch) names it; 0: now.
SnapshotResult writeSnapshot(const std::string& source, int threads, const Stop* stop = nullptr,
                             const std::vector<std::string>& excludes = {}, int64_t timeMs = 0);
// Keeps what `write` puts into the descriptor it is given (a whole compressed export; it returns
// its counts, or the error) as the newest snapshot of `source`, atomically as above. `keepIf`,
// when given, is asked once all is written: false leaves nothing (the error says "not kept").
SnapshotResult keepWrittenSnapshot(const std::string& source,
                                   const std::function<ExportResult(int fd)>& write,
                                   int64_t timeMs = 0, const std::function<bool()>& keepIf = {});
// An unlinked temporary file for a snapshot in the making (O_TMPFILE): in the store, made when
// missing, else in $TMPDIR or /tmp. -1 when none can be had.
int openSnapshotTemporary();
// Keeps an export just written (compressed, a regular file) as the newest snapshot of `source`:
// a copy that shares the blocks where the file system can (reflink), else a plain copy.
SnapshotResult keepExportAsSnapshot(const std::string& source, const std::string& exportFile,
                                    int64_t bytes, int64_t files, int64_t timeMs = 0);

struct PruneResult {
  int removed = 0;
  int64_t freed = 0;
  std::string error;  // removals that failed, one line each
};
// Keeps at most `keep` snapshots of each source (0: no count limit), then removes the oldest
// across all sources while they take more than `budgetBytes` (0: no limit). The newest snapshot of
// the store always stays. Also removes temporary files older than a day and folders left empty.
PruneResult pruneSnapshots(int keep, int64_t budgetBytes);

}  // namespace ql
