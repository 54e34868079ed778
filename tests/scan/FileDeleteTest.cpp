// Deleting files and folder trees by bytes, and moving items to the trash: odd names, missing
// permissions, links that lead out, mounts inside, depths beyond any path limit.

#include <dirent.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <QByteArray>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <thread>

#include "TestFs.h"
#include "scan/FileOps.h"
#include "scan/Trash.h"

namespace ql::test {
namespace {

const std::string kOdd = "caf\xE9-\xFF\xFE";  // Latin-1 bytes: no valid UTF-8

bool exists(const std::string& path) {
  return probePath(path) == 0;
}

void write(const std::string& path, const std::string& text) {
  std::ofstream(path) << text;
}

std::string slurp(const std::string& path) {
  std::ifstream in(path);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// In memory where there is such a place: thousands of unlinks on a busy disk take seconds.
std::string fastBase() {
  return ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
}

// In a private mount namespace, so the mounts go with the child whatever happens.
std::string withPrivateMounts(const std::function<std::string()>& fn) {
  return inChild([&]() -> std::string {
    return privateMounts() ? fn() : "skip";
  });
}

// Runs fn as an ordinary user, since root passes every permission check: as ourselves when we
// are no root, else in a child that owns `dir` and has given up root. fn's answer is "" when all
// went as it should.
std::string asUser(const std::string& dir, const std::function<std::string()>& fn) {
  if (::geteuid() != 0) return fn();
  return inChild([&]() -> std::string {
    const std::string cmd = "chown -R 65534:65534 '" + dir + "'";
    if (std::system(cmd.c_str()) != 0) return "chown failed";
    return dropRoot() ? fn() : "cannot drop root";
  });
}

// Missing files are no error; odd names and links go as they are, and what a link leads to stays;
// a start folder that is a link is refused, and a stop given beforehand takes nothing. What a
// folder without write permission holds stays unless forced, and the rest of the tree goes.
TEST(FileDelete, FilesAndTreesWithLinksOddNamesAndProtectedFolders) {
  TempDir tmp;
  ASSERT_TRUE(tmp.made());
  EXPECT_EQ(deleteFile(tmp / "never-there", false), "");
  EXPECT_EQ(deleteFile(tmp / "no-folder/never-there", false), "");
  const std::string root = tmp / "tree", odd = root + "/sub/" + kOdd;
  for (const std::string& dir :
       {root, tmp / "outside", root + "/sub", odd, root + "/ro", root + "/ro/inner"})
    makeDir(dir);
  for (const std::string& file : {tmp / kOdd, tmp / "outside/keep", root + "/a", odd + "/" + kOdd,
                                  root + "/ro/f", root + "/ro/g"})
    makeFile(file, 1);
  ASSERT_EQ(::symlink((tmp / "outside").c_str(), (root + "/sub/to-outside").c_str()), 0);
  ASSERT_EQ(::symlink("nowhere", (root + "/dangling").c_str()), 0);
  ASSERT_EQ(::symlink(root.c_str(), (tmp / "link-to-tree").c_str()), 0);
  ASSERT_EQ(::symlink((tmp / "outside/keep").c_str(), (tmp / "link").c_str()), 0);
  EXPECT_EQ(deleteFile(tmp / kOdd, false), "");
  EXPECT_FALSE(exists(tmp / kOdd));
  EXPECT_EQ(deleteFile(tmp / "link", false), "");
  EXPECT_FALSE(exists(tmp / "link"));

  const auto viaLink = deleteFolderTree(tmp / "link-to-tree", true);
  EXPECT_FALSE(viaLink.ok);
  EXPECT_NE(viaLink.errors.find("link-to-tree"), std::string::npos) << viaLink.errors;
  EXPECT_TRUE(exists(root + "/a"));
  Stop stop;
  stop.request();
  EXPECT_FALSE(deleteFolderTree(root, true, &stop).ok);
  EXPECT_TRUE(exists(root + "/a"));

  const std::string out = asUser(tmp.path(), [&]() -> std::string {
    if (::chmod((root + "/ro").c_str(), 0555) != 0) return "chmod failed";
    const std::string file = root + "/ro/g";
    const std::string refused = deleteFile(file, false);
    if (refused != file + " (" + std::strerror(EACCES) + ")")
      return "without force: '" + refused + "'";
    if (!exists(file)) return "gone without force";
    const auto plain = deleteFolderTree(root, false);
    if (plain.ok) return "deleted without force";
    if (plain.errors.find(root + "/ro/f (") == std::string::npos) return "errors: " + plain.errors;
    if (!exists(root + "/ro/f")) return "protected file gone without force";
    if (exists(root + "/a")) return "the rest was not deleted";
    const std::string forced = deleteFile(file, true);
    if (!forced.empty() || exists(file)) return "file with force: " + forced;
    const auto tree = deleteFolderTree(root + "/", true);
    if (!tree.ok || !tree.errors.empty()) return "with force: " + tree.errors;
    return exists(root) ? "still there" : "";
  });
  EXPECT_EQ(out, "");
  EXPECT_TRUE(exists(tmp / "outside/keep"));
}

TEST(FolderDelete, DeeperThanAnyPathWithFewDescriptors) {
  TempDir tmp(fastBase());
  ASSERT_TRUE(tmp.made());
  const std::string deep = tmp / "deep";
  makeDir(deep);
  std::string bottom = deep;
  const int fd = makeChain(bottom, 3000, [](int) { return "level"; }, [](int at, int) {
    ::close(::openat(at, "file", O_CREAT | O_WRONLY, 0644));
  });
  ASSERT_GE(fd, 0);
  ::close(fd);
  // A descriptor limit far below the depth: the delete must close folders on the way down.
  const std::string out = inChild([&]() -> std::string {
    const rlimit low{200, 200};
    if (::setrlimit(RLIMIT_NOFILE, &low) != 0) return "setrlimit failed";
    const auto r = deleteFolderTree(deep, false);
    return r.ok ? "" : "failed: " + r.errors.substr(0, 300);
  });
  EXPECT_EQ(out, "");
  EXPECT_FALSE(exists(deep));
}

class TrashTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(tmp.made());
    qputenv("XDG_DATA_HOME", QByteArray::fromStdString(tmp / "data"));
  }
  void TearDown() override { qunsetenv("XDG_DATA_HOME"); }

