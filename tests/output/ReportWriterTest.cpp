// The report file, line by line: both layouts, level limits, the current view, file rows, names
// as bytes; and the file itself, which replaces an older report only once complete, is followed
// through a link only where that is safe, and leaves a pipe or a device what it is.

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <thread>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "TestFiles.h"
#include "output/ReportWriter.h"

namespace ql {
namespace {

const NumberFormat en{QLatin1Char(','), QLatin1Char('.')};

// /data: Bilder (with Urlaub and its own files), Musik (empty), and its own files.
struct Sample {
  ReportTree t;
  uint32_t add(uint32_t parent, const char* name, int64_t size, int64_t files, int folders,
               uint16_t flags = ReportTree::IsFolder) {
    const uint32_t n = parent == kNoNode ? t.addRoot(name) : t.addChild(parent, name, flags);
    t.setSizeAndFiles(n, size, files);
    t.setFolders(n, folders);
    return n;
  }
  uint32_t root = add(kNoNode, "/data", 3000, 6, 3), bilder = add(root, "Bilder", 2000, 3, 1),
           urlaub = add(bilder, "Urlaub", 1500, 2, 0), bilderFiles = add(bilder, "Dateien", 500, 1, 0, 0),
           musik = add(root, "Musik", 0, 0, 0), rootFiles = add(root, "Dateien", 1000, 3, 0, 0);
};

std::string csv(const ReportTree& t, ReportSaveOptions o) { return ReportWriter::render(t, o, false, en); }

using L = ReportSaveOptions::Levels;
ReportSaveOptions levels(L l, int n = 0) { return {l, n}; }

const std::string kHead = "\"Pfad\";\"Größe (Bytes)\";\"Dateien\";\"Ordner\"\r\n";
const std::string kRoot = "\"/data\";\"3000\";6;3\r\n";
const std::string kBilder = "\"/data/Bilder\";\"2000\";3;1\r\n";
const std::string kUrlaub = "\"/data/Bilder/Urlaub\";\"1500\";2;0\r\n";
const std::string kBilderFiles = "\"/data/Bilder/[Dateien]\";\"500\";1;0\r\n";
const std::string kMusik = "\"/data/Musik\";\"0\";0;0\r\n";
const std::string kRootFiles = "\"/data/[Dateien]\";\"1000\";3;0\r\n";

TEST(ReportWriter, CsvRowsForEachLevelChoice) {
  Sample s;
  const std::string all = kHead + kRoot + kBilder + kUrlaub + kBilderFiles + kMusik + kRootFiles,
                    one = kHead + kRoot + kBilder + kMusik + kRootFiles;
  auto branch = levels(L::Count, 1);  // one branch starts with its own name
  branch.onlyNode = s.bilder;
  const auto view = levels(L::CurrentView);
  const struct {
    ReportSaveOptions o;
    std::string expected;
  } cases[] = {{levels(L::All), all},
               {levels(L::Count, 0), kHead + kRoot},
               {levels(L::Count, 1), one},
               {levels(L::Count, 2), all},
               {branch, kHead + "\"Bilder\";\"2000\";3;1\r\n\"Bilder/Urlaub\";\"1500\";2;0\r\n" +
                            "\"Bilder/[Dateien]\";\"500\";1;0\r\n"},
               {view, one}};
  for (const auto& c : cases) EXPECT_EQ(csv(s.t, c.o), c.expected) << &c - cases;
  // The current view follows what is expanded.
  s.t.setFlag(s.bilder, ReportTree::Expanded, true);
  EXPECT_EQ(csv(s.t, view), all);
  s.t.setFlag(s.root, ReportTree::Expanded, false);
  EXPECT_EQ(csv(s.t, view), kHead + kRoot);
  // And there is no depth limit.
  ReportTree deep;
  uint32_t n = deep.addRoot("/r");
  for (int i = 0; i < 1500; ++i) n = deep.addChild(n, "d", ReportTree::IsFolder);
  for (const auto& [o, rows] : {std::pair{levels(L::All), 1501}, std::pair{levels(L::Count, 1200), 1201}}) {
    const std::string out = csv(deep, o);
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1 + rows);
  }
}

TEST(ReportWriter, TextColumnsTakeTheirWidthFromTheFirstSource) {
  Sample s;
  const uint32_t big = s.t.addRoot("/big");
  s.t.setSizeAndFiles(big, 123456789012LL, 1234567);
  s.t.setFolders(big, 12);
  ReportSaveOptions o = levels(L::Count, 0);
  // The headings are wider than the first source's numbers; the second source's size is wider
  // still and simply runs out of line.
  EXPECT_EQ(ReportWriter::render(s.t, o, true, en),
            "Größe (Bytes)\tDateien\tOrdner\tPfad\r\n"
            "        3,000\t      6\t     3\t/data\r\n"
            "123,456,789,012\t1,234,567\t    12\t/big\r\n");
  o = levels(L::Count, 1);
  o.unit = 1;
  s.t.removeSubtree(big);
  EXPECT_EQ(ReportWriter::render(s.t, o, true, en),
            "Größe (KB)\tDateien\tOrdner\tPfad\r\n"
            "      2.93\t      6\t     3\t/data\r\n"
            "      1.95\t      3\t     1\t/data/Bilder\r\n"
            "      0.00\t      0\t     0\t/data/Musik\r\n"
            "      0.98\t      3\t     0\t/data/[Dateien]\r\n");
}

TEST(ReportWriter, NamesAreWrittenAsTheirBytesWithQuotesDoubled) {
  ReportTree t;
  const uint32_t root = t.addRoot("/d \"x\"");
  const uint32_t odd = t.addChild(root, " a\"\"b;c,\n\r\t\xff\xfe ", ReportTree::IsFolder);
  t.addChild(odd, "f\"", 0);
  EXPECT_EQ(csv(t, {}), kHead + "\"/d \"\"x\"\"\";\"0\";0;0\r\n" +
                        "\"/d \"\"x\"\"/ a\"\"\"\"b;c,\n\r\t\xff\xfe \";\"0\";0;0\r\n" +
                        "\"/d \"\"x\"\"/ a\"\"\"\"b;c,\n\r\t\xff\xfe /[f\"\"]\";\"0\";0;0\r\n");
  // The column text has no quoting: the names as they are.
  const std::string txt = ReportWriter::render(t, {}, true, en);
  EXPECT_NE(txt.find("\t/d \"x\"/ a\"\"b;c,\n\r\t\xff\xfe /[f\"]\r\n"), std::string::npos) << txt;
}

std::string readAll(const std::string& file) { return test::readFile(file).toStdString(); }

QStringList entries(const QTemporaryDir& dir) {
  return QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot | QDir::System);
}

