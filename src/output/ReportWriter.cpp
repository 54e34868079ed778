#include "output/ReportWriter.h"

#include <QFile>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <limits>

#include "lang/TL.h"
#include "output/OutputFile.h"
#include "support/Path.h"

namespace ql {

namespace {

QString sizeHeadingUnit(int unit) {
  switch (unit) {
    case 0: return QStringLiteral(" (Bytes)");
    case 1: return QStringLiteral(" (KB)");
    case 2: return QStringLiteral(" (MB)");
    case 3: return QStringLiteral(" (GB)");
    case 4: return QStringLiteral(" (TB)");
    default: return {};
  }
}

class Renderer {
 public:
  Renderer(const ReportTree& tree, const ReportSaveOptions& o, bool text, const NumberFormat& nf,
           const ReportWriter::Output& output)
      : tree_(tree), o_(o), text_(text), nf_(nf), output_(output) {}

  void run() {
    std::vector<uint32_t> tops;
    if (o_.onlyNode != kNoNode)
      tops.push_back(o_.onlyNode);
    else
      tops = tree_.roots().toVector();
    if (tops.empty()) return;

    // No limit for all levels, n + 1 for a number, 0 for what is expanded on the screen.
    switch (o_.levels) {
      case ReportSaveOptions::Levels::All: limit_ = std::numeric_limits<int64_t>::max(); break;
      case ReportSaveOptions::Levels::Count: limit_ = int64_t{o_.levelCount} + 1; break;
      case ReportSaveOptions::Levels::CurrentView: limit_ = 0; break;
    }

    QString headings[4] = {ReportWriter::sizeHeading(TL(3623, "Größe"), o_), TL(3624, "Dateien"),
                           TL(3625, "Ordner"), TL(3626, "Pfad")};
    // Column widths are measured from the first top row alone.
    const auto& first = tree_.node(tops[0]);
    widths_[0] = xFormatFileSizeWithSpacer(o_.unit, first.size, 1, false, o_.decimals, nf_).size();
    widths_[1] = xFormatFileSizeWithSpacer(o_.unit, first.files, 1, false, o_.decimals, nf_).size();
    widths_[2] = xFormatFileSizeWithSpacer(o_.unit, tree_.folders(tops[0]), 1, false, o_.decimals, nf_).size();
    if (text_) {
      for (int i = 0; i < 3; ++i) {
        if (headings[i].size() > widths_[i]) widths_[i] = static_cast<int>(headings[i].size());
        if (widths_[i] > headings[i].size())
          headings[i] += QString(widths_[i] - headings[i].size(), QLatin1Char(' '));
      }
      line(headings[0] + '\t' + headings[1] + '\t' + headings[2] + '\t' + headings[3]);
    } else {
      for (const int i : {3, 0, 1, 2}) {
        quoted(headings[i].toStdString());
        out_ += i == 2 ? "\r\n" : ";";
      }
    }

    for (uint32_t top : tops) {
      const std::string path(tree_.text(top));
      row(top, path, false);
      if (limit_ != 0 || tree_.hasFlag(top, ReportTree::Expanded)) TreeViewSpeichernR(top, path);
    }
    flush();
  }

 private:
  // The rows below a node, depth first. One path buffer serves every row: it is cut back to the
  // folder's own path whenever a folder is left.
  void TreeViewSpeichernR(uint32_t top, const std::string& topPath) {
    std::string path = topPath;
    std::vector<size_t> lengths;  // of the paths of the folders being walked
    tree_.forEachPreorder(
        top,
        [&](uint32_t item) {
          if (item == top) return lengths.push_back(path.size()), true;
          // Each folder entered has pushed its path length: their count is the item's level.
          if (limit_ != 0 && static_cast<int64_t>(lengths.size()) >= limit_) return false;
          path.resize(lengths.back());
          if (path.empty() || path.back() != '/') path.push_back('/');
          if (!tree_.isFolder(item)) {
            path.push_back('[');
            path.append(tree_.text(item));
            path.push_back(']');
            row(item, path, true);
            return false;
          }
          path.append(tree_.text(item));
          row(item, path, false);
          const bool descend = limit_ != 0 ? !tree_.children(item).empty() : tree_.hasFlag(item, ReportTree::Expanded);
          if (descend) lengths.push_back(path.size());
          return descend;
        },
        [&](uint32_t) { lengths.pop_back(); });
  }

  void number(int64_t v) {
    char buf[24];
    const auto r = std::to_chars(buf, buf + sizeof buf, v);
    out_.append(buf, r.ptr);
  }

