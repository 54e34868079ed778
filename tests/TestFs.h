#pragma once
// Helpers for tests that build folder trees on disk and walk them.

#include <QCoreApplication>
#include <condition_variable>
#include <fcntl.h>
#include <functional>
#include <grp.h>
#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <sched.h>
#include <string>
#include <thread>
#include <vector>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "report/ReportTree.h"
#include "scan/FolderWalk.h"
#include "support/Globals.h"
#include "scan/ScanDriver.h"
#include "support/Stop.h"

namespace ql::test {

// The stop the tests' drivers look at, as the window's session holds one.
inline Stop testStop;

inline void ensureApp() {
  static int argc = 1;
  static char arg0[] = "test";
  static char* argv[] = {arg0, nullptr};
  static QCoreApplication* app = QCoreApplication::instance() ? nullptr : new QCoreApplication(argc, argv);
  (void)app;
}

// A fresh folder under /tmp (or another base), removed with everything in it at the end.
class TempDir {
 public:
  explicit TempDir(const std::string& base = "/tmp") {
    std::string tmpl = base + "/quorlane-test-XXXXXX";
    if (::mkdtemp(tmpl.data())) path_ = tmpl;
    ::chmod(path_.c_str(), 0755);
  }
  bool made() const { return !path_.empty(); }
  ~TempDir() {
    if (path_.empty()) return;
    // rm copes with trees deeper than any path limit and with folders we made unreadable.
    const std::string cmd = "chmod -R u+rwx '" + path_ + "' 2>/dev/null; rm -rf '" + path_ + "'";
    if (std::system(cmd.c_str()) != 0) ADD_FAILURE() << "could not remove " << path_;
  }
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& rel) const { return path_ + "/" + rel; }

 private:
  std::string path_;
};

inline void makeDir(const std::string& path) { ASSERT_EQ(::mkdir(path.c_str(), 0755), 0) << path; }

// A sparse file of the given size.
inline void makeFile(const std::string& path, int64_t size) {
  const int fd = ::open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0644);
  ASSERT_GE(fd, 0) << path;
  ASSERT_EQ(::ftruncate(fd, size), 0);
  ::close(fd);
}

// Six folders a level, each with one file of its own size, `depth` levels deep: enough folders
// for a walk to need many descriptors at once.
inline void growTree(const std::string& base, int depth) {
  for (int i = 0; i < 6; ++i) {
    const std::string sub = base + "/d" + std::to_string(i);
    makeDir(sub);
    makeFile(sub + "/f", 10 * depth + i + 1);
    if (depth > 1) growTree(sub, depth - 1);
  }
}

// A chain of `depth` folders below `path`, made relative to descriptors (the whole path may be far
// beyond PATH_MAX): name(i) names level i, and each(fd, i) runs in the folder above it. `path`
// becomes the deepest folder's; its descriptor is returned (-1 on failure) for the caller to close.
inline int makeChain(std::string& path, int depth, const std::function<std::string(int)>& name,
                     const std::function<void(int, int)>& each = {}) {
  int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY);
  for (int i = 0; i < depth && fd >= 0; ++i) {
    if (each) each(fd, i);
    const std::string n = name(i);
    const int next =
        ::mkdirat(fd, n.c_str(), 0755) == 0 ? ::openat(fd, n.c_str(), O_RDONLY | O_DIRECTORY) : -1;
    ::close(fd);
    fd = next;
    path += "/" + n;
  }
  return fd;
}

struct Walked {
  ReportTree tree;
  uint32_t root = kNoNode;
};

// Reads one source through the scan driver, as the program does.
inline void walk(Walked& w, const std::string& path, int threads = 0, bool noHardlinks = false,
                 bool fade = false) {
  ensureApp();
  ScanDriver driver(w.tree, test::testStop);
  driver.setSettings({.noHardlinks = noHardlinks, .folderColorFade = fade, .threads = threads,
                      .mode = {}, .excludes = {}});
  driver.sourceQueue().push_back(path);
  driver.runToEnd();
  w.root = driver.lastRoot();
}

// The child rows of a node by name.
inline std::map<std::string, uint32_t> rows(const ReportTree& t, uint32_t n) {
  std::map<std::string, uint32_t> m;
  for (uint32_t c : t.children(n)) m[std::string(t.text(c))] = c;
  return m;
}

