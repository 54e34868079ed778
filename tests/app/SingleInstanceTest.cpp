// The hand-over frame, the private runtime folder, and a hand-over that arrives while the
// previous one is still being handled.

#include <QCoreApplication>
#include <QTemporaryDir>
#include <atomic>
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>

#include "TestFs.h"
#include "app/SingleInstance.h"

namespace ql::test {
namespace {

QByteArray u32(quint32 v) {
  const char b[4] = {char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
  return QByteArray(b, 4);
}

TEST(HandOverFrame, KeepsEveryByteAndWaitsForTheWholeFrame) {
  const std::vector<std::string> sources = {"/a b", "", std::string("x\0y", 3), "say \"hi\"", "\xff\xfe-latin"};
  const QByteArray frame = encodeHandOver(sources) + encodeHandOver({});
  QByteArray buffer;
  std::vector<std::string> got;
  // Byte by byte: nothing is taken before the last byte of the first frame.
  const qsizetype firstSize = encodeHandOver(sources).size();
  for (qsizetype i = 0; i < firstSize - 1; ++i) {
    buffer += frame[i];
    ASSERT_EQ(takeHandOver(buffer, got), FrameState::Incomplete) << i;
  }
  buffer += frame.mid(firstSize - 1);
  ASSERT_EQ(takeHandOver(buffer, got), FrameState::Complete);
  EXPECT_EQ(got, sources);
  // The second frame, an empty list, is left for the next take.
  got = {"stale"};
  ASSERT_EQ(takeHandOver(buffer, got), FrameState::Complete);
  EXPECT_TRUE(got.empty());
  EXPECT_TRUE(buffer.isEmpty());
}

TEST(HandOverFrame, RefusesOversizedAndMalformedFrames) {
  const QByteArray one = u32(1) + u32(3) + "abc";
  const struct {
    const char* what;
    QByteArray buffer;
  } cases[] = {
      // Refused from its prefix alone, before a megabyte is waited for.
      {"too long", u32(quint32(kMaxHandOverBytes) + 1)},
      {"shorter than a count", u32(2) + "ab"},
      {"more sources than bytes", u32(8) + u32(1000) + u32(0)},
      {"source beyond the frame", u32(8) + u32(1) + u32(5)},
      {"bytes left over", u32(quint32(one.size()) + 1) + one + "z"},
      {"count with no lengths", u32(4) + u32(1)},
  };
  for (const auto& c : cases) {
    QByteArray buffer = c.buffer;
    std::vector<std::string> got = {"kept"};
    EXPECT_EQ(takeHandOver(buffer, got), FrameState::Invalid) << c.what;
    EXPECT_EQ(got, std::vector<std::string>{"kept"}) << c.what;
  }
  // The largest frame allowed still goes through.
  QByteArray big = u32(quint32(kMaxHandOverBytes)) + u32(1) + u32(quint32(kMaxHandOverBytes) - 8);
  big.append(kMaxHandOverBytes - 8, 'x');
  std::vector<std::string> got;
  ASSERT_EQ(takeHandOver(big, got), FrameState::Complete);
  EXPECT_EQ(got.at(0).size(), size_t(kMaxHandOverBytes - 8));
}

TEST(RuntimeFolder, NeverOneOthersMayWriteIn) {
  const QByteArray saved = qgetenv("XDG_RUNTIME_DIR");
  QTemporaryDir open;
  ASSERT_EQ(::chmod(QFile::encodeName(open.path()).constData(), 0777), 0);
  for (const QByteArray& value : {QFile::encodeName(open.path()), QByteArray()}) {
    if (value.isEmpty())
      qunsetenv("XDG_RUNTIME_DIR");
    else
      qputenv("XDG_RUNTIME_DIR", value);
    const QString folder = SingleInstance::runtimeFolder();
    EXPECT_NE(folder, open.path());
    struct stat st;
    ASSERT_EQ(::lstat(QFile::encodeName(folder).constData(), &st), 0) << folder.toStdString();
    EXPECT_TRUE(S_ISDIR(st.st_mode) && st.st_uid == ::getuid() && (st.st_mode & 077) == 0);
  }
  // A private one is taken as it is.
  ASSERT_EQ(::chmod(QFile::encodeName(open.path()).constData(), 0700), 0);
  qputenv("XDG_RUNTIME_DIR", QFile::encodeName(open.path()));
  EXPECT_EQ(SingleInstance::runtimeFolder(), open.path());
  qputenv("XDG_RUNTIME_DIR", saved);
}

// A start that finds another one between its check and its listen waits for it, and never
// listens beside it.
TEST(SingleInstanceServer, ChecksAndListensOnlyUnderTheStartLock) {
  ensureApp();
  QTemporaryDir runtime;
  SingleInstance waiting(runtime.path());
  const QByteArray lockPath = QFile::encodeName(waiting.socketPath()) + ".lock";
  const int held = ::open(lockPath.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_EQ(::flock(held, LOCK_EX), 0);
  EXPECT_EQ(waiting.claim(300), SingleInstance::Claim::Unavailable);
  EXPECT_FALSE(QFile::exists(waiting.socketPath()));
  ::close(held);
  EXPECT_EQ(waiting.claim(300), SingleInstance::Claim::First);
}

// The receiver spins an event loop of its own while it handles the first hand-over: the second
// one is answered "busy" and never reaches it.
TEST(SingleInstanceServer, TurnsAwayAHandOverThatArrivesDuringTheLastOne) {
  ensureApp();
  QTemporaryDir runtime;
  SingleInstance first(runtime.path());
  ASSERT_EQ(first.claim(), SingleInstance::Claim::First);
  EXPECT_EQ(SingleInstance::current(), &first);

  auto send = [&](std::vector<std::string> sources, std::atomic<int>& result) {
    return std::thread([&result, sources = std::move(sources), path = runtime.path()] {
      SingleInstance later(path);
      result = later.claim() == SingleInstance::Claim::Running ? int(later.handOver(sources)) : -1;
    });
  };
  std::atomic<int> firstResult{-2}, secondResult{-2};
  std::vector<std::vector<std::string>> received;
  QObject::connect(&first, &SingleInstance::received, [&](const std::vector<std::string>& s) {
    received.push_back(s);
    if (received.size() > 1) return;
    std::thread second = send({"/second"}, secondResult);
    while (secondResult == -2) QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    second.join();
  });
  std::thread one = send({"/first"}, firstResult);
  while (firstResult == -2) QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
  one.join();

  EXPECT_EQ(firstResult, int(SingleInstance::Sent::Taken));
  EXPECT_EQ(secondResult, int(SingleInstance::Sent::Busy));
  EXPECT_EQ(received, (std::vector<std::vector<std::string>>{{"/first"}}));
  EXPECT_TRUE(first.running());
}

}  // namespace
}  // namespace ql::test
