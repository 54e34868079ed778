// Without a working media backend a sound or video file leaves the pane empty, says nothing,
// and the player stays unbuilt. Its own program: the backend is chosen once per process.

#include <QSignalSpy>
#include <QPlainTextEdit>
#include <fstream>

#include "TestApp.h"
#include "TestFs.h"
#include "ui/PreviewPane.h"

namespace ql::test {
namespace {

TEST(PreviewNoMediaTest, MediaFilesShowAnEmptyPane) {
  TempDir d;
  makeDir(d / "noplugins");
  qputenv("GST_PLUGIN_SYSTEM_PATH_1_0", QByteArray::fromStdString(d / "noplugins"));
  qunsetenv("GST_PLUGIN_PATH_1_0");
  qunsetenv("GST_PLUGIN_PATH");
  qunsetenv("QT_MEDIA_BACKEND");
  guiApp();
  std::ofstream(d / "clip.mp4") << "not really";
  Guard guard;
  PreviewPane pane(guard);
  QSignalSpy spy(&pane, &PreviewPane::shown);
  pane.showFile(d / "clip.mp4", true);
  if (pane.loading()) {
    ASSERT_TRUE(spy.wait(5000));
  }
  EXPECT_EQ(pane.playerKind(), 0);
  EXPECT_EQ(pane.media(), nullptr);
  EXPECT_EQ(pane.shownViewer()->objectName(), "picEmpty");
  EXPECT_TRUE(pane.textViewer().toPlainText().isEmpty());
}

}  // namespace
}  // namespace ql::test
