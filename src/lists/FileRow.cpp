#include "lists/FileRow.h"

#include <array>

#include <linux/stat.h>
#include <QFile>
#include <QMimeDatabase>
#include <QMimeType>
#include <QStandardPaths>
#include <QXmlStreamReader>
#include <ctime>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "lang/TL.h"
#include "support/Path.h"

namespace ql {

namespace {

// Names that the MIME globs cannot tell apart share one lookup. A lookup costs microseconds
// with an ending and tens of them without one, so a folder of 100,000 unique names must not ask
// for each. The key is the last two dot-separated parts (enough for "tar.gz"), with a part made
// of digits alone standing for any number ("photo.2021.jpg" and "photo.2022.jpg" share ".#.jpg");
// a name without a dot loses its trailing digits ("log1", "log2" share "log").
std::string typeKey(std::string_view name) {
  std::string key;
  const size_t last = name.rfind('.');
  if (last == std::string_view::npos || last == 0) {
    size_t end = name.size();
    while (end > 1 && name[end - 1] >= '0' && name[end - 1] <= '9') --end;
    key.assign(name.substr(0, end));
  } else {
    const size_t before = name.rfind('.', last - 1);
    const size_t from = before == std::string_view::npos ? last : before;
    for (size_t p = from; p < name.size();) {
      // One part: the dot and what follows up to the next dot.
      size_t next = name.find('.', p + 1);
      if (next == std::string_view::npos) next = name.size();
      const std::string_view part = name.substr(p + 1, next - p - 1);
      key += '.';
      if (!part.empty() && part.find_first_not_of("0123456789") == std::string_view::npos)
        key += '#';
      else
        key.append(part);
      p = next;
    }
    if (before == std::string_view::npos && name[0] != '.') key.insert(0, "*");
  }
  for (char& c : key)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return key;
}

// The name of a type in the window's language. QMimeType::comment() follows the locale of the
// process, which is the system's and may be another: the comments are read from the type's own
// description in the shared MIME database (the comment without a language is the English one).
QString commentInLanguage(const QMimeType& mime) {
  const int lang = language();
  const QString want = lang == kLangEnglish   ? QString()
                       : lang == kLangRussian ? QStringLiteral("ru")
                                              : QStringLiteral("de");
  QFile file(
      QStandardPaths::locate(QStandardPaths::GenericDataLocation,
                             QStringLiteral("mime/") + mime.name() + QStringLiteral(".xml")));
  if (file.fileName().isEmpty() || !file.open(QIODevice::ReadOnly)) return mime.comment();
  QXmlStreamReader xml(&file);
  QString exact, regional, english;  // "de", "de_AT" or the like, and the one without a language
  while (xml.readNextStartElement()) {
    if (xml.name() == QLatin1String("mime-type")) continue;  // into the type's own elements
    if (xml.name() != QLatin1String("comment")) {
      xml.skipCurrentElement();
      continue;
    }
    const QString tag = xml.attributes().value(QLatin1String("xml:lang")).toString();
    const QString text = xml.readElementText();
    if (tag.isEmpty()) english = text;
    if (tag == want)
      exact = text;
    else if (!want.isEmpty() && regional.isEmpty() && tag.startsWith(want) &&
             tag.size() > want.size() &&
             (tag[want.size()] == QLatin1Char('_') || tag[want.size()] == QLatin1Char('-')))
      regional = text;
  }
  if (!exact.isEmpty()) return exact;
  if (!regional.isEmpty()) return regional;
  return english.isEmpty() ? mime.comment() : english;
}

}  // namespace

const FileType* fileTypeOf(std::string_view name) {
  static std::mutex mutex;
  static std::unordered_map<std::string, std::unique_ptr<FileType>> cache;
  static const FileType none;
  if (name.empty()) return &none;
  std::string key = typeKey(name);
  {
    std::lock_guard lock(mutex);
    if (auto it = cache.find(key); it != cache.end()) return it->second.get();
  }
  // Asked outside the lock: the database is thread-safe, and a slow first lookup must not hold
  // up the other readers. Two threads may both ask; the first answer stays.
  static const QMimeDatabase db;
  const QMimeType mime = db.mimeTypeForFile(QFile::decodeName(QByteArray(name.data(), static_cast<qsizetype>(name.size()))),
                                            QMimeDatabase::MatchExtension);
  auto type = std::make_unique<FileType>();
  if (mime.isValid() && !mime.isDefault()) {
    type->name = commentInLanguage(mime);
    type->iconName = mime.iconName();
    type->genericIconName = mime.genericIconName();
  }
  std::lock_guard lock(mutex);
  auto [it, added] = cache.emplace(std::move(key), std::move(type));
  return it->second.get();
}

const QString& attributeText(uint8_t bits) {
  // Eight letters make 256 texts, made once and shared by every row.
  static const std::array<QString, 256> texts = [] {
    std::array<QString, 256> all;
    for (unsigned b = 0; b < all.size(); ++b)
      for (int i = 0; i < 8; ++i)
        if (b & (1u << i)) all[b] += QLatin1Char("SHRELCIP"[i]);
    return all;
  }();
  return texts[bits];
}

uint8_t attributeBitsOf(std::string_view name, uint32_t mode, int64_t size, uint64_t blocks,
                        uint64_t attributes) {
  unsigned bits = 0;
  if (!S_ISREG(mode) && !S_ISLNK(mode)) bits |= 1;
  if (!name.empty() && name.front() == '.') bits |= 2;
  if (!(mode & S_IWUSR) && !S_ISLNK(mode)) bits |= 4;
  if (attributes & STATX_ATTR_ENCRYPTED) bits |= 8;
  if (S_ISLNK(mode)) bits |= 16;
  if (attributes & STATX_ATTR_COMPRESSED) bits |= 32;
  if (attributes & STATX_ATTR_NODUMP) bits |= 64;
  if (S_ISREG(mode) && size > 0 && static_cast<int64_t>(blocks) * 512 < size) bits |= 128;
  return static_cast<uint8_t>(bits);
}

QString attributeLetters(std::string_view name, uint32_t mode, int64_t size, uint64_t blocks,
                         uint64_t attributes) {
  return attributeText(attributeBitsOf(name, mode, size, blocks, attributes));
}

const std::string& FileRow::folder() const {
  static const std::string none;
  return where ? where->bytes : none;
}

const QString& FileRow::folderText() const {
  static const QString none;
  return where ? where->text : none;
}

namespace {
// Rows of one ending share one text (for the first few thousand endings met).
QString sharedExtension(const std::string& extension) {
  static std::mutex mutex;
  static std::unordered_map<std::string, QString> texts;
  std::lock_guard lock(mutex);
  if (auto it = texts.find(extension); it != texts.end()) return it->second;
  QString text = QString::fromStdString(extension).toUpper();
  if (texts.size() < 4096) texts.emplace(extension, text);  // odd endings by the thousand: no
  return text;
}
}  // namespace

QString FileRow::extension() const { return sharedExtension(extensionOf(name)); }

const QString& FileRow::attributes() const { return attributeText(attributeBits); }

void completeRow(FileRow& row, uint32_t mode, uint64_t blocks, uint64_t attributes) {
  row.text = QFile::decodeName(QByteArray(row.name.data(), static_cast<qsizetype>(row.name.size())));
  row.attributeBits = attributeBitsOf(row.name, mode, row.size, blocks, attributes);
  row.type = fileTypeOf(row.name);
}

QString listDate(int64_t secondsSinceEpoch) {
  if (secondsSinceEpoch < 0) return {};
  const time_t t = static_cast<time_t>(secondsSinceEpoch);
  struct tm local;
  if (!::localtime_r(&t, &local)) return {};
  char text[80];
  std::snprintf(text, sizeof text, "%02d/%02d/%04d %02d:%02d:%02d", local.tm_mday, local.tm_mon + 1,
                local.tm_year + 1900, local.tm_hour, local.tm_min, local.tm_sec);
  return QString::fromLatin1(text);
}

}  // namespace ql
