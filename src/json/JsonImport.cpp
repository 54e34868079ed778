#include "json/JsonImport.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <unistd.h>

#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

#include "json/Zstd.h"
#include "lang/TL.h"
#include "scan/FolderWalk.h"
#include "scan/HardLinks.h"
#include "support/Path.h"

namespace ql {

// --- the files store ---

void ImportedFiles::clear() {
  names_.clear();
  records_.clear();
  ranges_.clear();
  nodes_.clear();
}

size_t ImportedFiles::count(uint32_t folderNode) const {
  return folderNode < ranges_.size() ? ranges_[folderNode].count : 0;
}

ImportedFiles::File ImportedFiles::file(uint32_t folderNode, size_t index) const {
  const Record& r = records_[ranges_[folderNode].first + index];
  return File{std::string_view(names_).substr(r.nameOffset, r.nameLength), r.asize, r.dsize};
}

size_t ImportedFiles::memoryBytes() const {
  return names_.capacity() + records_.capacity() * sizeof(Record) + ranges_.capacity() * sizeof(Range) +
         nodes_.capacity() * sizeof(uint32_t);
}

void ImportedFiles::addFolder(uint32_t folderNode, const Record* files, size_t count, std::string_view names) {
  if (count == 0) return;
  if (ranges_.size() <= folderNode) ranges_.resize(std::max<size_t>(folderNode + 1, ranges_.size() * 3 / 2));
  ranges_[folderNode] = Range{records_.size(), static_cast<uint32_t>(count)};
  nodes_.push_back(folderNode);
  for (size_t i = 0; i < count; ++i) {
    Record r = files[i];
    const uint64_t at = names_.size();
    names_.append(names.substr(r.nameOffset, r.nameLength));
    r.nameOffset = at;
    records_.push_back(r);
  }
}

void ImportedFiles::rollback(const Mark& mark) {
  for (size_t i = mark.nodes; i < nodes_.size(); ++i) ranges_[nodes_[i]] = Range{};
  nodes_.resize(mark.nodes);
  records_.resize(mark.records);
  names_.resize(mark.names);
}

namespace {

// --- input ---

// The reader's own stack holds the string being read and two words per open level; beyond this
// the input is refused, so a huge string is never held. The builder refuses nesting long before
// the levels alone could fill it, so a full stack always means a string too long.
constexpr size_t kStackLimit = 64u << 20;
static_assert(kMaxImportDepth * 2 * sizeof(rapidjson::SizeType) <= kStackLimit / 2);
struct StackFull {};

class CappedAllocator {
 public:
  static const bool kNeedFree = true;
  void* Malloc(size_t size) {
    if (size > kStackLimit) throw StackFull{};
    return size ? std::malloc(size) : nullptr;
  }
  void* Realloc(void* original, size_t, size_t newSize) {
    if (newSize > kStackLimit) throw StackFull{};
    if (newSize == 0) {
      std::free(original);
      return nullptr;
    }
    void* p = std::realloc(original, newSize);
    if (!p) throw std::bad_alloc();
    return p;
  }
  static void Free(void* p) { std::free(p); }
};

// A buffered stream over a descriptor (its text decompressed where it is compressed) for the
// reader; a zero byte marks the end, as the reader expects. Checks the stop word and tells the
// progress once per buffer.
class FdStream {
 public:
  using Ch = char;
  FdStream(int fd, const ImportOptions& o) : bytes_(fd), options_(o), buffer_(new char[kSize]) {
    current_ = last_ = buffer_.get();
    fill();
  }
  Ch Peek() const { return *current_; }
  Ch Take() {
    const Ch c = *current_;
    if (current_ < last_)
      ++current_;
    else
      fill();
    return c;
  }
  size_t Tell() const { return static_cast<size_t>(consumed_ + static_cast<uint64_t>(current_ - buffer_.get())); }
  // Only reading is asked of it.
  Ch* PutBegin() { return nullptr; }
  void Put(Ch) {}
  void Flush() {}
  size_t PutEnd(Ch*) { return 0; }

