// The window as a user meets it: sources from the command line, the tree growing, a title
// click, and a close during a scan.

#include <QAbstractItemView>
#include <QAction>
#include <QApplication>
#include <QCompleter>
#include <QFileInfo>
#include <QHeaderView>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QSettings>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <QToolBar>

#include <sys/stat.h>
#include <fstream>
#include "TestApp.h"
#include "TestFs.h"
#include "app/Settings.h"
#include "failure/FailureReport.h"
#include "lang/TL.h"
#include "support/Globals.h"
#include "ui/CommandIds.h"

#include "ui/MainWindow.h"

namespace ql::test {
namespace {

void app() { guiApp(); }

// Shows the window and lets its first activation run, as on a real start.
void bringUp(MainWindow& w) {
  w.show();
  QCoreApplication::processEvents();
}

class MainWindowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    app();
    // Settings file and bar layouts in a folder of the test's own.
    globals().IniFile = QString::fromStdString(config / "Quorlane.ini");
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, QString::fromStdString(config.path()));
    for (auto [name, size] : {std::pair{"small", 10}, {"large", 1000}, {"medium", 100}}) {
      makeDir(d / name);
      makeFile(d / (std::string(name) + "/f"), size);
    }
  }
  TempDir d, config;
};

TEST_F(MainWindowTest, ReadsTheCommandLineAndSortsByTitleClicks) {
  MainWindow w;
  bringUp(w);
  QSignalSpy finished(&w.session().driver(), &ScanDriver::finished);
  w.session().readSources({d.path(), d / "missing"});
  ASSERT_TRUE(finished.wait(10000));
  ReportModel& m = w.reportPane().model();
  ASSERT_EQ(m.rowCount(), 1);  // the missing source is dropped without a word
  const QModelIndex root = m.index(0, 0);
  EXPECT_TRUE(w.reportPane().view().isExpanded(root));
  ASSERT_EQ(m.rowCount(root), 3);
  EXPECT_EQ(m.index(0, 0, root).data().toString(), "large");  // largest first after the scan
  EXPECT_EQ(w.reportPane().view().currentIndex(), root);

  // A real click on the name title: by name, and the selection goes to the first row.
  QHeaderView* header = w.reportPane().view().header();
  const QPoint name(header->sectionViewportPosition(0) + 5, header->height() / 2);
  QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, name);
  EXPECT_EQ(m.index(0, 0, root).data().toString(), "large");
  EXPECT_EQ(m.index(2, 0, root).data().toString(), "small");
  QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, name);
  EXPECT_EQ(m.index(0, 0, root).data().toString(), "small");
  EXPECT_EQ(w.reportPane().view().currentIndex().row(), 0);
}

TEST_F(MainWindowTest, ClosingDuringAScanOnlyStopsIt) {
  for (int i = 0; i < 40; ++i) {
    makeDir(d / ("w" + std::to_string(i)));
    for (int j = 0; j < 40; ++j) makeDir(d / ("w" + std::to_string(i) + "/" + std::to_string(j)));
  }
  MainWindow w;
  bringUp(w);
  QSignalSpy finished(&w.session().driver(), &ScanDriver::finished);
  w.session().readSources({d.path(), d.path()});
  ASSERT_TRUE(w.session().busy());
  EXPECT_FALSE(w.close());  // refused: the walk is asked to stop instead
  EXPECT_TRUE(w.isVisible());
  ASSERT_TRUE(finished.wait(10000));
  EXPECT_EQ(w.reportPane().model().rowCount(), 1);  // the second source was never read
  EXPECT_FALSE(w.session().stopFlag().requested());
  EXPECT_TRUE(w.close());
}

