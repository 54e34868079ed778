#include "drives/DriveSizes.h"

#include <limits>
#include <thread>

namespace ql {

int freePercent(int64_t free, int64_t total) {
  if (total <= 0) return 0;
  if (free <= 0) return 0;
  if (free >= total) return 100;
  // Exact: 100 * free never overflows in 128 bits, and a half is a remainder of total / 2.
  const __int128 scaled = static_cast<__int128>(free) * 100;
  int64_t q = static_cast<int64_t>(scaled / total);
  const __int128 twice = (scaled % total) * 2;
  if (twice > total || (twice == total && (q % 2) != 0)) ++q;
  return static_cast<int>(q);
}

SizeFigures figuresOf(const DriveSizes& s) {
  SizeFigures f;
  if (s.total <= 0) return f;
  f.known = true;
  f.total = s.total;
  f.free = std::min(std::max<int64_t>(s.free, 0), s.total);
  f.used = f.total - f.free;
  f.cluster = s.cluster;
  f.usedPercent = 100 - freePercent(f.free, f.total);
  f.freePercent = 100 - f.usedPercent;
  return f;
}

DriveSizes readSizes(const std::string& path, const StatvfsFn& stat) {
  struct statvfs st {};
  const int rc = stat ? stat(path.c_str(), &st) : ::statvfs(path.c_str(), &st);
  DriveSizes s;
  if (rc != 0) return s;
  const unsigned long fragment = st.f_frsize ? st.f_frsize : st.f_bsize;
  constexpr auto kMax = static_cast<unsigned __int128>(std::numeric_limits<int64_t>::max());
  const unsigned __int128 total = static_cast<unsigned __int128>(st.f_blocks) * fragment;
  const unsigned __int128 free = static_cast<unsigned __int128>(st.f_bfree) * fragment;
  if (total == 0 || total > kMax) return s;
  s.total = static_cast<int64_t>(total);
  s.free = static_cast<int64_t>(std::min(free, total));
  s.cluster = static_cast<int64_t>(fragment);
  return s;
}

SizeReader::SizeReader(StatvfsFn stat, std::chrono::milliseconds limit)
    : stat_(std::move(stat)), limit_(limit), state_(std::make_shared<State>()) {}

SizeReader::~SizeReader() {
  std::lock_guard lock(state_->mutex);
  state_->notify = nullptr;
}

void SizeReader::setNotify(std::function<void()> notify) {
  std::lock_guard lock(state_->mutex);
  state_->notify = std::move(notify);
}

uint64_t SizeReader::start(const std::string& path) {
  {
    std::lock_guard lock(state_->mutex);
    if (state_->running[path] > 0) return 0;
    ++state_->running[path];
  }
  const uint64_t request = next_++;
  std::thread([state = state_, stat = stat_, limit = limit_, path, request] {
    const auto begun = Clock::now();
    DriveSizes s = readSizes(path, stat);
    if (Clock::now() - begun > limit) s = DriveSizes{};  // too late: the row stays as a failed read
    std::lock_guard lock(state->mutex);
    if (--state->running[path] == 0) state->running.erase(path);
    state->results.emplace_back(request, s);
    state->arrived.notify_all();
    if (state->notify) state->notify();
  }).detach();
  return request;
}

std::vector<std::pair<uint64_t, DriveSizes>> SizeReader::take() {
  std::lock_guard lock(state_->mutex);
  return std::exchange(state_->results, {});
}

size_t SizeReader::waitForResults(size_t count, Clock::time_point deadline) {
  std::unique_lock lock(state_->mutex);
  state_->arrived.wait_until(lock, deadline, [&] { return state_->results.size() >= count; });
  return state_->results.size();
}

}  // namespace ql
