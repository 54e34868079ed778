#include "json/Zstd.h"

#include <strings.h>
#include <unistd.h>
#include <zstd.h>
#include <zstd_errors.h>
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "lang/TL.h"

namespace ql {

namespace {

// The fastest level, so that compressing costs the export only a few per cent: some 400 MB/s on
// one core. An export's redundancy is local (the keys of one entry, the names and numbers of its
// neighbours), so a small hash table and matches of five bytes or more find it faster and better
// than the level's own (about 6 % smaller; the slower levels gain little more). The window is
// small enough for any reader.
constexpr int kLevel = 1;
constexpr int kHashLog = 10;
constexpr int kMinMatch = 5;
constexpr int kWindowLog = 21;  // 2 MiB
constexpr int kJobSize = 2 << 20;

int writeAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t n = ::write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return n < 0 ? errno : EIO;
    data += n;
    size -= static_cast<size_t>(n);
  }
  return 0;
}

constexpr unsigned char kMagic[4] = {0x28, 0xB5, 0x2F, 0xFD};

}  // namespace

bool isZstdName(std::string_view file) {
  return file.size() > 4 && strncasecmp(file.data() + file.size() - 4, ".zst", 4) == 0;
}

// --- writing ---

ZstdWriter::ZstdWriter() : cctx_(ZSTD_createCCtx()), outSize_(ZSTD_CStreamOutSize()) {
  out_.reset(new char[outSize_]);
  if (cctx_) {
    ZSTD_CCtx_setParameter(cctx_, ZSTD_c_compressionLevel, kLevel);
    ZSTD_CCtx_setParameter(cctx_, ZSTD_c_windowLog, kWindowLog);
    ZSTD_CCtx_setParameter(cctx_, ZSTD_c_hashLog, kHashLog);
    ZSTD_CCtx_setParameter(cctx_, ZSTD_c_minMatch, kMinMatch);
    // A damaged file is then found by any reader, even where its blocks still decode.
    ZSTD_CCtx_setParameter(cctx_, ZSTD_c_checksumFlag, 1);
    // Compressed on a thread of zstd's own, in pieces of 2 MiB, so that the writer goes on
    // putting the text in order meanwhile. Where the library has no threads this is refused and
    // the writer compresses itself.
    if (!ZSTD_isError(ZSTD_CCtx_setParameter(cctx_, ZSTD_c_nbWorkers, 1)))
      ZSTD_CCtx_setParameter(cctx_, ZSTD_c_jobSize, kJobSize);
  }
}

ZstdWriter::~ZstdWriter() {
  ZSTD_freeCCtx(cctx_);
}

int ZstdWriter::write(int fd, std::string_view data, bool end) {
  if (!cctx_) return ENOMEM;
  ZSTD_inBuffer in{data.data(), data.size(), 0};
  for (;;) {
    ZSTD_outBuffer out{out_.get(), outSize_, 0};
    const size_t left = ZSTD_compressStream2(cctx_, &out, &in, end ? ZSTD_e_end : ZSTD_e_continue);
    if (ZSTD_isError(left))
      return ZSTD_getErrorCode(left) == ZSTD_error_memory_allocation ? ENOMEM : EIO;
    if (const int err = writeAll(fd, out_.get(), out.pos)) return err;
    if (end ? left == 0 : in.pos == in.size) return 0;
  }
}

// --- reading ---

ExportBytes::ExportBytes(int fd) : fd_(fd), inCapacity_(ZSTD_DStreamInSize()) {
  in_.reset(new char[inCapacity_]);
}

ExportBytes::~ExportBytes() {
  ZSTD_freeDCtx(dctx_);
}

// Reads the next piece of the file into the input buffer; false at its end or on failure.
bool ExportBytes::refill() {
  ssize_t n;
  do n = ::read(fd_, in_.get() + inSize_, inCapacity_ - inSize_);
  while (n < 0 && errno == EINTR);
  if (n < 0) error_ = errno;
  if (n <= 0) {
    inEnded_ = true;
    return false;
  }
  inSize_ += static_cast<size_t>(n);
  fileBytes_ += static_cast<uint64_t>(n);
  return true;
}

ssize_t ExportBytes::fail(uint64_t offset, const QString& why) {
  damageOffset_ = offset;
  damage_ = why;
  inEnded_ = true;
  return -1;
}

ssize_t ExportBytes::read(char* buffer, size_t size) {
  if (!damage_.isEmpty() || error_) return -1;
  if (!sniffed_) {
    // The kind of file is told by its first bytes, never by its name: a pipe may hand them over
    // in pieces.
    sniffed_ = true;
    while (inSize_ < sizeof kMagic && refill()) {
    }
    if (error_) return -1;
    if (inSize_ >= sizeof kMagic && std::memcmp(in_.get(), kMagic, sizeof kMagic) == 0) {
      dctx_ = ZSTD_createDCtx();
      if (!dctx_ ||
          ZSTD_isError(ZSTD_DCtx_setParameter(dctx_, ZSTD_d_windowLogMax, kZstdMaxWindowLog))) {
        error_ = ENOMEM;
        return -1;
      }
    }
  }
  if (!dctx_) {
    if (inPos_ < inSize_) {  // the bytes looked at first
      const size_t n = std::min(size, inSize_ - inPos_);
      std::memcpy(buffer, in_.get() + inPos_, n);
      inPos_ += n;
      return static_cast<ssize_t>(n);
    }
    if (inEnded_) return 0;
    ssize_t n;
    do n = ::read(fd_, buffer, size);
    while (n < 0 && errno == EINTR);
    if (n < 0) error_ = errno;
    if (n > 0) fileBytes_ += static_cast<uint64_t>(n);
    return n;
  }
  for (;;) {
    if (inPos_ == inSize_ && !inEnded_) {
      inPos_ = inSize_ = 0;
      refill();
      if (error_) return -1;
    }
    ZSTD_inBuffer in{in_.get(), inSize_, inPos_};
    ZSTD_outBuffer out{buffer, size, 0};
    const size_t hint = ZSTD_decompressStream(dctx_, &out, &in);
    const bool moved = in.pos != inPos_ || out.pos > 0;
    inPos_ = in.pos;
    const uint64_t at = fileBytes_ - (inSize_ - inPos_);  // the byte of the file reached
    if (ZSTD_isError(hint)) {
      if (ZSTD_getErrorCode(hint) == ZSTD_error_frameParameter_windowTooLarge)
        return fail(at, TL(4332, "Der komprimierte Rahmen verlangt ein Fenster von mehr als %1 MiB",
                           {QString::number(1 << (kZstdMaxWindowLog - 20))}));
      return fail(at, TL(4333, "beschädigte komprimierte Daten (%1)",
                         {QString::fromUtf8(ZSTD_getErrorName(hint))}));
    }
    // Between frames the decoder asks for a header; what ends there is complete. A file may hold
    // any number of frames one after the other.
    if (moved) midFrame_ = hint != 0;
    if (out.pos > 0) return static_cast<ssize_t>(out.pos);
    if (inEnded_ && inPos_ == inSize_) {
      if (midFrame_) return fail(at, TL(4331, "Die komprimierte Datei endet vorzeitig"));
      return 0;
    }
    if (!moved && inPos_ < inSize_)
      return fail(at, TL(4333, "beschädigte komprimierte Daten (%1)", {"?"}));
  }
}

}  // namespace ql
