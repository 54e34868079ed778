#pragma once
// The one way a handler of the window ends in a failure: whatever a command, slot, lambda or
// event handler throws is caught at its edge and handed to FailureReport with the handler's
// name; the program goes on. After a failure the owner gets a chance to bring its controls back
// (a command that failed half-way must never leave the window busy for good).

#include <QString>
#include <QStringList>
#include <exception>
#include <functional>
#include <type_traits>
#include <utility>

#include "failure/FailureReport.h"

namespace ql {

class Guard {
 public:
  Guard() = default;
  explicit Guard(std::function<void()> recover) : recover_(std::move(recover)) {}
  // For a dialog: failures are reported under the dialog's own module name.
  explicit Guard(const char* module, std::function<void()> recover = {})
      : module_(module), recover_(std::move(recover)) {}

  // Runs f; an exception is reported under `procedure` and the recovery runs.
  template <class F>
  void run(const char* procedure, F&& f, const QStringList& values = {}) const noexcept {
    try {
      std::forward<F>(f)();
      return;
    } catch (const std::exception& e) {
      report(procedure, QString::fromLocal8Bit(e.what()), values);
    } catch (...) {
      report(procedure, QStringLiteral("unknown exception"), values);
    }
  }

  // A guarded copy of a slot for connect(); it takes whatever the signal hands over.
  template <class F>
  auto wrap(const char* procedure, F f) const {
    return [this, procedure, f = std::move(f)](auto&&... args) {
      run(procedure, [&] {
        // A slot may take fewer arguments than its signal hands over (a menu's "checked").
        if constexpr (std::is_invocable_v<const F&, decltype(args)...>)
          f(std::forward<decltype(args)>(args)...);
        else
          f();
      });
    };
  }

 private:
  void report(const char* procedure, const QString& error, const QStringList& values) const noexcept {
    try {
      FailureReport(QString::fromLatin1(procedure), QString::fromLatin1(module_), 0, error, values);
      if (recover_) recover_();
    } catch (...) {
      // Nothing sensible is left to do when the report itself fails.
    }
  }

  const char* module_ = "frmMain";
  std::function<void()> recover_;
};

}  // namespace ql
