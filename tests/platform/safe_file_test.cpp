#include "platform/safe_file.hpp"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/files.hpp"

namespace vx {
namespace {
namespace fs = std::filesystem;
using test::TempDir;

std::size_t entries(const fs::path& dir) {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(dir), fs::directory_iterator{}));
}

TEST(AtomicFile, ReplacesOnlyOnCommitAndLeavesNoTemporary) {
    TempDir dir;
    const std::string target = dir.write("out.txt", "old contents");
    {
        AtomicFile f(target);
        ASSERT_TRUE(f.ok());
        EXPECT_EQ(fs::path(f.temp_path()).parent_path(), dir.path());
        EXPECT_TRUE(f.write("half a fi"));
        // Abandoned without commit: the old file stays whole.
    }
    EXPECT_EQ(test::read_file(target), "old contents");
    EXPECT_EQ(entries(dir.path()), 1u);

    {
        AtomicFile f(target);
        ASSERT_TRUE(f.write("new contents"));
        EXPECT_EQ(test::read_file(target), "old contents");  // not visible before commit
        ASSERT_EQ(f.commit(), 0);
    }
    EXPECT_EQ(test::read_file(target), "new contents");
    EXPECT_EQ(entries(dir.path()), 1u);
}

TEST(AtomicFile, MissingFolderFailsWithReason) {
    TempDir dir;
    std::string error;
    EXPECT_EQ(write_file_atomically(dir.file("no/such/folder/x.txt"), "x", &error), -1);
    EXPECT_NE(error.find("temporary file"), std::string::npos) << error;
}

TEST(SafeFile, SameFileAndRegularSize) {
    TempDir dir;
    const std::string a = dir.write("a.dat", "12345");
    const std::string b = dir.write("b.dat", "12345");
    fs::create_symlink(a, dir.file("link.dat"));
    EXPECT_TRUE(same_file(a, dir.file("link.dat")));
    EXPECT_TRUE(same_file(a, dir.file("./a.dat")));
    EXPECT_FALSE(same_file(a, b));
    EXPECT_FALSE(same_file(a, dir.file("missing.dat")));

    EXPECT_EQ(regular_file_size(a), 5u);
    EXPECT_FALSE(regular_file_size(dir.path().string()).has_value());
    EXPECT_FALSE(regular_file_size("/dev/zero").has_value());
    EXPECT_FALSE(regular_file_size(dir.file("missing.dat")).has_value());
}

}  // namespace
}  // namespace vx
