#include "app/Profile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

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

QString cut(const QString& s) {
  if (s.size() <= kProfileValueLimit) return s;
  int n = kProfileValueLimit;
  if (s.at(n - 1).isHighSurrogate()) --n;  // never leave half a character
  return s.left(n);
}

QString decodeValue(const QByteArray& trimmed, int eq) {
  QByteArray raw = trimmed.mid(eq + 1).trimmed();
  if (raw.size() >= 2 && raw.front() == '"' && raw.back() == '"') raw = raw.mid(1, raw.size() - 2);
  return cut(QString::fromUtf8(raw));
}

// Quotes what reading would otherwise strip, so that the value comes back unchanged.
QByteArray encodeValue(QString value) {
  value.replace(QLatin1Char('\r'), QLatin1Char(' ')).replace(QLatin1Char('\n'), QLatin1Char(' '));
  const QByteArray bytes = value.toUtf8();
  if (bytes.isEmpty()) return bytes;
  const bool quote = isBlank(bytes.front()) || isBlank(bytes.back()) ||
                     (bytes.size() >= 2 && bytes.front() == '"' && bytes.back() == '"');
  return quote ? '"' + bytes + '"' : bytes;
}

QByteArray entryLine(const QString& key, const QString& value) {
  return key.toUtf8() + '=' + encodeValue(value);
}

}  // namespace

ProfileDocument::ProfileDocument(const QString& file) : file_(file) {
  QFile f(file_);
  if (file_.isEmpty() || !f.exists()) return;
  if (!f.open(QIODevice::ReadOnly)) {
    readable_ = false;
    return;
  }
  QByteArray bytes = f.readAll();
  if (f.error() != QFileDevice::NoError) {
    readable_ = false;
    return;
  }
  if (bytes.startsWith("\xEF\xBB\xBF")) bytes.remove(0, 3);
  lines_ = bytes.split('\n');
  if (!lines_.isEmpty() && lines_.back().isEmpty()) lines_.pop_back();
  for (auto& l : lines_)
    if (l.endsWith('\r')) l.chop(1);
}

ProfileDocument::Range ProfileDocument::findSection(const QString& section, int from) const {
  Range r;
  for (int i = from; i < lines_.size(); ++i) {
    const QString s = sectionOf(lines_[i]);
    if (s.isNull()) continue;
    if (r.begin >= 0) {
      r.end = i;
      return r;
    }
    if (s.compare(section, Qt::CaseInsensitive) == 0) r.begin = i + 1;
  }
  r.end = static_cast<int>(lines_.size());
  return r;
}

int ProfileDocument::findKey(const Range& r, const QString& key) const {
  for (int i = r.begin; i < r.end; ++i) {
    const QByteArray t = lines_[i].trimmed();
    const int eq = equalsOf(t);
    if (eq >= 0 && keyOf(t, eq).compare(key, Qt::CaseInsensitive) == 0) return i;
  }
  return -1;
}

QString ProfileDocument::get(const QString& section, const QString& key,
                             const QString& deflt) const {
  const Range r = findSection(section);
  const int i = r.begin < 0 ? -1 : findKey(r, key);
  if (i < 0) return cut(deflt);
  const QByteArray t = lines_[i].trimmed();
  return decodeValue(t, equalsOf(t));
}

void ProfileDocument::set(const QString& section, const QString& key, const QString& value) {
  const Range r = findSection(section);
  if (r.begin < 0) {
    if (!lines_.isEmpty() && !lines_.back().trimmed().isEmpty()) lines_ << QByteArray();
    lines_ << '[' + section.toUtf8() + ']' << entryLine(key, value);
    modified_ = true;
    return;
  }
  const int i = findKey(r, key);
  if (i >= 0) {
    // Keep the spelling of the key that is there, and leave an unchanged line alone.
    const QByteArray t = lines_[i].trimmed();
    const QByteArray line = entryLine(keyOf(t, equalsOf(t)), value);
    if (line == lines_[i]) return;
    lines_[i] = line;
  } else {
    int at = r.end;
    while (at > r.begin && lines_[at - 1].trimmed().isEmpty()) --at;
    lines_.insert(at, entryLine(key, value));
  }
  modified_ = true;
}

void ProfileDocument::deleteSection(const QString& section) {
  // Every copy goes, so that no stale keys of a hand-doubled section come back to the surface.
  for (Range r = findSection(section); r.begin >= 0; r = findSection(section)) {
    lines_.erase(lines_.begin() + (r.begin - 1), lines_.begin() + r.end);
    modified_ = true;
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
                       const QString& file) {
  return ProfileDocument(file).get(section, key, deflt);
}

bool ProfileSetItem(const QString& section, const QString& key, const QString& value,
                    const QString& file) {
  ProfileDocument doc(file);
  doc.set(section, key, value);
  return doc.save();
}

bool ProfileDeleteSection(const QString& section, const QString& file) {
  ProfileDocument doc(file);
  doc.deleteSection(section);
  return doc.save();
}

}  // namespace ql