  bool atEnd() const { return ended_; }
  int error() const { return error_; }
  bool stopped() const { return stopped_; }
  const ExportBytes& bytes() const { return bytes_; }

 private:
  void fill() {
    consumed_ += size_;
    size_ = 0;
    current_ = last_ = buffer_.get();
    if (ended_) {
      *current_ = 0;
      return;
    }
    ssize_t n = 0;
    if (options_.stop && options_.stop->requested()) {
      stopped_ = true;
    } else {
      n = bytes_.read(buffer_.get(), kSize);
      if (n < 0) error_ = bytes_.error();
    }
    if (n <= 0) {
      ended_ = true;
      *current_ = 0;
      return;
    }
    size_ = static_cast<size_t>(n);
    last_ = buffer_.get() + n - 1;
    if (options_.progress) options_.progress(bytes_.fileBytesRead());
  }

  static constexpr size_t kSize = 256 * 1024;
  ExportBytes bytes_;
  const ImportOptions& options_;
  std::unique_ptr<char[]> buffer_;
  char* current_;
  char* last_;
  uint64_t consumed_ = 0;  // bytes of the buffers before this one
  size_t size_ = 0;
  bool ended_ = false;
  bool stopped_ = false;
  int error_ = 0;
};

// --- building ---

enum class Field : uint8_t {
  Other,
  Name,
  Asize,
  Dsize,
  Mtime,
  Mode,
  ReadError,
  Excluded,
  Dirlink,
  Ino,
  Hlnkc
};

struct Fields {
  std::string name;
  bool haveName = false;
  int64_t asize = 0, dsize = 0;
  int64_t mtime = -1;  // -1: the export has none, and the lists show no date
  uint32_t mode = 0;
  bool excluded = false;
  bool dirlink = false;
  uint64_t ino = 0;
  bool hlnkc = false;
  void reset() {
    name.clear();
    haveName = excluded = dirlink = hlnkc = false;
    ino = 0;
    asize = dsize = 0;
    mtime = -1;
    mode = 0;
  }
};

struct OpenDir {
  uint32_t node = kNoNode;
  size_t pathMark = 0;   // length of the path before this folder's name
  size_t filesMark = 0;  // its files in the pending list begin here
  size_t namesMark = 0;
  int64_t ownBytes = 0, ownFiles = 0;
  int64_t size = 0, files = 0, folders = 0;
  uint32_t rows = 0;
  // Links once: the hard-linked inodes of its own files, and those below it (each child's once).
  Links own, below;  // `below` sorted
};

bool checkedAdd(int64_t& sum, int64_t value) {
  int64_t r;
  if (__builtin_add_overflow(sum, value, &r)) return false;
  sum = r;
  return true;
}

class Builder {
 public:
  Builder(ReportTree& tree, const ImportOptions& o, FdStream& in) : tree_(tree), o_(o), in_(in) {
    feedMinimum_ = o.feed ? o.feed->minimumSize() : INT64_MAX;
  }

