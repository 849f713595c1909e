#include "velmor/BrowserLauncher.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "testing/ScopedEnvironmentVariables.h"
#include "testing/TemporaryDirectory.h"
#include "testing/WaitableCounter.h"

namespace velmor {
namespace {

// Stands in for xdg-open: tells the FIFO named in VELMOR_TEST_OPENED how
// many arguments it got, each on a line, and what its standard input held.
constexpr char kRecordingOpener[] =
    "#!/bin/sh\n"
    "{ printf '%s\\n' \"$#\" \"$@\"\n"
    "  if read -r line; then echo \"input: $line\"; else echo 'input: none'; fi\n"
    "} > \"$VELMOR_TEST_OPENED\"\n";

// What the opener wrote, once it closed the FIFO; "" when nothing came in time.
std::string readOpenerReport(const std::string& fifo) {
  const int fd = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
  std::string report;
  pollfd watched{fd, POLLIN, 0};
  const int patience = static_cast<int>(std::chrono::milliseconds(test::kGenerousTimeout).count());
  while (::poll(&watched, 1, patience) > 0) {
    char buffer[512];
    const ssize_t count = ::read(fd, buffer, sizeof buffer);
    if (count == 0) break;
    if (count > 0) report.append(buffer, static_cast<std::size_t>(count));
  }
  ::close(fd);
  return report;
}

TEST(BrowserLauncher, PassesTheUrlAsOneArgumentWithoutAShell) {
  test::TemporaryDirectory directory;
  const std::string opener = directory.writeFile("xdg-open", kRecordingOpener);
  ASSERT_EQ(::chmod(opener.c_str(), 0755), 0);
  const std::string fifo = directory.pathOf("opened");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  test::ScopedEnvironmentVariables environment{{"PATH", directory.path().c_str()},
                                               {"VELMOR_TEST_OPENED", fifo.c_str()}};

  // What a shell would take apart: separators, substitutions, quotes.
  const std::string url = "https://h.example/a?x=1&y='$(touch${IFS}x)';z=`id`|w";
  ErrorRef error;
  ASSERT_TRUE(BrowserLauncher::openUrl(*Url::withString(url), &error));
  EXPECT_EQ(readOpenerReport(fifo), "1\n" + url + "\ninput: none\n");
}

TEST(BrowserLauncher, RefusesWhatIsNotAWebPageAndReportsAMissingOpener) {
  test::TemporaryDirectory emptyDirectory;
  test::ScopedEnvironmentVariables environment{{"PATH", emptyDirectory.path().c_str()}};
  ErrorRef error;
  EXPECT_FALSE(BrowserLauncher::openUrl(*Url::withString("file:///etc/passwd"), &error));
  EXPECT_EQ(error->domain(), "NSURLErrorDomain");
  EXPECT_EQ(error->code(), -1002);

  EXPECT_FALSE(BrowserLauncher::openUrl(*Url::withString("HTTPS://h.example/"), &error));
  EXPECT_EQ(error->domain(), "NSPOSIXErrorDomain");
  EXPECT_EQ(error->code(), ENOENT);
  EXPECT_EQ(error->localizedDescription(), "Cannot start xdg-open: No such file or directory");
}

}  // namespace
}  // namespace velmor