TEST_F(MainWindowTest, MainCommands) {
  MainWindow w;
  bringUp(w);
  CommandBar& bar = w.cbrMain();
  // Stop is live only while a scan runs.
  EXPECT_FALSE(bar.control(cmd::main::Stop)->isEnabled());
  QSignalSpy finished(&w.session().driver(), &ScanDriver::finished);
  const int drives = w.cboOrdner().count();  // the mounts stand first
  w.cboOrdner().addSource(d.path());
  EXPECT_EQ(w.cboOrdner().count(), drives + 1);
  EXPECT_EQ(w.cboOrdner().addSource(d.path() + "/"), drives);  // known already
  bar.control(cmd::main::Start)->trigger();
  EXPECT_TRUE(bar.control(cmd::main::Stop)->isEnabled());
  EXPECT_FALSE(bar.control(cmd::main::Start)->isEnabled());
  ASSERT_TRUE(finished.wait(10000));
  EXPECT_FALSE(bar.control(cmd::main::Stop)->isEnabled());
  EXPECT_EQ(w.reportPane().model().rowCount(), 1);

  // File list and largest files take each other's place; full view shows the pane alone, and a
  // second click brings the other lists back.
  for (int id : {cmd::main::ShowDrives, cmd::main::ShowFiles, cmd::main::ShowLargest})
    bar.setChecked(id, false);
  w.showPanes();
  bar.control(cmd::main::ShowFiles)->trigger();
  EXPECT_TRUE(w.filesPane().isVisible());
  bar.control(cmd::main::ShowLargest)->trigger();
  EXPECT_FALSE(bar.isChecked(cmd::main::ShowFiles));
  EXPECT_TRUE(w.topPane().isVisible());
  EXPECT_FALSE(w.filesPane().isVisible());
  w.reportPane().bar().control(cmd::report::FullView)->trigger();
  EXPECT_FALSE(w.splMain().Control2Visible());
  w.reportPane().bar().control(cmd::report::FullView)->trigger();
  EXPECT_TRUE(bar.isChecked(cmd::main::ShowLargest));
  EXPECT_TRUE(w.topPane().isVisible());
}

// A page the desktop's opener gives up on (here: no browser) is told in the status bar, with the
// reason, once the opener has ended; the window does not wait for it.
TEST_F(MainWindowTest, AnOpenTheDesktopGivesUpOnIsToldInTheStatusBar) {
  TempDir bin;
  {
    std::ofstream script(bin / "xdg-open");
    script << "#!/bin/sh\nexit 3\n";
  }
  ::chmod((bin / "xdg-open").c_str(), 0755);
  const QByteArray path = qgetenv("PATH");
  qputenv("PATH", QByteArray::fromStdString(bin.path()) + ':' + path);
  MainWindow w;
  bringUp(w);
  initWebHost();
  w.cbrMain().control(cmd::main::Homepage)->trigger();
  EXPECT_TRUE(
      QTest::qWaitFor([&] { return w.statusPanel1().text().contains("Webbrowser"); }, 10000));
  EXPECT_TRUE(w.statusPanel1().text().contains(webHost()));
  qputenv("PATH", path);
}

// Every language is offered, the one of this run marked, and the main part of the button opens
// the menu. A choice is stored only when the restart is agreed to; Cancel puts the mark back.
TEST_F(MainWindowTest, ALanguageIsStoredOnlyWhenTheRestartIsAgreed) {
  StoreSettings("Allgemein", "Lang", kLangGerman);
  FailureReport(Init_Sprache(QString(), QStringLiteral("QuorlaneTL.txt"), false, QString()));
  ASSERT_EQ(language(), kLangGerman);
  MainWindow w;
  bringUp(w);
  MainBar& bar = w.cbrMain();
  QMenu* menu = bar.control(cmd::main::Language)->menu();
  EXPECT_EQ(menu->actions(),
            (QList<QAction*>{bar.control(cmd::main::German), bar.control(cmd::main::English),
                             bar.control(cmd::main::Russian)}));
  EXPECT_TRUE(bar.isChecked(cmd::main::German));
  QWidget* popup = nullptr;
  QTimer::singleShot(100, [&] {  // the menu runs a loop of its own
    popup = QApplication::activePopupWidget();
    if (popup) popup->close();
  });
  QWidget* button = bar.widgetForAction(bar.control(cmd::main::Language));
  QTest::mouseClick(button, Qt::LeftButton, {}, QPoint(button->width() / 3, button->height() / 2));
  EXPECT_EQ(popup, menu);

  QStringList asked;
  const auto answer = [&](QMessageBox::StandardButton button) {
    QTimer::singleShot(0, [&asked, button] {
      if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
        asked << box->text();
        box->button(button)->click();
      }
    });
  };
  answer(QMessageBox::Cancel);
  bar.control(cmd::main::Russian)->trigger();
  ASSERT_EQ(asked.size(), 1);
  EXPECT_FALSE(w.restartRequested());
  EXPECT_EQ(GetSettings("Allgemein", "Lang"), "7");
  EXPECT_TRUE(bar.isChecked(cmd::main::German));
  EXPECT_FALSE(bar.isChecked(cmd::main::Russian));
  answer(QMessageBox::Ok);
  bar.control(cmd::main::English)->trigger();
  ASSERT_EQ(asked.size(), 2);
  EXPECT_TRUE(asked[1].contains("Neustart"));  // in the language of this run
  EXPECT_TRUE(w.restartRequested());
  EXPECT_EQ(GetSettings("Allgemein", "Lang"), "9");
  EXPECT_TRUE(bar.isChecked(cmd::main::English));
}

