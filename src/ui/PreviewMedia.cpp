#include "ui/PreviewMedia.h"

#include <QAudioOutput>
#include <QVideoSink>

namespace ql {

PreviewMedia::PreviewMedia(QObject* context, Callbacks callbacks)
    : context_(context), callbacks_(std::move(callbacks)) {
  thread_.setObjectName(QStringLiteral("preview player"));
  host_ = new QObject;
  host_->moveToThread(&thread_);
  thread_.start();
  QMetaObject::invokeMethod(host_, [this] { build(); }, Qt::QueuedConnection);
}

PreviewMedia::~PreviewMedia() {
  // The player goes with its host, on its own thread, before the thread ends.
  QMetaObject::invokeMethod(
      host_,
      [this] {
        delete host_;
        player_ = nullptr;
        audio_ = nullptr;
        QThread::currentThread()->quit();
      },
      Qt::QueuedConnection);
  thread_.wait();
}

void PreviewMedia::build() {
  player_ = new QMediaPlayer(host_);
  QString why;
  const bool ok = player_->isAvailable();
  if (!ok) {
    why = QString::number(player_->error()) + QStringLiteral(" - ") +
          (player_->errorString().isEmpty() ? QStringLiteral("no media backend") : player_->errorString());
    delete player_;
    player_ = nullptr;
  } else {
    audio_ = new QAudioOutput(host_);
    player_->setAudioOutput(audio_);
    QObject::connect(player_, &QMediaPlayer::errorOccurred, host_, [this](QMediaPlayer::Error e, const QString& text) {
      const uint64_t ticket = playing_;
      if (ticket == 0) return;  // about a file already let go
      QMetaObject::invokeMethod(
          context_, [failed = callbacks_.failed, ticket, e, text] { failed(ticket, static_cast<int>(e), text); },
          Qt::QueuedConnection);
    });
    QObject::connect(player_, &QMediaPlayer::playbackStateChanged, host_, [this](QMediaPlayer::PlaybackState s) {
      std::lock_guard lock(mutex_);
      state_ = s;
    });
    QObject::connect(player_, &QMediaPlayer::sourceChanged, host_, [this](const QUrl& url) {
      std::lock_guard lock(mutex_);
      source_ = url;
    });
  }
  // A copy of the callback: the window may let this object go from within it.
  QMetaObject::invokeMethod(context_, [built = callbacks_.built, ok, why] { built(ok, why); }, Qt::QueuedConnection);
}

void PreviewMedia::setVideoSink(QVideoSink* sink) {
  QMetaObject::invokeMethod(
      host_, [this, sink] { if (player_) player_->setVideoSink(sink); }, Qt::QueuedConnection);
}

void PreviewMedia::play(const QUrl& url, uint64_t ticket) {
  std::lock_guard lock(mutex_);
  wantedUrl_ = url;
  wantedTicket_ = ticket;
  if (applyPosted_) return;  // the order under way takes this wish
  applyPosted_ = true;
  QMetaObject::invokeMethod(host_, [this] { apply(); }, Qt::QueuedConnection);
}

void PreviewMedia::apply() {
  QUrl url;
  uint64_t ticket;
  {
    std::lock_guard lock(mutex_);
    applyPosted_ = false;
    url = wantedUrl_;
    ticket = wantedTicket_;
  }
  if (!player_ || ticket == playing_) return;
  playing_ = ticket;
  // Emptying the source takes the pipeline down at once, sound included; a stop first would
  // wait for a file still starting.
  if (url.isEmpty()) {
    if (!player_->source().isEmpty()) player_->setSource(QUrl());
    return;
  }
  player_->setSource(url);
  player_->play();
}

QUrl PreviewMedia::source() const {
  std::lock_guard lock(mutex_);
  return source_;
}

QMediaPlayer::PlaybackState PreviewMedia::state() const {
  std::lock_guard lock(mutex_);
  return state_;
}

}  // namespace ql
