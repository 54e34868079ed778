#pragma once
// A private copy of the report, or of one branch of it, for the save and print dialogs: what
// they write or print is walked in a tree of its own, so that nothing the window does meanwhile
// (a rescan, a removal, a sort) can change it half-way. The copy is made a slice at a time, so
// that a caller can keep its window alive between slices.
//
// Threads: the owner thread of the source tree. The finished copy may go to any thread.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "report/ReportTree.h"

namespace ql {

class BranchCopy {
 public:
  enum class Depth {
    All,       // everything below the start
    Levels,    // rows down to `levels` below the start
    Expanded,  // what is open on the screen: the rows below expanded folders
  };

  // `from` kNoNode copies every source.
  BranchCopy(const ReportTree& source, uint32_t from, Depth depth, int levels = 0);

  // Copies up to `budget` more rows; true once the copy is complete.
  bool step(size_t budget);
  // Starts again from nothing (after the source changed under a slice).
  void restart();
  // The start is still there: a copy of a removed branch cannot be made.
  bool startLive() const;
  // Folders whose rows below have been copied so far.
  size_t expandedFolders() const { return expanded_; }
  // The finished copy; its top rows are roots, whatever their level was.
  ReportTree take() { return std::move(copy_); }

 private:
  struct Frame {
    uint32_t source;
    uint32_t target;
    size_t next;
  };
  uint32_t copyNode(uint32_t source, uint32_t targetParent);
  bool descends(uint32_t source, uint32_t level) const;

  const ReportTree& source_;
  const uint32_t from_;
  const Depth depth_;
  const int levels_;
  const uint64_t generation_;
  ReportTree copy_;
  std::vector<uint32_t> tops_;
  size_t nextTop_ = 0;
  std::vector<Frame> stack_;
  size_t expanded_ = 0;
};

}  // namespace ql
