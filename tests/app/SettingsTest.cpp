#include <gtest/gtest.h>
#include <QDir>
#include <QFile>

#include "TestFs.h"
#include "app/Globals.h"
#include "app/Settings.h"
#include "failure/FailureReport.h"

namespace ql {
namespace {

class SettingsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    test::ensureApp();
    globals().Datapath = QString::fromStdString(dir.path());  // failure reports land here
    globals().IniFile = ini;
  }
  void write(const QByteArray& bytes) {
    QFile f(ini);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(bytes);
  }
  QByteArray content() {
    QFile f(ini);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
  }

  test::TempDir dir;
  QString ini = QString::fromStdString(dir / "Quorlane.ini");
};

TEST_F(SettingsTest, AFirstStartGetsTheTableDefaults) {
  MainOptions o;
  ASSERT_TRUE(OptionenLadenMain(o));
  EXPECT_EQ(o.Kontextmenu, 99);
  EXPECT_EQ(o.Instanz, 1);
  EXPECT_EQ(o.FileSizeFormat, 0);
  EXPECT_EQ(o.FileSizeFormatDrive, 3);
  EXPECT_EQ(o.FileSizeFormatFiles, 2);
  EXPECT_EQ(o.ToplistVisible, 0);
  EXPECT_EQ(o.ColFolderVisible, 1);
  EXPECT_EQ(o.FileColumn[6], 1);
  EXPECT_EQ(o.TopColumn[7], 1);
  EXPECT_EQ(o.FontSize, 9.0);
  EXPECT_EQ(o.SymbolText, 1);
  EXPECT_EQ(o.FilePreview, 0);
  EXPECT_EQ(GetSettings("InternetUpdate", "Dpath"), "%TEMP%");
  EXPECT_EQ(GetSettings("Allgemein", "Lang"), "0");
  EXPECT_FALSE(QFile::exists(ini));  // reading makes no file
}

// A value that does not convert stops the load there: what came before stands, the rest stays
// 0 instead of taking its default, and the failure is reported.
TEST_F(SettingsTest, ABadValueEndsTheLoad) {
  for (const char* bad : {"abc", "", "300", "-1", "1x"}) {
    SCOPED_TRACE(bad);
    write(QByteArray("[Optionen]\nFileSizeFormat=2\nToplistVisible=") + bad +
          "\nColPercentVisible=1\nFontSize=12\n");
    const int failures = failureCount();
    MainOptions o;
    EXPECT_FALSE(OptionenLadenMain(o));
    EXPECT_EQ(failureCount(), failures + 1);
    EXPECT_EQ(o.FileSizeFormat, 2);       // from the file, before the bad key
    EXPECT_EQ(o.FileSizeFormatDrive, 3);  // default, before the bad key
    EXPECT_EQ(o.FilelistVisible, 1);
    EXPECT_EQ(o.ToplistVisible, 0);
    EXPECT_EQ(o.ColPercentVisible, 0);  // in the file, but behind the bad key
    EXPECT_EQ(o.ColFolderVisible, 0);   // default 1, behind the bad key
    EXPECT_EQ(o.FontSize, 0.0);
    EXPECT_EQ(o.SymbolText, 0);
  }
}

TEST_F(SettingsTest, NumbersReadTheWayTheyWereWrittenByHand) {
  write("[Optionen]\nFileSizeFormat= 3 \nNoHardlinks=2\nFontSize=10,5\nSymboltext=0\n");
  MainOptions o;
  ASSERT_TRUE(OptionenLadenMain(o));
  EXPECT_EQ(o.FileSizeFormat, 3);
  EXPECT_EQ(o.NoHardlinks, 2);  // any byte; the scan tests it against 0
  EXPECT_EQ(o.FontSize, 10.5);
  EXPECT_EQ(o.SymbolText, 0);
}

