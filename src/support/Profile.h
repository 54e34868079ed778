#pragma once
// The settings file: sections in square brackets and lines of key=value, UTF-8, LF line ends.
//
// Sections and keys are found without regard to case, the first of several wins. A value is read
// without the blanks around it and without one pair of enclosing double quotes, and cut at 2047
// characters; a value that would lose blanks or quotes that way is written in double quotes, so
// every value comes back as it was given. Line breaks inside a value become blanks: a value can
// never start a line of its own. Values can also be read and written as bytes (paths that are
// not UTF-8): those are neither decoded nor cut.
//
// A missing file reads as a file with no keys; the first write makes file and folder. Lines the
// program does not know (comments, other sections, bytes that are not UTF-8) are kept as they
// stand. A write goes to a sibling file that then replaces the old one, so a crash or a failed
// rename never leaves half a file. A file that exists but cannot be read is never written over.
// Neither is a damaged one: anything but a regular file (a pipe, a device, a link to one) or a
// file beyond kProfileSizeLimit reads as no keys, and the first reader of it in a run is handed
// the failure to report.
//
// Not thread-safe; the settings belong to the user-interface thread.

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>

#include "support/Failure.h"

namespace ql {

inline constexpr int kProfileValueLimit = 2047;
// A settings file is a few kilobytes; one this large has been damaged or is not ours.
inline constexpr qint64 kProfileSizeLimit = 4 << 20;

// One settings file in memory. Read and split into lines once; the sections and keys are indexed
// on first use, so a lookup costs no pass over the file. Changed in memory, written once by
// save(): callers that touch many keys at a time use it instead of one file access per key.
class ProfileDocument {
 public:
  explicit ProfileDocument(const QString& file);

  const QString& fileName() const { return file_; }
  // False when the file exists but could not be read or is damaged; save() then refuses to write.
  bool readable() const { return readable_; }
  // Set when the file is damaged and this is the run's first reader to find it so.
  const MaybeFailure& damage() const { return damage_; }

  QString get(const QString& section, const QString& key, const QString& deflt) const;
  void set(const QString& section, const QString& key, const QString& value);
  // The value's bytes as they stand in the file, uncut; `deflt` when section or key is missing.
  QByteArray getBytes(const QString& section, const QString& key, const QByteArray& deflt) const;
  void setBytes(const QString& section, const QString& key, const QByteArray& value);
  void deleteSection(const QString& section);

  bool isModified() const { return modified_; }
  // Writes the file when something changed; true when there was nothing to write.
  bool save();

 private:
  struct Range {
    int begin = -1;  // first body line, -1 when the section is missing
    int end = 0;     // the next section's header line or the end
  };
  Range findSection(const QString& section) const;
  int findKey(const QString& section, const QString& key) const;
  // Lines were added or removed: the index is built anew on the next lookup.
  void changed();

  QString file_;
  QList<QByteArray> lines_;
  bool readable_ = true;
  MaybeFailure damage_;
  bool modified_ = false;
  // Folded section name to its first copy; per section, folded key to its first line.
  mutable bool indexed_ = false;
  mutable QHash<QString, Range> sections_;
  mutable QHash<QString, QHash<QString, int>> keys_;
};

// The value, cut at 2047 characters; `deflt` (cut alike) when section or key is missing. Each call
// reads the file: readers of many keys hold one ProfileDocument instead.
// `damage` gets the document's damage() when asked for.
QString ProfileGetItem(const QString& section, const QString& key, const QString& deflt,
                       const QString& file, MaybeFailure* damage = nullptr);
// Returns false when the file could not be written; the old file then stands as it was.
bool ProfileSetItem(const QString& section, const QString& key, const QString& value,
                    const QString& file, MaybeFailure* damage = nullptr);
// Removes every section of that name with all its lines.
bool ProfileDeleteSection(const QString& section, const QString& file);

}  // namespace ql
