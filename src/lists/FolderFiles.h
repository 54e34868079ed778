#pragma once
// The files directly in one folder, read for the file list: no subfolders, no recursion.
//
// readFolderFiles() is the read itself; FolderFilesReader runs it, and the sort, on a thread of
// its own, so that the window stays free while a folder of a million files is read, and hands
// the result to its owner through the event loop.

#include <QObject>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "lists/FileRow.h"
#include "lists/RowSort.h"

namespace ql {

struct FolderListing {
  std::string folder;  // as asked
  std::vector<FileRow> rows;
  std::vector<uint32_t> order;  // the rows in the order asked for, by number
  int64_t total = 0;
  bool stopped = false;  // ended early: the rows read until then
  int error = 0;         // errno of a folder that could not be opened or read to its end
};

// Reads the files of `folder` (a path of any length, bytes). Folders and links to folders are
// passed over. `stop` set ends the read at the next entry. With `root` (the source the folder was
// found below) the folder is reached as a FoundPath: no link or other mount on the way below it.
// With `allocated` a row's size is the space the file takes (st_blocks x 512), not its length.
FolderListing readFolderFiles(const std::string& folder, const std::atomic<bool>& stop,
                              const std::string& root = {}, bool allocated = false);

class FolderFilesReader : public QObject {
  Q_OBJECT
 public:
  explicit FolderFilesReader(QObject* parent = nullptr);
  ~FolderFilesReader() override;

  // Starts reading; a read under way is cancelled and its result never delivered. The rows come
  // sorted in `order`.
  void start(const std::string& folder, const RowOrder& order, const std::string& root = {},
             bool allocated = false);
  // Ends the read under way early; its rows read so far are delivered.
  void stop();
  // Forgets the read under way.
  void cancel();
  bool busy() const { return static_cast<bool>(job_); }

 Q_SIGNALS:
  // The listing is taken with takeListing() in the slot.
  void finished();
  // From the reading thread, queued to deliver().
  void readDone();

 public:
  FolderListing takeListing() { return std::move(listing_); }

 private:
  struct Job;
  void deliver();
  std::shared_ptr<Job> job_;
  FolderListing listing_;
};

}  // namespace ql
