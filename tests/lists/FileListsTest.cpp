// The file lists in the window, driven as a user drives them: a click on a folder fills the
// file list, files are deleted and trashed from it and the sums above go down, a rename never
// replaces, and the largest-files list follows the read made last.

#include <QApplication>
#include <QFileInfo>
#include <QSettings>
#include <QSignalSpy>
#include <QTest>

#include "TestApp.h"
#include "TestFs.h"
#include "support/Globals.h"
#include "json/JsonExport.h"
#include "ui/ImportedSources.h"
#include "ui/MainWindow.h"

namespace ql::test {
namespace {

bool exists(const std::string& path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0;
}

class FileListsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    guiApp();
    globals().IniFile = QString::fromStdString(config / "Quorlane.ini");
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, QString::fromStdString(config.path()));
    qputenv("XDG_DATA_HOME", QByteArray::fromStdString(data.path()));
    // work: three files of its own beside a subfolder, so that its own files have a row.
    makeDir(d / "work");
    makeDir(d / "work/sub");
    makeFile(d / "work/sub/inner", 1000);
    for (auto [name, size] : {std::pair{"a.txt", 10}, {"b.txt", 20}, {"c.txt", 40}}) makeFile(d / ("work/" + std::string(name)), size);
    makeDir(d / "other");
    makeFile(d / "other/big.iso", 5000);
  }
  void TearDown() override { qunsetenv("XDG_DATA_HOME"); }

  // Starts the window with the file list in view and reads the tree.
  void open(MainWindow& w) {
    w.show();
    QCoreApplication::processEvents();
    w.setWarningHandler([this](const QString& text) { warnings << text; });
    QSignalSpy finished(&w.session().driver(), &ScanDriver::finished);
    w.session().readSources({d.path()});
    ASSERT_TRUE(finished.wait(10000));
    w.cbrMain().setChecked(cmd::main::ShowLargest, false);
    w.cbrMain().setChecked(cmd::main::ShowFiles, true);
    w.showPanes();
  }

  // The report row of a folder below `parent` (the first source unless given).
  QModelIndex reportRow(MainWindow& w, const QString& name, QModelIndex parent = {}) {
    ReportModel& m = w.reportPane().model();
    return childNamed(m, parent.isValid() ? parent : m.index(0, 0), name);
  }

  // A real click on the report row of a folder below the source; waits for its files.
  void clickFolder(MainWindow& w, const QString& name) {
    const QModelIndex i = reportRow(w, name);
    ASSERT_TRUE(i.isValid()) << "no row " << name.toStdString();
    ReportView& view = w.reportPane().view();
    view.scrollToRow(i);
    QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, view.visualRect(view.toView(i)).center());
    ASSERT_TRUE(QTest::qWaitFor([&] { return !w.filesPane().reading(); }, 5000));
  }

  void select(FileListPane& pane, const QStringList& names) {
    pane.view().clearSelection();
    for (int r = 0; r < pane.model().rowCount(); ++r)
      if (names.contains(pane.model().row(r).text))
        pane.view().selectionModel()->select(pane.model().index(r, 0),
                                             QItemSelectionModel::Select | QItemSelectionModel::Rows);
  }

  // The size of a folder below the source, or of the source ("").
  int64_t sizeOf(MainWindow& w, const QString& name) {
    const QModelIndex i = name.isEmpty() ? w.reportPane().model().index(0, 0) : reportRow(w, name);
    return i.isValid() ? w.session().tree().node(w.reportPane().model().nodeOf(i)).size : -1;
  }

  TempDir d, config, data;
  QStringList warnings;
};

