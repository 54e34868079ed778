#pragma once
// zstd-compressed exports: a writer that compresses the export's text on its way to a descriptor,
// and the byte source of the import, which hands on a file as it is or, when it begins with the
// zstd magic number, its decompressed text. Both stream with a bounded window, so memory stays
// flat however large the export.

#include <sys/types.h>
#include <QString>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

typedef struct ZSTD_CCtx_s ZSTD_CCtx;
typedef struct ZSTD_DCtx_s ZSTD_DCtx;

namespace ql {

// Frames declaring a larger window than this are refused (as `zstd -d` does by default): a
// hostile file must not make the import allocate gigabytes.
inline constexpr int kZstdMaxWindowLog = 27;  // 128 MiB

// An export written to this name is compressed: it ends in ".zst", in any case.
bool isZstdName(std::string_view file);

class ZstdWriter {
 public:
  ZstdWriter();
  ~ZstdWriter();
  ZstdWriter(const ZstdWriter&) = delete;
  ZstdWriter& operator=(const ZstdWriter&) = delete;

  // Compresses `data` and writes what is ready to `fd`; `end` closes the frame. 0, or the errno
  // value of what failed.
  int write(int fd, std::string_view data, bool end);

 private:
  ZSTD_CCtx* cctx_;
  std::unique_ptr<char[]> out_;
  size_t outSize_;
};

class ExportBytes {
 public:
  explicit ExportBytes(int fd);
  ~ExportBytes();
  ExportBytes(const ExportBytes&) = delete;
  ExportBytes& operator=(const ExportBytes&) = delete;

  // Up to `size` bytes of the text; 0 at its end, -1 on failure: error() for a failed read,
  // damage() for compressed data that cannot be decompressed.
  ssize_t read(char* buffer, size_t size);

  bool compressed() const { return dctx_ != nullptr; }
  uint64_t fileBytesRead() const { return fileBytes_; }
  int error() const { return error_; }
  // What is wrong with the compressed data, naming the byte of the file where it was found.
  const QString& damage() const { return damage_; }
  uint64_t damageOffset() const { return damageOffset_; }

 private:
  bool refill();
  ssize_t fail(uint64_t offset, const QString& why);

  int fd_;
  ZSTD_DCtx* dctx_ = nullptr;
  std::unique_ptr<char[]> in_;
  size_t inCapacity_;
  size_t inSize_ = 0, inPos_ = 0;
  uint64_t fileBytes_ = 0;  // read from the descriptor so far
  bool sniffed_ = false, inEnded_ = false, midFrame_ = false;
  int error_ = 0;
  QString damage_;
  uint64_t damageOffset_ = 0;
};

}  // namespace ql
