#include "platform/zip.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include <zip.h>

#include "support/files.hpp"

namespace vx {
namespace {

namespace fs = std::filesystem;

TEST(Zip, RoundTripKeepsEveryByte) {
    test::TempDir dir;
    std::mt19937 rng(3);
    for (std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{2047}, std::size_t{2048},
                             std::size_t{2049}, std::size_t{300000}}) {
        SCOPED_TRACE(size);
        std::string bytes(size, '\0');
        for (auto& c : bytes) c = static_cast<char>(rng() % 7);  // compressible but not trivial
        const std::string src = dir.file("run.dat");
        test::write_file(src, bytes);
        ASSERT_EQ(zip1(src, dir.path().string()), 0);
        ASSERT_TRUE(fs::exists(src + ".Z"));
        const fs::path out = dir.path() / "out";
        fs::create_directories(out);
        ASSERT_EQ(unzip1(src + ".Z", out.string(), "back.dat"), UNZIP_OK);
        EXPECT_EQ(test::read_file((out / "back.dat").string()), bytes);
        fs::remove(src + ".Z");
    }
}

TEST(Zip, ResultCodes) {
    test::TempDir dir;
    EXPECT_EQ(unzip1(dir.file("missing.Z"), dir.path().string(), "x"), UNZIP_CANNOT_OPEN);

    const std::string junk = dir.file("junk.Z");
    test::write_file(junk, "this is not an archive at all");
    EXPECT_EQ(unzip1(junk, dir.path().string(), "x"), UNZIP_CANNOT_OPEN);

    const std::string src = dir.file("a.dat");
    test::write_file(src, std::string(5000, 'a'));
    ASSERT_EQ(zip1(src, dir.path().string()), 0);
    EXPECT_EQ(unzip1(src + ".Z", dir.file("no/such/folder"), "x"), UNZIP_CANNOT_CREATE);

    // A member whose compressed bytes were damaged fails on read or on its CRC.
    std::string z = test::read_file(src + ".Z");
    const std::size_t data_at = 30 + std::string("a.dat").size();
    for (std::size_t i = data_at; i < data_at + 8 && i < z.size(); ++i) z[i] = static_cast<char>(z[i] ^ 0x5a);
    const std::string bad = dir.file("bad.Z");
    test::write_file(bad, z);
    const int rc = unzip1(bad, dir.path().string(), "bad.out");
    EXPECT_TRUE(rc == UNZIP_READ_ERROR || rc == UNZIP_CLOSE_ERROR) << rc;

    const std::string empty = dir.file("empty.Z");
    zipFile zf = zipOpen64(empty.c_str(), APPEND_STATUS_CREATE);
    ASSERT_NE(zf, nullptr);
    zipClose(zf, nullptr);
    // minizip refuses some member-less archives already at open.
    const int none = unzip1(empty, dir.path().string(), "x");
    EXPECT_TRUE(none == UNZIP_NO_MEMBER || none == UNZIP_CANNOT_OPEN) << none;

    EXPECT_EQ(zip1(dir.file("missing.dat"), dir.path().string()), -1);
    EXPECT_EQ(zip1(src, dir.file("no/such/folder")), -2);
}

}  // namespace
}  // namespace vx