TEST_F(MainWindowTest, ReportCommands) {
  MainWindow w;
  bringUp(w);
  QSignalSpy finished(&w.session().driver(), &ScanDriver::finished);
  w.session().readSources({d.path()});
  ASSERT_TRUE(finished.wait(10000));
  CommandBar& bar = w.reportPane().bar();
  const QModelIndex root = w.reportPane().model().index(0, 0);
  const auto size = [&] { return w.reportPane().model().index(0, ReportModel::ColSize, root).data().toString(); };
  EXPECT_EQ(size(), "1,000");
  bar.control(cmd::report::Kilobytes)->trigger();  // kilobytes
  EXPECT_EQ(size(), "0.98");
  EXPECT_TRUE(bar.isChecked(cmd::report::Kilobytes));
  EXPECT_FALSE(bar.isChecked(cmd::report::Bytes));
  bar.control(cmd::report::Decimals)->trigger();  // decimals off
  EXPECT_EQ(size(), "1");

  // Expanding by levels keeps the tree's own marks in step with the view.
  bar.control(cmd::report::CollapseAll)->trigger();
  EXPECT_FALSE(w.reportPane().view().isExpanded(root));
  bar.control(cmd::report::ExpandLevels + 1)->trigger();  // two levels
  EXPECT_TRUE(w.reportPane().view().isExpanded(root));
  EXPECT_TRUE(w.session().tree().hasFlag(w.reportPane().model().nodeOf(root), ReportTree::Expanded));

  // The search goes on from the selection and wraps around once.
  w.reportPane().searchBox().setText("ediu");
  w.reportPane().view().setCurrentIndex(w.reportPane().model().index(2, 0, root));  // "small" (the smallest, last)
  bar.control(cmd::report::Search)->trigger();
  EXPECT_EQ(w.reportPane().view().currentIndex().data().toString(), "medium");
  // With nothing selected it begins behind the first row: the source's own row ("/tmp/...")
  // holds an "m" too.
  w.reportPane().view().setCurrentIndex(QModelIndex());
  w.reportPane().searchBox().setText("m");
  bar.control(cmd::report::Search)->trigger();
  EXPECT_EQ(w.reportPane().view().currentIndex().data().toString(), "medium");

  // Counting the space taken reads the source again, and the switch is kept.
  bar.control(cmd::report::Bytes)->trigger();
  bar.control(cmd::report::Allocated)->trigger();
  ASSERT_TRUE(finished.wait(10000));
  int64_t taken = 0;
  for (const char* name : {"small/f", "medium/f", "large/f"}) {
    struct stat st;
    ASSERT_EQ(::stat((d / name).c_str(), &st), 0);
    taken += int64_t{st.st_blocks} * 512;
  }
  const QModelIndex again = w.reportPane().model().index(0, 0);
  EXPECT_EQ(w.session().tree().node(w.reportPane().model().nodeOf(again)).size, taken);
  EXPECT_EQ(GetSettings("Optionen", "SizeAllocated"), "1");
  EXPECT_EQ(w.reportPane().model().rowCount(), 1);  // in its place
}

// The folders of the sources box and the report's unit are kept for the next start; a known
// folder that has gone since is dropped without a word.
TEST_F(MainWindowTest, ClosingKeepsFoldersAndUnitForTheNextStart) {
  {
    MainWindow w;
    bringUp(w);
    w.cboOrdner().addSource(d / "large");
    w.cboOrdner().addSource(d / "gone");
    w.reportPane().bar().control(cmd::report::Megabytes)->trigger();
    ASSERT_TRUE(w.close());
  }
  EXPECT_EQ(GetSettings("ComboOrdner", "O0", "-"), QString::fromStdString(d / "gone"));
  rmdir((d / "gone").c_str());
  MainWindow again;
  bringUp(again);
  EXPECT_EQ(again.reportPane().model().unit(), 2);
  const int drives = static_cast<int>(again.drivePane().comboDrives().size());
  ASSERT_EQ(again.cboOrdner().count(), drives + 1);
  EXPECT_EQ(again.cboOrdner().itemText(drives), QString::fromStdString(d / "large"));
}