TEST_F(FileListsTest, AClickShowsTheFolderAndDeletesCorrectTheSumsAbove) {
  MainWindow w;
  open(w);
  FileListPane& files = w.filesPane();
  clickFolder(w, "work");
  ASSERT_EQ(files.model().rowCount(), 3);
  EXPECT_EQ(files.model().row(0).text, "c.txt");  // largest first
  EXPECT_EQ(files.shownFolder(), d / "work/");
  EXPECT_EQ(sizeOf(w, "work"), 1070);

  // Three selected, the middle one fails: it became a folder with something in it since the
  // list was read. One message, every row gone, the other two gone from the disk.
  ASSERT_EQ(::unlink((d / "work/b.txt").c_str()), 0);
  makeDir(d / "work/b.txt");
  makeFile(d / "work/b.txt/keep", 1);
  select(files, {"a.txt", "b.txt", "c.txt"});
  files.bar().control(cmd::files::Delete)->trigger();
  EXPECT_EQ(warnings.size(), 1);
  EXPECT_EQ(files.model().rowCount(), 0);
  EXPECT_FALSE(exists(d / "work/a.txt"));
  EXPECT_FALSE(exists(d / "work/c.txt"));
  EXPECT_TRUE(exists(d / "work/b.txt/keep"));
  // The folder's own files were counted again, and the change went up the chain.
  ASSERT_TRUE(QTest::qWaitFor([&] { return !w.session().driver().busy() && !w.session().busy(); }, 5000));
  EXPECT_EQ(sizeOf(w, "work"), 1000);
  EXPECT_EQ(sizeOf(w, ""), 6000);

  // The same folder is not read twice; Refresh reads it again.
  makeFile(d / "work/new.txt", 3);
  clickFolder(w, "work");
  EXPECT_EQ(files.model().rowCount(), 0);
  clickFolder(w, "other");
  clickFolder(w, "work");
  EXPECT_EQ(files.model().rowCount(), 1);
}

