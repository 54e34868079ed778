#include "drives/DriveSizes.h"

#include <algorithm>
#include <limits>
#include <thread>

namespace ql {

int usedPercent(int64_t used, int64_t available) {
  used = std::max<int64_t>(used, 0);
  available = std::max<int64_t>(available, 0);
  if (used == 0 && available == 0) return 100;
  // 128 bits: 100 * used and used + available never overflow.
  const __int128 scaled = static_cast<__int128>(used) * 100;
  const __int128 base = static_cast<__int128>(used) + available;
  return static_cast<int>(scaled / base + (scaled % base != 0 ? 1 : 0));
}

SizeFigures figuresOf(const DriveSizes& s) {
  SizeFigures f;
  if (s.total <= 0) return f;
  f.known = true;
  f.total = s.total;
  const int64_t free = std::clamp<int64_t>(s.free, 0, s.total);
  f.free = std::clamp<int64_t>(s.available, 0, free);
  f.used = f.total - free;
  f.cluster = s.cluster;
  f.usedPercent = usedPercent(f.used, f.free);
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
  const unsigned __int128 available = static_cast<unsigned __int128>(st.f_bavail) * fragment;
  if (total == 0 || total > kMax) return s;
  s.total = static_cast<int64_t>(total);
  s.free = static_cast<int64_t>(std::min(free, total));
  s.available = static_cast<int64_t>(std::min(available, total));
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
