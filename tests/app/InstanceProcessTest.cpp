// The real program started more than once: what a later start hands over, a restart after a
// killed window, two starts at the same moment, several windows by choice, a socket not ours.

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>

#include "TestFiles.h"
#include "TestFs.h"
#include "app/SingleInstance.h"

namespace ql::test {
namespace {

using Received = std::vector<std::vector<std::string>>;

class Instances : public ::testing::Test {
 protected:
  void SetUp() override { ensureApp(); }
  void TearDown() override {
    for (auto& p : started) p->kill(), p->waitForFinished(5000);
  }
  // In `folder`, or in the runtime folder: never where a later start runs.
  QProcess* start(const QStringList& args, const QString& folder = {}) {
    auto& p = started.emplace_back(std::make_unique<QProcess>());
    p->setWorkingDirectory(folder.isEmpty() ? runtime.path() : folder);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (auto [k, v] : {std::pair{"XDG_CONFIG_HOME", config.path()}, {"XDG_RUNTIME_DIR", runtime.path()},
                        {"QT_QPA_PLATFORM", QString("offscreen")}, {"QUORLANE_HANDOVER_LOG", log()}})
      env.insert(k, v);
    p->setProcessEnvironment(env);
    p->start(QStringLiteral(QUORLANE_BIN_PATH), args);
    p->waitForStarted();
    return p.get();
  }
  // Waits until a first instance takes a hand-over: an empty one, which the log then shows.
  bool ready() {
    for (int i = 0; i < 400 && !SingleInstance(runtime.path()).running(); ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    SingleInstance probe(runtime.path());
    return probe.claim() == SingleInstance::Claim::Running && probe.handOver({}, 10000) == SingleInstance::Sent::Taken;
  }
  // Still there after a while: a window, not a start that handed over.
  static bool stays(QProcess* p) { return !p->waitForFinished(1500); }
  static bool endsWithZero(QProcess* p) { return p->waitForFinished(15000) && p->exitCode() == 0; }
  // The folders of each hand-over the first instance took; their exports go to `imports`.
  Received received() {
    QByteArray bytes = readFile(log());
    Received all;
    imports.clear();
    for (HandOver one; takeHandOver(bytes, one) == FrameState::Complete;) {
      all.push_back(one.sources);
      imports.insert(imports.end(), one.imports.begin(), one.imports.end());
    }
    return all;
  }
  QString log() const { return config.filePath("handover"); }
  QByteArray socket() const { return QFile::encodeName(runtime.path() + "/Quorlane_APPLICATION_MUTEX"); }

  QTemporaryDir runtime, config;
  std::vector<std::unique_ptr<QProcess>> started;
  std::vector<std::string> imports;
};

// Relative folders and exports are put behind the later start's own folder, byte for byte; one
// that is not there is named, the others still go, and the start ends with 1.
TEST_F(Instances, ALaterStartHandsItsFoldersOverFromItsOwnFolderAndEnds) {
  QTemporaryDir caller;
  const QString here = caller.path();
  for (const char* d : {"a b", "say \"hi\"", "-dash", "work/big"})
    ASSERT_TRUE(QDir(here).mkpath(d));
  writeFile(here + "/tree.json", "[1,2,{},[{\"name\":\"/t\"}]]");
  QProcess* first = start({});
  ASSERT_TRUE(ready());
  EXPECT_TRUE(endsWithZero(start(
      {"--import", "tree.json", "--", here + "/a b", "say \"hi\"", "-dash", "work/./big"}, here)));
  QProcess* missing = start({"big", "gone"}, here + "/work");
  ASSERT_TRUE(missing->waitForFinished(15000));
  EXPECT_EQ(missing->exitCode(), 1);
  EXPECT_TRUE(missing->readAllStandardError().contains(QFile::encodeName(here + "/work/gone")));
  EXPECT_TRUE(endsWithZero(start({})));  // only brings the window forward
  const std::string h = QFile::encodeName(here).toStdString();
  EXPECT_EQ(received(), (Received{{},
                                  {h + "/a b", h + "/say \"hi\"", h + "/-dash", h + "/work/./big"},
                                  {h + "/work/big"},
                                  {}}));
  EXPECT_EQ(imports, std::vector<std::string>{h + "/tree.json"});
  EXPECT_EQ(first->state(), QProcess::Running);
}

// A restart waits while the old window lives; once it is gone (killed, its socket left behind)
// the restarted window is the first instance.
TEST_F(Instances, ARestartTakesOverOnceTheOldWindowHasGone) {
  QProcess* old = start({});
  ASSERT_TRUE(ready());
  QProcess* restart = start({"-RESTART"});
  EXPECT_TRUE(stays(restart));
  old->kill();
  ASSERT_TRUE(old->waitForFinished(5000));
  ASSERT_TRUE(QFile::exists(QFile::decodeName(socket())));
  ASSERT_TRUE(ready());
  EXPECT_TRUE(endsWithZero(start({config.path()})));
  EXPECT_EQ(restart->state(), QProcess::Running);
  EXPECT_EQ(received(), (Received{{}, {}, {QFile::encodeName(config.path()).toStdString()}}));
}

TEST_F(Instances, OfTwoStartsAtOnceOneBecomesTheWindow) {
  QProcess* a = start({"/"});
  QProcess* b = start({"/tmp"});
  QProcess* ended = nullptr;
  for (int i = 0; i < 300 && !ended; ++i) ended = a->waitForFinished(50) ? a : b->waitForFinished(50) ? b : nullptr;
  ASSERT_TRUE(ended && ended->exitCode() == 0);
  EXPECT_TRUE(stays(ended == a ? b : a));
  EXPECT_EQ(received(), (Received{{ended == a ? "/" : "/tmp"}}));
}

TEST_F(Instances, InstanzZeroOrASocketOfAnotherUserGivesAWindowOfItsOwn) {
  writeFile(config.filePath("Quorlane/Quorlane.ini"), "[Optionen]\nInstanz=0\n");
  start({});
  ASSERT_TRUE(ready());
  EXPECT_TRUE(stays(start({"/b"})));
  ASSERT_TRUE(QFile::remove(config.filePath("Quorlane/Quorlane.ini")));
  if (::getuid() != 0) GTEST_SKIP() << "needs root to give the socket away";
  ASSERT_EQ(::lchown(socket().constData(), 65534, 65534), 0);
  QProcess* refused = start({"/c"});
  EXPECT_TRUE(stays(refused));
  EXPECT_TRUE(refused->readAllStandardError().contains("Quorlane_APPLICATION_MUTEX"));
  struct stat st;
  EXPECT_TRUE(::lstat(socket().constData(), &st) == 0 && st.st_uid == 65534u);
  EXPECT_EQ(received(), Received{{}});
}

}  // namespace
}  // namespace ql::test