// Sums add up on every node: a folder with rows holds exactly their sums (its own files have a
// row unless they hold no byte), unless a cut left it without its files row.
inline void expectConsistent(const ReportTree& t, bool complete) {
  for (uint32_t n : t.preorder()) {
    const auto& kids = t.children(n);
    if (kids.empty() || !t.isFolder(n)) continue;
    int64_t size = 0, files = 0, folders = 0;
    bool pseudo = false;
    for (uint32_t c : kids) {
      size += t.node(c).size;
      files += t.node(c).files;
      if (t.isFolder(c))
        folders += 1 + t.folders(c);
      else
        pseudo = true;
    }
    // The path is made only for a message: deep trees would pay for it on every node.
    EXPECT_EQ(t.folders(n), folders) << t.fullPath(n);
    if (pseudo || complete)
      EXPECT_EQ(t.node(n).size, size) << t.fullPath(n);
    else
      EXPECT_LE(size, t.node(n).size) << t.fullPath(n);
    EXPECT_LE(files, t.node(n).files) << t.fullPath(n);
  }
}

// A sink for walks run without the scan driver: keeps the failures and the top-level rows.
class CollectingSink : public WalkSink {
 public:
  void branchDone(uint32_t, ReportTree&& branch) override {
    std::lock_guard lock(mutex);
    const uint32_t top = branch.roots().at(0);
    branches[std::string(branch.text(top))] = {branch.node(top).size, branch.hasFlag(top, ReportTree::Junction)};
  }
  void failure(const WalkFailure& f) override {
    std::lock_guard lock(mutex);
    failures.push_back(f);
  }
  int count(WalkFailure::Kind kind) const {
    int n = 0;
    for (const auto& f : failures) n += f.kind == kind;
    return n;
  }
  struct Row {
    int64_t size = 0;
    bool junction = false;
  };
  std::mutex mutex;
  std::map<std::string, Row> branches;
  std::vector<WalkFailure> failures;
};

// Every node in pre-order with all it shows, one line each: equal texts mean equal trees.
inline std::string dump(const ReportTree& t) {
  std::string out;
  for (uint32_t n : t.preorder()) {
    const auto& node = t.node(n);
    out += std::string(t.level(n) * 2, ' ') + std::string(t.text(n)) + " size=" +
           std::to_string(node.size) + " files=" + std::to_string(node.files) +
           " folders=" + std::to_string(t.folders(n)) + " flags=" + std::to_string(node.flags) +
           " pct=" + std::to_string(t.percent(n)) + "\n";
  }
  return out;
}

// Runs fn in a child process (for dropped privileges or a private mount namespace) and returns
// what it wrote to the pipe it was given.
inline std::string inChild(const std::function<std::string()>& fn) {
  int fds[2];
  if (::pipe(fds) != 0) return "pipe failed";
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::close(fds[0]);
    const std::string out = fn();
    size_t done = 0;
    while (done < out.size()) {
      const ssize_t n = ::write(fds[1], out.data() + done, out.size() - done);
      if (n <= 0) break;
      done += static_cast<size_t>(n);
    }
    ::_exit(0);
  }
  ::close(fds[1]);
  std::string out;
  char buf[4096];
  for (ssize_t n; (n = ::read(fds[0], buf, sizeof buf)) > 0;) out.append(buf, static_cast<size_t>(n));
  ::close(fds[0]);
  int status = 0;
  ::waitpid(pid, &status, 0);
  return out;
}

// Gives up root for good (in a child: there is no way back), since root passes every permission
// check.
inline bool dropRoot(uid_t uid = 65534) {
  return ::setgroups(0, nullptr) == 0 && ::setgid(uid) == 0 && ::setuid(uid) == 0;
}

// A mount namespace of the calling process's own: its mounts go with it, and nobody else sees them.
inline bool privateMounts() {
  return ::unshare(CLONE_NEWNS) == 0 &&
         ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

// A FUSE mount at `dir` whose server never answers, as on a dead network mount: every look into it
// blocks in the kernel until the returned descriptor is closed (-1: it could not be mounted).
inline int mountDeadFuse(const std::string& dir) {
  const int fuse = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
  const std::string opts = "fd=" + std::to_string(fuse) + ",rootmode=40000,user_id=0,group_id=0";
  if (fuse >= 0 &&
      ::mount("quorlane-dead", dir.c_str(), "fuse", MS_NOSUID | MS_NODEV, opts.c_str()) == 0)
    return fuse;
  if (fuse >= 0) ::close(fuse);
  return -1;
}

// Runs `action` unless the returned thread is gone (and so stopped) within `seconds`: the way out
// of a test whose thread is held in the kernel.
inline std::jthread watchdog(int seconds, std::function<void()> action) {
  return std::jthread([seconds, action = std::move(action)](std::stop_token stop) {
    std::mutex m;
    std::unique_lock lock(m);
    std::condition_variable_any().wait_for(lock, stop, std::chrono::seconds(seconds),
                                           [] { return false; });
    if (!stop.stop_requested()) action();
  });
}

}  // namespace ql::test
