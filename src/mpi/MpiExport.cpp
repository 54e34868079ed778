// quorlane-mpi: the JSON export walked by all ranks of an MPI job, for trees too large for one
// machine to walk in a day.
//
//   mpirun -n N quorlane-mpi [--export FILE] [-s[LEVELS] REPORT] [--exclude PATTERN]...
//                            [--size logical|allocated] [--links once|each] FOLDER
//
// Rank 0 is the writer. It runs the export's own walk (json/ExportWalk.h): it reads folders
// itself as the threaded export's writer does, and a helper thread hands the first folders in
// the writer's order that nobody has taken to the other ranks, a batch at a time and two batches
// per rank in flight, so a rank never waits for the next batch while it reads one. A rank reads
// each folder by its path with the same reader and sends back the folder's text and where its
// subfolders go. The text is the export's, byte for byte, whoever read what; rank 0 holds only
// the folders read ahead of the writer, never the tree.
//
// A coordinator rather than work stealing: the writer must have the folders in its own order,
// and handing out the first untaken ones is what keeps that order cheap (what is read is soon
// written) and the memory bounded. One rank's messages go through one thread, so the MPI library
// is asked for serialized calls only.
//
// A report (-s) is made from the finished export by the silent run's import, which gives the
// rows of a walk; without --export the export goes to a temporary file for that.
//
// Only for measurements and tests: QUORLANE_MPI_DELAY_US=N makes every rank wait N microseconds
// before each folder it reads (a slow network file system on one machine), and
// QUORLANE_MPI_ABORT=R:N makes rank R abort before its (N+1)th folder.

#include <mpi.h>

#include <unistd.h>
#include <QCoreApplication>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "app/CommandLine.h"
#include "app/Settings.h"
#include "app/SilentRun.h"
#include "app/Startup.h"
#include "json/ExportWalk.h"
#include "json/Zstd.h"
#include "output/OutputFile.h"
#include "support/Path.h"

using namespace ql;

namespace {

enum Tag : int { kStart = 1, kTasks, kResults, kEnd, kDone };
// Folders in one batch: enough that a message costs little beside the reading, few enough that
// the writer soon has the first of them.
constexpr size_t kBatch = 32;
constexpr size_t kBatchesInFlight = 2;

// --- Messages: native byte order, as all ranks of a job run one build. ---

void put32(std::string& out, uint32_t v) {
  out.append(reinterpret_cast<const char*>(&v), 4);
}
void put64(std::string& out, uint64_t v) {
  out.append(reinterpret_cast<const char*>(&v), 8);
}
void putText(std::string& out, std::string_view s) {
  put64(out, s.size());
  out.append(s);
}

// Reads what put* wrote; a short message reads as zeros and empty texts, and `bad` says so.
struct Reader {
  std::string_view in;
  bool bad = false;
  template <class T>
  T number() {
    T v{};
    if (in.size() < sizeof v) {
      bad = true;
      return v;
    }
    std::memcpy(&v, in.data(), sizeof v);
    in.remove_prefix(sizeof v);
    return v;
  }
  std::string_view text() {
    const auto n = number<uint64_t>();
    if (n > in.size()) {
      bad = true;
      return {};
    }
    const std::string_view s = in.substr(0, n);
    in.remove_prefix(n);
    return s;
  }
};

// Sleeps a little longer each time nothing came, up to 0.2 ms: an idle rank must not
// spin (MPI's own blocking calls do), and one with work never sleeps.
class Idle {
 public:
  void nothing() {
    std::this_thread::sleep_for(std::chrono::microseconds(wait_));
    wait_ = std::min(wait_ * 2, 200);
  }
  void something() { wait_ = 10; }

