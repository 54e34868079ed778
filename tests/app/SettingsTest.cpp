#include <gtest/gtest.h>
#include <QElapsedTimer>
#include <functional>

#include "TestFiles.h"
#include "TestFs.h"
#include "support/Globals.h"
#include "app/Settings.h"
#include "failure/FailureReport.h"

namespace ql {
namespace {

using Paths = std::vector<std::string>;

class SettingsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    test::ensureApp();
    globals().DataFolder = QString::fromStdString(dir.path());  // failure reports land here
    globals().IniFile = ini;
  }
  void write(const QByteArray& bytes) { test::writeFile(ini, bytes); }
  QByteArray content() { return test::readFile(ini); }

  test::TempDir dir;
  QString ini = QString::fromStdString(dir / "Quorlane.ini");
};

// A settings file that is huge or no file at all (a link to /dev/zero, a pipe) reads as no keys
// at once, is reported once and is never written over. Each case runs in a child that a hang or
// an exhausted memory cannot take the test run down with.
TEST_F(SettingsTest, ADamagedFileReadsAsDefaultsAndIsNeverWrittenOver) {
  const std::string link = dir / "Quorlane.ini";
  const std::function<void()> makers[] = {
      [&] { test::makeFile(link, 100 << 20); },
      [&] { ASSERT_EQ(::symlink("/dev/zero", link.c_str()), 0); },
      [&] { ASSERT_EQ(::mkfifo(link.c_str(), 0644), 0); },
  };
  for (const auto& make : makers) {
    ::unlink(link.c_str());
    make();
    struct stat before {}, after {};
    ASSERT_EQ(::lstat(link.c_str(), &before), 0);
    const std::string out = test::inChild([&] {
      ::alarm(20);
      QElapsedTimer clock;
      clock.start();
      const int failures = failureCount();
      MainOptions o;
      std::string r = OptionenLadenMain(o) ? "loaded" : "failed";
      r += o.FontSize == 9 && o.Instanz == 1 && o.FileSizeFormatDrive == 3 ? " defaults" : " odd";
      r += OptionenSpeichernMain(o) || StoreSettings("Allgemein", "Lang", 9) ? " written" : "";
      r += GetSettings("Optionen", "FontSize") == "9" ? "" : " odd";
      r += " reports " + std::to_string(failureCount() - failures);
      return clock.elapsed() < 2000 ? r : r + " slow";
    });
    EXPECT_EQ(out, "loaded defaults reports 1") << link;
    ASSERT_EQ(::lstat(link.c_str(), &after), 0);
    EXPECT_EQ(std::tie(after.st_ino, after.st_size, after.st_mode),
              std::tie(before.st_ino, before.st_size, before.st_mode));
  }
}

// Numbers read the way they were written by hand; a value that does not convert stops the load
// there: what came before stands, the rest stays 0 instead of taking its default, and the failure
// is reported.
TEST_F(SettingsTest, NumbersAsWrittenByHandAndABadValueEndsTheLoad) {
  write("[Optionen]\nFileSizeFormat= 3 \nNoHardlinks=2\nFontSize=10,5\n");
  MainOptions hand;
  ASSERT_TRUE(OptionenLadenMain(hand));
  // NoHardlinks may be any byte; the scan tests it against 0.
  EXPECT_EQ(std::tuple(hand.FileSizeFormat, hand.NoHardlinks, hand.FontSize), std::tuple(3, 2, 10.5));

  for (const char* bad : {"abc", "300"}) {
    SCOPED_TRACE(bad);
    write(QByteArray("[Optionen]\nFileSizeFormat=2\nToplistVisible=") + bad + "\nColPercentVisible=1\n");
    const int failures = failureCount();
    MainOptions o;
    EXPECT_FALSE(OptionenLadenMain(o));
    EXPECT_EQ(failureCount(), failures + 1);
    EXPECT_EQ(o.FileSizeFormat, 2);       // from the file, before the bad key
    EXPECT_EQ(o.ColPercentVisible, 0);    // in the file, but behind the bad key
    EXPECT_EQ(o.FontSize, 0.0);           // default 9, behind the bad key
  }
}

