#include "app/SingleInstance.h"

#include <QDir>
#include <QFile>
#include <QLocalServer>
#include <QLocalSocket>
#include <QPointer>
#include <QTimer>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

#include "support/Globals.h"

namespace ql {

namespace {

using Clock = std::chrono::steady_clock;
SingleInstance* currentInstance = nullptr;

quint32 readU32(const char* p) {
  const auto* u = reinterpret_cast<const unsigned char*>(p);
  return quint32(u[0]) << 24 | quint32(u[1]) << 16 | quint32(u[2]) << 8 | quint32(u[3]);
}

void appendU32(QByteArray& out, quint32 v) {
  const char bytes[4] = {char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
  out.append(bytes, 4);
}

int msLeft(Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return left > 0 ? int(left) : 0;
}

// A folder only this user may enter: no link, owned by us, nothing for group or others.
bool privateFolder(const QByteArray& path) {
  struct stat st;
  return ::lstat(path.constData(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == ::getuid() &&
         (st.st_mode & 077) == 0;
}

enum class SocketFile { Missing, Ours, Foreign };

SocketFile inspect(const QByteArray& path) {
  struct stat st;
  if (::lstat(path.constData(), &st) != 0) return errno == ENOENT ? SocketFile::Missing : SocketFile::Foreign;
  return S_ISSOCK(st.st_mode) && st.st_uid == ::getuid() ? SocketFile::Ours : SocketFile::Foreign;
}

// A connected socket, or -1 with errno set; ETIMEDOUT when the listener's queue stayed full.
int connectTo(const QByteArray& path, Clock::time_point deadline) {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (size_t(path.size()) >= sizeof addr.sun_path) {
    errno = ENAMETOOLONG;
    return -1;
  }
  std::memcpy(addr.sun_path, path.constData(), size_t(path.size()));
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) return -1;
  for (;;) {
    if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0) return fd;
    const int error = errno;
    if (error == EINTR) continue;
    if (error == EAGAIN && msLeft(deadline) > 0) {
      // The listener is alive but has not caught up with its queue.
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      continue;
    }
    ::close(fd);
    errno = error == EAGAIN ? ETIMEDOUT : error;
    return -1;
  }
}

// Waits until `fd` is ready for `events`; false at the deadline or on an error.
bool waitFor(int fd, short events, Clock::time_point deadline) {
  for (;;) {
    pollfd p{fd, events, 0};
    const int n = ::poll(&p, 1, msLeft(deadline));
    if (n > 0) return (p.revents & events) != 0;
    if (n == 0 || errno != EINTR) return false;
  }
}

// The lock around check-and-listen, held for a moment by each start.
class StartLock {
 public:
  bool take(const QByteArray& path, Clock::time_point deadline) {
    fd_ = ::open(path.constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd_ < 0) return false;
    for (;;) {
      if (::flock(fd_, LOCK_EX | LOCK_NB) == 0) return true;
      if (errno != EWOULDBLOCK && errno != EINTR) return false;
      if (msLeft(deadline) == 0) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
  ~StartLock() {
    if (fd_ >= 0) ::close(fd_);  // closing lets the lock go
  }

 private:
  int fd_ = -1;
};

}  // namespace

QByteArray encodeHandOver(const HandOver& handOver) {
  QByteArray body;
  const auto list = [&body](const std::vector<std::string>& paths) {
    appendU32(body, quint32(paths.size()));
    for (const std::string& s : paths) {
      appendU32(body, quint32(s.size()));
      body.append(s.data(), qsizetype(s.size()));
    }
  };
  list(handOver.sources);
  if (!handOver.imports.empty()) list(handOver.imports);  // a frame of folders only is as it was
  QByteArray frame;
  appendU32(frame, quint32(body.size()));
  return frame + body;
}

FrameState takeHandOver(QByteArray& buffer, HandOver& handOver) {
  if (buffer.size() < 4) return FrameState::Incomplete;
  const quint32 total = readU32(buffer.constData());
  // Refused before its bytes arrive: a length beyond the limit is never waited for.
  if (total < 4 || total > quint32(kMaxHandOverBytes)) return FrameState::Invalid;
  if (quint32(buffer.size() - 4) < total) return FrameState::Incomplete;
  const char* p = buffer.constData() + 4;
  const char* const end = p + total;
  const auto list = [&p, end, total](std::vector<std::string>& out) {
    if (end - p < 4) return false;
    const quint32 count = readU32(p);
    p += 4;
    if (count > total / 4) return false;  // each path takes its length at least
    out.reserve(count);
    for (quint32 i = 0; i < count; ++i) {
      if (end - p < 4) return false;
      const quint32 length = readU32(p);
      p += 4;
      if (length > quint32(end - p)) return false;
      out.emplace_back(p, length);
      p += length;
    }
    return true;
  };
  HandOver got;
  if (!list(got.sources) || (p != end && !list(got.imports)) || p != end)
    return FrameState::Invalid;
  buffer.remove(0, qsizetype(total) + 4);
  handOver = std::move(got);
  return FrameState::Complete;
}

SingleInstance::SingleInstance(QString folder, QObject* parent) : QObject(parent) {
  if (folder.isEmpty()) folder = runtimeFolder();
  if (!folder.isEmpty()) socketPath_ = folder + QLatin1Char('/') + globals().Apptitle + QStringLiteral("_APPLICATION_MUTEX");
}

SingleInstance::~SingleInstance() {
  if (currentInstance == this) currentInstance = nullptr;
  if (server_) server_->close();  // takes the socket file with it
  if (peer_ >= 0) ::close(peer_);
}

QString SingleInstance::runtimeFolder() {
  const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
  if (runtime.startsWith('/') && privateFolder(runtime)) return QFile::decodeName(runtime);
  // Never the temporary folder itself, where anyone may put a socket of this name.
  const QByteArray own =
      QFile::encodeName(QDir::tempPath()) + "/quorlane-runtime-" + QByteArray::number(::getuid());
  ::mkdir(own.constData(), 0700);
  return privateFolder(own) ? QFile::decodeName(own) : QString();
}

SingleInstance* SingleInstance::current() { return currentInstance; }

SingleInstance::Claim SingleInstance::claim(int limitMs) {
  if (server_) return Claim::First;
  if (peer_ >= 0) return Claim::Running;
  if (socketPath_.isEmpty()) return Claim::Unavailable;
  const QByteArray path = QFile::encodeName(socketPath_);
  if (size_t(path.size()) >= sizeof(sockaddr_un::sun_path)) return Claim::Unavailable;
  const auto deadline = Clock::now() + std::chrono::milliseconds(limitMs);
  StartLock lock;
  if (!lock.take(path + ".lock", deadline)) return Claim::Unavailable;

  switch (inspect(path)) {
    case SocketFile::Foreign:
      return Claim::Refused;
    case SocketFile::Ours: {
      const int fd = connectTo(path, deadline);
      if (fd >= 0) {
        peer_ = fd;
        return Claim::Running;
      }
      // Only a socket nobody listens on is taken away; one that is busy or odd stays.
      if (errno != ECONNREFUSED) return Claim::Unavailable;
      if (::unlink(path.constData()) != 0 && errno != ENOENT) return Claim::Unavailable;
      break;
    }
    case SocketFile::Missing:
      break;
  }
  auto* server = new QLocalServer(this);
  server->setSocketOptions(QLocalServer::UserAccessOption);
  if (!server->listen(socketPath_)) {
    delete server;
    return Claim::Unavailable;
  }
  server_ = server;
  connect(server_, &QLocalServer::newConnection, this, &SingleInstance::onConnection);
  currentInstance = this;
  return Claim::First;
}

SingleInstance::Sent SingleInstance::handOver(const HandOver& handOver, int limitMs) {
  if (peer_ < 0) return Sent::NoAnswer;
  const int fd = std::exchange(peer_, -1);
  const std::unique_ptr<int, void (*)(int*)> closer(new int(fd), [](int* f) {
    ::close(*f);
    delete f;
  });
  const auto deadline = Clock::now() + std::chrono::milliseconds(limitMs);
  const QByteArray frame = encodeHandOver(handOver);
  qsizetype sent = 0;
  while (sent < frame.size()) {
    if (!waitFor(fd, POLLOUT, deadline)) return Sent::NoAnswer;
    const ssize_t n = ::send(fd, frame.constData() + sent, size_t(frame.size() - sent), MSG_NOSIGNAL);
    if (n < 0 && errno != EAGAIN && errno != EINTR) return Sent::NoAnswer;
    if (n > 0) sent += n;
  }
  for (;;) {
    if (!waitFor(fd, POLLIN, deadline)) return Sent::NoAnswer;
    char answer = 0;
    const ssize_t n = ::recv(fd, &answer, 1, 0);
    if (n == 1) return answer == kHandOverTaken ? Sent::Taken : answer == kHandOverBusy ? Sent::Busy : Sent::NoAnswer;
    if (n == 0 || (errno != EAGAIN && errno != EINTR)) return Sent::NoAnswer;
  }
}

void SingleInstance::closePeer() {
  if (peer_ >= 0) ::close(std::exchange(peer_, -1));
}

bool SingleInstance::running() const {
  if (server_ || peer_ >= 0) return true;
  if (socketPath_.isEmpty()) return false;
  const QByteArray path = QFile::encodeName(socketPath_);
  if (inspect(path) != SocketFile::Ours) return false;
  const int fd = connectTo(path, Clock::now() + std::chrono::milliseconds(200));
  if (fd >= 0) ::close(fd);
  return fd >= 0 || errno == ETIMEDOUT;
}

void SingleInstance::onConnection() {
  while (QLocalSocket* peer = server_->nextPendingConnection()) {
    auto buffer = std::make_shared<QByteArray>();
    connect(peer, &QLocalSocket::readyRead, this, [this, peer, buffer] {
      *buffer += peer->readAll();
      onFrame(peer, *buffer);
    });
    connect(peer, &QLocalSocket::disconnected, peer, &QObject::deleteLater);
    // A start that connects and never finishes its frame is not waited for.
    QTimer::singleShot(5000, peer, [peer] {
      peer->abort();
      peer->deleteLater();
    });
  }
}

void SingleInstance::onFrame(QLocalSocket* peer, QByteArray& buffer) {
  HandOver handOver;
  switch (takeHandOver(buffer, handOver)) {
    case FrameState::Incomplete:
      return;
    case FrameState::Invalid:
      peer->abort();
      peer->deleteLater();
      return;
    case FrameState::Complete:
      break;
  }
  const QPointer<QLocalSocket> alive(peer);
  char answer = kHandOverBusy;
  // A receiver that waits in an event loop of its own may see the next hand-over arrive: that
  // one is turned away rather than handled in the middle of this one.
  if (!busy_) {
    busy_ = true;
    struct Reset {
      bool& flag;
      ~Reset() { flag = false; }
    } reset{busy_};
    Q_EMIT received(handOver);
    answer = kHandOverTaken;
  }
  if (!alive) return;
  peer->write(&answer, 1);
  peer->disconnectFromServer();  // writes what is pending first
}

}  // namespace ql

// Its meta-object code goes with it, so that programs that never use it do not link it.
#include "moc_SingleInstance.cpp"