// Selects a row by its name below the source and opens the editor with F2, as a user would.
QLineEdit* startRename(MainWindow& w, const QString& name) {
  ReportModel& m = w.reportPane().model();
  w.reportPane().view().setCurrentIndex(childNamed(m, m.index(0, 0), name));
  w.reportPane().view().setFocus();
  QTest::keyClick(&w.reportPane().view(), Qt::Key_F2);
  for (QLineEdit* e : w.reportPane().view().findChildren<QLineEdit*>())  // editors closed before linger a while
    if (e->isVisible()) return e;
  return nullptr;
}

TEST_F(MainWindowTest, RenamingAFolderInPlaceNeverReplacesAnything) {
  MainWindow w;
  bringUp(w);
  QStringList warnings;
  w.setWarningHandler([&](const QString& text) { warnings << text; });
  QSignalSpy finished(&w.session().driver(), &ScanDriver::finished);
  w.session().readSources({d.path()});
  ASSERT_TRUE(finished.wait(10000));

  QLineEdit* editor = startRename(w, "medium");
  ASSERT_NE(editor, nullptr);
  EXPECT_EQ(editor->text(), "medium");  // the editor starts from the name as it is
  editor->setText("renamed");
  QTest::keyClick(editor, Qt::Key_Return);
  QCoreApplication::processEvents();  // the view commits the edit from its event queue
  EXPECT_TRUE(QFileInfo::exists(QString::fromStdString(d / "renamed/f")));
  EXPECT_EQ(w.reportPane().view().currentIndex().data().toString(), "renamed");
  EXPECT_TRUE(w.statusPanel1().text().endsWith("/renamed"));

  editor = startRename(w, "renamed");
  ASSERT_NE(editor, nullptr);
  editor->setText("large");  // taken: an error, and both folders stay as they are
  QTest::keyClick(editor, Qt::Key_Return);
  QCoreApplication::processEvents();
  EXPECT_EQ(warnings.size(), 1);
  EXPECT_TRUE(QFileInfo::exists(QString::fromStdString(d / "renamed/f")));
  EXPECT_EQ(QFileInfo(QString::fromStdString(d / "large/f")).size(), 1000);
  EXPECT_EQ(w.reportPane().view().currentIndex().data().toString(), "renamed");

  // A source itself is not renamed this way.
  w.reportPane().view().setCurrentIndex(w.reportPane().model().index(0, 0));
  QTest::keyClick(&w.reportPane().view(), Qt::Key_F2);
  for (QLineEdit* e : w.reportPane().view().findChildren<QLineEdit*>()) EXPECT_FALSE(e->isVisible());
}


// Runs a command of the report's bar and waits for the scan it may start.
void runAndWait(MainWindow& w, int id) {
  w.reportPane().bar().control(id)->trigger();
  EXPECT_TRUE(QTest::qWaitFor([&] { return !w.session().driver().busy(); }, 10000));
}

TEST_F(MainWindowTest, RemoveAllThenAMissingSourceThenRefreshLeavesTheWindowUsable) {
  // More rows than one block of the tree holds, so a stale row index points far outside it.
  makeDir(d / "many");
  for (int i = 0; i < 4200; ++i) makeDir(d / ("many/" + std::to_string(i)));
  MainWindow w;
  bringUp(w);
  const int failuresBefore = failureCount();
  QSignalSpy finished(&w.session().driver(), &ScanDriver::finished);
  w.session().readSources({d.path()});
  ASSERT_TRUE(finished.wait(10000));
  w.reportPane().bar().control(cmd::report::RemoveAll)->trigger();  // remove all
  EXPECT_EQ(w.reportPane().model().rowCount(), 0);
  QStringList warnings;
  w.setWarningHandler([&](const QString& text) { warnings << text; });
  const int entries = w.cboOrdner().count();
  w.cboOrdner().setEditText(QString::fromStdString(d / "not-there"));
  w.cbrMain().control(cmd::main::Start)->trigger();  // Start: nothing is there to read, and it says so
  EXPECT_TRUE(QTest::qWaitFor([&] { return !w.session().driver().busy(); }, 10000));
  ASSERT_EQ(warnings.size(), 1);
  EXPECT_TRUE(warnings[0].contains("not-there"));
  EXPECT_EQ(w.statusPanel1().text(), warnings[0]);
  EXPECT_EQ(w.cboOrdner().count(), entries);  // and it is not kept in the box
  runAndWait(w, cmd::report::Rescan);  // nothing to read again
  EXPECT_EQ(failureCount(), failuresBefore);
  EXPECT_FALSE(w.session().busy());
  EXPECT_TRUE(w.cbrMain().control(cmd::main::Start)->isEnabled());
  EXPECT_TRUE(w.close());
}

