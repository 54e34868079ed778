#include <gtest/gtest.h>
#include <QDir>
#include <QFile>

#include "TestFiles.h"
#include "TestFs.h"
#include "support/Profile.h"

namespace ql {
namespace {

using test::readFile;
using test::writeFile;

class ProfileTest : public ::testing::Test {
 protected:
  test::TempDir dir;
  std::string file = dir / "cfg/Quorlane.ini";
  QString ini = QString::fromStdString(file);
};

TEST_F(ProfileTest, FirstWriteMakesTheFolderAndNamesMeetWhateverTheirCase) {
  EXPECT_EQ(ProfileGetItem("Optionen", "FontSize", "9", ini), "9");
  ASSERT_TRUE(ProfileSetItem("Optionen", "ComboText", "", ini));
  // An empty value is a value, not a missing key.
  EXPECT_EQ(ProfileGetItem("Optionen", "ComboText", "!(nix].-.", ini), "");
  ASSERT_TRUE(ProfileSetItem("optionen", "comboTEXT", "1", ini));  // replaces the line
  EXPECT_EQ(readFile(file), "[Optionen]\nComboText=1\n");
  ASSERT_TRUE(ProfileSetItem("Größen", "Ärger", "ja", ini));  // umlauts fold as well
  EXPECT_EQ(ProfileGetItem("GRÖßEN", "ärger", "-", ini), "ja");
}

// Comments, unknown keys and bytes that are not UTF-8 stay; every copy of a deleted section goes.
TEST_F(ProfileTest, WritingKeepsEverythingItDoesNotTouch) {
  writeFile(file,
           "; by hand\r\n[Allgemein]\r\nUnbekannt = something else \r\n\r\n"
           "[Optionen]\n# comment\nFontSize=9\nlatin1=\xe4\xf6\n\n"
           "[ComboOrdner]\nO0=/a\n[Fremd]\nx=1\n[comboordner]\nO5=stale\n");
  ASSERT_TRUE(ProfileSetItem("Optionen", "FontSize", "11", ini));
  ASSERT_TRUE(ProfileSetItem("Optionen", "BigIcons", "1", ini));
  ASSERT_TRUE(ProfileDeleteSection("COMBOordner", ini));
  ASSERT_TRUE(ProfileSetItem("ComboOrdner", "O0", "/c", ini));
  EXPECT_EQ(readFile(file),
            "; by hand\n[Allgemein]\nUnbekannt = something else \n\n"
            "[Optionen]\n# comment\nFontSize=11\nlatin1=\xe4\xf6\nBigIcons=1\n\n"
            "[Fremd]\nx=1\n\n[ComboOrdner]\nO0=/c\n");
  EXPECT_EQ(ProfileGetItem("Allgemein", "unbekannt", "", ini), "something else");
}

TEST_F(ProfileTest, ValuesComeBackAsTheyWereWrittenAndAreCutAt2047Characters) {
  for (const QString value : {" leading and trailing ", "\"quoted\"", "a=b=c", "Grüße 𝄞"}) {
    ASSERT_TRUE(ProfileSetItem("V", "k", value, ini));
    EXPECT_EQ(ProfileGetItem("V", "k", "", ini), value) << value.toStdString();
  }
  // A value never starts a line of its own.
  ASSERT_TRUE(ProfileSetItem("V", "k", "two\nlines\r\n[Injected]", ini));
  EXPECT_EQ(ProfileGetItem("V", "k", "", ini), "two lines  [Injected]");
  EXPECT_EQ(ProfileGetItem("Injected", "k", "none", ini), "none");

  ASSERT_TRUE(ProfileSetItem("V", "long", QString(2046, 'x') + "yz" + QString(952, 'w'), ini));
  EXPECT_EQ(ProfileGetItem("V", "long", "", ini), QString(2046, 'x') + "y");
  // A character outside the BMP is not split.
  ASSERT_TRUE(ProfileSetItem("V", "long", QString(2046, 'x') + "𝄞", ini));
  EXPECT_EQ(ProfileGetItem("V", "long", "", ini), QString(2046, 'x'));
}

ino_t inode(const QString& path) {
  struct stat st {};
  return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? st.st_ino : 0;
}

// A document writes once, and only when something changed. Bytes that are not UTF-8 (a folder
// name) are neither decoded nor cut, and lookups stay right while lines come and go.
TEST_F(ProfileTest, ADocumentKeepsBytesAndWritesOnlyWhenSomethingChanged) {
  writeFile(file, "[A]\nx=1\n[B]\nlatin1 = \xe4\xf6 \n[b]\nlatin1=second\n");
  const ino_t before = inode(ini);  // every real write replaces the file
  ProfileDocument doc(ini);
  doc.set("a", "X", "1");
  EXPECT_TRUE(doc.save());
  EXPECT_EQ(inode(ini), before);
  doc.setBytes("A", "new", " \xff\xfe\r\n[B]");
  doc.setBytes("A", "long", QByteArray(3000, 'p'));
  EXPECT_EQ(doc.getBytes("b", "LATIN1", "-"), "\xe4\xf6");  // behind the inserted lines
  doc.deleteSection("B");
  EXPECT_EQ(doc.getBytes("B", "latin1", "gone"), "gone");
  EXPECT_EQ(ProfileGetItem("A", "new", "-", ini), "-");  // nothing written yet
  ASSERT_TRUE(doc.save());
  const ProfileDocument back(ini);
  EXPECT_EQ(back.getBytes("A", "new", "-"), " \xff\xfe  [B]");
  EXPECT_EQ(back.getBytes("A", "long", "-").size(), 3000);
  EXPECT_EQ(back.getBytes("a", "X", "-"), "1");
}

// A write that cannot complete leaves the old file as it was, and no stray file beside it; a file
// that may be written but not read is never replaced. Only root can become another user.
TEST_F(ProfileTest, AFailedWriteLeavesTheOldFileWhole) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to drop to another user";
  // In a sticky folder the other user may make the temporary file but not rename it over ours.
  const std::string folder = dir / "sticky", sticky = folder + "/Quorlane.ini";
  const std::string secret = dir / "secret.ini";
  const QByteArray old = "[Optionen]\nFontSize=9\n; comment\n";
  writeFile(sticky, old);
  writeFile(secret, "[A]\nk=1\n");
  ASSERT_EQ(::chmod(folder.c_str(), 01777) | ::chmod(sticky.c_str(), 0666), 0);
  ASSERT_EQ(::chmod(secret.c_str(), 0622) | ::chmod(dir.path().c_str(), 0777), 0);

  const std::string out = test::inChild([&] {
    if (!test::dropRoot()) return std::string("setuid failed");
    const auto set = [](const std::string& f) {
      return ProfileSetItem("A", "j", "2", QString::fromStdString(f)) ? "1" : "0";
    };
    return std::string(set(sticky)) + set(secret);
  });
  ASSERT_EQ(out, "00");
  EXPECT_EQ(readFile(sticky), old);
  EXPECT_EQ(QDir(QString::fromStdString(folder)).entryList(QDir::Files | QDir::Hidden),
            QStringList{"Quorlane.ini"});
  EXPECT_EQ(readFile(secret), "[A]\nk=1\n");
}

}  // namespace
}  // namespace ql
