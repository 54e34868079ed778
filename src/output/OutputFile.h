#pragma once
// The file a report or an export is written to. One rule for both:
//
// - "-" is standard output.
// - A name that is not there, or that is a regular file, gets a new regular file: the text goes
//   to a temporary ".<name>.XXXXXX" beside it (created with O_EXCL) and replaces the old file by
//   a rename only once complete, with the old file's owner and mode. A failed or killed run
//   leaves the old file as it was.
// - Anything else that is there (a pipe, a device, a terminal) is written into as a stream and
//   stays what it is.
// - A symbolic link is followed, one link at a time, and what it leads to is the target; the link
//   stays a link. A link is followed only where the kernel's protected-symlinks rule would follow
//   it, whatever the system's setting: it belongs to us, or its folder is not sticky and
//   world-writable, or its folder's owner owns it. The file at the end is replaced relative to a
//   descriptor of its own folder, so no path is looked up again between the check and the rename.
//
// One OutputFile is used by one thread at a time.

#include <sys/stat.h>
#include <string>
#include <string_view>

namespace ql {

class OutputFile {
 public:
  OutputFile() = default;
  ~OutputFile();  // an output that was not committed goes, the old file stays
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // false with error() when the target cannot or may not be written.
  bool open(const std::string& path);
  // Where the text goes, for a writer of its own; -1 before open.
  int fd() const { return fd_; }
  // Writes all of `data`; false with error() on the first failure (the rest is then skipped).
  // A reader that went away is a failure, never SIGPIPE.
  bool write(std::string_view data);
  // Ends the output: a new file goes to disk and takes the old one's place. false with error().
  bool commit();
  // Records a failure of the caller's own writing (an errno value) for error().
  void fail(int err);

  // "<path>: <system text>", or why a link is not followed.
  const std::string& error() const { return error_; }
  // The errno value of that failure; 0 for a link that is not followed.
  int errorCode() const { return errorCode_; }
  bool isStream() const { return stream_; }

  // SIGTERM, SIGINT and SIGHUP remove the temporary file of an output being written, then end the
  // process as they would have. With `ownThread` the signals are taken by a thread that does
  // nothing else: the caller and every thread it starts afterwards leave them to it, so that a
  // thread blocked in the kernel (a folder on a dead mount) cannot hold them up. Call that before
  // any other thread is started.
  static void removeTemporaryOnInterrupt(bool ownThread = false);

 private:
  bool failWith(int err);
  bool openFollowing(const std::string& path);
  bool openReplacement(int dir, const std::string& name, const struct stat* old);
  void discard();

  std::string path_;
  std::string error_;
  int errorCode_ = 0;
  int fd_ = -1;
  bool ownsFd_ = false;
  bool stream_ = false;
  int dir_ = -1;  // the folder of the file to replace
  std::string name_, tempName_;
};

}  // namespace ql
