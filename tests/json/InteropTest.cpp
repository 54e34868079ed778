// Our export read by ncdu and gdu, and theirs read by us: the real programs on one tree with odd
// names, hard links, a sparse file, an empty folder, an unreadable folder and a link to a folder.

#include <gtest/gtest.h>

#include <map>

#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QStringList>
#include <grp.h>

#include <rapidjson/document.h>

#include "TestFiles.h"
#include "TestFs.h"

namespace ql::test {
namespace {

// The user the programs run as when we are root, so that the locked folder is locked for them.
constexpr uid_t kUser = 65534;

struct Outcome {
  int status = -1;
  QByteArray out, err;
};

Outcome run(const QString& program, const QStringList& args, const std::string& home) {
  ensureApp();
  QProcess p;
  QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
  env.insert("HOME", qpath(home));
  env.insert("XDG_CONFIG_HOME", qpath(home));
  env.insert("LC_ALL", "C.UTF-8");
  p.setProcessEnvironment(env);
  if (::geteuid() == 0)
    p.setChildProcessModifier([] {
      if (::setgroups(0, nullptr) != 0 || ::setgid(kUser) != 0 || ::setuid(kUser) != 0) ::_exit(126);
    });
  p.start(program, args);
  EXPECT_TRUE(p.waitForFinished(60000)) << program.toStdString();
  return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, p.readAllStandardOutput(),
          p.readAllStandardError()};
}

void makeFileOf(const std::string& path, size_t bytes) {
  const int fd = ::open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0644);
  ASSERT_GE(fd, 0) << path;
  const std::string data(bytes, 'x');
  ASSERT_EQ(::write(fd, data.data(), data.size()), static_cast<ssize_t>(data.size()));
  ::close(fd);
}

// One tree for every test; names are made with plain system calls, byte for byte.
void makeOddTree(const std::string& t) {
  makeDir(t);
  makeDir(t + "/it's a b");
  makeFileOf(t + "/it's a b/q\"uote", 3000);
  makeDir(t + "/sub");
  makeFileOf(t + "/sub/data", 8192);
  ASSERT_EQ(::link((t + "/it's a b/q\"uote").c_str(), (t + "/sub/hard").c_str()), 0);
  makeDir(t + "/odd\xff");
  makeFileOf(t + "/odd\xff/f\xfe", 2);
  makeFileOf(t + "/back\\slash", 5);
  makeFileOf(t + "/new\nline", 1);
  makeFile(t + "/sparse", 1 << 20);
  makeDir(t + "/empty");
  makeDir(t + "/locked");
  makeFileOf(t + "/locked/inside", 7);
  ASSERT_EQ(::chmod((t + "/locked").c_str(), 0), 0);
  ASSERT_EQ(::symlink("sub", (t + "/dirlink").c_str()), 0);
}

// What an export says about each entry, one line per path; folders end in "/". ncdu keeps a
// file's link count only where it is a hard link, and takes any folder with a count above one
// for a hard link, so the count is compared for files only.
using Flat = std::map<std::string, std::string>;

void flatten(const rapidjson::Value& v, const std::string& parent, Flat& into) {
  const bool folder = v.IsArray();
  const rapidjson::Value& info = folder ? v[0] : v;
  const std::string name(info["name"].GetString(), info["name"].GetStringLength());
  const std::string path = parent.empty() ? "." : parent + "/" + name;
  auto number = [&](const char* key) {
    return std::to_string(info.HasMember(key) ? info[key].GetInt64() : 0);  // absent is 0
  };
  std::string& e = into[folder ? path + "/" : path];
  e = "asize=" + number("asize") + " dsize=" + number("dsize");
  if (!folder && info.HasMember("hlnkc")) e += " links=" + number("nlink");
  if (info.HasMember("notreg")) e += " notreg";
  if (info.HasMember("read_error")) e += " read_error";
  if (info.HasMember("excluded")) e += " excluded";
  if (folder)
    for (rapidjson::SizeType i = 1; i < v.Size(); ++i) flatten(v[i], path, into);
}

Flat flatExport(const std::string& file, std::string* rootName = nullptr) {
  const QByteArray text = readFile(file);
  rapidjson::Document doc;
  doc.Parse(text.constData(), static_cast<size_t>(text.size()));  // names need not be UTF-8
  Flat flat;
  EXPECT_FALSE(doc.HasParseError()) << file;
  if (doc.HasParseError() || !doc.IsArray() || doc.Size() < 4) return flat;
  if (rootName) *rootName = doc[3][0]["name"].GetString();
  flatten(doc[3], "", flat);
  return flat;
}


// The top-level names of an export, in its order.
std::vector<std::string> topNames(const std::string& file) {
  const QByteArray text = readFile(file);
  rapidjson::Document doc;
  doc.Parse(text.constData(), static_cast<size_t>(text.size()));
  std::vector<std::string> names;
  if (doc.HasParseError() || !doc.IsArray() || doc.Size() < 4) return names;
  for (rapidjson::SizeType i = 1; i < doc[3].Size(); ++i) {
    const rapidjson::Value& info = doc[3][i].IsArray() ? doc[3][i][0] : doc[3][i];
    names.emplace_back(info["name"].GetString(), info["name"].GetStringLength());
  }
  return names;
}

