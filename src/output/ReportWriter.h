#pragma once
// Writes the report tree to a file: a column text when the name ends in ".txt" (any case), a
// semicolon-separated table otherwise (RFC 4180 quoting). Lines end in CR LF. Names are written
// as their bytes. Everything written comes from the tree as measured; nothing is read from the disk.

#include <QString>
#include <functional>
#include <string>
#include <vector>

#include "report/ReportTree.h"
#include "report/SizeFormat.h"

namespace ql {

struct ReportSaveOptions {
  enum class Levels { All, Count, CurrentView };
  Levels levels = Levels::All;
  int levelCount = 0;          // with Levels::Count: levels below the top row
  uint32_t onlyNode = kNoNode; // kNoNode: every source; otherwise this node's branch
  int unit = 0;                // 0 Bytes, 1 KB, 2 MB, 3 GB
  int decimals = 1;            // 1: two places
  bool allocated = false;      // the sizes held are allocated sizes: the heading says so
  bool linksOnce = false;      // ... and count a hard-linked file once
};

class ReportWriter {
 public:
  // Levels argument of the command line: 0 all levels, n the top rows and n levels below them.
  static ReportSaveOptions::Levels levelsFromNumber(int n) {
    return n == 0 ? ReportSaveOptions::Levels::All : ReportSaveOptions::Levels::Count;
  }
  static bool isTextLayout(const std::string& fileName);
  // A size column's heading: `word`, how sizes were counted when not by default, and the unit.
  static QString sizeHeading(const QString& word, const ReportSaveOptions& options);
  // Appends a field of the table in double quotes, a quote inside it doubled.
  static void appendQuoted(std::string& out, std::string_view field);

  // Hands the report out in pieces, in order.
  using Output = std::function<void(std::string_view)>;
  static void render(const ReportTree& tree, const ReportSaveOptions& options, bool textLayout,
                     const Output& output, const NumberFormat& nf = NumberFormat::system());
  // The whole report as bytes.
  static std::string render(const ReportTree& tree, const ReportSaveOptions& options,
                            bool textLayout, const NumberFormat& nf = NumberFormat::system());
  // Writes the report to `fileName` by the rules of OutputFile: "-" is standard output (in the
  // CSV layout), a pipe or a device is written into, a file is replaced only once the new one is
  // complete (a failure leaves the old one untouched), and a link is followed only where it is
  // safe. false with errorText on failure, ready to be shown, and in `errorCode` (when given)
  // its errno value, 0 when there is none.
  static bool SPEICHERN(const ReportTree& tree, const std::string& fileName,
                        const ReportSaveOptions& options, QString& errorText,
                        const NumberFormat& nf = NumberFormat::system(), int* errorCode = nullptr);
  // Why a file could not be written, in the language of the run: what a user can mend
  // (permissions, a full or read-only disk, a folder that is not there) in words of our own,
  // anything else in the system's.
  static QString failureReason(int err);
  // SIGTERM, SIGINT and SIGHUP remove the temporary file of a report being written, then end
  // the process as they would have.
  static void removeTemporaryOnInterrupt();
};

}  // namespace ql
