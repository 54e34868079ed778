#include <gtest/gtest.h>
#include <QTest>

#include "TestFiles.h"
#include "TestFs.h"
#include "ui/ScanSession.h"

namespace ql {
namespace {

// Work asked for before the window is up waits for it; then the sources are read first and the
// exports after them, one at a time, busy from the start of each to its end. An export that
// cannot be read is told and adds nothing. One copy of each source: asked for twice it is read
// once, and read again it replaces the one shown, with what is there now. A folder asked for by
// hand that is not there is told, and never offered to the sources box.
TEST(ScanSession, WorkWaitsUntilReadyRunsOneAtATimeAndShowsEachSourceOnce) {
  test::ensureApp();
  test::TempDir d;
  test::makeDir(d / "a");
  test::makeFile(d / "a/f", 10);
  test::writeFile(d / "m.json",
                  R"([1,2,{"progname":"x"},[{"name":"/r","asize":4096},{"name":"g","asize":7}]])");

  Guard guard;
  ScanSession s(guard);
  std::vector<std::string> log, accepted, warnings;
  QObject::connect(&s, &ScanSession::busyChanged,
                   [&](bool busy) { log.push_back(busy ? "busy" : "idle"); });
  QObject::connect(&s, &ScanSession::readDone, [&](uint32_t node, bool walked) {
    log.push_back((walked ? "walked " : "read ") + s.tree().fullPath(node));
  });
  QObject::connect(&s, &ScanSession::warning, [&](const QString& t) {
    log.push_back("warning");
    warnings.push_back(t.toStdString());
  });
  QObject::connect(&s, &ScanSession::sourceAccepted,
                   [&](const std::string& p) { accepted.push_back(p); });

  s.importFile(d / "missing.json");
  s.importFile(d / "m.json");
  s.readSources({d / "a"});
  QCoreApplication::processEvents();
  EXPECT_TRUE(log.empty());
  EXPECT_TRUE(s.tree().roots().empty());

  s.ready();
  ASSERT_TRUE(QTest::qWaitFor([&] { return log.size() >= 9; }, 20000))
      << testing::PrintToString(log);
  const std::vector<std::string> expected{
      "busy", "idle", "walked " + (d / "a"), "busy", "idle", "warning", "busy", "idle", "read /r"};
  EXPECT_EQ(log, expected);
  ASSERT_EQ(s.tree().roots().size(), 2u);
  EXPECT_EQ(s.tree().node(s.tree().roots()[1]).size, 7);
  EXPECT_FALSE(s.busy());

  const auto readAndWait = [&](const std::vector<std::string>& paths) {
    s.readSources(paths);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !s.busy(); }, 20000));
  };
  const size_t acceptedBefore = accepted.size();
  readAndWait({d / "a", d / "a/"});
  test::makeFile(d / "a/g", 5);
  readAndWait({d / "a"});
  ASSERT_EQ(s.tree().roots().size(), 2u);
  int64_t sizeOfA = -1;
  for (uint32_t r : s.tree().roots())
    if (s.tree().text(r) == d / "a") sizeOfA = s.tree().node(r).size;
  EXPECT_EQ(sizeOfA, 15);

  s.readOnly({d / "gone"});
  ASSERT_TRUE(QTest::qWaitFor([&] { return !s.busy(); }, 20000));
  ASSERT_EQ(warnings.size(), 2u);
  EXPECT_NE(warnings[1].find(d / "gone"), std::string::npos);
  EXPECT_EQ(accepted.size(), acceptedBefore + 2);  // the two readings of a, not the missing one
  EXPECT_EQ(s.tree().roots().size(), 2u);
}

}  // namespace
}  // namespace ql