 private:
  int wait_ = 10;
};

std::string receive(const MPI_Status& status) {
  int count = 0;
  MPI_Get_count(&status, MPI_BYTE, &count);
  std::string buffer(static_cast<size_t>(count), '\0');
  MPI_Recv(buffer.data(), count, MPI_BYTE, status.MPI_SOURCE, status.MPI_TAG, MPI_COMM_WORLD,
           MPI_STATUS_IGNORE);
  return buffer;
}

// Sends without waiting; the text is kept until the send is done.
class Sends {
 public:
  void send(std::string text, int to, int tag) {
    auto& s = open_.emplace_back(Open{std::move(text), MPI_REQUEST_NULL});
    MPI_Isend(s.text.data(), static_cast<int>(s.text.size()), MPI_BYTE, to, tag, MPI_COMM_WORLD,
              &s.request);
  }
  void poll() {
    while (!open_.empty()) {
      int done = 0;
      MPI_Test(&open_.front().request, &done, MPI_STATUS_IGNORE);
      if (!done) return;
      open_.pop_front();
    }
  }
  void finish() {
    for (auto& s : open_) MPI_Wait(&s.request, MPI_STATUS_IGNORE);
    open_.clear();
  }

 private:
  struct Open {
    std::string text;
    MPI_Request request;
  };
  std::deque<Open> open_;  // a deque keeps the texts where they are
};

int envNumber(const char* name) {
  const char* v = std::getenv(name);
  return v ? std::atoi(v) : 0;
}

void simulatedLatency(ExportWalk& walk) {
  if (const int us = envNumber("QUORLANE_MPI_DELAY_US"); us > 0)
    walk.setBeforeRead(
        [us](const ExportFolder&) { std::this_thread::sleep_for(std::chrono::microseconds(us)); });
}

// --- The other ranks: read what rank 0 hands out until it says the end. ---

void appendResult(std::string& out, const ExportFolder& f) {
  put32(out, static_cast<uint32_t>(f.readError));
  put32(out, static_cast<uint32_t>(f.shortage));
  put64(out, f.entries);
  put64(out, f.files);
  put64(out, f.bytes);
  putText(out, f.text);
  put64(out, f.cuts.size());
  for (const auto& [offset, child] : f.cuts) {
    put64(out, offset);
    putText(out, std::string_view(child->path).substr(child->nameAt));
    putText(out, child->info);
  }
}

int runReader(int rank) {
  int abortAfter = -1;
  if (const char* a = std::getenv("QUORLANE_MPI_ABORT"); a && std::atoi(a) == rank)
    if (const char* colon = std::strchr(a, ':')) abortAfter = std::atoi(colon + 1);
  std::unique_ptr<ExportWalk> walk;
  DirReader reader = ExportWalk::makeReader();
  std::deque<std::vector<std::string>> batches;
  Sends sends;
  Idle idle;
  std::string out;
  size_t next = 0;  // in the first batch
  int read = 0;
  for (;;) {
    int flag = 0;
    MPI_Status status;
    MPI_Iprobe(0, MPI_ANY_TAG, MPI_COMM_WORLD, &flag, &status);
    if (flag) {
      idle.something();
      const std::string message = receive(status);
      if (status.MPI_TAG == kEnd) break;
      Reader in{message};
      if (status.MPI_TAG == kStart) {
        const std::string root(in.text());
        std::vector<std::string> excludes;
        for (auto n = in.number<uint64_t>(); n > 0 && !in.bad; --n)
          excludes.emplace_back(in.text());
        walk = std::make_unique<ExportWalk>(1, nullptr, excludes);
        walk->setRoot(root);
        simulatedLatency(*walk);
      } else if (status.MPI_TAG == kTasks) {
        auto& batch = batches.emplace_back();
        while (!in.in.empty() && !in.bad) batch.emplace_back(in.text());
      }
      continue;
    }
    sends.poll();
    if (batches.empty() || !walk) {
      idle.nothing();
      continue;
    }
    if (read++ == abortAfter) std::abort();
    ExportFolder f;
    f.path = std::move(batches.front()[next]);
    f.mountKnown = false;  // mount ids are this machine's own
    walk->readFolder(f, reader);
    appendResult(out, f);
    if (++next == batches.front().size()) {
      sends.send(std::move(out), 0, kResults);
      out.clear();
      batches.pop_front();
      next = 0;
    }
  }
  sends.finish();
  MPI_Send(nullptr, 0, MPI_BYTE, 0, kDone, MPI_COMM_WORLD);
  return 0;
}

// --- Rank 0: the walk, its helper and the signals. ---

class Coordinator {
 public:
  explicit Coordinator(int ranks) : peers_(static_cast<size_t>(ranks)) {}

