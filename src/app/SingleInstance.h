#pragma once
// One window per user. The first window start listens on a local socket in the user's runtime
// folder; a later start finds it there, hands its sources over and ends. The socket is also what
// a restart after a language change waits on: it goes with the window that held it.
//
// A hand-over is one frame: a 32-bit length of what follows, the number of sources, and each
// source as a 32-bit length and its bytes; then, only when there are any, the number of exports
// to import and each of them the same way (all numbers big-endian). The receiver answers with one
// byte: kTaken, or kBusy when a hand-over arrives while the previous one is still being handled.

#include <QByteArray>
#include <QObject>
#include <QString>
#include <string>
#include <vector>

class QLocalServer;
class QLocalSocket;

namespace ql {

inline constexpr qsizetype kMaxHandOverBytes = 1 << 20;  // a frame's body, the length prefix aside
inline constexpr char kHandOverTaken = 'Y';
inline constexpr char kHandOverBusy = 'B';

// What a later start gives the window: folders to read and exports to import, absolute paths.
struct HandOver {
  std::vector<std::string> sources;
  std::vector<std::string> imports;
  bool operator==(const HandOver&) const = default;
};

QByteArray encodeHandOver(const HandOver& handOver);

enum class FrameState { Incomplete, Complete, Invalid };
// Takes one frame off the front of `buffer` once it is all there. Invalid: a length above the
// limit, or a body whose parts do not fill it exactly.
FrameState takeHandOver(QByteArray& buffer, HandOver& handOver);

class SingleInstance : public QObject {
  Q_OBJECT
 public:
  enum class Claim {
    First,        // this process listens now
    Running,      // a live instance answers; it is connected and waits for handOver()
    Refused,      // the socket is not a socket of this user: left alone
    Unavailable,  // no safe folder, no lock, or the socket could not be set up
  };
  enum class Sent { Taken, Busy, NoAnswer };

  // `folder` empty: the runtime folder of this user (see runtimeFolder()).
  explicit SingleInstance(QString folder = QString(), QObject* parent = nullptr);
  ~SingleInstance() override;

  // $XDG_RUNTIME_DIR when it is a folder of this user's that nobody else may enter; otherwise a
  // folder of that kind in the temporary folder, made when missing. Empty when neither is safe.
  static QString runtimeFolder();
  // The instance that listens in this process, or nullptr.
  static SingleInstance* current();

  QString socketPath() const { return socketPath_; }
  // Under the start lock, so that of two starts at once exactly one becomes the first: a live
  // socket is connected to, a dead one (its owner crashed) is removed and taken over.
  Claim claim(int limitMs = 5000);
  // Only after Claim::Running: sends the hand-over and waits for the answer, `limitMs` at most.
  Sent handOver(const HandOver& handOver, int limitMs = 5000);
  // Lets the connection of Claim::Running go without handing anything over.
  void closePeer();
  // Whether some process of this user listens at the socket now.
  bool running() const;

 Q_SIGNALS:
  // A later start handed these over; the answer goes back once the receivers have returned.
  void received(const ql::HandOver& handOver);

 private:
  void onConnection();
  void onFrame(QLocalSocket* peer, QByteArray& buffer);

  QString socketPath_;
  QLocalServer* server_ = nullptr;
  int peer_ = -1;      // the connection to a running instance, after Claim::Running
  bool busy_ = false;  // a hand-over is being handled
};

}  // namespace ql
