#include "app/CompareRun.h"

#include <sys/stat.h>
#include <QFile>
#include <charconv>

#include "app/Settings.h"
#include "app/SilentRun.h"
#include "failure/FailureReport.h"
#include "json/JsonImport.h"
#include "lang/TL.h"
#include "output/OutputFile.h"
#include "output/ReportWriter.h"
#include "report/Compare.h"
#include "scan/ScanDriver.h"
#include "support/Globals.h"
#include "support/Path.h"

namespace ql {

namespace {

QString shown(const std::string& path) {
  return QFile::decodeName(QByteArray::fromStdString(path));
}

}  // namespace

uint32_t measure(const std::string& what, ReportTree& tree, const ScanDriver::Settings& settings,
                 Stop& stop) {
  struct stat st {};
  if (::stat(what.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
    ScanDriver driver(tree, stop);
    driver.setSettings(settings);
    bool refused = false;
    QObject::connect(
        &driver, &ScanDriver::sourceRefused,
        [&refused](const QString& path, const QString& reason) {
          refused = true;
          FailureReport(QStringLiteral("QuelleEinlesen"), QStringLiteral("frmMain"), 0,
                        TL(4044, "Der Ordner '%1' kann nicht gelesen werden: %2", {path, reason}),
                        {path});
        });
    driver.sourceQueue().assign(1, what);
    driver.runToEnd();
    if (refused) return kNoNode;
    if (tree.roots().size() == 1) return tree.roots().front();
    FailureReport(QStringLiteral("QuelleEinlesen"), QStringLiteral("frmMain"), 0,
                  TL(3990, "Keiner der angegebenen Ordner ist vorhanden."), {shown(what)});
    return kNoNode;
  }
  return importForSilentRun(what, tree, settings, stop);
}

namespace {

// Writes the rows as the report writes a tree: the same layouts, headings, quoting and units.
class CompareRenderer {
 public:
  CompareRenderer(const std::vector<CompareRow>& rows, const ReportTree& oldTree,
                  const ReportTree& newTree, const ReportSaveOptions& o, bool text,
                  const ReportWriter::Output& output)
      : rows_(rows), old_(oldTree), new_(newTree), o_(o), text_(text), output_(output) {}

  void run() {
    QString headings[6] = {ReportWriter::sizeHeading(TL(4470, "Größe alt"), o_),
                           ReportWriter::sizeHeading(TL(4471, "Größe neu"), o_),
                           ReportWriter::sizeHeading(TL(4472, "Änderung"), o_),
                           TL(4473, "Dateien alt"),
                           TL(4474, "Dateien neu"),
                           TL(3626, "Pfad")};
    if (text_) {
      // The widest number of a column is its largest or its most negative value.
      int64_t lo[5] = {0, 0, 0, 0, 0}, hi[5] = {0, 0, 0, 0, 0};
      for (const CompareRow& r : rows_) {
        const int64_t v[5] = {r.oldSize, r.newSize, r.change(), r.oldFiles, r.newFiles};
        for (int i = 0; i < 5; ++i) lo[i] = std::min(lo[i], v[i]), hi[i] = std::max(hi[i], v[i]);
      }
      for (int i = 0; i < 5; ++i) {
        widths_[i] =
            std::max({headings[i].size(), cell(i, lo[i], 0).size(), cell(i, hi[i], 0).size()});
        headings[i] = headings[i].leftJustified(widths_[i]);
      }
      QStringList line(headings, headings + 6);
      out_ += line.join(QLatin1Char('\t')).toStdString();
    } else {
      for (const int i : {5, 0, 1, 2, 3, 4}) {
        if (i != 5) out_ += ';';
        ReportWriter::appendQuoted(out_, headings[i].toStdString());
      }
    }
    out_ += "\r\n";

    std::string path;
    std::vector<size_t> lengths;  // of the paths of the rows above, by level
    for (const CompareRow& r : rows_) {
      if (r.level == 0) {
        // Sides measured in different places are shown where the new one was.
        path = new_.text(r.newNode);
      } else {
        path.resize(lengths[r.level - 1]);
        if (path.empty() || path.back() != '/') path.push_back('/');
        if (r.filesRow) path.push_back('[');
        path.append(compareName(r, old_, new_));
        if (r.filesRow) path.push_back(']');
      }
      lengths.resize(r.level);
      lengths.push_back(path.size());
      row(r, path);
    }
    if (!out_.empty()) output_(out_);
  }

 private:
  QString cell(int column, int64_t v, int width) const {
    return column < 3 ? xFormatFileSizeWithSpacer(o_.unit, v, width, false, o_.decimals)
                      : xFormatFileSizeWithSpacer(0, v, width, false, 1);
  }

  void row(const CompareRow& r, const std::string& path) {
    const bool has[5] = {r.hasOld, r.hasNew, true, r.hasOld, r.hasNew};
    const int64_t v[5] = {r.oldSize, r.newSize, r.change(), r.oldFiles, r.newFiles};
    if (text_) {
      QString cols;
      for (int i = 0; i < 5; ++i) {
        cols += has[i] ? cell(i, v[i], widths_[i]) : QString(widths_[i], QLatin1Char(' '));
        cols += QLatin1Char('\t');
      }
      out_ += cols.toStdString();
      out_ += path;
    } else {
      ReportWriter::appendQuoted(out_, path);
      for (int i = 0; i < 5; ++i) {
        out_ += ';';
        if (!has[i]) continue;  // a side where the folder is not: an empty cell
        // Sizes in quotes, as the report writes them (a unit's decimal point may be a comma).
        if (i < 3) out_ += '"';
        if (i < 3 && o_.unit != 0) {
          out_ += FormatFileSizeSave(o_.unit, o_.decimals, v[i]).toStdString();
        } else {
          char buf[24];
          out_.append(buf, std::to_chars(buf, buf + sizeof buf, v[i]).ptr);
        }
        if (i < 3) out_ += '"';
      }
    }
    out_ += "\r\n";
    if (out_.size() >= 256 * 1024) {
      output_(out_);
      out_.clear();
    }
  }

  const std::vector<CompareRow>& rows_;
  const ReportTree& old_;
  const ReportTree& new_;
  const ReportSaveOptions& o_;
  const bool text_;
  const ReportWriter::Output& output_;
  qsizetype widths_[5] = {0, 0, 0, 0, 0};
  std::string out_;
};

}  // namespace

int runCompare(const ParsedCommandLine& job) {
  globals().SilentMode = true;
  MainOptions o;
  const ScanDriver::Settings settings = silentSettings(job, o);  // as the silent run counts
  ReportWriter::removeTemporaryOnInterrupt();

  static Stop stop;  // for the whole run: the error report shows it
  setFailureStop(&stop);
  const int failuresBefore = failureCount();
  ReportTree oldTree, newTree;
  const uint32_t oldRoot = measure(job.compareOld, oldTree, settings, stop);
  const uint32_t newRoot = measure(job.compareNew, newTree, settings, stop);
  // Half a comparison is none: each failure was told as it came, and no report is written.
  if (oldRoot == kNoNode || newRoot == kNoNode || failureCount() != failuresBefore) return 1;

  ReportSaveOptions options;
  options.unit = o.FileSizeFormat >= 0 && o.FileSizeFormat <= 3 ? o.FileSizeFormat : 0;
  options.decimals = o.SizeFormatNachkommastellenFolders ? 1 : 0;
  options.allocated = settings.mode.allocated;
  options.linksOnce = settings.mode.linksOnce;
  const uint32_t maxLevel =
      job.outputLevels == 0 ? UINT32_MAX : static_cast<uint32_t>(job.outputLevels);
  const std::vector<CompareRow> rows = compareTrees(oldTree, oldRoot, newTree, newRoot, maxLevel);

  OutputFile file;
  if (file.open(job.outputFile)) {
    CompareRenderer(rows, oldTree, newTree, options, ReportWriter::isTextLayout(job.outputFile),
                    [&file](std::string_view piece) { file.write(piece); })
        .run();
    if (file.commit()) return 0;
  }
  FailureReport(QStringLiteral("SPEICHERN"), QStringLiteral("frmSave"), 0, shown(file.error()));
  return 1;
}

}  // namespace ql