  // The reader's handler.
  bool Null() { return scalar(Kind::Null, 0, 0); }
  bool Bool(bool b) { return scalar(Kind::Bool, b, 0); }
  bool Int(int i) { return integer(i); }
  bool Uint(unsigned u) { return integer(u); }
  bool Int64(int64_t i) { return integer(i); }
  bool Uint64(uint64_t u) { return u > INT64_MAX ? scalar(Kind::Other, 0, 0) : integer(static_cast<int64_t>(u)); }
  bool Double(double) { return scalar(Kind::Other, 0, 0); }
  bool RawNumber(const char*, rapidjson::SizeType, bool) { return scalar(Kind::Other, 0, 0); }
  bool String(const char* s, rapidjson::SizeType n, bool) { return scalar(Kind::String, 0, 0, s, n); }
  bool Key(const char* s, rapidjson::SizeType n, bool) {
    if (skip_) return true;
    const std::string_view k(s, n);
    key_ = k == "name"         ? Field::Name
           : k == "asize"      ? Field::Asize
           : k == "dsize"      ? Field::Dsize
           : k == "mtime"      ? Field::Mtime
           : k == "mode"       ? Field::Mode
           : k == "read_error" ? Field::ReadError
           : k == "excluded"   ? Field::Excluded
           : k == "dirlink"    ? Field::Dirlink
           : k == "ino"        ? Field::Ino
           : k == "hlnkc"      ? Field::Hlnkc
                               : Field::Other;
    return true;
  }
  bool StartObject() {
    if (!deeper()) return false;
    if (skip_ || inObject_) return ++skip_, true;  // a value of a key: not ours
    if (!started_) return fail(TL(4290, "Das ist keine Export-Datei."));
    if (dirs_.empty() && !expectInfo_) {
      const int at = topIndex_++;
      if (at == 2 || at >= 4) return ++skip_, true;  // the metadata, or something after the tree
      return fail(at == 3 ? TL(4291, "Ordner erwartet") : TL(4292, "Zahl erwartet"));
    }
    inObject_ = true;
    key_ = Field::Other;
    fields_.reset();
    return true;
  }
  bool EndObject(rapidjson::SizeType) {
    --depth_;
    if (skip_) return --skip_, true;
    inObject_ = false;
    if (expectInfo_) {
      expectInfo_ = false;
      return openDir();
    }
    return addEntry();
  }
  bool StartArray() {
    if (!deeper()) return false;
    if (skip_ || inObject_) return ++skip_, true;
    if (!started_) {
      started_ = true;
      return true;
    }
    if (expectInfo_) return fail(TL(4293, "Ordner ohne Angaben"));
    if (dirs_.empty()) {
      const int at = topIndex_++;
      if (at >= 4) return ++skip_, true;
      if (at != 3) return fail(at == 2 ? TL(4294, "Metadaten erwartet") : TL(4292, "Zahl erwartet"));
      if (rootDone_) return ++skip_, true;
    }
    expectInfo_ = true;
    return true;
  }
  bool EndArray(rapidjson::SizeType) {
    --depth_;
    if (skip_) return --skip_, true;
    if (expectInfo_) return fail(TL(4293, "Ordner ohne Angaben"));
    if (!dirs_.empty()) return closeDir();
    if (!rootDone_) return fail(TL(4291, "Ordner erwartet"));
    finished_ = true;
    return true;
  }

  bool finished() const { return finished_; }
  bool failed() const { return !message_.isEmpty(); }
  const QString& message() const { return message_; }
  uint64_t failOffset() const { return failOffset_; }
  uint32_t root() const { return root_; }
  const OpenDir& rootSums() const { return rootSums_; }

 private:
  enum class Kind { Null, Bool, Int, String, Other };

  bool fail(const QString& why) {
    message_ = why;
    failOffset_ = in_.Tell();
    return false;
  }

  // One more level, passed over or not; the byte of a refusal is its opening bracket.
  bool deeper() {
    if (++depth_ <= kMaxImportDepth) return true;
    return fail(
        TL(4297, "Zu tief verschachtelt (mehr als %1 Ebenen)", {QString::number(kMaxImportDepth)}));
  }

  bool integer(int64_t v) { return scalar(Kind::Int, 0, v); }

  bool scalar(Kind kind, bool b, int64_t v, const char* s = nullptr, size_t n = 0) {
    if (skip_) return true;
    if (!started_) return fail(TL(4290, "Das ist keine Export-Datei."));
    if (inObject_) return field(kind, b, v, s, n);
    if (!dirs_.empty() || expectInfo_) return fail(TL(4295, "Eintrag erwartet"));
    const int at = topIndex_++;
    if (at == 0) {
      if (kind != Kind::Int || v != 1)
        return fail(TL(4283, "Version %1 wird nicht unterstützt", {kind == Kind::Int ? QString::number(v) : "?"}));
      return true;
    }
    if (at == 1) return kind == Kind::Int ? true : fail(TL(4292, "Zahl erwartet"));
    if (at == 2) return fail(TL(4294, "Metadaten erwartet"));
    if (at == 3) return fail(TL(4291, "Ordner erwartet"));
    return true;
  }