TEST_F(FileListsTest, TrashKeepsTheBytesOfTheNameAndTheListRenamesWithoutReplacing) {
  const std::string odd = "odd\xff name.txt";
  makeFile(d / ("work/" + odd), 5);
  MainWindow w;
  open(w);
  FileListPane& files = w.filesPane();
  clickFolder(w, "work");
  ASSERT_EQ(files.model().rowCount(), 4);

  // A rename onto a name that is there is refused; both files stay.
  select(files, {"a.txt"});
  int row = files.selectedRowsDescending().front();
  EXPECT_FALSE(files.model().setData(files.model().index(row, 0), "c.txt", Qt::EditRole));
  EXPECT_EQ(warnings.size(), 1);
  EXPECT_TRUE(exists(d / "work/a.txt"));
  EXPECT_EQ(QFileInfo(QString::fromStdString(d / "work/c.txt")).size(), 40);
  EXPECT_TRUE(files.model().setData(files.model().index(row, 0), "renamed.txt", Qt::EditRole));
  EXPECT_TRUE(exists(d / "work/renamed.txt"));
  EXPECT_EQ(files.model().row(row).text, "renamed.txt");

  // The odd name and another go to the trash, each with a note that gives back its bytes.
  for (int r = 0; r < files.model().rowCount(); ++r) {
    if (files.model().row(r).name == odd) {
      files.view().clearSelection();
      files.view().selectionModel()->select(files.model().index(r, 0),
                                            QItemSelectionModel::Select | QItemSelectionModel::Rows);
    }
  }
  files.view().selectionModel()->select(files.model().index(0, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
  ASSERT_EQ(files.selectedRowsDescending().size(), 2u);
  files.bar().control(cmd::files::Trash)->trigger();
  EXPECT_EQ(warnings.size(), 1);
  EXPECT_EQ(files.model().rowCount(), 2);
  EXPECT_FALSE(exists(d / ("work/" + odd)));
  EXPECT_TRUE(exists(data / ("Trash/files/" + odd)));
  EXPECT_TRUE(exists(data / ("Trash/info/" + odd + ".trashinfo")));
  EXPECT_TRUE(exists(data / "Trash/files/c.txt"));
}

TEST_F(FileListsTest, TheLargestFilesBelongToTheReadMadeLast) {
  MainWindow w;
  open(w);
  FileListPane& top = w.topPane();
  ASSERT_EQ(top.model().rowCount(), 5);
  EXPECT_EQ(top.model().row(0).name, "big.iso");
  EXPECT_EQ(top.model().row(0).folder(), d / "other/");

  // A full rescan of a folder replaces the list with that folder's files.
  QSignalSpy rescanned(&w.session().driver(), &ScanDriver::rescanFinished);
  w.reportPane().view().setCurrentIndex(reportRow(w, "work"));
  w.reportPane().bar().control(cmd::report::Rescan)->trigger();
  ASSERT_TRUE(rescanned.wait(10000));
  ASSERT_EQ(top.model().rowCount(), 4);
  EXPECT_EQ(top.model().row(0).name, "inner");

  // Delete from the list: the file goes, the report is left as it was.
  const int64_t before = sizeOf(w, "");
  select(top, {"inner"});
  EXPECT_EQ(top.deleteFiles(false), 1);
  EXPECT_FALSE(exists(d / "work/sub/inner"));
  EXPECT_EQ(sizeOf(w, ""), before);
}

TEST_F(FileListsTest, AFolderDeletedFromTheReportTakesItsSumsAlong) {
  makeDir(d / "work/sub/deeper");
  makeFile(d / "work/sub/deeper/x", 7);
  makeFile(d / "work/sub/y", 3);
  // A link inside points out of the tree: it goes as a link, what it leads to stays.
  ASSERT_EQ(::symlink((d / "other").c_str(), (d / "work/sub/link").c_str()), 0);
  MainWindow w;
  open(w);
  const QModelIndex root = w.reportPane().model().index(0, 0);
  const int64_t rootFiles = w.session().tree().node(w.reportPane().model().nodeOf(root)).files;
  const int64_t rootFolders = w.session().tree().folders(w.reportPane().model().nodeOf(root));
  const QModelIndex work = reportRow(w, "work");
  w.reportPane().view().expand(work);
  const QModelIndex sub = reportRow(w, "sub", work);
  ASSERT_TRUE(sub.isValid());
  w.reportPane().view().setCurrentIndex(sub);
  const uint32_t subNode = w.reportPane().model().nodeOf(sub);
  const int64_t subFiles = w.session().tree().node(subNode).files;
  const int64_t subFolders = w.session().tree().folders(subNode);
  EXPECT_EQ(subFiles, 3);
  w.reportPane().deleteFolder(false);
  EXPECT_FALSE(exists(d / "work/sub"));
  EXPECT_TRUE(exists(d / "other/big.iso"));
  const uint32_t r = w.reportPane().model().nodeOf(w.reportPane().model().index(0, 0));
  EXPECT_EQ(w.session().tree().node(r).files, rootFiles - subFiles);
  EXPECT_EQ(w.session().tree().folders(r), rootFolders - subFolders - 1);
  EXPECT_EQ(sizeOf(w, "work"), 70);  // its own files remain
  EXPECT_EQ(sizeOf(w, ""), 5070);
  EXPECT_FALSE(w.session().busy());
}

// A folder below the source is swapped for a link to a folder of the same shape after the scan:
// the file list, the largest-files list and the report refuse every change, and the folder
// behind the link keeps all it holds.
TEST_F(FileListsTest, AFolderSwappedForALinkSinceTheScanIsChangedFromNoList) {
  TempDir elsewhere;
  ASSERT_EQ(std::system(("cp -a '" + d / "work" + "' '" + elsewhere.path() + "/'").c_str()), 0);
  MainWindow w;
  open(w);
  clickFolder(w, "work");
  FileListPane& files = w.filesPane();
  FileListPane& top = w.topPane();
  ASSERT_EQ(files.model().rowCount(), 3);
  ASSERT_EQ(::rename((d / "work").c_str(), (d / "work.moved").c_str()), 0);
  ASSERT_EQ(::symlink((elsewhere / "work").c_str(), (d / "work").c_str()), 0);

  select(top, {"inner"});
  ASSERT_EQ(top.selectedRowsDescending().size(), 1u);
  top.bar().control(cmd::files::Trash)->trigger();
  select(files, {"a.txt"});
  const int row = files.selectedRowsDescending().front();
  EXPECT_FALSE(files.model().setData(files.model().index(row, 0), "renamed.txt", Qt::EditRole));
  files.bar().control(cmd::files::Delete)->trigger();
  ASSERT_TRUE(QTest::qWaitFor([&] { return !w.session().driver().busy() && !w.session().busy(); }, 5000));

  const QModelIndex work = reportRow(w, "work");
  w.reportPane().view().expand(work);
  const QModelIndex sub = reportRow(w, "sub", work);
  ASSERT_TRUE(sub.isValid());
  const uint32_t subNode = w.reportPane().model().nodeOf(sub);
  w.reportPane().view().setCurrentIndex(sub);
  w.reportPane().deleteFolder(false);
  EXPECT_TRUE(w.session().tree().isLive(subNode)) << "the row went though nothing was deleted";

  EXPECT_EQ(warnings.size(), 4) << warnings.join("\n").toStdString();
  for (const char* name : {"a.txt", "b.txt", "c.txt", "sub/inner"}) {
    EXPECT_TRUE(exists(elsewhere / ("work/" + std::string(name)))) << name;
    EXPECT_TRUE(exists(d / ("work.moved/" + std::string(name)))) << name;
  }
  EXPECT_FALSE(exists(elsewhere / "work/renamed.txt"));
  EXPECT_FALSE(exists(data / "Trash/files/inner"));
}

// A measurement saved elsewhere: the report it gives equals a scan, its files come from the
// import, and what is not on this machine is locked against every change (an export that
// cannot be read: ScanSessionTest).
TEST_F(FileListsTest, AnImportedMeasurementIsBrowsedWithoutTheDisk) {
  const std::string json = config / "scan.json";
  ASSERT_TRUE(exportJsonToFile(d.path(), json, 2).ok);
  MainWindow w;
  open(w);  // the tree read from the disk, for comparison
  const auto& scanned = w.session().tree().node(w.reportPane().model().nodeOf(w.reportPane().model().index(0, 0)));
  const int64_t size = scanned.size, files = scanned.files;
  QSignalSpy imported(&w.session().imports(), &ImportedSources::finished);
  w.session().importFile(json);
  ASSERT_TRUE(imported.wait(10000));
  ASSERT_EQ(w.reportPane().model().rowCount(), 2);
  const QModelIndex root = w.reportPane().model().index(1, 0);
  const uint32_t node = w.reportPane().model().nodeOf(root);
  EXPECT_EQ(w.session().tree().node(node).size, size);
  EXPECT_EQ(w.session().tree().node(node).files, files);
  EXPECT_TRUE(root.data().toString().contains("scan.json"));
  EXPECT_EQ(w.session().tree().text(node), d.path());  // the path itself stays the node's text
  EXPECT_EQ(w.topPane().model().row(0).name, "big.iso");

  // The disk changes behind the import: the list still shows what the import holds, and
  // nothing of a folder that is gone can be deleted.
  ASSERT_EQ(std::system(("rm -r '" + d / "work" + "'").c_str()), 0);
  const QModelIndex work = reportRow(w, "work", root);
  ASSERT_TRUE(work.isValid());
  w.reportPane().view().setCurrentIndex(work);
  FileListPane& list = w.filesPane();
  ASSERT_EQ(list.model().rowCount(), 3);
  EXPECT_TRUE(list.readOnly());
  select(list, {"a.txt"});
  EXPECT_EQ(list.deleteFiles(false), 0);
  EXPECT_EQ(list.model().rowCount(), 3);
  EXPECT_TRUE(w.reportPane().locked(w.reportPane().model().nodeOf(work)));
  EXPECT_FALSE(w.reportPane().locked(w.reportPane().model().nodeOf(w.reportPane().model().index(0, 0))));  // read from the disk

}

}  // namespace
}  // namespace ql::test