// gdu's list, name to size: a flag column, the size, and the name ("/" before a folder's), which
// goes on over the next line when it holds a line break.
std::map<std::string, int64_t> gduList(const QByteArray& out) {
  static const QRegularExpression line("^\\S?\\s*(\\d+) /?(.*)$");
  std::map<std::string, int64_t> list;
  std::string last;
  for (const QByteArray& l : out.split('\n')) {
    const auto m = line.match(QString::fromUtf8(l));
    if (m.hasMatch()) {
      last = m.captured(2).toStdString();
      list[last] = m.captured(1).toLongLong();
    } else if (!last.empty() && !l.isEmpty()) {
      const int64_t size = list[last];
      list.erase(last);
      last += "\n" + l.toStdString();
      list[last] = size;
    }
  }
  return list;
}

QString need(const char* program) {
  return QStandardPaths::findExecutable(program);
}

class Interop : public ::testing::Test {
 protected:
  void SetUp() override {
    makeOddTree(d / "tree");
    makeDir(d / "home");
    ASSERT_EQ(::chown((d / "home").c_str(), kUser, kUser), 0);
  }
  Outcome quorlane(const QStringList& args) { return run(QUORLANE_BIN_PATH, args, d / "home"); }
  Outcome tool(const QString& program, const QStringList& args) { return run(program, args, d / "home"); }
  QString at(const std::string& name) { return qpath(d / ("home/" + name)); }
  QString tree() { return qpath(d / "tree"); }
  TempDir d;
};

#define NEED(program)                                                                   \
  const QString program = need(#program);                                               \
  if (program.isEmpty()) GTEST_SKIP() << #program " is not installed (scripts/setup installs it)"

// ncdu reads our export and writes back every name, size and hard-link count as we wrote them.
TEST_F(Interop, NcduReadsOurExport) {
  NEED(ncdu);
  Outcome o = quorlane({"--export", at("ours.json"), tree()});
  ASSERT_EQ(o.status, 0) << o.err.toStdString();
  o = tool(ncdu, {"-f", at("ours.json"), "-o", at("back.json")});
  ASSERT_EQ(o.status, 0) << o.err.toStdString();
  std::string ourRoot, theirRoot;
  const Flat ours = flatExport(d / "home/ours.json", &ourRoot);
  const Flat back = flatExport(d / "home/back.json", &theirRoot);
  EXPECT_EQ(ourRoot, theirRoot);
  EXPECT_EQ(ours, back);
  // Not an empty agreement: the odd entries are there as they are on disk.
  EXPECT_EQ(ours.size(), 14u);
  EXPECT_TRUE(ours.at("./odd\xff/f\xfe").starts_with("asize=2 "));
  EXPECT_TRUE(ours.at("./new\nline").starts_with("asize=1 "));
  EXPECT_TRUE(ours.at("./locked/").ends_with(" read_error"));
  EXPECT_TRUE(ours.at("./sub/hard").ends_with(" links=2"));
  EXPECT_EQ(ours.at("./sparse"), "asize=1048576 dsize=0");
  EXPECT_EQ(ours.at("./dirlink"), "asize=3 dsize=0 notreg");
}


// gdu reads our export and lists each top-level entry with the size du gives it, apparent and on
// disk. gdu counts a file with several names once, at its first name in the file, and so does du
// at its first name in the order of its arguments; gdu shows names that are not UTF-8 with U+FFFD.
TEST_F(Interop, GduReadsOurExport) {
  NEED(gdu);
  NEED(du);
  Outcome o = quorlane({"--export", at("ours.json"), tree()});
  ASSERT_EQ(o.status, 0) << o.err.toStdString();
  const std::vector<std::string> names = topNames(d / "home/ours.json");
  ASSERT_EQ(names.size(), 9u);
  for (const char* unit : {"-b", "-B1"}) {
    SCOPED_TRACE(unit);
    QByteArray list;  // the names as bytes: an argument list would have to be UTF-8
    for (const std::string& n : names) list += QByteArray::fromStdString(d / ("tree/" + n)) + '\0';
    writeFile(d / "home/list", list);
    o = tool(du, {"-s", "--null", unit, "--files0-from=" + at("list")});
    std::map<std::string, int64_t> expected;
    for (const QByteArray& row : o.out.split('\0')) {
      const qsizetype tab = row.indexOf('\t');
      if (tab < 0) continue;
      const QByteArray path = row.mid(tab + 1);
      expected[QString::fromUtf8(path.mid(path.lastIndexOf('/') + 1)).toStdString()] = row.left(tab).toLongLong();
    }
    ASSERT_EQ(expected.size(), names.size()) << o.err.toStdString();
    QStringList gduArgs{"-n", "-p", "-c", "--no-prefix", "-f", at("ours.json")};
    if (unit == std::string("-b")) gduArgs << "-a";
    o = tool(gdu, gduArgs);
    ASSERT_EQ(o.status, 0) << o.err.toStdString();
    EXPECT_EQ(gduList(o.out), expected) << o.out.toStdString();
  }
}

}  // namespace
}  // namespace ql::test