  void row(uint32_t n, const std::string& path, bool fileRow) {
    const auto& node = tree_.node(n);
    const int64_t folders = fileRow ? 0 : tree_.folders(n);
    if (text_) {
      QString cols = xFormatFileSizeWithSpacer(o_.unit, node.size, widths_[0], false, o_.decimals, nf_);
      cols += '\t';
      cols += xFormatFileSizeWithSpacer(0, node.files, widths_[1], false, 1, nf_);
      cols += '\t';
      cols += xFormatFileSizeWithSpacer(0, folders, widths_[2], false, 1, nf_);
      cols += '\t';
      out_ += cols.toStdString();
      out_ += path;
    } else {
      quoted(path);
      out_ += ";\"";
      if (o_.unit == 0)
        number(node.size);
      else
        out_ += FormatFileSizeSave(o_.unit, o_.decimals, node.size, nf_).toStdString();
      out_ += "\";";
      number(node.files);
      out_ += ';';
      number(folders);
    }
    out_ += "\r\n";
    if (out_.size() >= kChunk) flush();
  }

  void flush() {
    if (!out_.empty()) output_(out_);
    out_.clear();
  }

  void quoted(std::string_view field) { ReportWriter::appendQuoted(out_, field); }

  void line(const QString& s) {
    out_ += s.toStdString();
    out_ += "\r\n";
  }

  const ReportTree& tree_;
  const ReportSaveOptions& o_;
  const bool text_;
  const NumberFormat& nf_;
  int64_t limit_ = 0;
  qsizetype widths_[3] = {0, 0, 0};
  const ReportWriter::Output& output_;
  static constexpr size_t kChunk = 256 * 1024;
  std::string out_;
};

}  // namespace

bool ReportWriter::isTextLayout(const std::string& fileName) {
  if (fileName.size() < 4) return false;
  std::string tail = fileName.substr(fileName.size() - 4);
  for (auto& c : tail) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return tail == ".txt";
}

QString ReportWriter::sizeHeading(const QString& word, const ReportSaveOptions& o) {
  // A size counted other than by default says how, so that two reports are not compared blindly.
  QStringList mode;
  if (o.allocated) mode << TL(4440, "belegt");
  if (o.linksOnce) mode << TL(4441, "Links einmal");
  const QString how =
      mode.isEmpty() ? QString() : QStringLiteral(" (") + mode.join(QStringLiteral(", ")) + ')';
  return word + how + sizeHeadingUnit(o.unit);
}

void ReportWriter::appendQuoted(std::string& out, std::string_view field) {
  out += '"';
  for (size_t at = 0;;) {
    const size_t q = field.find('"', at);
    out.append(field.substr(at, q == std::string_view::npos ? q : q + 1 - at));
    if (q == std::string_view::npos) break;
    out += '"';
    at = q + 1;
  }
  out += '"';
}

void ReportWriter::render(const ReportTree& tree, const ReportSaveOptions& options, bool textLayout,
                          const Output& output, const NumberFormat& nf) {
  Renderer(tree, options, textLayout, nf, output).run();
}

std::string ReportWriter::render(const ReportTree& tree, const ReportSaveOptions& options,
                                 bool textLayout, const NumberFormat& nf) {
  std::string all;
  render(tree, options, textLayout, [&all](std::string_view piece) { all.append(piece); }, nf);
  return all;
}

bool ReportWriter::SPEICHERN(const ReportTree& tree, const std::string& fileName,
                             const ReportSaveOptions& options, QString& errorText,
                             const NumberFormat& nf, int* errorCode) {
  OutputFile file;
  if (file.open(fileName)) {
    render(tree, options, isTextLayout(fileName),
           [&](std::string_view piece) { file.write(piece); }, nf);
    if (file.commit()) return true;
  }
  errorText = QFile::decodeName(QByteArray::fromStdString(file.error()));
  if (errorCode) *errorCode = file.errorCode();
  return false;
}

QString ReportWriter::failureReason(int err) {
  switch (err) {
    case EACCES:
    case EPERM:
      return TL(4404, "Keine Berechtigung");
    case EROFS:
      return TL(4405, "Das Dateisystem ist schreibgeschützt");
    case ENOSPC:
    case EDQUOT:
      return TL(4406, "Kein Platz mehr auf dem Datenträger");
    case ENOENT:
      return TL(4407, "Der Ordner existiert nicht");
    case ENOTDIR:
      return TL(4408, "Ein Teil des Pfades ist kein Ordner");
    case ENAMETOOLONG:
      return TL(4409, "Der Name ist zu lang");
    case EISDIR:
      return TL(4410, "Das Ziel ist ein Ordner");
    default:
      return QString::fromStdString(systemErrorText(err));
  }
}

void ReportWriter::removeTemporaryOnInterrupt() { OutputFile::removeTemporaryOnInterrupt(); }

}  // namespace ql
