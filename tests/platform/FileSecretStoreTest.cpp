#include "velmor/FileSecretStore.h"

#include <gtest/gtest.h>
#include <openssl/sha.h>
#include <pwd.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <random>
#include <set>
#include <string>

#include "platform/PropertyList.h"
#include "testing/RecordingLoggerDelegate.h"

namespace velmor {
namespace {

namespace fs = std::filesystem;

class TemporaryDirectory final {
 public:
  TemporaryDirectory() {
    char pattern[] = "/tmp/velmor-file-store-XXXXXX";
    path_ = mkdtemp(pattern) ? pattern : "";
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

Data bytesOf(const std::string& text) { return Data(text.begin(), text.end()); }

unsigned modeOf(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0xFFFF;
}

// Computed here with another OpenSSL call than the store's.
std::string sha256Hex(const std::string& bytes) {
  unsigned char digest[SHA256_DIGEST_LENGTH];
  SHA256(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), digest);
  std::string hex;
  for (unsigned char byte : digest)
    hex += "0123456789abcdef"[byte >> 4], hex += "0123456789abcdef"[byte & 15];
  return hex;
}

std::string itemPath(const std::string& directory, const std::string& service,
                     const std::string& account) {
  return directory + "/" + sha256Hex(service + std::string(1, '\0') + account);
}

Data readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return Data(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Mode 0600 whatever the umask: the store refuses files others may write.
void writeFile(const std::string& path, const Data& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  chmod(path.c_str(), 0600);
}

std::set<std::string> listing(const std::string& directory) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory)) names.insert(entry.path().filename());
  return names;
}

// Runs `body` in a child process, which first waits until every write end
// of `startPipe` (when given) is closed.
pid_t forkChild(const int* startPipe, const std::function<int()>& body) {
  pid_t pid = fork();
  if (pid == 0) {
    if (startPipe) {
      close(startPipe[1]);
      char byte;
      while (read(startPipe[0], &byte, 1) > 0) {
      }
    }
    _exit(body());
  }
  return pid;
}

int exitCodeOf(pid_t pid) {
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(FileSecretStore, AnswersEachCallLikeTheKeychain) {
  TemporaryDirectory temporary;
  FileSecretStore store(temporary.path() + "/keychain");
  enum Call { kFind, kFindPresence, kAdd, kUpdate, kRemove };
  struct Step {
    Call call;
    std::string service, account;
    Data data;  // written, or expected from find
    std::int32_t status;
  };
  const Data binary{0, 1, 0, 255};
  const std::string nul(1, '\0');
  const Step steps[] = {
      {kFind, "svc", "acct", {}, kSecretStoreItemNotFound},
      {kUpdate, "svc", "acct", bytesOf("x"), kSecretStoreItemNotFound},
      {kRemove, "svc", "acct", {}, kSecretStoreItemNotFound},
      {kAdd, "svc", "acct", bytesOf("one"), kSecretStoreSuccess},
      {kAdd, "svc", "acct", bytesOf("two"), kSecretStoreDuplicateItem},
      {kFind, "svc", "acct", bytesOf("one"), kSecretStoreSuccess},
      {kFindPresence, "svc", "acct", {}, kSecretStoreSuccess},
      {kFindPresence, "svc", "other", {}, kSecretStoreItemNotFound},
      {kUpdate, "svc", "acct", {}, kSecretStoreSuccess},
      {kFind, "svc", "acct", {}, kSecretStoreSuccess},
      {kUpdate, "svc", "acct", binary, kSecretStoreSuccess},
      {kFind, "svc", "acct", binary, kSecretStoreSuccess},
      {kRemove, "svc", "acct", {}, kSecretStoreSuccess},
      {kFind, "svc", "acct", {}, kSecretStoreItemNotFound},
      {kRemove, "svc", "acct", {}, kSecretStoreItemNotFound},
      // The NUL between the names keeps these two apart.
      {kAdd, "ab", "c", bytesOf("1"), kSecretStoreSuccess},
      {kAdd, "a", "bc", bytesOf("2"), kSecretStoreSuccess},
      {kFind, "ab", "c", bytesOf("1"), kSecretStoreSuccess},
      {kAdd, "", "", bytesOf("empty names"), kSecretStoreSuccess},
      {kFind, "caf\xC3\xA9", "\xF0\x9F\x98\x80", {}, kSecretStoreItemNotFound},
      {kAdd, "caf\xC3\xA9", "\xF0\x9F\x98\x80", binary, kSecretStoreSuccess},
      {kFind, "caf\xC3\xA9", "\xF0\x9F\x98\x80", binary, kSecretStoreSuccess},
      // Names a property list would not give back unchanged.
      {kAdd, "svc" + nul + "x", "acct", binary, kSecretStoreParameterError},
      {kFind, "svc", nul, {}, kSecretStoreParameterError},
      {kAdd, "\xC0\x80", "acct", binary, kSecretStoreParameterError},
      {kUpdate, "svc", "\xED\xA0\x80", binary, kSecretStoreParameterError},
      {kRemove, "\xFF", "acct", {}, kSecretStoreParameterError},
      {kAdd, "big", "acct", Data(std::size_t{16} << 20), kSecretStoreParameterError},
      {kFind, "big", "acct", {}, kSecretStoreItemNotFound},
  };
  for (std::size_t i = 0; i < std::size(steps); ++i) {
    const Step& step = steps[i];
    SCOPED_TRACE(testing::Message() << "step " << i);
    Data found = bytesOf("untouched");
    switch (step.call) {
      case kFind:
        EXPECT_EQ(store.find(step.service, step.account, &found), step.status);
        if (step.status == kSecretStoreSuccess) {
          EXPECT_EQ(found, step.data);
        }
        break;
      case kFindPresence:
        EXPECT_EQ(store.find(step.service, step.account, nullptr), step.status);
        break;
      case kAdd:
        EXPECT_EQ(store.add(step.service, step.account, step.data), step.status);
        break;
      case kUpdate:
        EXPECT_EQ(store.update(step.service, step.account, step.data), step.status);
        break;
      case kRemove:
        EXPECT_EQ(store.remove(step.service, step.account), step.status);
        break;
    }
  }
}

TEST(FileSecretStore, WritesPrivateFilesNamedBySha256AsBinaryPropertyLists) {
  TemporaryDirectory temporary;
  const std::string directory = temporary.path() + "/share/velmor/keychain";
  mode_t previousMask = umask(0);  // the modes must not depend on the caller's umask
  FileSecretStore store(directory);
  EXPECT_EQ(store.add("Velmor ID (host-1)", "token-slot-1", bytesOf("secret")),
            kSecretStoreSuccess);
  umask(previousMask);

  for (const std::string& made :
       {temporary.path() + "/share", temporary.path() + "/share/velmor", directory})
    EXPECT_EQ(modeOf(made), 0700u) << made;
  const std::string file = itemPath(directory, "Velmor ID (host-1)", "token-slot-1");
  EXPECT_EQ(listing(directory), (std::set<std::string>{".lock", fs::path(file).filename()}));
  EXPECT_EQ(modeOf(file), 0600u);
  EXPECT_EQ(modeOf(directory + "/.lock"), 0600u);

  Data contents = readFile(file);
  EXPECT_EQ(std::string(contents.begin(), contents.begin() + 8), "bplist00");
  EXPECT_EQ(PropertyList::parse(contents), Value(Dictionary{{"Service", "Velmor ID (host-1)"},
                                                            {"Account", "token-slot-1"},
                                                            {"Data", bytesOf("secret")}}));

  // A directory loosened by hand is made private again by the next write.
  chmod(directory.c_str(), 0755);
  EXPECT_EQ(store.update("Velmor ID (host-1)", "token-slot-1", bytesOf("new")),
            kSecretStoreSuccess);
  EXPECT_EQ(modeOf(directory), 0700u);
  EXPECT_EQ(modeOf(file), 0600u);
}

TEST(FileSecretStore, TreatsDamagedForeignAndUnreadableFilesAsDocumented) {
  const Data item = PropertyList::binaryFromEntries(
      {{"Service", "svc"}, {"Account", "acct"}, {"Data", Data{1, 2, 3}}});
  // {"K\0z": "v"}: a key holding a NUL, which libplist cannot hand out as text.
  const Data nulKey{'b', 'p', 'l', 'i', 's',  't', '0', '0', 0xd1, 1, 2, 0x63, 0, 'K',
                    0,   0,   0,   'z', 0x51, 'v', 8,   11,  18,   0, 0, 0,    0, 0,
                    0,   1,   1,   0,   0,    0,   0,   0,   0,    0, 3, 0,    0, 0,
                    0,   0,   0,   0,   0,    0,   0,   0,   0,    0, 0, 0,    20};
  // "svc\u00e9" is written as UTF-16; its last unit (00 E9) becomes 00 00.
  Data utf16NulName = PropertyList::binaryFromEntries(
      {{"Service", "svc\xC3\xA9"}, {"Account", "acct"}, {"Data", Data{9}}});
  const std::uint8_t eAcute[] = {0x00, 0xE9};
  *(std::search(utf16NulName.begin(), utf16NulName.end(), std::begin(eAcute), std::end(eAcute)) +
    1) = 0x00;
  enum Kind { kDamaged, kForeign, kUnreadable };
  struct Case {
    const char* what;
    Kind kind;
    std::optional<Data> contents;  // nothing: a directory stands under the name
  };
  const Case cases[] = {
      {"empty file", kDamaged, Data{}},
      {"not a property list", kDamaged, bytesOf("Service=svc")},
      {"cut short", kDamaged, Data(item.begin(), item.begin() + item.size() / 2)},
      {"no Data", kDamaged,
       PropertyList::binaryFromEntries({{"Service", "svc"}, {"Account", "acct"}})},
      {"Data as text", kDamaged,
       PropertyList::binaryFromEntries({{"Service", "svc"}, {"Account", "acct"}, {"Data", "x"}})},
      {"key with a NUL", kDamaged, nulKey},
      {"other names", kForeign,
       PropertyList::binaryFromEntries(
           {{"Service", "svc2"}, {"Account", "acct"}, {"Data", Data{9}}})},
      // A UTF-16 NUL in a name, which reading refuses.
      {"names with a NUL tail", kDamaged, utf16NulName},
      {"a directory", kUnreadable, std::nullopt},
  };
  for (const Case& sample : cases) {
    SCOPED_TRACE(sample.what);
    TemporaryDirectory temporary;
    FileSecretStore store(temporary.path());
    const std::string file = itemPath(temporary.path(), "svc", "acct");
    auto place = [&] {
      if (sample.contents)
        writeFile(file, *sample.contents);
      else
        fs::create_directory(file);
    };
    place();
    std::int32_t readStatus =
        sample.kind == kForeign ? kSecretStoreItemNotFound : kSecretStoreIoError;
    EXPECT_EQ(store.find("svc", "acct", nullptr), readStatus);
    EXPECT_EQ(store.update("svc", "acct", bytesOf("new")), readStatus);
    EXPECT_EQ(store.remove("svc", "acct"),
              sample.kind == kDamaged ? kSecretStoreSuccess : readStatus);
    EXPECT_EQ(fs::exists(file), sample.kind != kDamaged);
    place();
    EXPECT_EQ(store.add("svc", "acct", bytesOf("new")),
              sample.kind == kUnreadable ? kSecretStoreIoError : kSecretStoreSuccess);
    Data found;
    if (sample.kind != kUnreadable) {
      EXPECT_EQ(store.find("svc", "acct", &found), kSecretStoreSuccess);
      EXPECT_EQ(found, bytesOf("new"));
    }
  }
}

TEST(FileSecretStore, FailedWritesInAReadOnlyDirectoryAnswerIoErrorAndKeepTheItem) {
  if (geteuid() == 0) GTEST_SKIP() << "root ignores directory modes";
  TemporaryDirectory temporary;
  FileSecretStore store(temporary.path());
  ASSERT_EQ(store.add("svc", "acct", bytesOf("kept")), kSecretStoreSuccess);
  chmod(temporary.path().c_str(), 0500);
  EXPECT_EQ(store.add("svc", "other", bytesOf("x")), kSecretStoreIoError);
  EXPECT_EQ(store.update("svc", "acct", bytesOf("x")), kSecretStoreIoError);
  EXPECT_EQ(store.remove("svc", "acct"), kSecretStoreIoError);
  Data found;
  EXPECT_EQ(store.find("svc", "acct", &found), kSecretStoreSuccess);
  EXPECT_EQ(found, bytesOf("kept"));
  chmod(temporary.path().c_str(), 0700);
}

TEST(FileSecretStore, FirstWriteRemovesTemporaryFilesOfCrashedWriters) {
  TemporaryDirectory temporary;
  writeFile(temporary.path() + "/.tmp-" + sha256Hex("x"), bytesOf("torn"));
  writeFile(temporary.path() + "/notes", bytesOf("not ours"));
  FileSecretStore store(temporary.path());
  EXPECT_EQ(store.find("svc", "acct", nullptr), kSecretStoreItemNotFound);
  EXPECT_EQ(store.add("svc", "acct", bytesOf("x")), kSecretStoreSuccess);
  EXPECT_EQ(
      listing(temporary.path()),
      (std::set<std::string>{".lock", "notes", fs::path(itemPath("", "svc", "acct")).filename()}));
}

// What another user could have planted or could change is refused, item
// by item and for the whole directory; nothing is written or deleted.
TEST(FileSecretStore, RefusesWhatOthersCouldHavePlantedOrCouldChange) {
  // Only root can hand a file to another user.
  const bool canChown = geteuid() == 0;
  constexpr uid_t kOtherUser = 65534;
  enum Target { kDirectory, kItemFile };
  const struct {
    const char* what;
    Target target;
    unsigned mode;  // 0: owned by another user instead
    std::string reason;
  } cases[] = {
      {"group-writable directory", kDirectory, 0770, "group or others may write to it (mode 0770)"},
      {"world-writable directory", kDirectory, 0777, "group or others may write to it (mode 0777)"},
      {"directory of another user", kDirectory, 0, "it belongs to user 65534, not to this user"},
      {"group-writable item", kItemFile, 0620, "group or others may write to it (mode 0620)"},
      {"item of another user", kItemFile, 0, "it belongs to user 65534, not to this user"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    if (c.mode == 0 && !canChown) continue;
    TemporaryDirectory temporary;
    FileSecretStore store(temporary.path());
    ASSERT_EQ(store.add("svc", "acct", bytesOf("kept")), kSecretStoreSuccess);
    const std::string item = itemPath(temporary.path(), "svc", "acct");
    const std::string& refused = c.target == kDirectory ? temporary.path() : item;
    if (c.mode != 0) {
      ASSERT_EQ(chmod(refused.c_str(), c.mode), 0);
    } else {
      ASSERT_EQ(chown(refused.c_str(), kOtherUser, kOtherUser), 0);
    }
    test::RecordingLoggerDelegate log;
    test::ScopedLogger scoped(VelmorAuthorizationLogger::kLevelError, &log);
    Data found;
    EXPECT_EQ(store.find("svc", "acct", &found), FileSecretStore::kStatusUntrusted);
    EXPECT_EQ(store.update("svc", "acct", bytesOf("new")), FileSecretStore::kStatusUntrusted);
    EXPECT_EQ(store.remove("svc", "acct"), FileSecretStore::kStatusUntrusted);
    EXPECT_EQ(store.add("svc", "acct", bytesOf("new")), FileSecretStore::kStatusUntrusted);
    EXPECT_EQ(store.add("svc", "other", bytesOf("new")),
              c.target == kDirectory ? FileSecretStore::kStatusUntrusted : kSecretStoreSuccess);
    EXPECT_TRUE(found.empty());
    // Logged once, however often it was refused.
    const std::string line = "ERROR\tThe file store does not use '" + refused + "': " + c.reason;
    const std::vector<std::string> lines = log.messages();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].rfind(line, 0), 0u) << lines[0];
    EXPECT_EQ(
        PropertyList::parse(readFile(item)),
        Value(Dictionary{{"Service", "svc"}, {"Account", "acct"}, {"Data", bytesOf("kept")}}));
  }
}

TEST(FileSecretStore, RefusesARelativeDirectory) {
  FileSecretStore store("velmor-keychain");
  test::RecordingLoggerDelegate log;
  test::ScopedLogger scoped(VelmorAuthorizationLogger::kLevelError, &log);
  EXPECT_EQ(store.find("s", "a", nullptr), kSecretStoreParameterError);
  EXPECT_EQ(store.add("s", "a", bytesOf("x")), kSecretStoreParameterError);
  EXPECT_EQ(store.update("s", "a", bytesOf("x")), kSecretStoreParameterError);
  EXPECT_EQ(store.remove("s", "a"), kSecretStoreParameterError);
  EXPECT_FALSE(fs::exists("velmor-keychain"));
  EXPECT_EQ(log.messages(),
            std::vector<std::string>{"ERROR\tThe file store does not use 'velmor-keychain': its "
                                     "directory must be an absolute path."});
}

// Another process holds the lock and does not let go: the writer gives up
// at its deadline instead of waiting for ever, and writes once it is free.
TEST(FileSecretStore, AWriterWaitsForTheLockOnlyUntilItsTimeout) {
  TemporaryDirectory temporary;
  FileSecretStore store(temporary.path(), std::chrono::milliseconds(200));
  ASSERT_EQ(store.add("svc", "acct", bytesOf("kept")), kSecretStoreSuccess);
  int held[2], release[2];
  ASSERT_EQ(pipe(held), 0);
  ASSERT_EQ(pipe(release), 0);
  const std::string lockFile = temporary.path() + "/.lock";
  pid_t holder = forkChild(nullptr, [&] {
    close(release[1]);
    int fd = open(lockFile.c_str(), O_RDWR);
    if (fd < 0 || flock(fd, LOCK_EX) != 0 || write(held[1], "L", 1) != 1) return 1;
    char byte;
    while (read(release[0], &byte, 1) > 0) {
    }
    return 0;
  });
  ASSERT_GT(holder, 0);
  close(held[1]);
  close(release[0]);
  char byte = 0;
  ASSERT_EQ(read(held[0], &byte, 1), 1);

  test::RecordingLoggerDelegate log;
  test::ScopedLogger scoped(VelmorAuthorizationLogger::kLevelError, &log);
  EXPECT_EQ(store.update("svc", "acct", bytesOf("new")), kSecretStoreNotAvailable);
  EXPECT_EQ(log.messages(), std::vector<std::string>{
                                "ERROR\tThe file store in '" + temporary.path() +
                                "' gave up a write: another writer held its lock for more than "
                                "200 ms."});
  Data found;
  EXPECT_EQ(store.find("svc", "acct", &found), kSecretStoreSuccess);
  EXPECT_EQ(found, bytesOf("kept"));

  close(release[1]);
  EXPECT_EQ(exitCodeOf(holder), 0);
  close(held[0]);
  EXPECT_EQ(store.update("svc", "acct", bytesOf("new")), kSecretStoreSuccess);
}

TEST(FileSecretStore, WithoutADirectoryIsNotAvailable) {
  FileSecretStore store("");
  EXPECT_EQ(store.find("s", "a", nullptr), kSecretStoreNotAvailable);
  EXPECT_EQ(store.add("s", "a", {}), kSecretStoreNotAvailable);
  EXPECT_EQ(store.update("s", "a", {}), kSecretStoreNotAvailable);
  EXPECT_EQ(store.remove("s", "a"), kSecretStoreNotAvailable);
}

TEST(FileSecretStore, DefaultDirectoryFollowsXdgDataHomeThenHome) {
  auto saved = [](const char* name) -> std::optional<std::string> {
    const char* value = std::getenv(name);
    return value ? std::optional<std::string>(value) : std::nullopt;
  };
  auto set = [](const char* name, const std::optional<std::string>& value) {
    value ? setenv(name, value->c_str(), 1) : unsetenv(name);
  };
  const std::optional<std::string> savedXdg = saved("XDG_DATA_HOME"), savedHome = saved("HOME");
  const passwd* entry = getpwuid(geteuid());
  const std::string passwordHome = entry ? entry->pw_dir : "";
  struct Case {
    std::optional<std::string> xdg, home;
    std::string expected;
  };
  const Case cases[] = {
      {"/data/x", "/home/u", "/data/x/velmor-authorization/keychain"},
      {"data/x", "/home/u", "/home/u/.local/share/velmor-authorization/keychain"},
      {"", "/home/u", "/home/u/.local/share/velmor-authorization/keychain"},
      {std::nullopt, "/home/u", "/home/u/.local/share/velmor-authorization/keychain"},
      {std::nullopt, std::nullopt, passwordHome + "/.local/share/velmor-authorization/keychain"},
  };
  for (const Case& sample : cases) {
    SCOPED_TRACE(sample.expected);
    set("XDG_DATA_HOME", sample.xdg);
    set("HOME", sample.home);
    EXPECT_EQ(FileSecretStore::defaultDirectory(), sample.expected);
  }
  set("XDG_DATA_HOME", savedXdg);
  set("HOME", savedHome);
}

TEST(FileSecretStore, ProcessKilledWhileRewritingLeavesTheOldOrTheNewRecord) {
  TemporaryDirectory temporary;
  const Data first(64 << 10, 0xA1), second(64 << 10, 0xB2);
  FileSecretStore store(temporary.path());
  ASSERT_EQ(store.add("svc", "acct", first), kSecretStoreSuccess);
  std::mt19937 random(20240611);
  auto expectOneOfBoth = [&] {
    Data found;
    EXPECT_EQ(store.find("svc", "acct", &found), kSecretStoreSuccess);
    EXPECT_TRUE(found == first || found == second);
  };
  for (int round = 0; round < 20; ++round) {
    SCOPED_TRACE(round);
    int progress[2];
    ASSERT_EQ(pipe(progress), 0);
    pid_t child = forkChild(nullptr, [&] {
      FileSecretStore writer(temporary.path());
      for (int n = 0;; ++n) {
        if (writer.update("svc", "acct", n % 2 ? first : second) != kSecretStoreSuccess) return 1;
        if (write(progress[1], "w", 1) != 1) return 1;
      }
    });
    ASSERT_GT(child, 0);
    close(progress[1]);
    // The moment of the kill varies without sleeping: after 0 to 3 finished
    // writes, and after 0 to 11 reads, which also check that readers never
    // see a half-written file.
    char byte;
    for (unsigned writes = random() % 4; writes > 0 && read(progress[0], &byte, 1) == 1; --writes) {
    }
    for (unsigned reads = random() % 12; reads > 0; --reads) expectOneOfBoth();
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    close(progress[0]);
    EXPECT_TRUE(WIFSIGNALED(status)) << "the writer failed on its own";
    expectOneOfBoth();
  }
  FileSecretStore later(temporary.path());
  EXPECT_EQ(later.update("svc", "acct", first), kSecretStoreSuccess);
  EXPECT_EQ(listing(temporary.path()).size(), 2u) << "temporary files were left behind";
}

TEST(FileSecretStore, ConcurrentWritersLoseNothingAndAddHasOneWinner) {
  TemporaryDirectory temporary;
  const std::string directory = temporary.path() + "/keychain";
  int start[2], results[2];
  ASSERT_EQ(pipe(start), 0);
  ASSERT_EQ(pipe(results), 0);
  auto ownName = [](int self, int i) { return std::to_string(self) + "-" + std::to_string(i); };
  // Each child adds 200 items of its own, then races the other for 50 shared
  // names and reports its number and one byte per race: 1 won, 0 duplicate,
  // 2 anything else (one pipe write, so the reports do not interleave).
  auto body = [&](char self) {
    return [&, self] {
      FileSecretStore writer(directory);
      for (int i = 0; i < 200; ++i)
        if (writer.add("own", ownName(self, i), bytesOf(ownName(self, i))) != kSecretStoreSuccess)
          return 1;
      char report[51] = {self};
      for (int i = 0; i < 50; ++i) {
        std::int32_t status =
            writer.add("shared", std::to_string(i), bytesOf(std::string(1, self)));
        report[i + 1] = status == kSecretStoreSuccess         ? 1
                        : status == kSecretStoreDuplicateItem ? 0
                                                              : 2;
      }
      return write(results[1], report, sizeof report) == sizeof report ? 0 : 1;
    };
  };
  pid_t children[] = {forkChild(start, body(0)), forkChild(start, body(1))};
  close(start[1]);  // both start at once
  EXPECT_EQ(exitCodeOf(children[0]), 0);
  EXPECT_EQ(exitCodeOf(children[1]), 0);
  char reports[2][51];
  ASSERT_EQ(read(results[0], reports[0], 51), 51);
  ASSERT_EQ(read(results[0], reports[1], 51), 51);
  close(start[0]), close(results[0]), close(results[1]);

  FileSecretStore store(directory);
  Data found;
  for (int self = 0; self < 2; ++self)
    for (int i = 0; i < 200; ++i) {
      ASSERT_EQ(store.find("own", ownName(self, i), &found), kSecretStoreSuccess);
      EXPECT_EQ(found, bytesOf(ownName(self, i)));
    }
  for (int i = 0; i < 50; ++i) {
    SCOPED_TRACE(i);
    ASSERT_EQ(reports[0][i + 1] + reports[1][i + 1], 1);
    char winner = reports[0][i + 1] == 1 ? reports[0][0] : reports[1][0];
    EXPECT_EQ(store.find("shared", std::to_string(i), &found), kSecretStoreSuccess);
    EXPECT_EQ(found, bytesOf(std::string(1, winner)));
  }
}

}  // namespace
}  // namespace velmor
