#pragma once
// A snapshot taken from the walk that runs anyway: the walk's feed sees every file, and once the
// walk is complete the report tree gives the folders. Together they make the same export the
// export's own walk would, without reading the disk a second time.
//
// Files are kept out of memory: each shard (files of one folder arrive together from one worker)
// appends compact records to an unlinked temporary file through a buffer of its own, and memory
// holds only a 16-byte index entry per folder run (a hash of the folder's path below the source,
// and where the run starts, per shard). The folders of the report tree are written to a temporary
// file of their own when taken, so a tree changed afterwards (deletes, rescans) changes nothing,
// and nothing refers to its nodes.
//
// What the export holds that the walk does not see: a folder's own st_size and st_blocks (written
// without them; readers take 0); whether a folder could not be read (written as empty, without
// read_error; its row is empty either way); which kind of junction a row is, which is looked up
// once per junction row (a pattern, a link to a folder, or another file system). Entries come in
// the report's order, not the listing's; an import gives the report the walk gave.
//
// Threads: offer() from the walk's workers; takeFolders() on the tree's thread after the walk
// ended; then keep() on any one thread.

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "json/JsonExport.h"
#include "report/ReportTree.h"
#include "scan/FolderWalk.h"
#include "snapshot/SnapshotStore.h"
#include "support/ThreadShards.h"

namespace ql {

// Appends to an unlinked temporary file through a buffer; reads back by offset once flushed.
class Spool {
 public:
  Spool() = default;
  ~Spool();
  Spool(const Spool&) = delete;
  Spool& operator=(const Spool&) = delete;

  // Makes the file; append() makes it when it was not made. False when none can be had.
  bool open();
  bool ready() const { return fd_ >= 0 && error_ == 0; }
  size_t bufferBytes() const { return buffer_.capacity(); }
  int error() const { return error_; }
  uint64_t size() const { return written_ + buffer_.size(); }
  void append(std::string_view bytes);
  // Writes the buffer out and lets its memory go.
  void flush();
  // Bytes at `offset` into `into` (up to its size); the count read, -1 on failure.
  ssize_t read(uint64_t offset, char* into, size_t size) const;

 private:
  static constexpr size_t kBuffer = 128 * 1024;
  int fd_ = -1;
  int error_ = 0;
  uint64_t written_ = 0;
  std::string buffer_;
};

class SnapshotFeed : public FileFeed {
 public:
  // `root` is the walked folder as the report's root names it. ok() is false when no temporary
  // file could be had; the snapshot must then be walked again.
  explicit SnapshotFeed(std::string root);
  ~SnapshotFeed() override;

  bool ok() const;
  // The folders were taken and every file kept: keep() can write the snapshot.
  bool complete() const { return tookFolders_ && ok(); }
  int64_t minimumSize() const override { return 0; }
  void offer(const FoundFile& file) override;

  // The folder rows below `root` of the tree the walk filled; the time it was measured is now.
  void takeFolders(const ReportTree& tree, uint32_t root);
  // Writes the export as the newest snapshot of `source`. `excludes` tell which junction rows a
  // pattern made; `stop` ends the writing (nothing is kept); `keepIf` as keepWrittenSnapshot has it.
  SnapshotResult keep(const std::string& source, const std::vector<std::string>& excludes,
                      const Stop* stop, const std::function<bool()>& keepIf = {});

 private:
  struct alignas(64) Shard {
    std::mutex mutex;
    std::unique_ptr<Spool> spool;                     // made on the first file
    std::string folder;                               // the folder of the run under way
    std::vector<std::pair<uint64_t, uint64_t>> runs;  // hash of its path, offset; then sorted
    bool failed = false;
  };
  class Writer;

  void sortRuns();
  ExportResult write(int fd, const std::vector<std::string>& excludes, const Stop* stop);

  const std::string prefix_;  // the root with "/": what the walk's folder paths begin with
  ThreadShards<Shard> shards_;
  Spool folders_;
  bool tookFolders_ = false;
  bool rootFiles_ = false;  // the source has files of its own
  int64_t measuredMs_ = 0;
  bool sorted_ = false;
};

}  // namespace ql
