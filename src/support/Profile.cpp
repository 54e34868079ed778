#include "support/Profile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QSet>
#include <cerrno>


namespace ql {

namespace {

bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

// The section name of a header line ("[name]", anything after the bracket ignored), or a null
// string.
QString sectionOf(const QByteArray& line) {
  const QByteArray t = line.trimmed();
  if (!t.startsWith('[')) return {};
  const int close = t.indexOf(']');
  if (close < 0) return {};
  return QString::fromUtf8(t.mid(1, close - 1)).trimmed();
}

// Position of the '=' of a key line, or -1 for blank lines, comments and other text.
int equalsOf(const QByteArray& trimmed) {
  if (trimmed.isEmpty() || trimmed.front() == ';' || trimmed.front() == '#') return -1;
  return trimmed.indexOf('=');
}

QString keyOf(const QByteArray& trimmed, int eq) {
  return QString::fromUtf8(trimmed.left(eq)).trimmed();
}

// Sections and keys meet without regard to case.
QString fold(const QString& name) {
  return name.toCaseFolded();
}

QString cut(const QString& s) {
  if (s.size() <= kProfileValueLimit) return s;
  int n = kProfileValueLimit;
  if (s.at(n - 1).isHighSurrogate()) --n;  // never leave half a character
  return s.left(n);
}

// The value of a key line: without the blanks around it and one pair of enclosing quotes.
QByteArray rawValue(const QByteArray& line) {
  const QByteArray t = line.trimmed();
  QByteArray raw = t.mid(equalsOf(t) + 1).trimmed();
  if (raw.size() >= 2 && raw.front() == '"' && raw.back() == '"') raw = raw.mid(1, raw.size() - 2);
  return raw;
}

// Quotes what reading would otherwise strip, so that the value comes back unchanged.
QByteArray encodeValue(QByteArray bytes) {
  bytes.replace('\r', ' ').replace('\n', ' ');
  if (bytes.isEmpty()) return bytes;
  const bool quote = isBlank(bytes.front()) || isBlank(bytes.back()) ||
                     (bytes.size() >= 2 && bytes.front() == '"' && bytes.back() == '"');
  return quote ? '"' + bytes + '"' : bytes;
}

QByteArray entryLine(const QString& key, const QByteArray& value) {
  return key.toUtf8() + '=' + encodeValue(value);
}

enum class FileState { Missing, Read, Unreadable, Damaged };

// One open, one fstat, one read: only a regular file within the limit is read at all, so that a
// pipe cannot block and a device or a huge file cannot fill the memory.
FileState readSettingsFile(const QString& file, QByteArray& bytes) {
  const int fd = ::open(QFile::encodeName(file).constData(),
                        O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (fd < 0) return errno == ENOENT || errno == ENOTDIR ? FileState::Missing : FileState::Unreadable;
  FileState state = FileState::Damaged;
  struct stat st {};
  if (::fstat(fd, &st) != 0) {
    state = FileState::Unreadable;
  } else if (S_ISREG(st.st_mode) && st.st_size <= kProfileSizeLimit) {
    // One byte more than the limit shows a file that grew since the fstat.
    bytes.resize(static_cast<qsizetype>(st.st_size) + 1);
    qsizetype done = 0;
    state = FileState::Read;
    while (done < bytes.size()) {
      const ssize_t n = ::read(fd, bytes.data() + done, static_cast<size_t>(bytes.size() - done));
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) state = FileState::Unreadable;
      if (n <= 0) break;
      done += n;
      if (done == bytes.size() && done <= kProfileSizeLimit) bytes.resize(kProfileSizeLimit + 1);
    }
    if (done > kProfileSizeLimit) state = FileState::Damaged;
    bytes.truncate(done);
  }
  ::close(fd);
  return state;
}

// Once per file and run, so that a damaged file does not flood the log.
MaybeFailure damaged(const QString& file) {
  static QSet<QString> told;
  if (told.contains(file)) return std::nullopt;
  told.insert(file);
  return Failure{QStringLiteral("ProfileDocument"), QStringLiteral("Profile"),
                 QStringLiteral("Settings file is not a regular file or larger than %1 bytes; "
                                "it is neither read nor written")
                     .arg(kProfileSizeLimit),
                 {file}};
}

}  // namespace

ProfileDocument::ProfileDocument(const QString& file) : file_(file) {
  if (file_.isEmpty()) return;
  QByteArray bytes;
  switch (readSettingsFile(file_, bytes)) {
    case FileState::Missing:
      return;
    case FileState::Unreadable:
      readable_ = false;
      return;
    case FileState::Damaged:
      readable_ = false;
      damage_ = damaged(file_);
      return;
    case FileState::Read:
      break;
  }
  if (bytes.startsWith("\xEF\xBB\xBF")) bytes.remove(0, 3);
  lines_ = bytes.split('\n');
  if (!lines_.isEmpty() && lines_.back().isEmpty()) lines_.pop_back();
  for (auto& l : lines_)
    if (l.endsWith('\r')) l.chop(1);
}

void ProfileDocument::changed() {
  modified_ = true;
  indexed_ = false;
  sections_.clear();
  keys_.clear();
}

ProfileDocument::Range ProfileDocument::findSection(const QString& section) const {
  if (!indexed_) {
    // Only header lines are decoded here; the keys of a section wait until it is asked for.
    QString open;  // the section whose first copy runs to the next header
    for (int i = 0; i < lines_.size(); ++i) {
      const QString s = sectionOf(lines_[i]);
      if (s.isNull()) continue;
      if (!open.isNull()) sections_[open].end = i;
      open = fold(s);
      if (sections_.contains(open))
        open = QString();
      else
        sections_.insert(open, {i + 1, i + 1});
    }
    if (!open.isNull()) sections_[open].end = static_cast<int>(lines_.size());
    indexed_ = true;
  }
  return sections_.value(fold(section));
}

int ProfileDocument::findKey(const QString& section, const QString& key) const {
  const Range r = findSection(section);
  if (r.begin < 0) return -1;
  auto it = keys_.find(fold(section));
  if (it == keys_.end()) {
    it = keys_.insert(fold(section), {});
    for (int i = r.begin; i < r.end; ++i) {
      const QByteArray t = lines_[i].trimmed();
      const int eq = equalsOf(t);
      if (eq < 0) continue;
      const QString k = fold(keyOf(t, eq));
      if (!it->contains(k)) it->insert(k, i);  // the first of several wins
    }
  }
  return it->value(fold(key), -1);
}

QString ProfileDocument::get(const QString& section, const QString& key,
                             const QString& deflt) const {
  const int i = findKey(section, key);
  return i < 0 ? cut(deflt) : cut(QString::fromUtf8(rawValue(lines_[i])));
}

QByteArray ProfileDocument::getBytes(const QString& section, const QString& key,
                                     const QByteArray& deflt) const {
  const int i = findKey(section, key);
  return i < 0 ? deflt : rawValue(lines_[i]);
}

void ProfileDocument::set(const QString& section, const QString& key, const QString& value) {
  setBytes(section, key, value.toUtf8());
}

void ProfileDocument::setBytes(const QString& section, const QString& key,
                               const QByteArray& value) {
  const Range r = findSection(section);
  if (r.begin < 0) {
    if (!lines_.isEmpty() && !lines_.back().trimmed().isEmpty()) lines_ << QByteArray();
    lines_ << '[' + section.toUtf8() + ']' << entryLine(key, value);
    changed();
    return;
  }
  const int i = findKey(section, key);
  if (i >= 0) {
    // Keep the spelling of the key that is there, and leave an unchanged line alone.
    const QByteArray t = lines_[i].trimmed();
    const QByteArray line = entryLine(keyOf(t, equalsOf(t)), value);
    if (line == lines_[i]) return;
    lines_[i] = line;
    modified_ = true;  // the same lines in the same places: the index stands
  } else {
    int at = r.end;
    while (at > r.begin && lines_[at - 1].trimmed().isEmpty()) --at;
    lines_.insert(at, entryLine(key, value));
    changed();
  }
}

void ProfileDocument::deleteSection(const QString& section) {
  // Every copy goes, so that no stale keys of a hand-doubled section come back to the surface.
  for (Range r = findSection(section); r.begin >= 0; r = findSection(section)) {
    lines_.erase(lines_.begin() + (r.begin - 1), lines_.begin() + r.end);
    changed();
  }
}

bool ProfileDocument::save() {
  if (!modified_) return true;
  if (!readable_ || file_.isEmpty()) return false;
  QDir().mkpath(QFileInfo(file_).absolutePath());
  QSaveFile f(file_);
  if (!f.open(QIODevice::WriteOnly)) return false;
  QByteArray bytes;
  for (const auto& l : lines_) bytes += l + '\n';
  if (f.write(bytes) != bytes.size()) {
    f.cancelWriting();
    return false;
  }
  if (!f.commit()) return false;
  modified_ = false;
  return true;
}

QString ProfileGetItem(const QString& section, const QString& key, const QString& deflt,
                       const QString& file, MaybeFailure* damage) {
  const ProfileDocument doc(file);
  if (damage) *damage = doc.damage();
  return doc.get(section, key, deflt);
}

bool ProfileSetItem(const QString& section, const QString& key, const QString& value,
                    const QString& file, MaybeFailure* damage) {
  ProfileDocument doc(file);
  if (damage) *damage = doc.damage();
  doc.set(section, key, value);
  return doc.save();
}

bool ProfileDeleteSection(const QString& section, const QString& file) {
  ProfileDocument doc(file);
  doc.deleteSection(section);
  return doc.save();
}

}  // namespace ql
