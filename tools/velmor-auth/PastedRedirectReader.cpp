#include "PastedRedirectReader.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace velmor::tool {

namespace {

// Longer lines are no redirect; they are dropped as they come.
constexpr std::size_t kMaxLineLength = 64 * 1024;

std::string trimmed(const std::string& line) {
  const std::size_t start = line.find_first_not_of(" \t\r\n");
  if (start == std::string::npos) return "";
  return line.substr(start, line.find_last_not_of(" \t\r\n") - start + 1);
}

}  // namespace

PastedRedirectReader::PastedRedirectReader(int fd, std::string redirectUrl, Deliver deliver,
                                           Reject reject)
    : fd_(fd),
      redirectUrl_(std::move(redirectUrl)),
      deliver_(std::move(deliver)),
      reject_(std::move(reject)) {
  int stop[2];
  if (::pipe2(stop, O_CLOEXEC) != 0) return;
  stopRead_ = UniqueFd(stop[0]);
  stopWrite_ = UniqueFd(stop[1]);
  thread_ = std::thread([this] { read(); });
}

PastedRedirectReader::~PastedRedirectReader() {
  if (!thread_.joinable()) return;
  const char stop = 0;
  [[maybe_unused]] const ssize_t written = ::write(stopWrite_.get(), &stop, 1);
  thread_.join();
}

void PastedRedirectReader::read() {
  std::string line;
  for (;;) {
    pollfd watched[] = {{fd_, POLLIN, 0}, {stopRead_.get(), POLLIN, 0}};
    if (::poll(watched, 2, -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (watched[1].revents != 0) return;
    char buffer[4096];
    const ssize_t count = ::read(fd_, buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    for (const char c : std::string_view(buffer, static_cast<std::size_t>(count))) {
      if (c != '\n') {
        if (line.size() < kMaxLineLength) line += c;
        continue;
      }
      if (take(std::exchange(line, std::string()))) return;
    }
  }
}

bool PastedRedirectReader::take(std::string line) {
  line = trimmed(line);
  if (line.empty()) return false;
  const std::optional<Url> url = Url::withString(line);
  if (url && line.size() > redirectUrl_.size() && line.starts_with(redirectUrl_) &&
      line[redirectUrl_.size()] == '?') {
    deliver_(*url);
    return true;
  }
  reject_(line);
  return false;
}

}  // namespace velmor::tool
