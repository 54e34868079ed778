#include "lists/FolderFiles.h"

#include <unistd.h>
#include <iterator>
#include <mutex>
#include <thread>

#include "scan/DirReader.h"
#include "scan/FileOps.h"

namespace ql {

FolderListing readFolderFiles(const std::string& folder, const std::atomic<bool>& stop,
                              const std::string& root, bool allocated) {
  FolderListing out;
  out.folder = folder;
  const int fd = root.empty() ? openFolderPath(folder) : openFoundFolder(foundBelow(root, folder));
  if (fd < 0) {
    out.error = -fd;
    return out;
  }
  // The rows are gathered in blocks and moved into one vector of the exact size at the end: a
  // vector grown row by row would, at its last doubling, hold the list twice over. A block is
  // above the allocator's mapping threshold (1 MB, support/Allocator.cpp), so each one goes
  // back to the system as soon as it is moved, and its pages not yet filled are never touched.
  constexpr size_t kBlock = (2u << 20) / sizeof(FileRow);
  std::vector<std::vector<FileRow>> blocks;
  size_t count = 0;
  DirReader reader(STATX_SIZE | STATX_MODE | STATX_MTIME | STATX_ATIME | STATX_BTIME |
                   STATX_BLOCKS | STATX_INO);
  const DirReader::Result r = reader.read(fd, [&](DirEntry& e) {
    if (stop.load(std::memory_order_relaxed)) return false;
    if (e.isFolder() || (e.isLink() && e.linksToFolder())) return true;
    const struct statx* sx = e.stat();
    if (!sx) return true;  // gone since the listing
    FileRow row;
    row.name = e.name();
    row.size =
        allocated ? static_cast<int64_t>(sx->stx_blocks * 512) : static_cast<int64_t>(sx->stx_size);
    row.inode = sx->stx_ino;
    row.modified = sx->stx_mtime.tv_sec;
    row.accessed = sx->stx_atime.tv_sec;
    row.created = birthTimeOf(*sx);
    completeRow(row, sx->stx_mode, sx->stx_blocks, sx->stx_attributes & sx->stx_attributes_mask);
    out.total += row.size;
    if (blocks.empty() || blocks.back().size() == kBlock) {
      blocks.emplace_back();
      blocks.back().reserve(kBlock);
    }
    blocks.back().push_back(std::move(row));
    ++count;
    return true;
  });
  ::close(fd);
  out.rows.reserve(count);
  for (std::vector<FileRow>& block : blocks) {
    std::move(block.begin(), block.end(), std::back_inserter(out.rows));
    std::vector<FileRow>().swap(block);  // freed as it is moved
  }
  out.stopped = r.end == DirReader::End::Cut;
  if (r.end == DirReader::End::Failed) out.error = r.error;
  return out;
}

struct FolderFilesReader::Job {
  std::atomic<bool> stop{false};
  std::mutex mutex;
  FolderFilesReader* owner = nullptr;  // cleared when the result is no longer wanted
  FolderListing listing;
  bool done = false;
};

FolderFilesReader::FolderFilesReader(QObject* parent) : QObject(parent) {
  // The reading thread only signals; the listing waits in its job under the job's lock.
  connect(this, &FolderFilesReader::readDone, this, &FolderFilesReader::deliver,
          Qt::QueuedConnection);
  // The MIME database takes a moment to load on first use: it does so now, beside the window,
  // and not when the first folder is shown.
  static std::once_flag warm;
  std::call_once(warm, [] { std::thread([] { fileTypeOf("warm-up.txt"); }).detach(); });
}

FolderFilesReader::~FolderFilesReader() {
  cancel();
}

void FolderFilesReader::start(const std::string& folder, const RowOrder& order,
                              const std::string& root, bool allocated) {
  cancel();
  auto job = std::make_shared<Job>();
  job->owner = this;
  job_ = job;
  // Detached: a folder on a dead network mount may keep its read in the kernel for long; the
  // job lives on with the thread, and its result goes nowhere once cancelled.
  std::thread([job, folder, order, root, allocated] {
    FolderListing listing = readFolderFiles(folder, job->stop, root, allocated);
    listing.order = freshOrder(listing.rows, order);
    std::lock_guard lock(job->mutex);
    job->listing = std::move(listing);
    job->done = true;
    if (job->owner) Q_EMIT job->owner->readDone();
  }).detach();
}

void FolderFilesReader::deliver() {
  if (!job_) return;
  {
    // The signal may be that of a read cancelled meanwhile: the current one is taken only
    // once it is done, and it tells again when it is.
    std::lock_guard lock(job_->mutex);
    if (!job_->done) return;
    listing_ = std::move(job_->listing);
  }
  job_.reset();
  Q_EMIT finished();
}

void FolderFilesReader::stop() {
  if (job_) job_->stop = true;
}

void FolderFilesReader::cancel() {
  if (!job_) return;
  job_->stop = true;
  std::lock_guard lock(job_->mutex);
  job_->owner = nullptr;
  job_.reset();
}

}  // namespace ql
