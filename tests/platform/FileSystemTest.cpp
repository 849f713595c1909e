#include "platform/FileSystem.h"

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "testing/TemporaryDirectory.h"

namespace velmor {
namespace {

Data bytes(std::string_view text) { return Data(text.begin(), text.end()); }

mode_t permissionsOf(const std::string& path) {
  struct stat status {};
  stat(path.c_str(), &status);
  return status.st_mode & 0777;
}

TEST(FileSystemTest, CreatesMissingDirectoriesPrivately) {
  test::TemporaryDirectory directory;
  const std::string nested = directory.pathOf("a//b/c/");
  EXPECT_EQ(FileSystem::createDirectories(nested), 0);
  EXPECT_TRUE(std::filesystem::is_directory(directory.pathOf("a/b/c")));
  EXPECT_EQ(permissionsOf(directory.pathOf("a")), 0700u);
  EXPECT_EQ(permissionsOf(directory.pathOf("a/b/c")), 0700u);
  EXPECT_EQ(FileSystem::createDirectories(nested), 0);  // already there

  directory.writeFile("file", "x");
  EXPECT_EQ(FileSystem::createDirectories(directory.pathOf("file")), ENOTDIR);
  EXPECT_EQ(FileSystem::createDirectories(directory.pathOf("file/below")), ENOTDIR);
}

TEST(FileSystemTest, ReplacesAFileWholeAndLeavesNothingElse) {
  test::TemporaryDirectory directory;
  const std::string path = directory.writeFile("item", "old contents");
  EXPECT_EQ(FileSystem::writeFileAtomically(path, bytes("new")), 0);
  EXPECT_EQ(FileSystem::readFile(path, 100), bytes("new"));
  EXPECT_EQ(permissionsOf(path), 0600u);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()),
                          std::filesystem::directory_iterator()),
            1);

  // A directory in the way: the rename fails and the temporary file goes.
  std::filesystem::create_directory(directory.pathOf("blocked"));
  EXPECT_EQ(FileSystem::writeFileAtomically(directory.pathOf("blocked"), bytes("x")), EISDIR);
  EXPECT_EQ(FileSystem::writeFileAtomically(directory.pathOf("missing/item"), bytes("x")), ENOENT);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()),
                          std::filesystem::directory_iterator()),
            2);
}

TEST(FileSystemTest, ReadsWholeFilesUpToALimit) {
  test::TemporaryDirectory directory;
  const std::string path = directory.writeFile("item", std::string(20000, 'x'));
  EXPECT_EQ(FileSystem::readFile(path, 20000)->size(), 20000u);
  EXPECT_EQ(FileSystem::readFile(path, 19999), std::nullopt);
  EXPECT_EQ(FileSystem::readFile(directory.writeFile("empty", ""), 10), Data{});
  EXPECT_EQ(FileSystem::readFile(directory.pathOf("missing"), 10), std::nullopt);
  EXPECT_EQ(FileSystem::readFile(directory.path(), 10), std::nullopt);
}

}  // namespace
}  // namespace velmor
