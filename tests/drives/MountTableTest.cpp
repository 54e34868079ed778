// The mount table as the drive table lists it, percent rounding, and the size reader's time
// limit. The last tests mount real file systems and run only as root.

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <cstdio>
#include <thread>

#include "TestFiles.h"
#include "TestFs.h"
#include "TestProcess.h"
#include "drives/DriveSizes.h"
#include "drives/FakeStat.h"
#include "drives/MountTable.h"

namespace ql::test {
namespace {

std::vector<std::string> pointsOf(const std::vector<MountEntry>& mounts) {
  std::vector<std::string> out;
  for (const MountEntry& m : mounts) out.push_back(m.mountPoint);
  return out;
}

TEST(MountTable, ParsesEscapesAndKeepsEachFolderOnce) {
  const std::string info =
      "21 26 0:20 / /proc rw - proc proc rw\n"
      "26 1 254:0 / / rw,relatime shared:1 - ext4 /dev/vda rw\n"
      "30 26 8:17 / /media/USB\\040Stick\\134x rw master:2 - vfat /dev/sdb1 rw\n"
      "31 26 8:17 / /mnt/again rw - vfat /dev/sdb1 rw\n"             // the same folder bound again
      "32 26 254:0 /home/a /srv/a\\011tab rw - ext4 /dev/vda rw\n"     // a folder inside / bound
      "33 26 8:18 /sub /mnt/sub rw - ext4 /dev/sdb2 rw\n"             // a folder of an unlisted device
      "34 26 0:40 / /dev/shm rw - tmpfs tmpfs rw\n"
      "35 26 0:41 / /dev/shm rw - tmpfs tmpfs rw\n"                   // mounted over the first
      "36 26 0:42 / /sys/fs/cgroup rw - tmpfs tmpfs rw\n"
      "37 26 7:3 / /snap/core/1 ro - squashfs /dev/loop3 ro\n"
      "38 26 0:50 / /var/lib/docker/overlay2/x/merged rw - overlay overlay rw\n"
      "39 26 0:51 / /net rw - nfs4 srv:/export rw\n"
      "garbage line\n";
  const std::vector<MountEntry> listed = listedMounts(parseMountTable(info));
  EXPECT_EQ(pointsOf(listed), (std::vector<std::string>{"/", "/dev/shm", "/media/USB Stick\\x", "/mnt/sub", "/net"}));
  EXPECT_EQ(listed[1].major, 0u);
  EXPECT_EQ(listed[1].minor, 41u);  // the mount on top is the one that is seen
  EXPECT_EQ(listed[4].source, "srv:/export");
  EXPECT_EQ(driveTypeOf(listed[1]), DriveRam);
  EXPECT_EQ(driveTypeOf(listed[4]), DriveNetwork);

  // The older table form has no device numbers: binds of one device path are told by it alone.
  const std::string mounts =
      "/dev/sda1 / ext4 rw 0 0\n"
      "/dev/sda1 /mnt/bind ext4 rw 0 0\n"
      "tmpfs /run tmpfs rw 0 0\n"
      "tmpfs /tmp tmpfs rw 0 0\n"
      "server:/x /mnt/new\\012line nfs rw 0 0\n";
  EXPECT_EQ(pointsOf(listedMounts(parseMountTable(mounts))),
            (std::vector<std::string>{"/", "/mnt/new\nline", "/run", "/tmp"}));
  EXPECT_EQ(decodeMountField("a\\040b\\1\\134\\04"), "a b\\1\\\\04");
}

TEST(MountTable, LongestMountByWholeComponents) {
  const std::vector<std::string> mounts = {"/", "/home", "/home/u/data", "/media/a b", "/x/"};
  const std::pair<const char*, const char*> cases[] = {
      {"/home/u/data/f", "/home/u/data"}, {"/home/u/database", "/home"}, {"/homer", "/"},
      {"/home", "/home"},                 {"/media/a b/c", "/media/a b"}, {"/media/a", "/"},
      {"/x", "/x/"},                      {"/x/y", "/x/"},               {"relative", ""}};
  for (const auto& [path, want] : cases) EXPECT_EQ(mountOf(mounts, path), want) << path;
  EXPECT_EQ(mountOf({"/a"}, "/b"), "");
}

// Rounded up, and exact near the top of 64 bits, where 100 * used overflows.
TEST(DriveSizes, UsedPercentRoundsUpWithoutOverflow) {
  const std::tuple<int64_t, int64_t, int> cases[] = {
      {0, 5, 0},   {1, 7, 13},  {1, 999, 1},
      {5, 0, 100}, {0, 0, 100}, {INT64_MAX / 2, INT64_MAX / 2 + 1, 50}};
  for (const auto& [used, available, want] : cases)
    EXPECT_EQ(usedPercent(used, available), want) << used;
  EXPECT_FALSE(figuresOf({0, 0, 0, 4096}).known);
}

TEST(SizeReader, AHungMountNeverHoldsUpTheOthers) {
  auto gate = std::make_shared<Gate>();
  // A limit far beyond the test, so that only the hung mount is missing however slow the machine.
  auto reader = std::make_unique<SizeReader>(fakeStat(gate), std::chrono::seconds(60));
  const uint64_t hung = reader->start("/hung");
  std::vector<uint64_t> fine;
  for (const char* p : {"/", "/a", "/bb", "/gone"}) fine.push_back(reader->start(p));
  EXPECT_EQ(reader->waitForResults(4, SizeReader::Clock::now() + std::chrono::seconds(10)), 4u);
  std::map<uint64_t, DriveSizes> got;
  for (auto& [id, s] : reader->take()) got[id] = s;
  ASSERT_EQ(got.size(), 4u);
  EXPECT_FALSE(got.count(hung));
  EXPECT_EQ(got[fine[0]].total, 1001 * 4096);
  EXPECT_EQ(got[fine[2]].free, 250 * 4096);
  EXPECT_EQ(got[fine[3]].total, 0);  // gone between listing and reading
  // A refresh does not pile up threads on the hung mount (once its worker is surely inside).
  for (int i = 0; i < 1000 && gate->hungCalls.load() == 0; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_EQ(reader->start("/hung"), 0u);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(gate->hungCalls.load(), 1);
  // The reader may go while its worker still hangs; the worker ends without it.
  reader.reset();
  gate->release();
}

TEST(SizeReader, AnAnswerAfterTheLimitCountsAsNone) {
  StatvfsFn slow = [](const char*, struct statvfs* st) {
    std::this_thread::sleep_for(std::chrono::milliseconds(40));  // a mount that answers late
    *st = {};
    st->f_frsize = 512;
    st->f_blocks = 10;
    return 0;
  };
  SizeReader reader(slow, std::chrono::milliseconds(5));
  reader.start("/late");
  ASSERT_EQ(reader.waitForResults(1, SizeReader::Clock::now() + std::chrono::seconds(10)), 1u);
  EXPECT_EQ(reader.take().at(0).second.total, 0);
}

// Real mounts: a tmpfs with a blank and a backslash in its name, and a bind of it.
TEST(MountTable, RealTmpfsAgreesWithDf) {
  if (geteuid() != 0) GTEST_SKIP() << "mounting needs root";
  TempDir d;
  const std::string point = d / "a b\\c";
  const std::string bind = d / "bound";
  makeDir(point);
  makeDir(bind);
  if (::mount("tmpfs", point.c_str(), "tmpfs", 0, "size=8m") != 0) GTEST_SKIP() << "mount refused here";
  const bool bound = ::mount(point.c_str(), bind.c_str(), nullptr, MS_BIND, nullptr) == 0;
  const std::vector<MountEntry> listed = readMountTable();
  int seen = 0;
  for (const MountEntry& m : listed)
    if (m.mountPoint == point || m.mountPoint == bind) {
      ++seen;
      EXPECT_EQ(m.mountPoint, point);
      EXPECT_EQ(driveTypeOf(m), DriveRam);
    }
  EXPECT_EQ(seen, 1);
  EXPECT_EQ(mountOf(pointsOf(listed), point + "/f"), point);

  if (bound) ::umount2(bind.c_str(), MNT_DETACH);
  ASSERT_EQ(::umount2(point.c_str(), MNT_DETACH), 0);
  EXPECT_NE(mountOf(pointsOf(readMountTable()), point), point);
}

// An ext4 with half its blocks kept for root, loop-mounted: the table's figures are df's.
class ReservedBlocks : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "mounting needs root";
    makeDir(point);
    ASSERT_EQ(runProgram("truncate", {"-s", "64M", qpath(image)}).status, 0);
    const Outcome made = runProgram("mkfs.ext4", {"-q", "-m", "50", qpath(image)});
    ASSERT_EQ(made.status, 0) << made.err.toStdString();
    const Outcome mounted = runProgram("mount", {"-o", "loop", qpath(image), qpath(point)});
    if (mounted.status != 0)
      GTEST_SKIP() << "loop mount refused here: " << mounted.err.toStdString();
    this->mounted = true;
  }
  void TearDown() override {
    if (!mounted) return;
    const int status = runProgram("umount", {qpath(point)}).status;
    EXPECT_EQ(status, 0);
    if (status != 0) ::umount2(point.c_str(), MNT_DETACH);  // never left behind
  }
  TempDir d;
  std::string image = d / "ext4.img", point = d / "mnt";
  bool mounted = false;
};

TEST_F(ReservedBlocks, FiguresAreThoseOfDf) {
  writeFile(point + "/f", QByteArray(10 << 20, 'x'));  // about half of what the user may write
  ::sync();
  const SizeFigures f = figuresOf(readSizes(point, {}));
  const Outcome df = runProgram("df", {"-B1", "--output=size,used,avail,pcent", qpath(point)});
  ASSERT_EQ(df.status, 0);
  long long size = -1, used = -1, avail = -1;
  int percent = -1;
  ASSERT_EQ(std::sscanf(df.out.split('\n').value(1).constData(), "%lld %lld %lld %d%%", &size,
                        &used, &avail, &percent),
            4)
      << df.out.toStdString();
  ASSERT_TRUE(f.known);
  EXPECT_EQ(f.total, size);
  EXPECT_EQ(f.used, used);
  EXPECT_EQ(f.free, avail);
  EXPECT_EQ(f.usedPercent, percent);
  EXPECT_EQ(f.freePercent, 100 - percent);
  EXPECT_LT(f.used + f.free, f.total * 3 / 4);  // the half kept for root counts as neither
}

}  // namespace
}  // namespace ql::test