TEST_F(MainWindowTest, SourcesKeepTheirBytes) {
  const std::string odd = d / "caf\xe9 \xff";  // not UTF-8, and a blank inside
  makeDir(odd);
  makeFile(odd + "/f", 7);
  makeDir(d / "Case");
  MainWindow w;
  bringUp(w);
  const int k = w.cboOrdner().count();  // the mounts stand first
  // Names that differ only in case are two folders.
  EXPECT_EQ(w.cboOrdner().addSource(d / "case"), k);
  EXPECT_EQ(w.cboOrdner().addSource(d / "Case"), k + 1);

  // A source given with bytes that are not UTF-8 is read, listed and read again as it is.
  QSignalSpy finished(&w.session().driver(), &ScanDriver::finished);
  w.session().readSources({odd});
  ASSERT_TRUE(finished.wait(10000));
  ASSERT_EQ(w.session().tree().roots().size(), 1u);
  EXPECT_EQ(w.session().tree().text(w.session().tree().roots()[0]), odd);
  EXPECT_EQ(w.session().tree().node(w.session().tree().roots()[0]).size, 7);
  EXPECT_EQ(w.cboOrdner().currentIndex(), k + 2);
  // Start with the entry as shown reads it again, in place of the one shown.
  w.cbrMain().control(cmd::main::Start)->trigger();
  ASSERT_TRUE(finished.wait(10000));
  ASSERT_EQ(w.session().tree().roots().size(), 1u);
  const uint32_t again = w.session().tree().roots()[0];
  EXPECT_EQ(w.session().tree().text(again), odd);
  EXPECT_EQ(w.session().tree().node(again).size, 7);
  EXPECT_EQ(w.reportPane().model().nodeOf(w.reportPane().view().currentIndex()), again);

}

// Typing offers the known folders below the text in a list, but Enter reads what was typed; an
// entry is taken only when picked in the list, and Delete there takes it out of the box.
TEST_F(MainWindowTest, TheSourcesBoxReadsWhatWasTyped) {
  MainWindow w;
  bringUp(w);
  SourcesBox& box = w.cboOrdner();
  const QString large = QString::fromStdString(d / "large");
  box.addSource(d / "large");
  QAbstractItemView* list = box.completer()->popup();
  const auto type = [&](const std::string& text) {
    box.setEditText(QString());
    QTest::keyClicks(box.lineEdit(), QString::fromStdString(text));
    ASSERT_TRUE(list->isVisible());
    ASSERT_EQ(QApplication::activePopupWidget(), list);
  };
  const auto press = [&](int key) { QTest::keyClick(list, Qt::Key(key)); };
  const auto readRoot = [&] {
    EXPECT_TRUE(QTest::qWaitFor([&] { return !w.session().busy(); }, 10000));
    const auto& roots = w.session().tree().roots();
    return roots.empty() ? std::string() : std::string(w.session().tree().text(roots.back()));
  };
  type(d.path());
  EXPECT_EQ(list->model()->index(0, 0).data().toString(), large);
  press(Qt::Key_Return);
  EXPECT_EQ(readRoot(), d.path());

  w.reportPane().bar().control(cmd::report::RemoveAll)->trigger();
  type(d.path());
  press(Qt::Key_Down);
  EXPECT_EQ(list->currentIndex().data().toString(), large);
  press(Qt::Key_Return);
  EXPECT_FALSE(list->isVisible());
  EXPECT_EQ(readRoot(), d / "large");

  const int entries = box.count();
  type(d.path());
  press(Qt::Key_Down);
  press(Qt::Key_Delete);
  EXPECT_EQ(box.count(), entries - 1);
  EXPECT_EQ(box.findText(large), -1);
  EXPECT_EQ(box.currentText(), QString::fromStdString(d.path()));  // what was typed
}