// Writes beyond `bytes` fail with EFBIG (root is not exempt), instead of raising SIGXFSZ.
struct FileSizeLimit {
  rlimit old{};
  explicit FileSizeLimit(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &old);
    rlimit limit = old;
    limit.rlim_cur = bytes;
    signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &old);
    signal(SIGXFSZ, SIG_DFL);
  }
};

// A new report replaces the old one only once complete, then through a link and with the old
// permissions.
TEST(ReportWriter, AFailedWriteLeavesTheOldReport) {
  Sample s;
  QTemporaryDir dir;
  const std::string file = dir.filePath("r.csv").toStdString(), link = dir.filePath("link.csv").toStdString();
  std::ofstream(file) << "old report\n";
  ASSERT_EQ(chmod(file.c_str(), 0604), 0);
  ASSERT_EQ(symlink("r.csv", link.c_str()), 0);
  QString error;
  {
    const FileSizeLimit limit(40);
    EXPECT_FALSE(ReportWriter::SPEICHERN(s.t, link, {}, error, en));
  }
  EXPECT_TRUE(error.contains("link.csv: File too large")) << error.toStdString();
  EXPECT_EQ(readAll(file), "old report\n");
  EXPECT_EQ(entries(dir), (QStringList{"link.csv", "r.csv"}));

  ASSERT_TRUE(ReportWriter::SPEICHERN(s.t, link, {}, error, en)) << error.toStdString();
  EXPECT_EQ(readAll(file), csv(s.t, {}));  // through the link, which stays a link
  struct stat st {};
  ASSERT_EQ(stat(file.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0604u);
  EXPECT_EQ(entries(dir), (QStringList{"link.csv", "r.csv"}));
}

// Killed while writing: SIGTERM arrives in the middle (raised when the file grows too large) and
// the handler removes the unfinished file before the process ends.
TEST(ReportWriterDeathTest, AnInterruptRemovesTheUnfinishedFile) {
  Sample s;
  QTemporaryDir dir;
  const std::string file = dir.filePath("r.csv").toStdString();
  std::ofstream(file) << "old report\n";
  auto writeAndGetKilled = [&] {
    ReportWriter::removeTemporaryOnInterrupt();
    const FileSizeLimit limit(40);
    signal(SIGXFSZ, [](int) { raise(SIGTERM); });
    QString error;
    ReportWriter::SPEICHERN(s.t, file, {}, error, en);
    std::_Exit(0);
  };
  EXPECT_EXIT(writeAndGetKilled(), testing::KilledBySignal(SIGTERM), "");
  EXPECT_EQ(readAll(file), "old report\n");
  EXPECT_EQ(entries(dir), QStringList{"r.csv"});
}

// A link is followed only where the kernel's protected-symlinks rule would follow it, whatever
// the system's setting: one planted by another user in a sticky world-writable folder is not.
TEST(ReportWriter, ALinkIsFollowedOnlyWhereThatIsSafe) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to give links and folders to another user";
  constexpr uid_t other = 4242;
  struct Case {
    const char* what;
    mode_t folderMode;
    uid_t folderOwner, linkOwner, secondLinkOwner;  // the second link: -1 for none
    bool followed;
  };
  const Case cases[] = {
      {"another user's link in a sticky folder", 01777, 0, other, uid_t(-1), false},
      {"our link in a sticky folder", 01777, 0, 0, uid_t(-1), true},
      {"another user's link in a folder that is not sticky", 0777, 0, other, uid_t(-1), true},
      {"the folder owner's link in its sticky folder", 01777, other, other, uid_t(-1), true},
      {"our link to another user's link in a sticky folder", 01777, 0, 0, other, false},
  };
  Sample s;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    QTemporaryDir dir;
    const std::string box = dir.filePath("box").toStdString();
    const std::string victim = dir.filePath("victim").toStdString();
    const std::string link = box + "/report.csv", second = box + "/second";
    ASSERT_EQ(mkdir(box.c_str(), 0755), 0);
    ASSERT_EQ(chmod(box.c_str(), c.folderMode), 0);
    ASSERT_EQ(chown(box.c_str(), c.folderOwner, c.folderOwner), 0);
    std::ofstream(victim) << "precious\n";
    ASSERT_EQ(chown(victim.c_str(), other, other), 0);
    if (c.secondLinkOwner != uid_t(-1)) {
      ASSERT_EQ(symlink(victim.c_str(), second.c_str()), 0);
      ASSERT_EQ(lchown(second.c_str(), c.secondLinkOwner, c.secondLinkOwner), 0);
      ASSERT_EQ(symlink("second", link.c_str()), 0);
    } else {
      ASSERT_EQ(symlink(victim.c_str(), link.c_str()), 0);
    }
    ASSERT_EQ(lchown(link.c_str(), c.linkOwner, c.linkOwner), 0);
    struct stat before {}, after {};
    ASSERT_EQ(stat(victim.c_str(), &before), 0);

    QString error;
    EXPECT_EQ(ReportWriter::SPEICHERN(s.t, link, {}, error, en), c.followed) << error.toStdString();
    ASSERT_EQ(stat(victim.c_str(), &after), 0);
    if (c.followed) {
      // Replaced by a new file (not written into), with the old owner.
      EXPECT_EQ(readAll(victim), csv(s.t, {}));
      EXPECT_NE(after.st_ino, before.st_ino);
      EXPECT_EQ(after.st_uid, other);
    } else {
      EXPECT_TRUE(error.contains(c.secondLinkOwner != uid_t(-1) ? second.c_str() : link.c_str()))
          << error.toStdString();
      EXPECT_EQ(readAll(victim), "precious\n");
      EXPECT_EQ(after.st_ino, before.st_ino);
    }
    ASSERT_EQ(lstat(link.c_str(), &after), 0);
    EXPECT_TRUE(S_ISLNK(after.st_mode));
    EXPECT_EQ(entries(dir), (QStringList{"box", "victim"}));
  }
}

