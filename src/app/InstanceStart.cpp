// The start of a window that meets another one already running: it waits for it after a
// restart, or hands its sources over. Apart from the rest of the start, so that a silent run
// never loads the local-socket library this needs.
#include <QCoreApplication>
#include <QFile>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "app/CommandLine.h"
#include "app/Settings.h"
#include "app/SingleInstance.h"
#include "app/Startup.h"
#include "lang/TL.h"
#include "support/Logs.h"

namespace ql {

void restartWait(int limitMs, int pauseMs) {
  const SingleInstance instance;
  const auto start = std::chrono::steady_clock::now();
  while (instance.running()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs));
    if (std::chrono::steady_clock::now() - start > std::chrono::milliseconds(limitMs)) _exit(0);
  }
}

namespace {

void say(const QString& text) {
  std::fprintf(stderr, "quorlane: %s\n", text.toLocal8Bit().constData());
}

// The window runs in a folder of its own, so a relative source or export means this start's
// folder: it is put in front as it is, the way the shell shows it ($PWD when that is this
// folder), never resolved through links. A path that is not there is named and left out.
std::vector<std::string> pathsToHand(const std::vector<std::string>& given, bool& allThere) {
  std::string cwd;
  if (char* here = get_current_dir_name()) {
    cwd = here;
    std::free(here);
    if (!cwd.empty() && cwd.back() != '/') cwd += '/';
  }
  std::vector<std::string> out;
  for (const std::string& source : given) {
    const bool relative = source.empty() || source.front() != '/';
    std::string path = relative ? cwd + source : source;
    struct stat st;
    // An empty name is no folder; without a folder of its own (deleted) no relative one is.
    if (source.empty() || (relative && cwd.empty())) {
      errno = ENOENT;
    } else if (::stat(path.c_str(), &st) == 0) {
      out.push_back(std::move(path));
      continue;
    }
    allThere = false;
    say(TL(4360, "%1 wurde nicht übergeben: %2",
           {QFile::decodeName(QByteArray::fromStdString(path)),
            QString::fromLocal8Bit(std::strerror(errno))}));
  }
  return out;
}

}  // namespace

int claimOrHandOver(SingleInstance& instance, const ParsedCommandLine& command) {
  switch (instance.claim()) {
    case SingleInstance::Claim::First:
      // For the tests that start the program more than once: what arrives is kept in a file.
      if (const QString log = qEnvironmentVariable("QUORLANE_HANDOVER_LOG"); !log.isEmpty()) {
        QObject::connect(&instance, &SingleInstance::received, &instance, [log](const HandOver& h) {
          QFile file(log);
          if (file.open(QIODevice::WriteOnly | QIODevice::Append)) file.write(encodeHandOver(h));
        });
      }
      return -1;
    case SingleInstance::Claim::Refused:
      say(TL(4140, "%1 gehört einem anderen Benutzer und wird nicht benutzt.", {instance.socketPath()}));
      return -1;
    case SingleInstance::Claim::Unavailable:
      return -1;  // a window without the socket
    case SingleInstance::Claim::Running:
      break;
  }
  bool ok = false;
  const int instanz = GetSettings(QStringLiteral("Optionen"), QStringLiteral("Instanz")).toInt(&ok);
  if ((ok && instanz == 0) || command.restart) {
    instance.closePeer();  // a window of its own beside the running one
    return -1;
  }
  bool allThere = true;
  const HandOver handOver{pathsToHand(command.sources, allThere),
                          pathsToHand(command.imports, allThere)};
  switch (instance.handOver(handOver)) {
    case SingleInstance::Sent::Taken:
      return allThere ? 0 : 1;
    case SingleInstance::Sent::Busy:
      say(TL(4141, "Das laufende Quorlane ist beschäftigt und hat die Ordner nicht übernommen."));
      return 1;
    case SingleInstance::Sent::NoAnswer:
      break;
  }
  say(TL(4142, "Das laufende Quorlane hat nicht geantwortet; die Ordner wurden nicht übergeben."));
  return 1;
}

}  // namespace ql