TEST_F(SettingsTest, AListEndsAtTheFirstGapAndTheLastTenFoldersAreKeptNewestFirst) {
  write("[ComboOrdner]\nO0=old\nO1=\nO10=stale\nO11=stale\n[Optionen]\nComboText=/f3\n"
        "[DriveFolders]\nF0=/net/x/\nF2=/net/z/\n");
  EXPECT_EQ(GetAllSavedComboFolders().folders, (Paths{"old", ""}));
  EXPECT_EQ(LoadSavedNetworkFolders(), Paths{"/net/x/"});
  QList<ComboItem> items{{"/", 3}, {" \t ", kComboFolderImage}};  // a drive entry and a blank one
  for (int i = 1; i <= 11; ++i) items.append({"/f" + std::to_string(i), kComboFolderImage});
  ASSERT_TRUE(SaveAllComboFolders(items));
  EXPECT_EQ(GetAllSavedComboFolders().folders,
            (Paths{"/f11", "/f10", "/f9", "/f8", "/f7", "/f6", "/f5", "/f4", "/f3", "/f2"}));
  EXPECT_FALSE(content().contains("stale"));
  EXPECT_EQ(GetAllSavedComboFolders().comboText, "/f3");  // another section's key survives
}

// Folder names are bytes: what is not UTF-8, differs only in case or needs quotes comes back.
TEST_F(SettingsTest, FoldersKeepTheirBytes) {
  const Paths paths{"/b/", "/b/", "/B/", "/home/M\xfcller/\xff\xfe", " /lead and trail ", "\"q\""};
  ASSERT_TRUE(SaveNetworkFolders(paths));
  EXPECT_EQ(LoadSavedNetworkFolders(), paths);
  QList<ComboItem> items;
  for (auto it = paths.rbegin(); it != paths.rend(); ++it) items.append({*it, kComboFolderImage});
  ASSERT_TRUE(SaveAllComboFolders(items));
  EXPECT_EQ(GetAllSavedComboFolders().folders, paths);
  EXPECT_TRUE(content().contains("O3=/home/M\xfcller/\xff\xfe\n"));
}

std::string text(const FormPosition& p) {
  return std::to_string(p.WindowState) + " " + std::to_string(p.Left) + " " + std::to_string(p.Top) + " " +
         std::to_string(p.Width) + " " + std::to_string(p.Height) + " " + std::to_string(p.TVW);
}

TEST_F(SettingsTest, WindowPositionIsCorrectedForTheScreen) {
  const int sw = 28800, sh = 16200;
  const struct {
    FormPosition in;
    const char* out;
  } cases[] = {
      {{0, -1, -15, 11715, 8190, 3675}, "0 0 0 11715 8190 3675"},
      {{0, sw, sh, 11715, 8190, 3675}, "0 28800 16200 11715 8190 3675"},
      {{0, sw + 1, sh + 1, 50000, 90000, 3675}, "0 0 0 50000 90000 3675"},  // the size stays
      {{2, 10, 10, 5000, 4000, 5001}, "2 10 10 5000 4000 2190"},
  };
  for (const auto& c : cases) EXPECT_EQ(text(correctFormPosition(c.in, sw, sh)), c.out);
  EXPECT_EQ(windowStateAtStart(1), 0);  // never starts minimised
}

// A damaged value costs that value only, and says so.
TEST_F(SettingsTest, ADamagedWindowPositionCostsThatValueOnly) {
  write("[Form]\nWidth=breit\nHeight=6000\nLeft=10\n");
  const int failures = failureCount();
  const FormPosition p = FensterpositionLaden(28800, 16200);
  EXPECT_EQ(failureCount(), failures + 1);
  EXPECT_EQ(p.Width, 18000);
  EXPECT_EQ(p.Height, 6000);
}

}  // namespace
}  // namespace ql
