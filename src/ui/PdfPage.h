#pragma once
// The first page of a PDF, drawn in a process of its own. The PDF library can neither be
// interrupted nor used from two threads, and a damaged file can make it loop for good, so the
// preview never calls it in the window's process: it starts the program again as
//
//   quorlane --render-pdf-page FILE WIDTH HEIGHT
//
// and kills it when it takes too long. FILE is the path's bytes percent-encoded (any name goes
// through unchanged); the page is drawn on white, fitted into WIDTH x HEIGHT pixels (each at
// most kPdfPageMaxSide), and written to standard output as a PNG. The exit status says why
// there is no picture (PdfPageStatus), with a number on standard error where one belongs.
//
// This header is read by the program's start (which has no window library) as well.

namespace ql {

inline constexpr char kRenderPdfPageOption[] = "--render-pdf-page";
inline constexpr int kPdfPageMaxSide = 4096;

enum PdfPageStatus {
  kPdfPageDrawn = 0,
  kPdfPageUsage = 2,
  kPdfPageSystem = 3,  // standard error: errno
  kPdfPageNotRegular = 4,
  kPdfPageTooLarge = 5,
  kPdfPageDocument = 6,  // standard error: the library's error number
  kPdfPageNoPage = 7,    // opened, but there is no first page to draw
};

// The helper's whole run: `argv` as the program got it.
int renderPdfPageMain(int argc, char** argv);

}  // namespace ql
