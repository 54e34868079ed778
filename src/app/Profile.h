#pragma once
// The settings file: sections in square brackets and lines of key=value, UTF-8, LF line ends.
// Sections and keys are found without regard to case. A missing file reads as a file with no
// keys; the first write makes file and folder. Lines the program does not know (comments, other
// sections) are kept as they stand. A write goes to a sibling file that then replaces the old
// one, so a crash never leaves half a file.

#include <QString>

namespace ql {

inline constexpr int kProfileValueLimit = 2047;

// The value, cut at 2047 characters; `deflt` when section or key is missing.
QString ProfileGetItem(const QString& section, const QString& key, const QString& deflt,
                       const QString& file);
// Returns false when the file could not be written.
bool ProfileSetItem(const QString& section, const QString& key, const QString& value,
                    const QString& file);
bool ProfileDeleteSection(const QString& section, const QString& file);

}  // namespace ql