// At the window's first size, with the report fitted to its columns after a read, every command
// of the report's bar stands in view, with small and with big icons; where the pane is made too
// narrow for the search box, the search still works.
TEST_F(MainWindowTest, TheReportBarShowsEveryCommandAtTheFirstSize) {
  MainWindow w;
  bringUp(w);
  ASSERT_EQ(w.size(), QSize(1200, 760));
  QSignalSpy finished(&w.session().driver(), &ScanDriver::finished);
  w.session().readSources({d.path()});
  ASSERT_TRUE(finished.wait(10000));
  CommandBar& bar = w.reportPane().bar();
  for (bool big : {false, true}) {
    if (big) w.cbrMain().control(cmd::main::BigIcons)->trigger();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
    for (int id : bar.ids()) {
      SCOPED_TRACE(std::to_string(id) + (big ? " big" : " small"));
      QWidget* control = nullptr;  // on whichever row of the bar it stands
      for (QToolBar* row : w.reportPane().findChildren<QToolBar*>())
        if (!control) control = row->widgetForAction(bar.control(id));
      ASSERT_NE(control, nullptr);
      EXPECT_TRUE(control->isVisible());
    }
  }

  w.splMain().setPosition(200);
  QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
  ASSERT_FALSE(w.reportPane().searchBox().isVisible());
  bar.control(cmd::report::Search)->trigger();
  auto* field = qobject_cast<QLineEdit*>(QApplication::activePopupWidget());
  ASSERT_NE(field, nullptr);
  QTest::keyClicks(field, "ediu");
  QTest::keyClick(field, Qt::Key_Return);
  EXPECT_EQ(w.reportPane().view().currentIndex().data().toString(), "medium");
}

TEST_F(MainWindowTest, ADeepTreeOpensAsFarAsTheViewCanLayItOut) {
  MainWindow w;
  bringUp(w);
  // A chain of 50,000 folders, as a walk of a deep tree leaves it.
  uint32_t n = w.session().tree().addRoot("/deep");
  const uint32_t root = n;
  for (int i = 0; i < 50000; ++i) n = w.session().tree().addChild(n, "d", ReportTree::IsFolder);
  w.reportPane().bar().control(cmd::report::ExpandAll)->trigger();  // expand all
  QCoreApplication::processEvents();
  const int levels = ReportPane::expandableLevels();
  EXPECT_TRUE(w.statusPanel1().text().contains(QString::number(levels)));
  uint32_t deepestOpen = root;
  while (!w.session().tree().children(deepestOpen).empty() &&
         w.reportPane().view().isExpanded(w.reportPane().model().indexOf(w.session().tree().children(deepestOpen)[0])))
    deepestOpen = w.session().tree().children(deepestOpen)[0];
  EXPECT_EQ(static_cast<int>(w.session().tree().level(deepestOpen)), levels - 1);
  // The view lays everything out again after a sort, and after opening by hand one level deeper.
  Q_EMIT w.reportPane().view().header()->sectionClicked(0);
  w.reportPane().view().expand(w.reportPane().model().indexOf(w.session().tree().children(deepestOpen)[0]));
  QCoreApplication::processEvents();
  EXPECT_FALSE(w.reportPane().view().isExpanded(w.reportPane().model().indexOf(w.session().tree().children(deepestOpen)[0])));
  // The popup's "open everything below" keeps to the same bound.
  w.reportPane().bar().control(cmd::report::CollapseAll)->trigger();
  w.reportPane().view().setCurrentIndex(w.reportPane().model().indexOf(root));
  w.reportPane().expandSubfolders(true);
  QCoreApplication::processEvents();
  EXPECT_TRUE(w.reportPane().view().isExpanded(w.reportPane().model().indexOf(root)));
}

TEST(Guard, AFailingHandlerIsReportedAndTheOwnerRecovers) {
  int recovered = 0;
  const Guard guard([&] { ++recovered; });
  const int before = failureCount();
  guard.run("cmd", [] { throw std::runtime_error("boom"); });
  auto slot = guard.wrap("slot", [](int) { throw std::out_of_range("row"); });
  slot(3);
  auto menuSlot = guard.wrap("menu", [] { throw 42; });  // takes fewer arguments than it is handed
  menuSlot(true);
  EXPECT_EQ(failureCount(), before + 3);
  EXPECT_EQ(recovered, 3);
  guard.run("fine", [] {});
  EXPECT_EQ(recovered, 3);
}
}  // namespace
}  // namespace ql::test
