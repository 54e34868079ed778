#include "treemap/TypesTable.h"

#include <charconv>

#include "lang/TL.h"
#include "report/SizeFormat.h"

namespace ql {

namespace {
void quoted(std::string& out, std::string_view field) {
  out += '"';
  for (char c : field) {
    if (c == '"') out += '"';
    out += c;
  }
  out += '"';
}

void number(std::string& out, int64_t v) {
  char buf[24];
  const auto r = std::to_chars(buf, buf + sizeof buf, v);
  out.append(buf, r.ptr);
}
}  // namespace

std::string typesTableCsv(const std::vector<TypeRow>& rows) {
  std::string out;
  const QString headings[4] = {TL(4490, "Endung"), TL(3624, "Dateien"),
                               TL(3623, "Größe") + " (Bytes)", TL(4491, "Prozent")};
  for (int i = 0; i < 4; ++i) {
    quoted(out, headings[i].toStdString());
    out += i == 3 ? "\r\n" : ";";
  }
  long double total = 0;
  for (const TypeRow& r : rows) total += r.bytes;
  for (const TypeRow& r : rows) {
    quoted(out, r.extension.empty() ? std::string_view("none") : std::string_view(r.extension));
    out += ';';
    number(out, r.files);
    out += ";\"";
    number(out, r.bytes);
    out += "\";\"";
    const double percent = total > 0 ? static_cast<double>(r.bytes / total * 100) : 0.0;
    out += plainFixed(percent, 2).toStdString();
    out += "\"\r\n";
  }
  return out;
}

}  // namespace ql
