#include "lists/PreviewFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>

namespace ql {

namespace {

// Each extension stands between slashes, so that "wm" never matches "wma".
constexpr std::string_view kTextList = "/txt/bat/ini/log/cfg/diz/nfo/css/asp/php/rtf/wri/xml/inf/url/reg/lst/eml/err/csv/1st/vbs/";
constexpr std::string_view kDocumentList = "/htm/html/png/pdf/doc/docx/xls/xlsx/ppt/pps/swf/";
constexpr std::string_view kPictureList = "/bmp/gif/jpg/jpeg/ico/cur/emf/wmf/rle/pcx/";
constexpr std::string_view kMediaList =
    "/mp3/wav/snd/au/aif/aifc/aiff/wma/mid/rmi/midi/avi/mpeg/mpg/m1v/mp2/mpa/mpe/wmv/asf/wm/mov/mp4/";

}  // namespace

std::string previewKey(std::string_view path) {
  const size_t slash = path.rfind('/');
  const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  const size_t dot = name.rfind('.');
  std::string key = "/";
  if (dot != std::string_view::npos)
    for (char c : name.substr(dot + 1)) key += (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
  key += '/';
  return key;
}

PreviewClass previewClassOf(std::string_view path) {
  const std::string key = previewKey(path);
  if (key == "//") return kPreviewNone;
  if (kDocumentList.find(key) != std::string_view::npos) return kPreviewDocument;
  if (kTextList.find(key) != std::string_view::npos) return kPreviewText;
  if (kPictureList.find(key) != std::string_view::npos) return kPreviewPicture;
  if (kMediaList.find(key) != std::string_view::npos) return kPreviewMedia;
  return kPreviewNone;
}

HeadRead readFileHead(const std::string& path, int64_t limit, bool refuseOver) {
  HeadRead r;
  const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (fd < 0) {
    r.failure = HeadRead::System;
    r.err = errno;
    return r;
  }
  struct stat st {};
  if (::fstat(fd, &st) != 0) {
    r.failure = HeadRead::System;
    r.err = errno;
  } else if (!S_ISREG(st.st_mode)) {
    r.failure = HeadRead::NotRegular;
  } else if (refuseOver && st.st_size > limit) {
    r.failure = HeadRead::TooLarge;
    r.size = st.st_size;
  } else {
    r.size = st.st_size;
    const int64_t want = std::min<int64_t>(limit, st.st_size);
    r.bytes.resize(static_cast<qsizetype>(want));
    int64_t got = 0;
    while (got < want) {
      const ssize_t n = ::read(fd, r.bytes.data() + got, static_cast<size_t>(want - got));
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        r.failure = HeadRead::System;
        r.err = errno;
        break;
      }
      if (n == 0) break;  // the file shrank while it was read
      got += n;
    }
    r.bytes.truncate(static_cast<qsizetype>(got));
  }
  ::close(fd);
  return r;
}

QSize zoomPictureSize(QSize source, QSize target) {
  if (source.isEmpty()) return {};
  if (source.width() <= target.width() && source.height() <= target.height()) return source;
  const double fx = static_cast<double>(target.width()) / source.width();
  const double fy = static_cast<double>(target.height()) / source.height();
  const double f = source.width() * fy > target.width() ? fx : fy;
  return {std::max(1, static_cast<int>(std::lround(source.width() * f))),
          std::max(1, static_cast<int>(std::lround(source.height() * f)))};
}

}  // namespace ql
