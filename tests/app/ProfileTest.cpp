#include <grp.h>
#include <gtest/gtest.h>
#include <QDir>
#include <QFile>

#include "TestFs.h"
#include "app/Profile.h"

namespace ql {
namespace {

QByteArray readAll(const std::string& path) {
  QFile f(QString::fromStdString(path));
  return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
}

void writeAll(const std::string& path, const QByteArray& bytes) {
  QFile f(QString::fromStdString(path));
  ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
  f.write(bytes);
}

class ProfileTest : public ::testing::Test {
 protected:
  test::TempDir dir;
  QString ini = QString::fromStdString(dir / "cfg/Quorlane.ini");
};

TEST_F(ProfileTest, MissingFileAndKeysGiveTheDefaultAndTheFirstWriteMakesTheFolder) {
  EXPECT_EQ(ProfileGetItem("Optionen", "FontSize", "9", ini), "9");
  ASSERT_TRUE(ProfileSetItem("Optionen", "ComboText", "", ini));
  EXPECT_EQ(readAll(dir / "cfg/Quorlane.ini"), "[Optionen]\nComboText=\n");
  EXPECT_EQ(ProfileGetItem("Optionen", "FontSize", "9", ini), "9");
  // An empty value is a value, not a missing key.
  EXPECT_EQ(ProfileGetItem("Optionen", "ComboText", "!(nix].-.", ini), "");
}

TEST_F(ProfileTest, SectionsAndKeysMeetWhateverTheirCase) {
  ASSERT_TRUE(ProfileSetItem("Optionen", "SymbolText", "0", ini));
  EXPECT_EQ(ProfileGetItem("Optionen", "Symboltext", "1", ini), "0");
  EXPECT_EQ(ProfileGetItem("OPTIONEN", "symboltext", "1", ini), "0");
  // A second write in the other spelling replaces the line instead of adding one.
  ASSERT_TRUE(ProfileSetItem("optionen", "Symboltext", "1", ini));
  EXPECT_EQ(readAll(dir / "cfg/Quorlane.ini"), "[Optionen]\nSymbolText=1\n");
  // Umlauts fold as well.
  ASSERT_TRUE(ProfileSetItem("Größen", "Ärger", "ja", ini));
  EXPECT_EQ(ProfileGetItem("GRÖßEN", "ärger", "-", ini), "ja");
}

TEST_F(ProfileTest, WritingKeepsEverythingItDoesNotTouch) {
  QDir().mkpath(QString::fromStdString(dir / "cfg"));
  const QByteArray before =
      "; written by hand\r\n"
      "[Allgemein]\r\n"
      "Lang=7\r\n"
      "Unbekannt = something else \r\n"
      "\r\n"
      "[Optionen]\n"
      "# another comment\n"
      "FontSize=9\n"
      "latin1=\xe4\xf6\n"
      "\n"
      "[ComboOrdner]\n"
      "O0=/a\n"
      "O1=/b\n"
      "\n"
      "[Fremd]\n"
      "x=1\n";
  writeAll(dir / "cfg/Quorlane.ini", before);
  ASSERT_TRUE(ProfileSetItem("Optionen", "FontSize", "11", ini));
  ASSERT_TRUE(ProfileSetItem("Optionen", "BigIcons", "1", ini));
  ASSERT_TRUE(ProfileDeleteSection("comboordner", ini));
  ASSERT_TRUE(ProfileSetItem("ComboOrdner", "O0", "/c", ini));
  EXPECT_EQ(readAll(dir / "cfg/Quorlane.ini"),
            "; written by hand\n"
            "[Allgemein]\n"
            "Lang=7\n"
            "Unbekannt = something else \n"
            "\n"
            "[Optionen]\n"
            "# another comment\n"
            "FontSize=11\n"
            "latin1=\xe4\xf6\n"
            "BigIcons=1\n"
            "\n"
            "[Fremd]\n"
            "x=1\n"
            "\n"
            "[ComboOrdner]\n"
            "O0=/c\n");
  EXPECT_EQ(ProfileGetItem("Allgemein", "unbekannt", "", ini), "something else");
}

TEST_F(ProfileTest, DeletingASectionRemovesEveryCopyOfIt) {
  QDir().mkpath(QString::fromStdString(dir / "cfg"));
  writeAll(dir / "cfg/Quorlane.ini", "[L]\nO0=a\n[M]\nk=v\n[l]\nO0=stale\nO5=stale\n");
  ASSERT_TRUE(ProfileDeleteSection("L", ini));
  EXPECT_EQ(readAll(dir / "cfg/Quorlane.ini"), "[M]\nk=v\n");
}

TEST_F(ProfileTest, ValuesComeBackAsTheyWereWritten) {
  const struct {
    QString value, expected;
  } cases[] = {
      {"/home/user/Ordner mit Blank", "/home/user/Ordner mit Blank"},
      {" leading and trailing ", " leading and trailing "},
      {"\"quoted\"", "\"quoted\""},
      {"a=b=c", "a=b=c"},
      {"[Section]", "[Section]"},
      {"Grüße 𝄞", "Grüße 𝄞"},
      {"two\nlines\r\n[Injected]", "two lines  [Injected]"},  // a value never starts a line
  };
  for (const auto& c : cases) {
    ASSERT_TRUE(ProfileSetItem("V", "k", c.value, ini));
    EXPECT_EQ(ProfileGetItem("V", "k", "", ini), c.expected) << c.value.toStdString();
    EXPECT_EQ(ProfileGetItem("Injected", "k", "none", ini), "none");
  }
}

TEST_F(ProfileTest, LongValuesAreCutAt2047Characters) {
  const QString longValue = QString(2046, 'x') + "yz" + QString(952, 'w');
  ASSERT_EQ(longValue.size(), 3000);
  ASSERT_TRUE(ProfileSetItem("V", "long", longValue, ini));
  EXPECT_EQ(ProfileGetItem("V", "long", "", ini), QString(2046, 'x') + "y");
  // The default is cut alike, and a character outside the BMP is not split.
  EXPECT_EQ(ProfileGetItem("V", "missing", QString(3000, 'd'), ini).size(), 2047);
  ASSERT_TRUE(ProfileSetItem("V", "long", QString(2046, 'x') + "𝄞", ini));
  EXPECT_EQ(ProfileGetItem("V", "long", "", ini), QString(2046, 'x'));
}

// Bytes that are not UTF-8 (a folder name) are neither decoded nor cut, and lookups stay right
// while lines come and go.
TEST_F(ProfileTest, BytesComeBackAsTheyStand) {
  QDir().mkpath(QString::fromStdString(dir / "cfg"));
  writeAll(dir / "cfg/Quorlane.ini", "[A]\nx=1\n[B]\nlatin1 = \xe4\xf6 \n[b]\nlatin1=second\n");
  ProfileDocument doc(ini);
  EXPECT_EQ(doc.getBytes("b", "LATIN1", "-"), "\xe4\xf6");
  doc.setBytes("A", "new", " \xff\xfe\r\n[B]");
  doc.setBytes("A", "long", QByteArray(3000, 'p'));
  EXPECT_EQ(doc.getBytes("B", "latin1", "-"), "\xe4\xf6");  // behind the inserted lines
  ASSERT_TRUE(doc.save());
  const ProfileDocument back(ini);
  EXPECT_EQ(back.getBytes("A", "new", "-"), " \xff\xfe  [B]");
  EXPECT_EQ(back.getBytes("A", "long", "-").size(), 3000);
  EXPECT_EQ(back.get("A", "long", "-").size(), 2047);
  EXPECT_EQ(back.getBytes("A", "missing", "\xff"), "\xff");
  doc.deleteSection("B");
  EXPECT_EQ(doc.getBytes("B", "latin1", "gone"), "gone");
  EXPECT_EQ(doc.getBytes("a", "X", "-"), "1");
}

ino_t inode(const QString& path) {
  struct stat st {};
  return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? st.st_ino : 0;
}

TEST_F(ProfileTest, ADocumentWritesOnlyWhenSomethingChanged) {
  ASSERT_TRUE(ProfileSetItem("A", "k", "1", ini));
  const ino_t before = inode(ini);  // every real write replaces the file
  ProfileDocument doc(ini);
  doc.set("a", "K", "1");
  EXPECT_FALSE(doc.isModified());
  EXPECT_TRUE(doc.save());
  EXPECT_EQ(inode(ini), before);
  doc.set("A", "k", "2");
  doc.set("B", "n", "3");
  EXPECT_EQ(doc.get("b", "N", ""), "3");
  EXPECT_EQ(ProfileGetItem("A", "k", "", ini), "1");  // nothing written yet
  EXPECT_TRUE(doc.save());
  EXPECT_NE(inode(ini), before);
  EXPECT_EQ(ProfileGetItem("A", "k", "", ini), "2");
}

// A write that cannot complete leaves the old file as it was, and no stray file beside it.
// Only root can take another user's identity to make the final rename fail.
TEST_F(ProfileTest, AFailedWriteLeavesTheOldFileWhole) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to drop to another user";
  // A sticky, world-writable folder: the other user can make the temporary file, but may not
  // rename it over a file that is not theirs.
  const std::string folder = dir / "sticky";
  ASSERT_EQ(::mkdir(folder.c_str(), 0777), 0);
  ASSERT_EQ(::chmod(folder.c_str(), 01777), 0);
  const std::string file = folder + "/Quorlane.ini";
  const QByteArray old = "[Optionen]\nFontSize=9\n; comment\n";
  writeAll(file, old);
  ASSERT_EQ(::chmod(file.c_str(), 0666), 0);
  // And a file the other user may write but not read is never replaced by what little is known.
  const std::string secret = dir / "secret.ini";
  writeAll(secret, "[A]\nk=1\n");
  ASSERT_EQ(::chmod(secret.c_str(), 0622), 0);
  ASSERT_EQ(::chmod(dir.path().c_str(), 0777), 0);

  const std::string out = test::inChild([&] {
    if (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0)
      return std::string("setuid failed");
    std::string r;
    r += ProfileSetItem("Optionen", "FontSize", "12", QString::fromStdString(file)) ? "1" : "0";
    r += ProfileSetItem("A", "j", "2", QString::fromStdString(secret)) ? "1" : "0";
    return r;
  });
  ASSERT_EQ(out, "00");
  EXPECT_EQ(readAll(file), old);
  EXPECT_EQ(QDir(QString::fromStdString(folder)).entryList(QDir::Files | QDir::Hidden),
            QStringList{"Quorlane.ini"});
  EXPECT_EQ(readAll(secret), "[A]\nk=1\n");
}

}  // namespace
}  // namespace ql
