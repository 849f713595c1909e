// Item locks of the three stores: threads and processes take turns, a
// thread may take its own lock again, and a wait past its time is an error,
// never a hang.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/IdentityLock.h"
#include "testing/ScopedEnvironmentVariables.h"
#include "testing/TemporaryDirectory.h"
#include "velmor/FileSecretStore.h"
#include "velmor/MemorySecretStore.h"
#include "velmor/SecretStore.h"

namespace velmor {
namespace {

using namespace std::chrono_literals;

// Long enough never to run out on a loaded machine; the tests that show a
// timeout use a holder that never lets go.
constexpr std::chrono::milliseconds kPatient = 60s;

struct StoreKind {
  const char* name;
  // Makes the store for a test whose files go to `directory`.
  std::function<std::shared_ptr<SecretStore>(const std::string& directory)> make;
  bool sharedWithProcesses;
};

// A store of the default kind: the runtime directory holds its locks.
class RuntimeDirectoryStore final : public SecretStoreWrapper {
 public:
  RuntimeDirectoryStore() : SecretStoreWrapper(std::make_shared<MemorySecretStore>()) {}
  std::int32_t lockItem(const std::string& service, const std::string& account,
                        std::chrono::milliseconds timeout, SecretStoreLock* lock) override {
    // The base's lock, not the wrapped memory store's in-process one.
    // NOLINTNEXTLINE(bugprone-parent-virtual-call)
    return SecretStore::lockItem(service, account, timeout, lock);
  }
};

const StoreKind kStores[] = {
    {"memory", [](const std::string&) { return std::make_shared<MemorySecretStore>(); }, false},
    {"file",
     [](const std::string& directory) {
       return std::make_shared<FileSecretStore>(directory + "/keychain");
     },
     true},
    {"runtime directory",
     [](const std::string&) { return std::make_shared<RuntimeDirectoryStore>(); }, true},
};

class SecretStoreLockTest : public ::testing::Test {
 protected:
  test::TemporaryDirectory directory_;
  test::ScopedEnvironmentVariables environment_{{"XDG_RUNTIME_DIR", directory_.path().c_str()}};
};

std::int32_t lockOn(SecretStore& store, const std::string& account,
                    std::chrono::milliseconds timeout, SecretStoreLock* lock) {
  return store.lockItem("svc", account, timeout, lock);
}

// The status another thread gets, trying for `timeout`.
std::int32_t statusFromAnotherThread(SecretStore& store, const std::string& account,
                                     std::chrono::milliseconds timeout) {
  std::int32_t status = -1;
  std::thread([&] {
    SecretStoreLock lock;
    status = lockOn(store, account, timeout, &lock);
  }).join();
  return status;
}

TEST_F(SecretStoreLockTest, ThreadsTakeTurnsAndNoIncrementIsLost) {
  for (const StoreKind& kind : kStores) {
    SCOPED_TRACE(kind.name);
    auto store = kind.make(directory_.path());
    // Read, pause, write: without the lock the threads overwrite each other.
    long counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&] {
        for (int i = 0; i < 100; ++i) {
          SecretStoreLock lock;
          ASSERT_EQ(lockOn(*store, "acct", kPatient, &lock), kSecretStoreSuccess);
          const long seen = counter;
          std::this_thread::yield();
          counter = seen + 1;
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(counter, 400);
  }
}

TEST_F(SecretStoreLockTest, HoldersOfOneThreadNestAndTheLastOneLetsGo) {
  for (const StoreKind& kind : kStores) {
    SCOPED_TRACE(kind.name);
    auto store = kind.make(directory_.path());
    SecretStoreLock outer, inner;
    ASSERT_EQ(lockOn(*store, "acct", kPatient, &outer), kSecretStoreSuccess);
    EXPECT_EQ(lockOn(*store, "acct", 0ms, &inner), kSecretStoreSuccess);
    EXPECT_TRUE(inner.ownsLock());
    inner.unlock();
    // A wait past its time is an error, and leaves nothing taken.
    EXPECT_EQ(statusFromAnotherThread(*store, "acct", 20ms), kSecretStoreTimedOut);
    EXPECT_EQ(statusFromAnotherThread(*store, "acct", 0ms), kSecretStoreTimedOut);
    // Other items are not held.
    EXPECT_EQ(statusFromAnotherThread(*store, "other", 0ms), kSecretStoreSuccess);
    outer.unlock();
    EXPECT_FALSE(outer.ownsLock());
    EXPECT_EQ(statusFromAnotherThread(*store, "acct", kPatient), kSecretStoreSuccess);
  }
}

// A child process that takes the lock, says so, and keeps it until told.
class LockingChild final {
 public:
  LockingChild(const std::function<std::shared_ptr<SecretStore>()>& make) {
    int toParent[2], toChild[2];
    EXPECT_EQ(pipe(toParent), 0);
    EXPECT_EQ(pipe(toChild), 0);
    pid_ = fork();
    if (pid_ == 0) {
      close(toParent[0]), close(toChild[1]);
      auto store = make();
      SecretStoreLock lock;
      const char taken = store->lockItem("svc", "acct", kPatient, &lock) == kSecretStoreSuccess;
      char byte = 0;
      _exit(write(toParent[1], &taken, 1) == 1 && read(toChild[0], &byte, 1) >= 0 ? 0 : 1);
    }
    close(toParent[1]), close(toChild[0]);
    char taken = 0;
    EXPECT_EQ(read(toParent[0], &taken, 1), 1);
    EXPECT_EQ(taken, 1);
    close(toParent[0]);
    release_ = toChild[1];
  }
  // The child lets go as it ends: closing the pipe ends its wait.
  int release() {
    close(release_);
    int status = 0;
    waitpid(pid_, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = -1;
  int release_ = -1;
};

TEST_F(SecretStoreLockTest, ProcessesTakeTurns) {
  for (const StoreKind& kind : kStores) {
    if (!kind.sharedWithProcesses) continue;
    SCOPED_TRACE(kind.name);
    auto store = kind.make(directory_.path());
    LockingChild child([&] { return kind.make(directory_.path()); });
    SecretStoreLock lock;
    EXPECT_EQ(lockOn(*store, "acct", 20ms, &lock), kSecretStoreTimedOut);
    EXPECT_EQ(lockOn(*store, "other", 0ms, &lock), kSecretStoreSuccess);
    lock.unlock();
    EXPECT_EQ(child.release(), 0);
    EXPECT_EQ(lockOn(*store, "acct", kPatient, &lock), kSecretStoreSuccess);
  }
}

TEST_F(SecretStoreLockTest, LockFilesArePrivateAndNeverFollowALink) {
  RuntimeDirectoryStore store;
  const std::string locks = directory_.pathOf("velmor-authorization");
  const std::string file = locks + "/" + IdentityLock::fileNameFor("svc", "acct");
  SecretStoreLock lock;
  ASSERT_EQ(lockOn(store, "acct", kPatient, &lock), kSecretStoreSuccess);
  lock.unlock();
  struct stat info {};
  ASSERT_EQ(stat(locks.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0700u);
  ASSERT_EQ(stat(file.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);

  // Others may not write where the lock files are; reading is taken away.
  const struct {
    mode_t mode;
    std::int32_t status;
    mode_t after;
  } modes[] = {{0770, FileSecretStore::kStatusUntrusted, 0770},
               {0702, FileSecretStore::kStatusUntrusted, 0702},
               {0755, kSecretStoreSuccess, 0700}};
  for (const auto& m : modes) {
    SCOPED_TRACE(m.mode);
    ASSERT_EQ(chmod(locks.c_str(), m.mode), 0);
    EXPECT_EQ(lockOn(store, "acct", kPatient, &lock), m.status);
    lock.unlock();
    ASSERT_EQ(stat(locks.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, m.after);
  }
  ASSERT_EQ(chmod(locks.c_str(), 0700), 0);

  // Someone else's file in place of the lock file would lock nothing.
  ASSERT_EQ(unlink(file.c_str()), 0);
  ASSERT_EQ(symlink(directory_.writeFile("elsewhere", "").c_str(), file.c_str()), 0);
  EXPECT_EQ(lockOn(store, "acct", kPatient, &lock), kSecretStoreIoError);
  EXPECT_FALSE(lock.ownsLock());
  // The failed attempt held nothing.
  EXPECT_EQ(lockOn(store, "other", 0ms, &lock), kSecretStoreSuccess);
}

TEST_F(SecretStoreLockTest, RuntimeDirectoryIsUsedOnlyWhenPrivate) {
  const std::string loose = directory_.pathOf("loose");
  ASSERT_EQ(mkdir(loose.c_str(), 0755), 0);
  const struct {
    const char* runtime;
    bool chosen;
  } cases[] = {
      {directory_.path().c_str(), true},
      {loose.c_str(), false},
      {"relative/run", false},
      {nullptr, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.runtime ? c.runtime : "(unset)");
    test::ScopedEnvironmentVariables runtime{{"XDG_RUNTIME_DIR", c.runtime}};
    const std::string chosen = IdentityLock::runtimeDirectory();
    EXPECT_EQ(chosen == std::string(c.runtime ? c.runtime : "") + "/velmor-authorization", c.chosen)
        << chosen;
    EXPECT_FALSE(chosen.empty());
  }
}

}  // namespace
}  // namespace velmor
