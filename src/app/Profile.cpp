#include "app/Profile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStringList>

namespace ql {

namespace {

QStringList readLines(const QString& file) {
  QFile f(file);
  if (!f.open(QIODevice::ReadOnly)) return {};
  QString text = QString::fromUtf8(f.readAll());
  text.replace(QLatin1String("\r\n"), QLatin1String("\n"));
  QStringList lines = text.split(QLatin1Char('\n'));
  if (!lines.isEmpty() && lines.back().isEmpty()) lines.pop_back();
  return lines;
}

bool writeLines(const QStringList& lines, const QString& file) {
  QDir().mkpath(QFileInfo(file).absolutePath());
  QSaveFile f(file);
  if (!f.open(QIODevice::WriteOnly)) return false;
  QByteArray bytes;
  for (const auto& l : lines) {
    bytes += l.toUtf8();
    bytes += '\n';
  }
  f.write(bytes);
  return f.commit();
}

// The section name of a header line, or a null string.
QString sectionOf(const QString& line) {
  const QString t = line.trimmed();
  if (t.size() >= 2 && t.front() == QLatin1Char('[') && t.back() == QLatin1Char(']'))
    return t.mid(1, t.size() - 2).trimmed();
  return {};
}

bool isComment(const QString& t) {
  return t.startsWith(QLatin1Char(';')) || t.startsWith(QLatin1Char('#'));
}

// Index of the key's line within [from, to), or -1.
int findKey(const QStringList& lines, int from, int to, const QString& key) {
  for (int i = from; i < to; ++i) {
    const QString t = lines[i].trimmed();
    if (t.isEmpty() || isComment(t)) continue;
    const int eq = t.indexOf(QLatin1Char('='));
    if (eq < 0) continue;
    if (t.left(eq).trimmed().compare(key, Qt::CaseInsensitive) == 0) return i;
  }
  return -1;
}

// [begin, end) of a section's body; begin is -1 when the section is missing.
std::pair<int, int> findSection(const QStringList& lines, const QString& section) {
  int begin = -1;
  for (int i = 0; i < lines.size(); ++i) {
    const QString s = sectionOf(lines[i]);
    if (s.isNull()) continue;
    if (begin >= 0) return {begin, i};
    if (s.compare(section, Qt::CaseInsensitive) == 0) begin = i + 1;
  }
  return {begin, static_cast<int>(lines.size())};
}

}  // namespace

QString ProfileGetItem(const QString& section, const QString& key, const QString& deflt,
                       const QString& file) {
  const QStringList lines = readLines(file);
  const auto [begin, end] = findSection(lines, section);
  if (begin < 0) return deflt.left(kProfileValueLimit);
  const int i = findKey(lines, begin, end, key);
  if (i < 0) return deflt.left(kProfileValueLimit);
  const QString t = lines[i].trimmed();
  return t.mid(t.indexOf(QLatin1Char('=')) + 1).trimmed().left(kProfileValueLimit);
}

bool ProfileSetItem(const QString& section, const QString& key, const QString& value,
                    const QString& file) {
  QStringList lines = readLines(file);
  const QString entry = key + QLatin1Char('=') + value;
  auto [begin, end] = findSection(lines, section);
  if (begin < 0) {
    if (!lines.isEmpty() && !lines.back().trimmed().isEmpty()) lines << QString();
    lines << QLatin1Char('[') + section + QLatin1Char(']') << entry;
    return writeLines(lines, file);
  }
  const int i = findKey(lines, begin, end, key);
  if (i >= 0) {
    // Keep the spelling of the key that is there.
    const QString t = lines[i].trimmed();
    lines[i] = t.left(t.indexOf(QLatin1Char('='))).trimmed() + QLatin1Char('=') + value;
  } else {
    int at = end;
    while (at > begin && lines[at - 1].trimmed().isEmpty()) --at;
    lines.insert(at, entry);
  }
  return writeLines(lines, file);
}

bool ProfileDeleteSection(const QString& section, const QString& file) {
  QStringList lines = readLines(file);
  const auto [begin, end] = findSection(lines, section);
  if (begin < 0) return true;
  lines.erase(lines.begin() + (begin - 1), lines.begin() + end);
  return writeLines(lines, file);
}

}  // namespace ql