  void start(ExportWalk& walk, const std::vector<std::string>& excludes) {
    std::string start;
    putText(start, walk.rootPath());
    put64(start, excludes.size());
    for (const auto& e : excludes) putText(start, e);
    for (size_t r = 1; r < peers_.size(); ++r) sends_.send(start, static_cast<int>(r), kStart);
  }

  // The helper thread, from the start of the walk to its end.
  void help(ExportWalk& walk, const std::vector<std::string>& excludes) {
    start(walk, excludes);
    Idle idle;
    std::vector<std::shared_ptr<ExportFolder>> batch;
    while (!walk.ended()) {
      bool busy = false;
      for (size_t r = 1; r < peers_.size(); ++r) {
        while (peers_[r].size() < kBatchesInFlight) {
          batch.clear();
          walk.take(batch, kBatch);
          if (batch.empty()) break;
          std::string tasks;
          for (const auto& f : batch) putText(tasks, f->path);
          sends_.send(std::move(tasks), static_cast<int>(r), kTasks);
          std::lock_guard lock(inHand_);
          peers_[r].push_back(batch);
          busy = true;
        }
      }
      int flag = 0;
      MPI_Status status;
      MPI_Iprobe(MPI_ANY_SOURCE, kResults, MPI_COMM_WORLD, &flag, &status);
      if (flag) {
        busy = true;
        if (!takeResults(walk, status)) {
          giveUp(walk);
          return;
        }
      }
      sends_.poll();
      if (busy)
        idle.something();
      else
        idle.nothing();
    }
  }

  // After the walk, with the helper gone: every rank is told the end, and what it still sends
  // is taken and dropped, so that no rank waits on a send when it ends.
  void finish() {
    for (size_t r = 1; r < peers_.size(); ++r)
      MPI_Send(nullptr, 0, MPI_BYTE, static_cast<int>(r), kEnd, MPI_COMM_WORLD);
    for (size_t done = 1; done < peers_.size();) {
      MPI_Status status;
      MPI_Probe(MPI_ANY_SOURCE, MPI_ANY_TAG, MPI_COMM_WORLD, &status);
      receive(status);
      if (status.MPI_TAG == kDone) ++done;
    }
    sends_.finish();
  }

  // What each rank had in hand, for the message of a run ended by a signal.
  std::string inHand() {
    std::lock_guard lock(inHand_);
    std::string text;
    for (size_t r = 1; r < peers_.size(); ++r) {
      size_t count = 0;
      for (const auto& b : peers_[r]) count += b.size();
      if (count == 0) continue;
      text += "quorlane-mpi: rank " + std::to_string(r) + " had " + peers_[r].front().front()->path;
      if (count > 1) text += " (and " + std::to_string(count - 1) + " more folders)";
      text += "\n";
    }
    return text;
  }

  std::string failure;  // a message that did not read as it should
  Stop stop;            // the walk's, for a failure here

 private:
  // Ends the walk: every folder out with the ranks comes back as stopped.
  void giveUp(ExportWalk& walk) {
    stop.request();
    std::lock_guard lock(inHand_);
    for (auto& queue : peers_)
      for (auto& batch : queue)
        for (const auto& f : batch) {
          f->text.clear();
          f->cuts.clear();
          f->readError = -1;
          walk.give(f);
        }
    for (auto& queue : peers_) queue.clear();
  }

  bool takeResults(ExportWalk& walk, const MPI_Status& status) {
    const std::string message = receive(status);
    auto& queue = peers_[static_cast<size_t>(status.MPI_SOURCE)];
    if (queue.empty()) {
      failure = "rank " + std::to_string(status.MPI_SOURCE) + " sent what it was not asked for";
      return false;
    }
    Reader in{message};
    for (const auto& f : queue.front()) {
      f->readError = static_cast<int>(in.number<uint32_t>());
      f->shortage = static_cast<int>(in.number<uint32_t>());
      f->entries = in.number<uint64_t>();
      f->files = in.number<uint64_t>();
      f->bytes = in.number<uint64_t>();
      f->text = in.text();
      for (auto n = in.number<uint64_t>(); n > 0 && !in.bad; --n) {
        const auto offset = in.number<uint64_t>();
        const std::string_view name = in.text();
        auto child = std::make_shared<ExportFolder>();
        child->path = joinPath(f->path, name);
        child->nameAt = static_cast<uint32_t>(child->path.size() - name.size());
        child->info = in.text();
        child->mountKnown = false;
        f->cuts.emplace_back(offset, std::move(child));
      }
      if (in.bad || f->text.size() < (f->cuts.empty() ? 0 : f->cuts.back().first)) {
        failure = "rank " + std::to_string(status.MPI_SOURCE) + " sent a damaged message";
        return false;
      }
    }
    std::vector<std::shared_ptr<ExportFolder>> done;
    {
      std::lock_guard lock(inHand_);
      done = std::move(queue.front());
      queue.pop_front();
    }
    for (const auto& f : done) walk.give(f);
    return true;
  }

