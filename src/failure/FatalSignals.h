#pragma once
// Fatal signals (SIGSEGV, SIGFPE, SIGILL, SIGBUS, SIGABRT) and uncaught exceptions end the process,
// since going on after one is not safe. Before that, the handler appends an error report to
// "error.log" in the data folder, with the failure named as the classic exception names do (an
// exception by its what()), and writes one line to standard error.
// The report text is prepared in advance with place-holders for the values of the moment, so
// that the handler only reads /proc files and calls write(2).

#include <cstdint>

namespace ql {

// Call once the data folder is known. Returns false on a second call, which changes nothing.
bool installFatalSignalHandlers();
// Prepares the text again after a value it prints has changed; nothing before the installation.
void refreshFatalSignalReport();

// The exception code for a signal and its si_code; 0 when there is none.
uint32_t exceptionCodeForSignal(int sig, int siCode);
// "EXCEPTION_ACCESS_VIOLATION", ..., "Unknown exception type".
const char* exceptionName(uint32_t code);
// 0 "Ok to continue.", 1 "NOT ok to continue.", else "Probably safe to continue, but better not."
const char* continuationText(uint32_t flags);

}  // namespace ql
