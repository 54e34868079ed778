// One window per user, with the real program started more than once: what a later start hands
// over, a first instance that was killed, two starts at the same moment, several windows by
// choice, and a socket that is not ours.

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "TestFs.h"
#include "app/SingleInstance.h"

namespace ql::test {
namespace {

using Received = std::vector<std::vector<std::string>>;

class Instances : public ::testing::Test {
 protected:
  void SetUp() override {
    ensureApp();
    ASSERT_TRUE(runtime.isValid() && config.isValid());
  }
  void TearDown() override {
    for (auto& p : started) {
      p->kill();
      p->waitForFinished(5000);
    }
  }

  QProcess* start(const QStringList& args) {
    auto p = std::make_unique<QProcess>();
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("XDG_CONFIG_HOME", config.path());
    env.insert("XDG_RUNTIME_DIR", runtime.path());
    env.insert("QT_QPA_PLATFORM", "offscreen");
    env.insert("LC_ALL", "C.UTF-8");
    env.insert("QUORLANE_HANDOVER_LOG", log());
    p->setProcessEnvironment(env);
    p->start(QStringLiteral(QUORLANE_BIN_PATH), args);
    EXPECT_TRUE(p->waitForStarted());
    started.push_back(std::move(p));
    return started.back().get();
  }

  // Waits until a first instance takes a hand-over: an empty one, which the log then shows.
  bool ready() {
    for (int i = 0; i < 400; ++i) {
      if (SingleInstance(runtime.path()).running()) {
        SingleInstance probe(runtime.path());
        return probe.claim() == SingleInstance::Claim::Running &&
               probe.handOver({}, 10000) == SingleInstance::Sent::Taken;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
  }

  // Whether the process is still there after `ms`: a window, not a start that handed over.
  static bool stays(QProcess* p, int ms = 1500) { return !p->waitForFinished(ms); }
  static bool endsWithZero(QProcess* p) {
    return p->waitForFinished(15000) && p->exitStatus() == QProcess::NormalExit && p->exitCode() == 0;
  }

  Received received() {
    QFile f(log());
    QByteArray bytes = f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    Received all;
    std::vector<std::string> one;
    while (takeHandOver(bytes, one) == FrameState::Complete) all.push_back(one);
    EXPECT_TRUE(bytes.isEmpty());
    return all;
  }

  QString log() const { return config.filePath("handover"); }
  QByteArray socket() const { return QFile::encodeName(runtime.path() + "/Quorlane_APPLICATION_MUTEX"); }

  QTemporaryDir runtime, config;
  std::vector<std::unique_ptr<QProcess>> started;
};

TEST_F(Instances, ALaterStartHandsItsArgumentsOverAndEnds) {
  QProcess* first = start({});
  ASSERT_TRUE(ready());
  // Each argument as it is, not a joined command line.
  QProcess* later = start({"--", "/nowhere/a b", "say \"hi\"", "-dash"});
  EXPECT_TRUE(endsWithZero(later)) << later->readAllStandardError().toStdString();
  // An empty command line only brings the window forward.
  EXPECT_TRUE(endsWithZero(start({})));
  EXPECT_EQ(received(), (Received{{}, {"/nowhere/a b", "say \"hi\"", "-dash"}, {}}));
  EXPECT_EQ(first->state(), QProcess::Running);
}

// A restart waits while the old window lives; once it is gone (even killed, its socket left
// behind) the restarted window is the first instance.
TEST_F(Instances, ARestartTakesOverOnceTheOldWindowHasGone) {
  QProcess* old = start({});
  ASSERT_TRUE(ready());
  QProcess* restart = start({"-RESTART"});
  EXPECT_TRUE(stays(restart));
  old->kill();
  ASSERT_TRUE(old->waitForFinished(5000));
  struct stat st;
  ASSERT_EQ(::lstat(socket().constData(), &st), 0) << "a killed window leaves its socket";
  ASSERT_TRUE(ready());
  EXPECT_TRUE(endsWithZero(start({"/late"})));
  EXPECT_EQ(restart->state(), QProcess::Running);
  EXPECT_EQ(received(), (Received{{}, {}, {"/late"}}));
}

TEST_F(Instances, OfTwoStartsAtOnceOneBecomesTheWindow) {
  QProcess* a = start({"/a"});
  QProcess* b = start({"/b"});
  QProcess* ended = nullptr;
  for (int i = 0; i < 300 && !ended; ++i) {
    if (a->waitForFinished(50)) ended = a;
    else if (b->waitForFinished(50)) ended = b;
  }
  ASSERT_NE(ended, nullptr);
  EXPECT_TRUE(ended->exitStatus() == QProcess::NormalExit && ended->exitCode() == 0)
      << ended->readAllStandardError().toStdString();
  QProcess* window = ended == a ? b : a;
  EXPECT_TRUE(stays(window, 500));
  EXPECT_EQ(received(), (Received{{ended == a ? "/a" : "/b"}}));
}

TEST_F(Instances, WithInstanzZeroEveryStartHasItsWindow) {
  QDir().mkpath(config.filePath("Quorlane"));
  QFile ini(config.filePath("Quorlane/Quorlane.ini"));
  ASSERT_TRUE(ini.open(QIODevice::WriteOnly));
  ini.write("[Optionen]\nInstanz=0\n");
  ini.close();
  QProcess* first = start({});
  ASSERT_TRUE(ready());
  QProcess* second = start({"/b"});
  EXPECT_TRUE(stays(second));
  EXPECT_EQ(first->state(), QProcess::Running);
  EXPECT_EQ(received(), Received{{}});
}

TEST_F(Instances, ASocketOfAnotherUserIsNeitherUsedNorRemoved) {
  if (::getuid() != 0) GTEST_SKIP() << "needs root to give the socket away";
  start({});
  ASSERT_TRUE(ready());
  ASSERT_EQ(::lchown(socket().constData(), 65534, 65534), 0);
  QProcess* second = start({"/b"});
  second->setReadChannel(QProcess::StandardError);
  ASSERT_TRUE(second->waitForReadyRead(15000));
  EXPECT_TRUE(second->readAllStandardError().contains("Quorlane_APPLICATION_MUTEX"));
  EXPECT_TRUE(stays(second));
  struct stat st;
  ASSERT_EQ(::lstat(socket().constData(), &st), 0);
  EXPECT_EQ(st.st_uid, 65534u);
  EXPECT_EQ(received(), Received{{}});
}

}  // namespace
}  // namespace ql::test