  std::vector<std::deque<std::vector<std::shared_ptr<ExportFolder>>>> peers_;
  std::mutex inHand_;
  Sends sends_;
};

Coordinator* g_coordinator = nullptr;

// SIGTERM, SIGINT and SIGHUP reach this thread alone. mpirun ends every rank with SIGTERM when
// one of them dies, so rank 0 says what each rank had, then the output's own handler removes the
// temporary file and ends the process by the signal.
void watchSignals(sigset_t set) {
  int sig = 0;
  if (sigwait(&set, &sig) != 0) return;
  std::string text = std::string("quorlane-mpi: ended by ") + ::strsignal(sig) +
                     "; the export was not written (mpirun ends every rank when one dies)\n";
  if (g_coordinator) text += g_coordinator->inHand();
  [[maybe_unused]] const ssize_t n = ::write(2, text.data(), text.size());
  sigset_t one;
  sigemptyset(&one);
  sigaddset(&one, sig);
  pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
  ::raise(sig);
}

struct Options {
  std::string exportFile, report, folder;
  int levels = 0;
  int sizeAllocated = -1, linksOnce = -1;
  std::vector<std::string> excludes;
  std::string error;
  bool help = false, version = false;
};

Options parse(int argc, char** argv) {
  Options o;
  bool folders = false;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    const bool more = i + 1 < argc;
    if (folders || a.empty() || a[0] != '-' || a == "-") {
      if (!o.folder.empty()) o.error = "one folder only";
      o.folder = a;
    } else if (a == "--") {
      folders = true;
    } else if (a == "--help") {
      o.help = true;
    } else if (a == "--version") {
      o.version = true;
    } else if (a == "--export" && more) {
      o.exportFile = argv[++i];
    } else if (a == "--exclude" && more) {
      o.excludes.emplace_back(argv[++i]);
    } else if (a == "--size" && more) {
      const std::string v = argv[++i];
      o.sizeAllocated = v == "allocated" ? 1 : v == "logical" ? 0 : -2;
      if (o.sizeAllocated == -2) o.error = "--size takes logical or allocated";
    } else if (a == "--links" && more) {
      const std::string v = argv[++i];
      o.linksOnce = v == "once" ? 1 : v == "each" ? 0 : -2;
      if (o.linksOnce == -2) o.error = "--links takes once or each";
    } else if (a.starts_with("-s") && a.find_first_not_of("0123456789", 2) == std::string::npos &&
               more) {
      o.levels = a.size() > 2 ? std::atoi(a.c_str() + 2) : 0;
      o.report = argv[++i];
    } else {
      o.error = "unknown or incomplete option " + a;
    }
  }
  if (o.error.empty() && !o.help && !o.version) {
    if (o.folder.empty())
      o.error = "no folder given";
    else if (o.exportFile.empty() && o.report.empty())
      o.error = "--export FILE or -s REPORT is needed";
  }
  return o;
}

constexpr const char* kUsage =
    "Usage: mpirun -n N quorlane-mpi [--export FILE] [-s[LEVELS] REPORT] [--exclude PATTERN]...\n"
    "                               [--size logical|allocated] [--links once|each] FOLDER\n"
    "Walks FOLDER with all ranks of the MPI job and writes what quorlane --export and\n"
    "quorlane -s write for it (FILE ending in .zst: compressed; \"-\": standard output).\n";

