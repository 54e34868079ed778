#pragma once
// What the file preview needs of a file before any viewer sees it: the viewer class of its
// extension, a bounded read that never waits on a pipe or a device, and the size a picture is
// drawn at. No widgets here; the reads are made on worker threads.

#include <QByteArray>
#include <QSize>
#include <cstdint>
#include <string>
#include <string_view>

namespace ql {

// Viewer classes: 0 nothing known (a notice), 1 text, 2 document (HTML, PDF, PNG), 3 picture,
// 4 sound and video.
enum PreviewClass { kPreviewNone = 0, kPreviewText = 1, kPreviewDocument = 2, kPreviewPicture = 3, kPreviewMedia = 4 };

// "/" + the lower-cased extension of the path's last name + "/"; "//" without an extension.
std::string previewKey(std::string_view path);
// The class of a path: the lists are tried in the order document, text, picture, media.
PreviewClass previewClassOf(std::string_view path);

struct HeadRead {
  enum Failure { None, System, NotRegular, TooLarge };
  Failure failure = None;
  int err = 0;           // errno of a System failure
  QByteArray bytes;      // at most the limit asked for
  int64_t size = 0;      // the whole file's size
  bool truncated() const { return failure == None && size > bytes.size(); }
};

// Opens without blocking (a FIFO or a device never holds the caller), takes only regular
// files and reads at most `limit` bytes from the start. With `refuseOver` a file larger than
// `limit` is not read at all and fails with TooLarge.
HeadRead readFileHead(const std::string& path, int64_t limit, bool refuseOver = false);

// The size a picture of `source` is drawn at in a box of `target`: unchanged when it fits
// (never enlarged), else scaled by the one factor that makes it fit, each side at least 1.
// An empty source gives an empty size.
QSize zoomPictureSize(QSize source, QSize target);

}  // namespace ql
