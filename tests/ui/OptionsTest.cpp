// The options dialog as the user meets it (what counts as a change, OK, Cancel, Apply, and the
// file-manager entry following the settings file), and the window taking the section back after
// it has closed.

#include <QApplication>
#include <QCheckBox>
#include <QFile>
#include <QPushButton>
#include <QSettings>
#include <QTimer>
#include <QSignalSpy>

#include "TestApp.h"
#include "TestFs.h"
#include "support/Globals.h"
#include "support/Profile.h"
#include "app/Settings.h"
#include "ui/CommandIds.h"
#include "ui/MainWindow.h"
#include "ui/dialogs/frmOptionen.h"

namespace ql::test {
namespace {

class OptionsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    guiApp();
    globals().IniFile = ini;
    qputenv("XDG_DATA_HOME", QFile::encodeName(QString::fromStdString(data.path())));
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, QString::fromStdString(data.path()));
  }
  QString get(const char* key) { return GetSettings(QStringLiteral("Optionen"), QLatin1String(key), QStringLiteral("-")); }
  void set(const char* key, const char* value) {
    ProfileSetItem(QStringLiteral("Optionen"), QLatin1String(key), QLatin1String(value), ini);
  }
  bool entry() const { return QFile::exists(QString::fromStdString(data / "applications/quorlane-folder.desktop")); }

  TempDir data;
  const QString ini = QString::fromStdString(data / "Quorlane.ini");
};

TEST_F(OptionsTest, OpeningBringsTheEntryInLineWithTheFile) {
  {
    frmOptionen f;  // nothing in the file: the entry is wanted, one instance, the rest off
    EXPECT_TRUE(f.chkKontextmenu->isChecked());
    EXPECT_TRUE(f.chkInstanz->isChecked());
    EXPECT_FALSE(f.chkDontShowHardlinks->isChecked());
    EXPECT_FALSE(f.chkFolderColorFade->isChecked());
    EXPECT_TRUE(entry());
  }
  set("Kontextmenu", "0");
  { frmOptionen f; }
  EXPECT_FALSE(entry());
  set("Kontextmenu", "1");
  set("NoHardlinks", "abc");  // a damaged value reads as off
  {
    frmOptionen f;
    EXPECT_FALSE(f.chkDontShowHardlinks->isChecked());
  }
  EXPECT_TRUE(entry());  // put back after a hand removal
}

TEST_F(OptionsTest, ChangesCountOnlyOnceShownAndApplyStandsAfterCancel) {
  set("Instanz", "1");
  frmOptionen f;
  f.chkFolderColorFade->click();  // before the dialog is up: loading, not a change
  EXPECT_FALSE(f.changed());
  EXPECT_FALSE(f.cmdApply->isEnabled());
  f.show();
  ASSERT_TRUE(f.loaded());

  f.chkInstanz->click();
  f.chkKontextmenu->click();
  EXPECT_TRUE(f.changed());
  ASSERT_TRUE(f.cmdApply->isEnabled());
  f.cmdApply->click();
  EXPECT_FALSE(f.cmdApply->isEnabled());  // until the next change
  EXPECT_EQ(get("Instanz"), "0");
  EXPECT_EQ(get("Kontextmenu"), "0");
  EXPECT_EQ(get("FolderColorFade"), "1");
  EXPECT_FALSE(entry());
  f.chkDontShowHardlinks->click();
  EXPECT_TRUE(f.cmdApply->isEnabled());
  f.cmdCancel->click();
  EXPECT_EQ(f.result(), QDialog::Rejected);
  EXPECT_EQ(get("Instanz"), "0");  // what Apply wrote stands
  EXPECT_EQ(get("NoHardlinks"), "0");
}

// Runs `act` on the modal dialog the window opens with `command`; returns its name.
QString withDialog(MainWindow& w, int command, const std::function<void(QDialog*)>& act) {
  QString shown;
  QTimer::singleShot(0, [&] {
    if (auto* d = qobject_cast<QDialog*>(QApplication::activeModalWidget())) {
      shown = d->objectName();
      act(d);
    }
  });
  w.cbrMain_Execute(command);
  return shown;
}

TEST_F(OptionsTest, TheWindowTakesTheSectionBackAfterTheDialog) {
  TempDir d;
  makeDir(d / "sub");
  makeFile(d / "sub/f", 100);
  ASSERT_EQ(::symlink((d / "sub").c_str(), (d / "link").c_str()), 0);
  MainWindow w;
  w.show();
  QCoreApplication::processEvents();
  EXPECT_EQ(withDialog(w, cmd::main::Options, [](QDialog* d) {
              auto* f = static_cast<frmOptionen*>(d);
              f->chkDontShowHardlinks->click();
              f->cmdOK->click();
            }),
            "frmOptionen");
  EXPECT_EQ(get("NoHardlinks"), "1");

  QSignalSpy finished(&w.session().driver(), &ScanDriver::finished);
  w.session().readSources({d.path()});
  ASSERT_TRUE(finished.wait(10000));
  const QModelIndex root = w.reportPane().model().index(0, 0);
  ASSERT_EQ(w.reportPane().model().rowCount(root), 1);  // the link to a folder is left out at once
  EXPECT_EQ(w.reportPane().model().index(0, 0, root).data().toString(), "sub");
}

}  // namespace
}  // namespace ql::test
