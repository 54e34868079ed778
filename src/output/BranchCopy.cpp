#include "output/BranchCopy.h"

namespace ql {

BranchCopy::BranchCopy(const ReportTree& source, uint32_t from, Depth depth, int levels)
    : source_(source), from_(from), depth_(depth), levels_(levels < 0 ? 0 : levels),
      generation_(source.generation()) {
  restart();
}

bool BranchCopy::startLive() const {
  if (source_.generation() != generation_) return false;
  return from_ == kNoNode || source_.isLive(from_);
}

void BranchCopy::restart() {
  copy_ = ReportTree();
  stack_.clear();
  nextTop_ = 0;
  expanded_ = 0;
  tops_.clear();
  if (!startLive()) return;
  if (from_ == kNoNode)
    tops_ = source_.roots().toVector();
  else
    tops_.push_back(from_);
}

bool BranchCopy::descends(uint32_t source, uint32_t level) const {
  if (source_.children(source).empty()) return false;
  switch (depth_) {
    case Depth::All: return true;
    case Depth::Levels: return level < static_cast<uint32_t>(levels_);
    case Depth::Expanded: return source_.hasFlag(source, ReportTree::Expanded);
  }
  return false;
}

uint32_t BranchCopy::copyNode(uint32_t source, uint32_t targetParent) {
  const auto& n = source_.node(source);
  const uint16_t flags = n.flags & ~ReportTree::Dead;
  const uint32_t t = targetParent == kSuperRoot ? copy_.addRoot(source_.text(source))
                                                : copy_.addChild(targetParent, source_.text(source), flags);
  copy_.setSizeAndFiles(t, n.size, n.files);
  copy_.setFolders(t, source_.folders(source));
  // A top row is made as a root; it keeps the share of its parent and the flags of the row it
  // copies. Rows below have their parents with them and work their shares out alike.
  for (const auto f : {ReportTree::IsFolder, ReportTree::Junction, ReportTree::Expanded, ReportTree::Faded,
                       ReportTree::HasFolders})
    copy_.setFlag(t, f, (flags & f) != 0);
  if (targetParent == kSuperRoot) copy_.setRootPercent(t, source_.percent(source));
  return t;
}

bool BranchCopy::step(size_t budget) {
  if (!startLive()) return true;
  for (size_t done = 0; done < budget;) {
    if (stack_.empty()) {
      if (nextTop_ >= tops_.size()) return true;
      const uint32_t top = tops_[nextTop_++];
      if (!source_.isLive(top)) continue;
      const uint32_t t = copyNode(top, kSuperRoot);
      ++done;
      if (descends(top, 0)) {
        stack_.push_back({top, t, 0});
        ++expanded_;
      }
      continue;
    }
    // Its own stack rather than the tree's forEachPreorder: the copy stops and resumes by slices.
    Frame& f = stack_.back();
    const ChildList kids = source_.children(f.source);
    if (f.next >= kids.size()) {
      stack_.pop_back();
      continue;
    }
    const uint32_t child = kids[f.next++];
    const uint32_t target = f.target;
    const uint32_t t = copyNode(child, target);
    ++done;
    const auto level = static_cast<uint32_t>(stack_.size());  // the copy's level of `t`
    if (descends(child, level)) {
      stack_.push_back({child, t, 0});
      ++expanded_;
    }
  }
  return stack_.empty() && nextTop_ >= tops_.size();
}

}  // namespace ql