  bool size(Kind kind, int64_t v, int64_t& into) {
    if (kind != Kind::Int || v < 0) return fail(TL(4285, "Ungültige Größe"));
    into = v;
    return true;
  }

  bool field(Kind kind, bool b, int64_t v, const char* s, size_t n) {
    switch (key_) {
      case Field::Name:
        if (kind != Kind::String) return fail(TL(4286, "Ungültiger Name"));
        if (n > kMaxImportName) return fail(TL(4284, "Name länger als %1 Bytes", {QString::number(kMaxImportName)}));
        fields_.name.assign(s, n);
        fields_.haveName = true;
        return true;
      case Field::Asize: return size(kind, v, fields_.asize);
      case Field::Dsize: return size(kind, v, fields_.dsize);
      case Field::Mtime:
        if (kind == Kind::Int) fields_.mtime = v;
        return true;
      case Field::Mode:
        if (kind == Kind::Int) fields_.mode = static_cast<uint32_t>(v);
        return true;
      case Field::Excluded:
        if (kind == Kind::String) fields_.excluded = true;
        return true;
      case Field::Dirlink:
        if (kind == Kind::Bool) fields_.dirlink = b;
        return true;
      case Field::Ino:
        if (kind == Kind::Int) fields_.ino = static_cast<uint64_t>(v);
        return true;
      case Field::Hlnkc:
        if (kind == Kind::Bool) fields_.hlnkc = b;
        return true;
      case Field::ReadError:  // what was read of such a folder counts, as in a walk
      case Field::Other: return true;
    }
    return true;
  }

  // The name of an entry below the root: one component.
  bool checkName() {
    if (!fields_.haveName) return fail(TL(4287, "Eintrag ohne Namen"));
    const std::string& n = fields_.name;
    if (n.empty() || n == "." || n == ".." || n.find('/') != std::string::npos ||
        n.find('\0') != std::string::npos)
      return fail(TL(4286, "Ungültiger Name"));
    return true;
  }

  bool openDir() {
    OpenDir d;
    d.pathMark = path_.size();
    d.filesMark = pending_.size();
    d.namesMark = pendingNames_.size();
    if (dirs_.empty()) {
      if (!fields_.haveName || fields_.name.empty() || fields_.name.find('\0') != std::string::npos)
        return fail(TL(4286, "Ungültiger Name"));
      path_ = rootText(addSlash(fields_.name));
      d.node = root_ = tree_.addRoot(path_);
    } else {
      if (!checkName()) return false;
      // Grown in place: a fresh copy per level would cost the whole path at every level.
      if (path_.empty() || path_.back() != '/') path_.push_back('/');
      path_.append(fields_.name);
      d.node = tree_.addChild(dirs_.back().node, fields_.name, ReportTree::IsFolder);
    }
    dirs_.push_back(d);
    feedFolder_.clear();
    return true;
  }

