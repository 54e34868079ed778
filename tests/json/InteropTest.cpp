// Our export read by ncdu and gdu, and theirs read by us: the real programs on one tree with odd
// names, hard links, a sparse file, an empty folder, an unreadable folder and a link to a folder.

#include <gtest/gtest.h>

#include <map>
#include <tuple>

#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QStringList>

#include <rapidjson/document.h>

#include "TestFiles.h"
#include "TestFs.h"
#include "TestProcess.h"

namespace ql::test {
namespace {

// The user the programs run as when we are root, so that the locked folder is locked for them.
constexpr uid_t kUser = 65534;

Outcome run(const QString& program, const QStringList& args, const std::string& home) {
  std::function<void()> asUser;
  if (::geteuid() == 0)
    asUser = [] { if (!dropRoot(kUser)) ::_exit(126); };
  return runProgram(program, args, {{"HOME", qpath(home)}, {"XDG_CONFIG_HOME", qpath(home)}}, {},
                    asUser);
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
// link count only where it is a hard link (and would take a folder that carried one for a hard
// link: ours carry none).
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
  if (info.HasMember("hlnkc")) e += " links=" + number("nlink");
  for (const char* flag : {"notreg", "read_error", "excluded"})
    if (info.HasMember(flag)) e += std::string(" ") + flag;
  if (folder)
    for (rapidjson::SizeType i = 1; i < v.Size(); ++i) flatten(v[i], path, into);
}

struct Export {
  Flat flat;
  std::string root;
  std::vector<std::string> top;  // the top-level names in the file's order
};

Export readExport(const std::string& file) {
  const QByteArray text = readFile(file);
  rapidjson::Document doc;
  doc.Parse(text.constData(), static_cast<size_t>(text.size()));  // names need not be UTF-8
  Export e;
  EXPECT_FALSE(doc.HasParseError()) << file;
  if (doc.HasParseError() || !doc.IsArray() || doc.Size() < 4) return e;
  e.root = doc[3][0]["name"].GetString();
  flatten(doc[3], "", e.flat);
  for (rapidjson::SizeType i = 1; i < doc[3].Size(); ++i) {
    const rapidjson::Value& info = doc[3][i].IsArray() ? doc[3][i][0] : doc[3][i];
    e.top.emplace_back(info["name"].GetString(), info["name"].GetStringLength());
  }
  return e;
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

// A report's rows, header left out.
using Row = std::tuple<std::string, int64_t, int64_t, int64_t>;  // path, size, files, folders
using Rows = std::vector<Row>;

std::string unquote(const QByteArray& field) {
  QByteArray f = field;
  if (f.startsWith('"') && f.endsWith('"')) f = f.mid(1, f.size() - 2);
  return f.replace("\"\"", "\"").toStdString();
}

Rows reportRows(const QByteArray& csv) {
  Rows rows;
  for (QByteArray line : csv.split('\n').mid(1)) {
    if (line.endsWith('\r')) line.chop(1);
    if (line.isEmpty()) continue;
    const qsizetype c3 = line.lastIndexOf(';'), c2 = line.lastIndexOf(';', c3 - 1),
                    c1 = line.lastIndexOf(';', c2 - 1);
    rows.emplace_back(unquote(line.left(c1)), std::stoll(unquote(line.mid(c1 + 1, c2 - c1 - 1))),
                      line.mid(c2 + 1, c3 - c2 - 1).toLongLong(), line.mid(c3 + 1).toLongLong());
  }
  return rows;
}

// The other tools' exports mark a link as not a regular file and never say whether it leads to a
// folder, so it comes in as a file of the link's own length, where our walk shows an empty
// folder row: this turns the walk's report into what an import of such an export must give.
void linkAsFile(Rows& rows, const std::string& root, const std::string& link, int64_t length) {
  std::erase_if(rows, [&](const Row& r) { return std::get<0>(r) == root + "/" + link; });
  for (auto& [path, size, files, folders] : rows) {
    const bool isRoot = path == root;
    if (isRoot || (path.starts_with(root + "/[") && path.find('/', root.size() + 1) == std::string::npos)) {
      size += length;
      files += 1;
      folders -= isRoot;
    }
  }
}

QString need(const char* program) { return QStandardPaths::findExecutable(program); }

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

#define NEED(program)                     \
  const QString program = need(#program); \
  if (program.isEmpty()) GTEST_SKIP() << #program " is not installed (scripts/setup installs it)"

// ncdu reads our export and writes back every name, size and hard-link count as we wrote them.
TEST_F(Interop, NcduReadsOurExport) {
  NEED(ncdu);
  Outcome o = quorlane({"--export", at("ours.json"), tree()});
  ASSERT_EQ(o.status, 0) << o.err.toStdString();
  o = tool(ncdu, {"-f", at("ours.json"), "-o", at("back.json")});
  ASSERT_EQ(o.status, 0) << o.err.toStdString();
  const Export e = readExport(d / "home/ours.json"), back = readExport(d / "home/back.json");
  const Flat& ours = e.flat;
  EXPECT_EQ(e.root, back.root);
  EXPECT_EQ(ours, back.flat);
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
  const std::vector<std::string> names = readExport(d / "home/ours.json").top;
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
      expected[QString::fromUtf8(path.mid(path.lastIndexOf('/') + 1)).toStdString()] =
          row.left(tab).toLongLong();
    }
    ASSERT_EQ(expected.size(), names.size()) << o.err.toStdString();
    QStringList gduArgs{"-n", "-p", "-c", "--no-prefix", "-f", at("ours.json")};
    if (unit == std::string("-b")) gduArgs << "-a";
    o = tool(gdu, gduArgs);
    ASSERT_EQ(o.status, 0) << o.err.toStdString();
    EXPECT_EQ(gduList(o.out), expected) << o.out.toStdString();
  }
}

// ncdu's and gdu's exports of the tree, read by us, give the report our walk of it gives. Both
// name the root by its absolute path, as our walk of an absolute path does. gdu writes names that
// are not UTF-8 with U+FFFD in place of each such byte, so our report is read the same way.
TEST_F(Interop, OurImportOfTheirExportsGivesTheReportOfOurWalk) {
  NEED(ncdu);
  NEED(gdu);
  const std::string root = d / "tree";
  Outcome o = quorlane({"-s0", at("walk.csv"), tree()});
  ASSERT_EQ(o.status, 0) << o.err.toStdString();
  Rows walk = reportRows(readFile(d / "home/walk.csv"));
  ASSERT_EQ(walk.size(), 8u);
  char target[64];
  linkAsFile(walk, root, "dirlink", ::readlink((root + "/dirlink").c_str(), target, sizeof target));
  Rows lossy = walk;
  for (Row& row : lossy) std::get<0>(row) = QString::fromUtf8(std::get<0>(row)).toStdString();

  struct Tool {
    QString program;
    QStringList exportArgs;
    const Rows& expected;
  };
  for (const Tool& t : {Tool{ncdu, {"-0", "-e", "-o", at("out.json"), tree()}, walk},
                        Tool{gdu, {"-n", "-p", "-o", at("out.json"), tree()}, lossy}}) {
    SCOPED_TRACE(t.program.toStdString());
    o = tool(t.program, t.exportArgs);
    ASSERT_EQ(o.status, 0) << o.err.toStdString();
    o = quorlane({"-s0", at("import.csv"), "--import", at("out.json")});
    ASSERT_EQ(o.status, 0) << o.err.toStdString();
    EXPECT_EQ(reportRows(readFile(d / "home/import.csv")), t.expected);
  }
}

// A foreign file is a failure that names the byte where reading stopped, and the report already
// there stays as it was (a damaged export of any writer: JsonCommandLineTest).
TEST_F(Interop, ForeignFilesLeaveTheOldReport) {
  NEED(gdu);
  Outcome o = tool(gdu, {"-n", "-p", "-c", tree()});  // its listing, not JSON
  ASSERT_EQ(o.status, 0);
  writeFile(d / "home/listing.json", o.out);
  // JSON, but no export: the mounts as findmnt (util-linux, always there) gives them.
  const QString findmnt = need("findmnt");
  if (!findmnt.isEmpty()) writeFile(d / "home/mounts.json", tool(findmnt, {"-J"}).out);
  static const QRegularExpression byte("[Bb]yte (\\d+)");
  for (const char* name : {"listing.json", "mounts.json"}) {
    SCOPED_TRACE(name);
    const QByteArray text = readFile(d / ("home/" + std::string(name)));
    if (text.isEmpty()) continue;
    writeFile(d / "home/report.csv", "old report\n");
    o = quorlane({"-s0", at("report.csv"), "--import", at(name)});
    EXPECT_EQ(o.status, 1);
    const auto m = byte.match(QString::fromUtf8(o.err));
    ASSERT_TRUE(m.hasMatch()) << o.err.toStdString();
    EXPECT_LE(m.captured(1).toLongLong(), text.size());
    EXPECT_EQ(readFile(d / "home/report.csv"), "old report\n");
  }
}

}  // namespace
}  // namespace ql::test
