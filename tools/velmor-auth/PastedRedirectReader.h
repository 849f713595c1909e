// The address a user pastes in place of a browser that cannot come back:
// over SSH the browser runs on another machine, where 127.0.0.1 is not
// this one.
#ifndef VELMOR_TOOLS_VELMOR_AUTH_PASTED_REDIRECT_READER_H_
#define VELMOR_TOOLS_VELMOR_AUTH_PASTED_REDIRECT_READER_H_

#include <functional>
#include <string>
#include <thread>

#include "UniqueFd.h"
#include "velmor/Url.h"

namespace velmor::tool {

// Reads lines from a descriptor (standard input) on a thread of its own.
// The first line that is the redirect URL followed by a query ("?code=...")
// goes to `deliver`, and reading ends; every other non-blank line goes to
// `reject`, so the user can be told what to paste. Both are called on the
// reader's thread. Reading also ends at the end of the input and when the
// reader is destroyed, which waits for its thread.
class PastedRedirectReader final {
 public:
  using Deliver = std::function<void(const Url& redirect)>;
  using Reject = std::function<void(const std::string& line)>;

  PastedRedirectReader(int fd, std::string redirectUrl, Deliver deliver, Reject reject);
  ~PastedRedirectReader();

  PastedRedirectReader(const PastedRedirectReader&) = delete;
  PastedRedirectReader& operator=(const PastedRedirectReader&) = delete;

 private:
  void read();
  // True when the line was the redirect.
  bool take(std::string line);

  int fd_;
  std::string redirectUrl_;
  Deliver deliver_;
  Reject reject_;
  // Written to by the destructor, to end read().
  UniqueFd stopRead_{-1};
  UniqueFd stopWrite_{-1};
  std::thread thread_;
};

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_PASTED_REDIRECT_READER_H_