  bool addEntry() {
    if (!checkName()) return false;
    OpenDir& d = dirs_.back();
    if (fields_.excluded || fields_.dirlink) {
      // Another file system, a link to a folder, something left out: a row never entered.
      if (o_.noHardlinks) return true;
      const uint32_t row = tree_.addChild(d.node, fields_.name, ReportTree::IsFolder);
      tree_.setFlag(row, ReportTree::Junction, true);
      tree_.setFolders(row, 0);
      ++d.rows;
      ++d.folders;
      return true;
    }
    const int64_t size = o_.allocated ? fields_.dsize : fields_.asize;
    if (!checkedAdd(d.ownBytes, size)) return fail(TL(4040, "Überlauf der Summe"));
    ++d.ownFiles;
    if (o_.linksOnce && fields_.hlnkc && size > 0) d.own.push_back(Link{fields_.ino, size});
    if (o_.files) {
      pending_.push_back(ImportedFiles::Record{pendingNames_.size(), static_cast<uint32_t>(fields_.name.size()),
                                               fields_.asize, fields_.dsize});
      pendingNames_ += fields_.name;
    }
    if (o_.feed && size >= feedMinimum_) {
      if (feedFolder_.empty()) feedFolder_ = addSlash(path_);
      FoundFile f;
      f.folder = feedFolder_;
      f.name = fields_.name;
      f.size = size;  // as counted, like a walk's
      f.length = static_cast<uint64_t>(fields_.asize);
      f.ino = fields_.ino;
      f.nlink = fields_.hlnkc ? 2 : 1;
      f.modified = fields_.mtime;
      f.accessed = -1;  // exports carry no access time
      f.mode = fields_.mode;
      f.blocks = static_cast<uint64_t>(fields_.dsize) / 512;
      o_.feed->offer(f);
    }
    return true;
  }

  bool closeDir() {
    OpenDir d = std::move(dirs_.back());
    dirs_.pop_back();
    if (!d.own.empty() || !d.below.empty()) {
      // Own files once among themselves (the files row), then once with all below.
      d.ownBytes -= dedupLinks(d.own);
      d.size -= addLinks(d.below, d.own);
      trimLinks(d.below);
    }
    int64_t size = d.ownBytes, files = d.ownFiles;
    if (!checkedAdd(size, d.size) || !checkedAdd(files, d.files) || d.folders > INT32_MAX)
      return fail(TL(4040, "Überlauf der Summe"));
    if (d.ownBytes > 0 && d.rows > 0) {
      const uint32_t row = tree_.addChild(d.node, o_.filesLabel, 0);
      tree_.setSizeAndFiles(row, d.ownBytes, d.ownFiles);
    }
    tree_.setSizeAndFiles(d.node, size, files);
    tree_.setFolders(d.node, static_cast<int32_t>(d.folders));
    tree_.updatePercent(d.node);
    if (o_.files) {
      o_.files->addFolder(d.node, pending_.data() + d.filesMark, pending_.size() - d.filesMark, pendingNames_);
      pending_.resize(d.filesMark);
      pendingNames_.resize(d.namesMark);
    }
    path_.resize(d.pathMark);
    feedFolder_.clear();
    if (dirs_.empty()) {
      rootDone_ = true;
      rootSums_ = d;
      rootSums_.size = size;
      rootSums_.files = files;
      return true;
    }
    OpenDir& p = dirs_.back();
    p.size -= addLinks(p.below, d.below);
    if (!checkedAdd(p.size, size) || !checkedAdd(p.files, files) || !checkedAdd(p.folders, 1 + d.folders))
      return fail(TL(4040, "Überlauf der Summe"));
    ++p.rows;
    return true;
  }

