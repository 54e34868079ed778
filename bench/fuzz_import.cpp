// Fuzzes the JSON export reader: any input either builds a tree whose sums add up or fails with
// an offset inside the input and leaves nothing behind. Built by bench/fuzz.sh with clang's
// fuzzer and address sanitizer; texts come from a stand-in for the program's text table.

#include <cstdint>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

#include "json/JsonImport.h"
#include "lang/TL.h"
#include "scan/FolderWalk.h"

namespace ql {
QString TL(int, const QString& deflt, const QStringList& args) {
  QString s = deflt;
  for (int i = 0; i < args.size(); ++i) s.replace(QStringLiteral("%") + QString::number(i + 1), args[i]);
  return s;
}
}  // namespace ql

namespace {
struct Feed : ql::FileFeed {
  int64_t minimumSize() const override { return 1; }
  void offer(const ql::FoundFile& f) override {
    if (f.size < 1 || f.folder.empty() || f.folder.back() != '/') std::abort();
  }
};

void check(const ql::ReportTree& t) {
  for (uint32_t n : t.preorder()) {
    int64_t size = 0, files = 0, folders = 0;
    for (uint32_t c : t.children(n)) {
      size += t.node(c).size;
      files += t.node(c).files;
      if (t.isFolder(c)) folders += 1 + t.folders(c);
    }
    if (!t.children(n).empty() && t.isFolder(n) && (size > t.node(n).size || files > t.node(n).files ||
                                                     folders != t.folders(n)))
      std::abort();
  }
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const int fd = memfd_create("fuzz", 0);
  if (ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size) || lseek(fd, 0, SEEK_SET) != 0)
    return 0;
  ql::ReportTree tree;
  ql::ImportedFiles files;
  Feed feed;
  ql::ImportOptions o;
  o.files = &files;
  o.feed = &feed;
  const ql::ImportResult r = ql::importJson(fd, tree, o);
  if (r.ok) {
    if (tree.roots().size() != 1) std::abort();
    check(tree);
  } else {
    if (!tree.empty() || files.mark().records != 0 || r.errorOffset > size || r.error.isEmpty()) std::abort();
  }
  return 0;
}
