// Packing folder trees: breadth first, .dat only, every archive passes
// Info-ZIP's own test and unpacks to the same bytes, a link loop is walked
// once, an existing archive or a stop leaves nothing half done.
#include <algorithm>
#include <atomic>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/ui.hpp"
#include "platform/zip.hpp"
#include "platform/zip_tree.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"

namespace vx {
namespace {

namespace fs = std::filesystem;
using test::TempDir;

std::string bytes_of(std::size_t n, unsigned seed) {
    std::string s(n, '\0');
    std::mt19937 rng(seed);
    // Transient-like: small numbers with noise, so deflate has work to do.
    for (std::size_t i = 0; i < n; ++i) s[i] = static_cast<char>((i % 97) ^ (rng() & 0x0f));
    return s;
}

// A 3-level tree of 50 .dat files (one empty, one of 64 MB), other files
// beside them, and a link from the deepest folder back to the top.
std::vector<std::pair<std::string, std::string>> make_tree(const fs::path& top, bool big) {
    std::vector<std::pair<std::string, std::string>> files;
    const std::vector<fs::path> folders = {top, top / "a", top / "b", top / "a" / "x", top / "a" / "y", top / "b" / "z"};
    for (const auto& f : folders) fs::create_directories(f);
    for (int i = 0; i < 50; ++i) {
        const fs::path folder = folders[static_cast<std::size_t>(i) % folders.size()];
        std::string content;
        if (i == 0) content = "";
        else if (i == 1 && big) content = bytes_of(std::size_t{64} << 20, 1);
        else content = bytes_of(1000 + static_cast<std::size_t>(i) * 37, static_cast<unsigned>(i));
        std::string leaf = "f";
        leaf += std::to_string(i);
        leaf += i % 7 == 3 ? ".DAT" : ".dat";
        const std::string name = (folder / leaf).string();
        test::write_file(name, content);
        files.emplace_back(name, content);
    }
    test::write_file((top / "a" / "notes.txt").string(), "not a transient");
    test::write_file((top / "b" / "old.dat.Z.bak").string(), "x");
    fs::create_directory_symlink(top, top / "a" / "x" / "loop");
    fs::create_symlink(files[5].first, top / "b" / "link.dat");
    return files;
}

TEST(ZipTree, BreadthFirstOrderAndDatOnly) {
    TempDir dir;
    make_tree(dir.path() / "t", false);
    const auto folders = folders_breadth_first((dir.path() / "t").string());
    const std::string t = (dir.path() / "t").string();
    EXPECT_EQ(folders, (std::vector<std::string>{t, t + "/a", t + "/b", t + "/a/x", t + "/a/y", t + "/b/z"}));
    const auto in_b = dat_files_in(t + "/b");
    for (const auto& f : in_b) EXPECT_NE(f, t + "/b/link.dat");
    EXPECT_EQ(in_b.size(), 8u);
}

TEST(ZipTree, EveryArchivePassesUnzipTestAndUnpacksToTheSameBytes) {
    TempDir dir;
    const fs::path top = dir.path() / "t";
    const auto files = make_tree(top, true);
    RecordingUi ui;
    ZipTreeResult result;
    std::vector<std::size_t> seen;
    ASSERT_EQ(zip_tree(top.string(), false, nullptr,
                       [&](std::size_t done, std::size_t total, const std::string&) {
                           EXPECT_EQ(total, 50u);
                           seen.push_back(done);
                       },
                       result, ui),
              0)
        << (ui.messages.empty() ? "" : ui.messages.back().text) << ui.console;
    EXPECT_EQ(result.archives.size(), 50u);
    EXPECT_EQ(seen.size(), 51u);
    const bool have_unzip = test::run_command("command -v unzip >/dev/null") == 0;
    for (const auto& [name, content] : files) {
        SCOPED_TRACE(name);
        EXPECT_FALSE(fs::exists(name));
        ASSERT_TRUE(fs::exists(name + ".Z"));
        if (have_unzip) {
            std::string out;
            EXPECT_EQ(test::run_command("unzip -tq '" + name + ".Z'", &out), 0) << out;
        }
        ASSERT_EQ(unzip1(name + ".Z", dir.path().string(), "back"), UNZIP_OK);
        EXPECT_TRUE(test::read_file(dir.file("back")) == content);
    }
    if (!have_unzip) GTEST_SKIP() << "unzip not installed: archives checked by our own reader only";
    // The other files and the links are as they were; no temporary is left.
    EXPECT_TRUE(fs::exists(top / "a" / "notes.txt"));
    EXPECT_TRUE(fs::is_symlink(top / "b" / "link.dat"));
    for (const auto& e : fs::recursive_directory_iterator(top))
        EXPECT_NE(e.path().filename().string().front(), '.') << e.path();
}

TEST(ZipTree, ExistingArchiveAndStopLeaveNothingHalfDone) {
    TempDir dir;
    const fs::path top = dir.path() / "t";
    make_tree(top, false);
    // An existing archive that the user will not replace: the run ends there.
    const auto order = [&] {
        std::vector<std::string> all;
        for (const auto& f : folders_breadth_first(top.string()))
            for (const auto& d : dat_files_in(f)) all.push_back(d);
        return all;
    }();
    ASSERT_EQ(order.size(), 50u);
    test::write_file(order[3] + ".Z", "old archive");
    RecordingUi ui;
    ui.confirms = {false};
    ZipTreeResult result;
    EXPECT_EQ(zip_tree(top.string(), false, nullptr, nullptr, result, ui), -1);
    EXPECT_TRUE(ui.saw("Error", "Cannot zip file!"));
    EXPECT_EQ(result.archives.size(), 3u);
    EXPECT_EQ(test::read_file(order[3] + ".Z"), "old archive");
    EXPECT_TRUE(fs::exists(order[3]));
    EXPECT_FALSE(fs::exists(order[0]));

    // Stop after two more files: those are packed, the rest untouched.
    fs::remove(order[3] + ".Z");
    std::atomic<bool> stop{false};
    RecordingUi ui2;
    int calls = 0;
    EXPECT_EQ(zip_tree(top.string(), true, &stop,
                       [&](std::size_t, std::size_t, const std::string&) {
                           if (++calls == 2) stop = true;
                       },
                       result, ui2),
              1);
    EXPECT_TRUE(result.stopped);
    EXPECT_EQ(result.archives.size(), 2u);
    for (std::size_t i = 3; i < order.size(); ++i) EXPECT_TRUE(fs::exists(order[i])) << order[i];
    EXPECT_FALSE(fs::exists(order[5] + ".Z"));
}

TEST(ZipTree, Command) {
    TempDir dir;
    const fs::path top = dir.path() / "t";
    make_tree(top, false);
    auto r = test::run_cli(dir.file("home"), "zip --keep --dir '" + top.string() + "'");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 50);
    EXPECT_TRUE(fs::exists(top / "f0.dat"));
    EXPECT_TRUE(fs::exists(top / "f0.dat.Z"));
    r = test::run_cli(dir.file("home"), "zip --dir '" + dir.file("nothere") + "'");
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("Cannot zip file!"), std::string::npos);
}

}  // namespace
}  // namespace vx
