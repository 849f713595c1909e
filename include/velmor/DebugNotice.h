// Lets an application show the library's internal failures to a developer
// while a debugger is attached.
#ifndef VELMOR_DEBUG_NOTICE_H_
#define VELMOR_DEBUG_NOTICE_H_

#include <functional>
#include <string>

#include "velmor/Export.h"

namespace velmor {

// While a debugger is attached, failures that have no caller to return
// them to (a credential record that could not be saved, an insecure server
// URL) are also shown as a notice. The library has no user interface of its
// own, so it hands the notice to a handler the application sets; without one
// no notice is shown (the failure is still logged).
//
// The handler is called on the thread that hit the failure, often one of the
// library's queue threads. It must hand the notice to the application's own
// user-interface thread and return at once, without blocking or waiting for
// the user; it may be called from several threads at once. Exceptions it
// throws are dropped.
class VELMOR_EXPORT DebugNotice final {
 public:
  using Handler = std::function<void(const std::string& title, const std::string& message)>;

  DebugNotice() = delete;

  // Replaces the handler; an empty function removes it. Thread-safe; a call
  // already under way may still reach the previous handler.
  static void setHandler(Handler handler);
  // Passes a notice to the current handler, if any. Used by the library's
  // error reporting.
  static void show(const std::string& title, const std::string& message) noexcept;
};

}  // namespace velmor

#endif  // VELMOR_DEBUG_NOTICE_H_
