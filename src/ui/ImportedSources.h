#pragma once
// Measurements read from a JSON export rather than from the disk: the import runs beside the
// window into a tree of its own, which then joins the report as a source. The files of each
// imported folder are kept, so that the file list can show them without the disk.
//
// Threads: the user-interface thread owns this and the report tree; the import runs on a thread
// of its own and hands its tree over whole.

#include <QObject>
#include <QString>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "json/JsonImport.h"
#include "lists/FileRow.h"
#include "report/ReportTree.h"

namespace ql {

class FileFeed;

class ImportedSources : public QObject {
  Q_OBJECT
 public:
  explicit ImportedSources(ReportTree& tree, QObject* parent = nullptr);
  ~ImportedSources() override;

  // Reads the export in `file` (bytes) beside the window; `feed` collects its largest files.
  // False when an import is under way already.
  bool start(const std::string& file, std::shared_ptr<FileFeed> feed, const ImportOptions& options);
  // Ends the import under way; nothing of it joins the report.
  void stop();
  bool busy() const { return static_cast<bool>(job_); }

  // Whether the node belongs to a source that came from an import.
  bool isImported(uint32_t node) const;
  // The row text of an imported source: its folder, the file it came from and when it was
  // measured; "" for every other node.
  QString caption(uint32_t root) const;
  // The files of an imported folder as list rows; false when the node is not imported (or was
  // read from the disk since).
  bool filesOf(uint32_t folder, std::vector<FileRow>& rows) const;
  // The folder was read from the disk again: its imported files are no longer what it holds.
  void forget(uint32_t folder);

 Q_SIGNALS:
  void progress(qint64 bytesRead, qint64 bytesTotal);
  // The import ended; on success `root` is the new source, otherwise `error` says why.
  void finished(uint32_t root, const QString& error);

 private:
  struct Job;
  struct Source {
    uint32_t root = kNoNode;
    uint32_t base = 0;   // the import's node i is the report's base + i
    uint32_t count = 0;  // nodes the import made
    uint64_t generation = 0;
    ImportedFiles files;
    bool allocated = false;
    std::vector<uint32_t> forgotten;
    QString caption;
  };
  void deliver(const std::shared_ptr<Job>& job);
  const Source* sourceOf(uint32_t node, uint32_t& local) const;

  ReportTree& tree_;
  std::shared_ptr<Job> job_;
  std::vector<std::unique_ptr<Source>> sources_;
};

// When the export says it was made (its metadata's timestamp), else the file's own time; -1 when
// neither can be read.
int64_t exportTimestamp(const std::string& file);

}  // namespace ql
