// The hand-over frame, the start lock, the runtime folder, and a hand-over that arrives while
// the last one is still being handled.

#include <QTemporaryDir>
#include <atomic>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>

#include "TestFs.h"
#include "app/SingleInstance.h"

namespace ql::test {
namespace {

QByteArray u32(quint32 v) {
  const char b[] = {char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
  return QByteArray(b, 4);
}

TEST(HandOverFrame, KeepsEveryByteWaitsForTheWholeFrameAndRefusesMalformedOnes) {
  const HandOver sent{{"/a b", "", std::string("x\0y", 3), "say \"hi\"", "\xff-latin"}, {"/e.json"}};
  const QByteArray first = encodeHandOver(sent);
  QByteArray buffer = first.left(first.size() - 1);
  HandOver got;
  EXPECT_EQ(takeHandOver(buffer, got), FrameState::Incomplete);
  buffer += first.right(1) + encodeHandOver({});
  ASSERT_EQ(takeHandOver(buffer, got), FrameState::Complete);
  EXPECT_EQ(got, sent);
  ASSERT_EQ(takeHandOver(buffer, got), FrameState::Complete);  // the next one, an empty list
  EXPECT_TRUE(got == HandOver{} && buffer.isEmpty());

  const QByteArray one = u32(1) + u32(3) + "abc";
  for (QByteArray bad : {u32(quint32(kMaxHandOverBytes) + 1),  // refused before its bytes come
                         u32(2) + "ab", u32(8) + u32(1000) + u32(0), u32(8) + u32(1) + u32(5),
                         u32(quint32(one.size()) + 1) + one + "z", u32(4) + u32(1)})
    EXPECT_EQ(takeHandOver(bad, got), FrameState::Invalid) << bad.toHex().toStdString();
}

TEST(SingleInstanceServer, ListensOnlyUnderTheStartLockAndNeverInAnOpenFolder) {
  ensureApp();
  QTemporaryDir runtime;
  SingleInstance waiting(runtime.path());
  const int held = ::open((QFile::encodeName(waiting.socketPath()) + ".lock").constData(), O_RDWR | O_CREAT, 0600);
  ASSERT_EQ(::flock(held, LOCK_EX), 0);
  EXPECT_EQ(waiting.claim(300), SingleInstance::Claim::Unavailable);
  ::close(held);
  EXPECT_EQ(waiting.claim(300), SingleInstance::Claim::First);

  ASSERT_EQ(::chmod(QFile::encodeName(runtime.path()).constData(), 0777), 0);
  qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime.path()));
  const QString folder = SingleInstance::runtimeFolder();
  struct stat st;
  ASSERT_EQ(::lstat(QFile::encodeName(folder).constData(), &st), 0) << folder.toStdString();
  EXPECT_TRUE(folder != runtime.path() && st.st_uid == ::getuid() && (st.st_mode & 077) == 0);
}

// The receiver spins an event loop of its own while it handles the first hand-over: the second
// is answered "busy" and never reaches it.
TEST(SingleInstanceServer, TurnsAwayAHandOverThatArrivesDuringTheLastOne) {
  ensureApp();
  QTemporaryDir runtime;
  SingleInstance first(runtime.path());
  ASSERT_EQ(first.claim(), SingleInstance::Claim::First);
  auto send = [&](std::vector<std::string> sources, std::atomic<int>& result) {
    std::thread t([&result, sources, path = runtime.path()] {
      SingleInstance later(path);
      result =
          later.claim() == SingleInstance::Claim::Running ? int(later.handOver({sources, {}})) : -1;
    });
    while (result == -2) QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    t.join();
  };
  std::atomic<int> one{-2}, two{-2};
  std::vector<std::vector<std::string>> received;
  QObject::connect(&first, &SingleInstance::received, [&](const HandOver& h) {
    received.push_back(h.sources);
    if (received.size() == 1) send({"/second"}, two);
  });
  send({"/first"}, one);
  EXPECT_EQ(one, int(SingleInstance::Sent::Taken));
  EXPECT_EQ(two, int(SingleInstance::Sent::Busy));
  EXPECT_EQ(received, (std::vector<std::vector<std::string>>{{"/first"}}));
}

}  // namespace
}  // namespace ql::test
