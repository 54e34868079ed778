#pragma once
// Whole files in and out, for the tests' set-ups and checks: a file that cannot be read reads as
// empty, and one that cannot be written fails the test.

#include <gtest/gtest.h>
#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <string>

namespace ql::test {

inline QString qpath(const std::string& path) {
  return QFile::decodeName(QByteArray::fromStdString(path));
}

inline QByteArray readFile(const QString& path) {
  QFile f(path);
  return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}
inline QByteArray readFile(const std::string& path) {
  return readFile(qpath(path));
}

// Makes the folder on the way.
inline void writeFile(const QString& path, const QByteArray& bytes) {
  QDir().mkpath(QFileInfo(path).path());
  QFile f(path);
  EXPECT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size())
      << path.toStdString();
}
inline void writeFile(const std::string& path, const QByteArray& bytes) {
  writeFile(qpath(path), bytes);
}

}  // namespace ql::test
