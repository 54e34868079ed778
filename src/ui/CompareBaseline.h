#pragma once
// An earlier measurement the report is compared with: an export (or a kept snapshot of a source)
// read beside the window into a tree of its own, and for the report's branch of that source what
// each folder held then. The report tree itself is never changed.
//
// What is kept of the baseline: its folders (a ReportTree) and, for the largest-files list, one
// 64-bit hash of each file's path below the root with its size (16 bytes a file, no names).
//
// Threads: the user-interface thread owns this object and the report tree. The import and the
// match run on threads of their own. A loaded baseline is never changed again, so workers and
// the owner read it side by side; the match works on a flat copy of the report's branch taken
// on the owner thread, so no worker reads the report tree. Results come back queued and are
// dropped when the tree was cleared meanwhile or a newer job has started.

#include <QObject>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "json/JsonImport.h"
#include "report/ReportTree.h"

namespace ql {

class CompareBaseline : public QObject {
  Q_OBJECT
 public:
  // What the last match found for one row of the report.
  struct Change {
    int64_t oldSize = 0, oldFiles = 0;
    bool known = false;  // the row was there when the match was made
    bool isNew = false;  // the baseline has no such folder
  };
  // The baseline's folders that the report no longer has, directly below one row.
  struct Gone {
    int count = 0;
    int64_t bytes = 0, files = 0;
    QStringList names;  // the first few
  };
  // One folder of the baseline that is gone, below a row that is still there.
  struct GoneFolder {
    uint32_t parent;  // the report's node
    QString name;
    int64_t size, files;  // as it was
  };

  explicit CompareBaseline(const ReportTree& tree, QObject* parent = nullptr);
  ~CompareBaseline() override;

  // Reads the export in `file` beside the window, for the report's source whose path is
  // `source`; `options` count the sizes as the report counts them. The baseline in use stays
  // until the new one has been read; a file that cannot be read changes nothing (loaded() says
  // why).
  void load(const std::string& file, const std::string& source, const ImportOptions& options);
  // Back to the plain report: the baseline and every result are dropped.
  void clear();
  bool active() const { return static_cast<bool>(data_); }
  bool loading() const { return static_cast<bool>(loadJob_); }
  bool comparing() const { return static_cast<bool>(matchJob_); }
  const std::string& source() const { return source_; }
  const std::string& file() const { return file_; }

  // The baseline's folders, for a reader on any thread (a loaded baseline never changes): they
  // live as long as the pointer, and `root` is the source's folder among them. Null without one.
  std::shared_ptr<const ReportTree> folders(uint32_t& root) const;

  // Matches the report's branch of the source against the baseline on a worker; compared() says
  // when the values are there. False (nothing starts) when the source is not in the report.
  bool compare();

  // Nothing where the last match did not see the row (it came later, or there is no baseline).
  const Change* change(uint32_t node) const {
    return node < changes_.size() && changes_[node].known && tree_.generation() == generation_
               ? &changes_[node]
               : nullptr;
  }
  // The row's change in bytes and files; what the match did not see counts 0.
  int64_t changeOf(uint32_t node) const;
  int64_t filesChangeOf(uint32_t node) const;
  Gone gone(uint32_t node) const;
  // Every gone folder the last match found, in the order of their parents' nodes.
  std::vector<GoneFolder> goneFolders() const;
  // Rows of the report came or went: what the last match said of gone folders no longer holds
  // (their parents may be gone too), and a match under way is out of date. The values of the
  // rows stay until the next match.
  void treeChanged();
  // Whether a file of the report (its full path, its size as counted) is new since the baseline
  // or larger than it was there.
  bool newOrGrown(std::string_view path, int64_t size) const;

 Q_SIGNALS:
  // The read ended; "" when the baseline is in use now, else why the file was not taken.
  void loaded(const QString& error);
  void compared();

 private:
  struct Data;
  struct LoadJob;
  struct MatchJob;
  void deliverLoad(const std::shared_ptr<LoadJob>& job);
  void deliverMatch(const std::shared_ptr<MatchJob>& job);

  const ReportTree& tree_;
  std::shared_ptr<const Data> data_;
  std::shared_ptr<LoadJob> loadJob_;
  std::shared_ptr<MatchJob> matchJob_;
  std::string source_, file_;
  uint64_t generation_ = 0;                          // of the report tree the results belong to
  std::vector<Change> changes_;                      // by report node
  std::vector<std::pair<uint32_t, uint32_t>> gone_;  // (report node, baseline node), sorted
};

// 64-bit FNV-1a, continued from `h`: a folder's hash is taken once for all its files.
constexpr uint64_t kPathHashStart = 14695981039346656037ull;
inline uint64_t pathHash(std::string_view bytes, uint64_t h = kPathHashStart) {
  for (const char c : bytes) h = (h ^ static_cast<unsigned char>(c)) * 1099511628211ull;
  return h;
}

}  // namespace ql
