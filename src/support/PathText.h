#pragma once
// A path's bytes as text for display, and a typed name as bytes. Use only at the edge: every
// operation works on the bytes.

#include <QByteArray>
#include <QFile>
#include <QString>
#include <string>
#include <string_view>

namespace ql {

inline QString pathText(std::string_view bytes) {
  return QFile::decodeName(QByteArray(bytes.data(), static_cast<qsizetype>(bytes.size())));
}

inline std::string pathBytes(const QString& text) { return QFile::encodeName(text).toStdString(); }

}  // namespace ql