TEST_F(SettingsTest, SavedOptionsReadBackAndTheDialogsKeysAreLeftAlone) {
  write("[Optionen]\nNoHardlinks=1\nKontextmenu=0\n");
  MainOptions o;
  ASSERT_TRUE(OptionenLadenMain(o));
  o.NoHardlinks = 0;  // the dialog writes this one itself
  o.Kontextmenu = 1;
  o.FileSizeFormatTop = 1;
  o.SizeFormatNachkommastellenDrive = 0;
  o.DiskinfoVisible = 0;
  o.ToplistVisible = 1;
  o.ColFileVisible = 0;
  o.FileColumn[3] = 0;
  o.TopColumn[7] = 0;
  o.FontSize = 11.25;
  o.BigIcons = 1;
  o.SymbolText = 0;
  o.FilelistTile = 1;
  o.ComboText = " /home/a b ";
  ASSERT_TRUE(OptionenSpeichernMain(o));
  EXPECT_TRUE(content().contains("\nSymbolText=0\n"));
  EXPECT_FALSE(content().contains("Symboltext"));

  MainOptions back;
  ASSERT_TRUE(OptionenLadenMain(back));
  EXPECT_EQ(back.NoHardlinks, 1);
  EXPECT_EQ(back.Kontextmenu, 0);
  EXPECT_EQ(back.FileSizeFormatTop, 1);
  EXPECT_EQ(back.SizeFormatNachkommastellenDrive, 0);
  EXPECT_EQ(back.DiskinfoVisible, 0);
  EXPECT_EQ(back.ToplistVisible, 1);
  EXPECT_EQ(back.ColFileVisible, 0);
  for (int i = 0; i < 7; ++i) EXPECT_EQ(back.FileColumn[i], i == 3 ? 0 : 1) << i;
  for (int i = 0; i < 8; ++i) EXPECT_EQ(back.TopColumn[i], i == 7 ? 0 : 1) << i;
  EXPECT_EQ(back.FontSize, 11.25);
  EXPECT_EQ(back.BigIcons, 1);
  EXPECT_EQ(back.SymbolText, 0);
  EXPECT_EQ(back.FilelistTile, 1);
  EXPECT_EQ(back.ComboText, " /home/a b ");
  EXPECT_EQ(GetAllSavedComboFolders().comboText, " /home/a b ");
}

TEST_F(SettingsTest, AListEndsAtTheFirstGap) {
  write("[ComboOrdner]\nO0=/a\nO1=\nO3=/d\n[DriveFolders]\nF0=/net/x/\nF2=/net/z/\n");
  EXPECT_EQ(GetAllSavedComboFolders().folders, (QStringList{"/a", ""}));
  EXPECT_EQ(LoadSavedNetworkFolders(), QStringList{"/net/x/"});
}

TEST_F(SettingsTest, TheLastTenFolderEntriesAreKeptNewestFirst) {
  write("[ComboOrdner]\nO0=old\nO10=stale\nO11=stale\n[Optionen]\nComboText=/f3\n");
  QList<ComboItem> items{{"/", 3}};  // a drive entry
  for (int i = 1; i <= 11; ++i) items.append({QStringLiteral("/f%1").arg(i), kComboFolderImage});
  items.insert(5, {"   ", kComboFolderImage});
  ASSERT_TRUE(SaveAllComboFolders(items));
  const QStringList expected{"/f11", "/f10", "/f9", "/f8", "/f7",
                             "/f6",  "/f5",  "/f4", "/f3", "/f2"};
  EXPECT_EQ(GetAllSavedComboFolders().folders, expected);
  EXPECT_FALSE(content().contains("stale"));
  EXPECT_EQ(GetAllSavedComboFolders().comboText, "/f3");  // another section's key survives

  ASSERT_TRUE(SaveAllComboFolders({}));
  EXPECT_TRUE(GetAllSavedComboFolders().folders.isEmpty());
}

TEST_F(SettingsTest, NetworkFoldersAreWrittenAnew) {
  write("[DriveFolders]\nF0=/a/\nF1=/b/\nF2=/c/\n");
  ASSERT_TRUE(SaveNetworkFolders({"/b/", "/b/"}));
  EXPECT_EQ(LoadSavedNetworkFolders(), (QStringList{"/b/", "/b/"}));
}