  ReportTree& tree_;
  const ImportOptions& o_;
  FdStream& in_;
  int64_t feedMinimum_;
  std::vector<OpenDir> dirs_;
  std::vector<ImportedFiles::Record> pending_;  // files of the open folders, innermost last
  std::string pendingNames_;
  std::string path_;
  std::string feedFolder_;  // the open folder's path with "/", made when a file is offered
  Fields fields_;
  Field key_ = Field::Other;
  uint64_t skip_ = 0;  // depth inside a value that is passed over
  uint64_t depth_ = 0;  // open arrays and objects of the whole text
  int topIndex_ = 0;
  bool started_ = false;
  bool inObject_ = false;
  bool expectInfo_ = false;
  bool rootDone_ = false;
  bool finished_ = false;
  uint32_t root_ = kNoNode;
  OpenDir rootSums_;
  QString message_;
  uint64_t failOffset_ = 0;
};

QString atByte(uint64_t offset, const QString& why) {
  return TL(4281, "Fehler bei Byte %1: %2", {QString::number(offset), why});
}

}  // namespace

ImportResult importJson(int fd, ReportTree& tree, const ImportOptions& options) {
  ImportResult result;
  FdStream in(fd, options);
  Builder builder(tree, options, in);
  const ImportedFiles::Mark mark = options.files ? options.files->mark() : ImportedFiles::Mark{};
  CappedAllocator allocator;
  rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF8<>, CappedAllocator> reader(&allocator, 4096);
  rapidjson::ParseResult parsed;
  bool tooLong = false;
  try {
    parsed = reader.Parse<rapidjson::kParseIterativeFlag>(in, builder);
  } catch (const StackFull&) {
    tooLong = true;
  }
  if (tooLong) {
    result.errorOffset = in.Tell();
    result.error = atByte(result.errorOffset, TL(4284, "Name länger als %1 Bytes", {QString::number(kMaxImportName)}));
  } else if (in.stopped()) {
    result.errorOffset = in.Tell();
    result.error = TL(4288, "Das Einlesen wurde abgebrochen.");
  } else if (!in.bytes().damage().isEmpty()) {
    result.errorOffset = in.bytes().damageOffset();
    result.error = TL(4330, "Fehler bei Byte %1 der komprimierten Datei: %2",
                      {QString::number(result.errorOffset), in.bytes().damage()});
  } else if (in.error()) {
    result.errorOffset = in.Tell();
    result.error = atByte(result.errorOffset, QString::fromStdString(systemErrorText(in.error())));
  } else if (builder.failed()) {
    result.errorOffset = builder.failOffset();
    result.error = atByte(result.errorOffset, builder.message());
  } else if (parsed.IsError() && in.atEnd() && in.Peek() == 0 &&
             (parsed.Offset() >= in.Tell() ||
              parsed.Code() == rapidjson::kParseErrorDocumentEmpty)) {
    result.errorOffset = in.Tell();
    result.error = TL(4282, "Die Datei endet vorzeitig (bei Byte %1).", {QString::number(result.errorOffset)});
  } else if (parsed.IsError()) {
    result.errorOffset = parsed.Offset();
    result.error = atByte(result.errorOffset, TL(4289, "kein gültiges JSON (%1)",
                                                 {QString::fromUtf8(rapidjson::GetParseError_En(parsed.Code()))}));
  } else if (!builder.finished()) {
    result.errorOffset = in.Tell();
    result.error = atByte(result.errorOffset, TL(4290, "Das ist keine Export-Datei."));
  } else {
    result.ok = true;
  }
  if (!result.ok) {
    if (in.bytes().compressed() && in.bytes().damage().isEmpty() && !in.stopped())
      result.error += ' ' + TL(4334, "(gezählt im entpackten Text)");
    // No trace of a bad export: neither rows nor files.
    if (builder.root() != kNoNode && tree.isLive(builder.root())) tree.removeSubtree(builder.root());
    if (options.files) options.files->rollback(mark);
    return result;
  }
  result.root = builder.root();
  result.size = builder.rootSums().size;
  result.files = builder.rootSums().files;
  result.folders = builder.rootSums().folders;
  tree.sortAll();
  return result;
}

ImportResult importJsonFile(const std::string& file, ReportTree& tree, const ImportOptions& options) {
  if (file == "-") return importJson(STDIN_FILENO, tree, options);
  const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    ImportResult r;
    r.error = TL(4280, "Die Datei '%1' kann nicht gelesen werden: %2",
                 {QString::fromLocal8Bit(file.c_str()), QString::fromStdString(systemErrorText(errno))});
    return r;
  }
  ImportResult r = importJson(fd, tree, options);
  ::close(fd);
  return r;
}

}  // namespace ql