int runWriter(const Options& o, int ranks, int argc, char** argv) {
  // A report is the silent run's: its settings (excludes among them) hold for the walk too.
  std::unique_ptr<QCoreApplication> app;
  ParsedCommandLine job;
  std::vector<std::string> excludes = o.excludes;
  if (!o.report.empty()) {
    app = std::make_unique<QCoreApplication>(argc, argv);
    initFrame(false);
    job.mode = ParsedCommandLine::Silent;
    job.outputFile = o.report;
    job.outputLevels = o.levels;
    job.sizeAllocated = o.sizeAllocated;
    job.linksOnce = o.linksOnce;
    job.excludes = o.excludes;
    MainOptions settings;
    excludes = silentSettings(job, settings).excludes;
  }
  std::string file = o.exportFile;
  std::string scratch;  // the export a report alone is made from
  if (file.empty()) {
    const char* tmp = std::getenv("TMPDIR");
    std::string name = std::string(tmp && *tmp ? tmp : "/tmp") + "/quorlane-mpi-XXXXXX.zst";
    const int fd = ::mkstemps(name.data(), 4);
    if (fd < 0) {
      std::fprintf(stderr, "quorlane-mpi: %s: %s\n", name.c_str(), systemErrorText(errno).c_str());
      return 1;
    }
    ::close(fd);
    file = scratch = name;
  }

  Coordinator coordinator(ranks);
  g_coordinator = &coordinator;
  ExportResult r;
  OutputFile out;
  {
    ExportWalk walk(1, &coordinator.stop, excludes);
    simulatedLatency(walk);
    if (ranks > 1) walk.setHelper([&](ExportWalk& w) { coordinator.help(w, excludes); });
    if (out.open(file))
      r = walk.run(o.folder, out.fd(), file != "-" && isZstdName(file));
    else
      r.error = out.error();
  }
  if (ranks > 1) coordinator.finish();
  if (!coordinator.failure.empty()) {
    r.ok = false;
    r.error = coordinator.failure;
  }
  if (r.ok && !out.commit()) {
    r.ok = false;
    r.error = out.error();
  } else if (r.writeFailed) {
    r.error = file + ": " + r.error;
  }
  if (!r.ok) {
    std::fprintf(stderr, "quorlane-mpi: %s\n", r.error.c_str());
    if (!scratch.empty()) ::unlink(scratch.c_str());
    return 1;
  }
  if (o.report.empty()) return 0;
  job.imports = {file};
  const int status = runSilent(job);
  if (!scratch.empty()) ::unlink(scratch.c_str());
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  const Options o = parse(argc, argv);
  if (o.help || o.version || !o.error.empty()) {
    // Said once, by the first rank (or by a run without mpirun).
    const char* rank = std::getenv("OMPI_COMM_WORLD_RANK");
    if (!rank) rank = std::getenv("PMI_RANK");
    if (rank && std::atoi(rank) != 0) return o.error.empty() ? 0 : 2;
    if (o.version) std::printf("quorlane-mpi %s\n", QUORLANE_VERSION);
    if (o.help) std::fputs(kUsage, stdout);
    if (o.help || o.version) return 0;
    std::fprintf(stderr, "quorlane-mpi: %s\n%s", o.error.c_str(), kUsage);
    return 2;
  }
  // Blocked before MPI starts its threads, so that only the thread below takes them on rank 0.
  sigset_t interrupts;
  sigemptyset(&interrupts);
  for (const int sig : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&interrupts, sig);
  pthread_sigmask(SIG_BLOCK, &interrupts, nullptr);
  int provided = 0;
  MPI_Init_thread(&argc, &argv, MPI_THREAD_SERIALIZED, &provided);
  int rank = 0, ranks = 1;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  MPI_Comm_size(MPI_COMM_WORLD, &ranks);
  int status = 0;
  if (rank == 0 && provided < MPI_THREAD_SERIALIZED && ranks > 1) {
    std::fputs("quorlane-mpi: the MPI library does not allow calls from a second thread\n", stderr);
    MPI_Abort(MPI_COMM_WORLD, 1);
  }
  if (rank == 0) {
    std::signal(SIGPIPE, SIG_IGN);
    OutputFile::removeTemporaryOnInterrupt();
    std::thread(watchSignals, interrupts).detach();
    status = runWriter(o, ranks, argc, argv);
  } else {
    pthread_sigmask(SIG_UNBLOCK, &interrupts, nullptr);
    status = runReader(rank);
  }
  MPI_Finalize();
  return status;
}