TEST_F(SettingsTest, WindowPositionIsCorrectedForTheScreen) {
  const int sw = 28800, sh = 16200;
  const struct {
    FormPosition in;
    FormPosition out;
  } cases[] = {
      {{0, 100, 200, 11715, 8190, 3675}, {0, 100, 200, 11715, 8190, 3675}},
      {{0, -1, -15, 11715, 8190, 3675}, {0, 0, 0, 11715, 8190, 3675}},
      {{0, sw, sh, 11715, 8190, 3675}, {0, sw, sh, 11715, 8190, 3675}},
      {{0, sw + 1, sh + 1, 50000, 90000, 3675}, {0, 0, 0, 50000, 90000, 3675}},  // size stays
      {{2, 10, 10, 5000, 4000, 5000}, {2, 10, 10, 5000, 4000, 5000}},
      {{2, 10, 10, 5000, 4000, 5001}, {2, 10, 10, 5000, 4000, 2190}},
  };
  for (const auto& c : cases) {
    const FormPosition p = correctFormPosition(c.in, sw, sh);
    EXPECT_EQ(p.Left, c.out.Left);
    EXPECT_EQ(p.Top, c.out.Top);
    EXPECT_EQ(p.Width, c.out.Width);
    EXPECT_EQ(p.Height, c.out.Height);
    EXPECT_EQ(p.TVW, c.out.TVW);
    EXPECT_EQ(p.WindowState, c.out.WindowState);
  }
  EXPECT_EQ(windowStateAtStart(0), 0);
  EXPECT_EQ(windowStateAtStart(1), 0);
  EXPECT_EQ(windowStateAtStart(2), 2);
}

TEST_F(SettingsTest, WindowPositionReadsCentredByDefaultAndRoundTrips) {
  FormPosition p = FensterpositionLaden(28800, 16200);
  EXPECT_EQ(p.Width, 11715);
  EXPECT_EQ(p.Height, 8190);
  EXPECT_EQ(p.Left, 14400 - 5857);
  EXPECT_EQ(p.Top, 8100 - 4095);
  EXPECT_EQ(p.TVW, 3675);
  EXPECT_EQ(p.WindowState, 0);

  ASSERT_TRUE(FensterpositionSpeichern({1, 300, 400, 9000, 7000, 9500}));
  EXPECT_TRUE(content().contains("WindowState=1\n"));  // written as it was
  p = FensterpositionLaden(28800, 16200);
  EXPECT_EQ(p.WindowState, 0);
  EXPECT_EQ(p.Left, 300);
  EXPECT_EQ(p.Top, 400);
  EXPECT_EQ(p.Width, 9000);
  EXPECT_EQ(p.Height, 7000);
  EXPECT_EQ(p.TVW, 2190);

  // A damaged value costs that value only, and says so.
  write("[Form]\nWidth=breit\nHeight=6000\nLeft=10\n");
  const int failures = failureCount();
  p = FensterpositionLaden(28800, 16200);
  EXPECT_EQ(failureCount(), failures + 1);
  EXPECT_EQ(p.Width, 11715);
  EXPECT_EQ(p.Height, 6000);
  EXPECT_EQ(p.Left, 10);
}

TEST_F(SettingsTest, StoreSettingsWritesFlagsAsNumbers) {
  ASSERT_TRUE(StoreSettings("Optionen", "Kontextmenu", true));
  ASSERT_TRUE(StoreSettings("Allgemein", "Lang", 25));
  EXPECT_EQ(GetSettings("optionen", "kontextmenu", "99"), "1");
  EXPECT_EQ(GetSettings("Allgemein", "Lang"), "25");
  const QString other = QString::fromStdString(dir / "other.ini");
  ASSERT_TRUE(StoreSettings("Optionen", "Kontextmenu", false, other));
  EXPECT_EQ(GetSettings("Optionen", "Kontextmenu", "99", other), "0");
  EXPECT_EQ(GetSettings("Optionen", "Kontextmenu", "99"), "1");
}

}  // namespace
}  // namespace ql