// A pipe or a device gets the report as a stream and stays what it is; a reader that goes away is
// a failure of the write, not the end of the process.
TEST(ReportWriter, APipeOrADeviceIsWrittenInto) {
  Sample s;
  QTemporaryDir dir;
  const std::string fifo = dir.filePath("fifo").toStdString();
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  QString error;
  {
    const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    EXPECT_TRUE(ReportWriter::SPEICHERN(s.t, fifo, {}, error, en)) << error.toStdString();
    std::string got(65536, '\0');
    const ssize_t n = read(reader, got.data(), got.size());
    got.resize(n > 0 ? size_t(n) : 0);
    EXPECT_EQ(got, csv(s.t, {}));
    close(reader);
  }
  struct stat st {};
  ASSERT_EQ(lstat(fifo.c_str(), &st), 0);
  EXPECT_TRUE(S_ISFIFO(st.st_mode));
  EXPECT_EQ(entries(dir), QStringList{"fifo"});

  // A null device of our own: were the fault back, /dev/null of the machine would be replaced.
  const std::string null = dir.filePath("null").toStdString();
  if (mknod(null.c_str(), S_IFCHR | 0666, makedev(1, 3)) == 0) {
    ASSERT_TRUE(ReportWriter::SPEICHERN(s.t, null, {}, error, en)) << error.toStdString();
    ASSERT_EQ(stat(null.c_str(), &st), 0);
    EXPECT_TRUE(S_ISCHR(st.st_mode));
    unlink(null.c_str());
  }

  // Megabytes of report; the reader takes the first bytes and leaves.
  ReportTree deep;
  uint32_t n = deep.addRoot("/r");
  for (int i = 0; i < 1500; ++i) n = deep.addChild(n, "folder", ReportTree::IsFolder);
  const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  bool written = true;
  std::thread writer([&] { written = ReportWriter::SPEICHERN(deep, fifo, {}, error, en); });
  pollfd p{reader, POLLIN, 0};
  EXPECT_EQ(poll(&p, 1, 20000), 1);
  close(reader);
  writer.join();
  EXPECT_FALSE(written);
  EXPECT_TRUE(error.contains("fifo: Broken pipe")) << error.toStdString();
}

}  // namespace
}  // namespace ql
