// velmor-auth: drives the library from the command line.
#include <cstdio>
#include <cstring>

#include "Demo.h"
#include "velmor/VelmorAuthorizationLibraryVersion.h"

namespace {

constexpr char kUsage[] =
    "usage: velmor-auth COMMAND\n"
    "\n"
    "commands:\n"
    "  demo      a short tour: errors, JSON reading, key derivation and encryption\n"
    "  version   print the library version\n";

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 || std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0) {
    std::fputs(kUsage, argc == 2 ? stdout : stderr);
    return argc == 2 ? 0 : 2;
  }
  if (std::strcmp(argv[1], "version") == 0) {
    std::printf("%s\n", velmor::VelmorAuthorizationLibraryVersion::version().c_str());
    return 0;
  }
  if (std::strcmp(argv[1], "demo") == 0) return velmor::tool::runDemo(stdout);
  std::fprintf(stderr, "velmor-auth: unknown command '%s'\n\n%s", argv[1], kUsage);
  return 2;
}