  // The original path a trash note names.
  static std::string notedPath(const std::string& note) {
    const std::string text = slurp(note);
    const size_t at = text.find("\nPath=");
    if (text.rfind("[Trash Info]\n", 0) != 0 || at == std::string::npos) return "bad note: " + text;
    const size_t end = text.find('\n', at + 1);
    return QByteArray::fromPercentEncoding(
               QByteArray::fromStdString(text.substr(at + 6, end - at - 6)))
        .toStdString();
  }

  TempDir tmp;
};

TEST_F(TrashTest, ItemsLandWithNotesUnderUniqueNames) {
  const std::string trash = tmp / "data/Trash";
  makeDir(tmp / "a");
  makeDir(tmp / "b");
  write(tmp / "a/same", "first");
  write(tmp / "b/same", "second");
  makeDir(tmp / "a/folder");
  makeFile(tmp / "a/folder/inner", 1);
  write(tmp / ("a/" + kOdd), "odd");

  for (const char* item : {"a/same", "b/same", "a/folder"}) {
    const auto r = moveToTrash(tmp / item);
    EXPECT_EQ(r.code, 0) << item << ": " << r.text;
    EXPECT_FALSE(exists(tmp / item)) << item;
  }
  EXPECT_EQ(moveToTrash(tmp / ("a/" + kOdd)).code, 0);

  // name in the trash, content, where it came from
  const std::vector<std::array<std::string, 3>> landed = {{"same", "first", "a/same"},
                                                          {"same.2", "second", "b/same"},
                                                          {kOdd, "odd", "a/" + kOdd},
                                                          {"folder", "", "a/folder"}};
  for (const auto& [name, content, from] : landed) {
    if (!content.empty()) {
      EXPECT_EQ(slurp(trash + "/files/" + name), content) << name;
    }
    EXPECT_EQ(notedPath(trash + "/info/" + name + ".trashinfo"), tmp / from);
  }
  EXPECT_TRUE(exists(trash + "/files/folder/inner"));
  EXPECT_NE(slurp(trash + "/info/same.trashinfo").find("\nDeletionDate=20"), std::string::npos);
}

TEST_F(TrashTest, FailuresLeaveNoNote) {
  const auto missing = moveToTrash(tmp / "not-there");
  EXPECT_EQ(missing.code, ENOENT);
  EXPECT_EQ(trashErrorText(missing),
            std::string(std::strerror(ENOENT)) + " (" + std::to_string(ENOENT) + ")");
  // A folder that holds the trash cannot go into it: the rename fails after the note was written.
  makeDir(tmp / "data");
  const auto self = moveToTrash(tmp.path());
  EXPECT_NE(self.code, 0);
  EXPECT_TRUE(exists(tmp / "data/Trash/info"));
  EXPECT_EQ(::rmdir((tmp / "data/Trash/info").c_str()), 0) << "a note was left behind";
}

// A delete does not enter a mount inside the tree, nor take the mount point; an item on another
// mount goes to that mount's own trash, its note naming it from the mount's top.
TEST_F(TrashTest, MountsInsideAreNotEnteredAndHaveTheirOwnTrash) {
  if (::geteuid() != 0) GTEST_SKIP() << "mounting needs root";
  const std::string root = tmp / "tree", top = root + "/sub/mnt";
  for (const std::string& dir : {root, root + "/sub", top}) makeDir(dir);
  makeFile(root + "/sub/f", 1);
  const std::string out = withPrivateMounts([&]() -> std::string {
    if (::mount("tmpfs", top.c_str(), "tmpfs", 0, "size=1m") != 0) return "skip";
    ::mkdir((top + "/dir").c_str(), 0755);
    write(top + "/dir/f", "x");
    write(top + "/precious", "x");
    std::string bad;
    const auto r = moveToTrash(top + "/dir/f");
    if (r.code != 0) return "trash failed: " + r.text;
    const std::string own = top + "/.Trash-" + std::to_string(::geteuid());
    if (slurp(own + "/files/f") != "x") bad += "not in the mount's trash; ";
    if (notedPath(own + "/info/f.trashinfo") != "dir/f") bad += "path not relative to the top; ";
    if (exists(tmp / "data/Trash/files/f")) bad += "copied home; ";

    const auto del = deleteFolderTree(root, true);
    if (del.ok) bad += "reported gone; ";
    if (del.mountsRefused != std::vector<std::string>{top}) bad += "refused list wrong; ";
    if (slurp(top + "/precious") != "x") bad += "mounted content touched; ";
    if (exists(root + "/sub/f")) bad += "the rest stayed; ";
    const auto onMount = deleteFolderTree(top, true);
    if (onMount.ok || onMount.mountsRefused.size() != 1 || !exists(top + "/precious"))
      bad += "the mount point itself was not refused; ";
    ::umount2(top.c_str(), MNT_DETACH);
    return bad;
  });
  if (out == "skip") GTEST_SKIP() << "no private mount namespace";
  EXPECT_EQ(out, "");
}

// The source is followed as the user named it, even through a link; the note names the folder the
// item really left. A file replaced under the same name since the list read it is left alone.
TEST_F(TrashTest, TheSourceAsNamedIsFollowedAndChecksHoldBelowIt) {
  const std::string real = tmp / "real", named = tmp / "named";
  makeDir(real);
  makeDir(real + "/a");
  makeDir(real + "/a/dir");
  write(real + "/a/dir/x", "x");
  write(real + "/a/file", "file");
  write(real + "/a/f2", "f2");
  write(real + "/a/taken", "taken");
  ASSERT_EQ(::symlink(real.c_str(), named.c_str()), 0);

  const auto trashed = moveToTrash(FoundPath{named, "a/file"});
  ASSERT_EQ(trashed.code, 0) << trashed.text;
  EXPECT_EQ(notedPath(tmp / "data/Trash/info/file.trashinfo"), real + "/a/file");
  EXPECT_TRUE(deleteFolderTree(FoundPath{named, "a/dir"}, false).ok);
  EXPECT_FALSE(exists(real + "/a/dir"));
  EXPECT_NE(renameNoReplace(FoundPath{named, "a/f2"}, "taken"), "");
  EXPECT_EQ(slurp(real + "/a/taken"), "taken");

  struct stat st;
  ASSERT_EQ(::stat((real + "/a/f2").c_str(), &st), 0);
  const uint64_t read = st.st_ino;
  write(real + "/a/other", "other");
  ASSERT_EQ(::rename((real + "/a/other").c_str(), (real + "/a/f2").c_str()), 0);  // replaced since
  EXPECT_NE(deleteFile(FoundPath{named, "a/f2"}, true, read), "");
  EXPECT_NE(renameNoReplace(FoundPath{named, "a/f2"}, "f3", read), "");
  EXPECT_EQ(moveToTrash(FoundPath{named, "a/f2"}, read).code, ESTALE);
  EXPECT_EQ(slurp(real + "/a/f2"), "other");
  ASSERT_EQ(::stat((real + "/a/f2").c_str(), &st), 0);
  EXPECT_EQ(renameNoReplace(FoundPath{named, "a/f2"}, "f3", st.st_ino), "");
  EXPECT_EQ(deleteFile(FoundPath{named, "a/f3"}, true, st.st_ino), "");
  EXPECT_FALSE(exists(real + "/a/f3"));
}

// A racer swaps a folder on the way while a long delete runs. The delete goes on in the folder it
// opened, and its last step, the removal of the emptied folder, goes where the folder really is,
// not to a folder of the same name behind the link.
TEST(FolderDelete, AFolderOnTheWaySwappedDuringTheDeleteRedirectsNothing) {
  TempDir tmp(fastBase());
  ASSERT_TRUE(tmp.made());
  const std::string target = tmp / "src/a/target";
  for (const char* d : {"src", "src/a", "src/a/target", "other", "other/target"}) makeDir(tmp / d);
  constexpr int kFiles = 20000;
  const int fd = ::open(target.c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_GE(fd, 0);
  for (int i = 0; i < kFiles; ++i)
    ::close(::openat(fd, ("f" + std::to_string(i)).c_str(), O_CREAT | O_WRONLY, 0644));
  ::close(fd);
  struct stat before;
  ASSERT_EQ(::stat(target.c_str(), &before), 0);

  std::atomic<bool> done{false};
  bool raced = false;
  std::thread racer([&] {
    // As soon as the first file is gone: the folder's change time moves.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    struct stat now;
    while (!done && std::chrono::steady_clock::now() < deadline &&
           ::stat(target.c_str(), &now) == 0 && now.st_mtim.tv_nsec == before.st_mtim.tv_nsec &&
           now.st_mtim.tv_sec == before.st_mtim.tv_sec)
      std::this_thread::yield();
    ::rename((tmp / "src/a").c_str(), (tmp / "src/a.moved").c_str());
    ::symlink((tmp / "other").c_str(), (tmp / "src/a").c_str());
    // Files left to delete after the swap: it came in time.
    if (DIR* d = ::opendir((tmp / "src/a.moved/target").c_str())) {
      int seen = 0;
      while (const dirent* e = ::readdir(d)) seen += e->d_name[0] != '.';
      raced = seen > 0;
      ::closedir(d);
    }
  });
  const auto r = deleteFolderTree(FoundPath{tmp / "src", "a/target"}, true);
  done = true;
  racer.join();
  EXPECT_TRUE(r.ok) << r.errors;
  EXPECT_TRUE(exists(tmp / "other/target")) << "the folder behind the link was removed";
  EXPECT_FALSE(exists(tmp / "src/a.moved/target")) << "the selected folder stayed";
  if (!raced) GTEST_SKIP() << "the delete was through before the swap";
}

// A folder on the way to what is changed is swapped, after the scan, for a link to (or a bind
// mount of) a folder of the same shape elsewhere: every change is refused, the other folder keeps
// all it holds, and no trash note names anything. Once as the kernel resolves paths, once name
// by name as on a kernel without openat2.
TEST_F(TrashTest, AFolderOnTheWaySwappedAfterTheScanRedirectsNothing) {
  enum class Op { FolderDelete, FileDelete, Trash, Rename };
  struct Case {
    Op op;
    const char* swapped;  // the folder below the source that is replaced
    bool bind;            // by a bind mount instead of a link
  };
  const std::vector<Case> cases = {
      {Op::FolderDelete, "a", false}, {Op::FolderDelete, "a/b", false},
      {Op::FileDelete, "a", false},   {Op::Trash, "a/b", false},
      {Op::Rename, "a", false},       {Op::FolderDelete, "a", true},
      {Op::FileDelete, "a/b", true},  {Op::Trash, "a", true},
      {Op::Rename, "a/b", true},
  };
  const std::string src = tmp / "src", other = tmp / "other";
  const auto run = [&](const Case& c) -> std::string {
    if (std::system(("rm -rf '" + src + "' '" + other + "' '" + tmp / "data" + "'").c_str()) != 0)
      return "rm";
    for (const std::string& top : {src, other}) {
      for (const char* d : {"", "/a", "/a/b", "/a/b/target", "/a/b/target/sub"})
        ::mkdir((top + d).c_str(), 0755);
      write(top + "/a/b/target/sub/f", top);
      write(top + "/a/b/file", top);
    }
    const std::string swapped = src + "/" + c.swapped;
    const std::string twin = other + "/" + c.swapped;
    if (::rename(swapped.c_str(), (swapped + ".moved").c_str()) != 0) return "rename";
    if (c.bind) {
      ::mkdir(swapped.c_str(), 0755);
      if (::mount(twin.c_str(), swapped.c_str(), nullptr, MS_BIND, nullptr) != 0) return "skip";
    } else if (::symlink(twin.c_str(), swapped.c_str()) != 0) {
      return "symlink";
    }
    std::string bad;
    switch (c.op) {
      case Op::FolderDelete: {
        const auto r = deleteFolderTree(FoundPath{src, "a/b/target"}, true);
        if (r.ok || !r.redirected) bad += "folder delete not refused: " + r.errors + "; ";
        break;
      }
      case Op::FileDelete:
        if (deleteFile(FoundPath{src, "a/b/file"}, true).empty())
          bad += "file delete not refused; ";
        break;
      case Op::Trash:
        if (moveToTrash(FoundPath{src, "a/b/target"}).code != EXDEV) bad += "trash not refused; ";
        if (probePath(tmp / "data/Trash/info") == 0 &&
            ::rmdir((tmp / "data/Trash/info").c_str()) != 0)
          bad += "a note was written; ";
        break;
      case Op::Rename:
        if (renameNoReplace(FoundPath{src, "a/b/file"}, "renamed").empty())
          bad += "rename not refused; ";
        break;
    }
    if (c.bind) ::umount2(swapped.c_str(), MNT_DETACH);
    // Both trees as they were: the other one where it is, ours where the swap moved it.
    const std::string moved = src + "/" + c.swapped + ".moved";
    for (const std::string rel : {"a/b/target/sub/f", "a/b/file"}) {
      if (slurp(other + "/" + rel) != other) bad += "other " + rel + " touched; ";
      if (slurp(moved + rel.substr(std::strlen(c.swapped))) != src)
        bad += "ours " + rel + " touched; ";
    }
    return bad;
  };
  const auto runAll = [&]() -> std::string {
    std::string out;
    for (const Case& c : cases) {
      const std::string bad = run(c);
      if (!bad.empty() && bad != "skip")
        out += std::to_string(static_cast<int>(c.op)) + " " + c.swapped +
               (c.bind ? " bind: " : ": ") + bad + "\n";
    }
    return out.empty() ? "ok" : out;
  };
  if (::geteuid() != 0) GTEST_SKIP() << "bind mounts need root";
  EXPECT_EQ(withPrivateMounts(runAll), "ok");
  // Name by name: openat2 answers "no such call", as on a kernel that lacks it.
  EXPECT_EQ(withPrivateMounts([&]() -> std::string {
              sock_filter filter[] = {
                  BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                  BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
                  BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
                  BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
              };
              sock_fprog prog{static_cast<unsigned short>(std::size(filter)), filter};
              if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
                  ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &prog) != 0)
                return "no seccomp";
              return runAll();
            }),
            "ok");
}

}  // namespace
}  // namespace ql::test
