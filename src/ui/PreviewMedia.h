#pragma once
// The preview's player, on a thread of its own. Qt's GStreamer backend changes a pipeline's
// state synchronously: loading the backend takes tens of milliseconds, every new source a few
// more, and a file that does not start holds the caller for a whole second on its source and
// again on its stop. Here only the player's thread waits. The window says which file it wants
// (or none), and a newer wish replaces one not yet carried out, so a quick walk through many
// media files leaves no queue of stale orders behind.
//
// Threads: everything public is called on the window's thread; the callbacks arrive there too,
// through `context`.

#include <QMediaPlayer>
#include <QThread>
#include <QUrl>
#include <cstdint>
#include <functional>
#include <mutex>

class QAudioOutput;
class QVideoSink;

namespace ql {

class PreviewMedia {
 public:
  struct Callbacks {
    std::function<void(bool ok, const QString& why)> built;
    // `ticket` is the one given to play() for the file that failed.
    std::function<void(uint64_t ticket, int error, const QString& text)> failed;
  };

  // Starts the thread and builds the player there; `built` tells how that went.
  PreviewMedia(QObject* context, Callbacks callbacks);
  // Takes the player down and waits for its thread.
  ~PreviewMedia();

  void setVideoSink(QVideoSink* sink);
  void play(const QUrl& url, uint64_t ticket);
  void stop() { play(QUrl(), 0); }

  // What the player holds now, as its thread last reported it.
  QUrl source() const;
  QMediaPlayer::PlaybackState state() const;

 private:
  void build();
  void apply();  // on the player's thread: carries out the newest wish

  QObject* context_;
  Callbacks callbacks_;
  QThread thread_;
  QObject* host_ = nullptr;            // lives on thread_, parent of the player
  QMediaPlayer* player_ = nullptr;     // thread_ only
  QAudioOutput* audio_ = nullptr;      // thread_ only
  uint64_t playing_ = 0;               // thread_ only: the ticket of the file in the player

  mutable std::mutex mutex_;
  QUrl wantedUrl_;
  uint64_t wantedTicket_ = 0;
  bool applyPosted_ = false;
  QUrl source_;
  QMediaPlayer::PlaybackState state_ = QMediaPlayer::StoppedState;
};

}  // namespace ql
