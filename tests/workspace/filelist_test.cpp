#include "workspace/filelist.hpp"

#include <gtest/gtest.h>

#include "support/files.hpp"

namespace vx {
namespace {

TEST(RecentFiles, FileListCreatesAnEmptyList) {
    test::TempDir dir;
    RecentFiles l = FileList(dir.path().string());
    EXPECT_EQ(l.count, 0);
    EXPECT_EQ(test::read_file(dir.file("tulva.ini")), "NUMFILE=0\nFILE1=\nFILE2=\nFILE3=\nFILE4=\nFILE5=\n");
    EXPECT_TRUE(loadFileList(l).empty());
}

TEST(RecentFiles, LatestFirstFiveAtMostNoDuplicates) {
    test::TempDir dir;
    const std::string d = dir.path().string();
    FileList(d);
    for (const char* f : {"/a", "/b", "/c", "/d", "/e", "/f"}) updateFileList(d, f);
    RecentFiles l = read_file_list(d);
    EXPECT_EQ(l.count, 5);
    EXPECT_EQ(l.names, (std::vector<std::string>{"/f", "/e", "/d", "/c", "/b"}));

    // The same file again moves to the top; the list does not grow.
    updateFileList(d, "/c");
    l = read_file_list(d);
    EXPECT_EQ(l.count, 5);
    EXPECT_EQ(l.names, (std::vector<std::string>{"/c", "/f", "/e", "/d", "/b"}));

    // The top entry opened again changes nothing.
    updateFileList(d, "/c");
    EXPECT_EQ(read_file_list(d).names, l.names);
}

TEST(RecentFiles, GrowsOnlyForNewNames) {
    RecentFiles l;
    l.names.assign(5, "");
    update_recent(l, "/x");
    update_recent(l, "/y");
    update_recent(l, "/x");
    EXPECT_EQ(l.count, 2);
    EXPECT_EQ(l.names[0], "/x");
    EXPECT_EQ(l.names[1], "/y");
    EXPECT_EQ(loadFileList(l), (std::vector<std::string>{"__1 /x", "__2 /y"}));
}

TEST(RecentFiles, MenuTextShortening) {
    struct Case {
        std::string path, text;
    };
    const std::vector<Case> cases = {
        // 30 characters or fewer stay whole.
        {"/home/ana/runs/sample_0001.dat", "__1 /home/ana/runs/sample_0001.dat"},
        // Longer, with a short file name: the last two folders are kept.
        {"/home/ana/projects/2026/runs/sample_0001.dat", "__1 /.../2026/runs/sample_0001.dat"},
        // Longer, with a file name of 31 characters or more: the name alone.
        {"/home/ana/runs/a_very_long_transient_name_0001.dat", "__1 /.../a_very_long_transient_name_0001.dat"},
        // Windows paths keep their drive and separator.
        {"C:\\Data\\Projects\\Petroleum\\crude_oil_01.dat", "__1 C:\\...\\Projects\\Petroleum\\crude_oil_01.dat"},
        // Less than two folders deep: unchanged, however long.
        {"/a_file_name_that_is_rather_long_indeed.dat", "__1 /a_file_name_that_is_rather_long_indeed.dat"},
        {"/x/a_file_name_that_is_rather_long_indeed.dat", "__1 /x/a_file_name_that_is_rather_long_indeed.dat"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(recent_menu_text(1, c.path), c.text);
    }
}

TEST(RecentFiles, DamagedListIsReadSafely) {
    test::TempDir dir;
    test::write_file(dir.file("tulva.ini"), "NUMFILE=99\nFILE1=/one\nFILE9=/nine\ngarbage\n");
    RecentFiles l = read_file_list(dir.path().string());
    EXPECT_EQ(l.count, 5);
    EXPECT_EQ(l.names[0], "/one");
    EXPECT_EQ(loadFileList(l), (std::vector<std::string>{"__1 /one"}));
}

}  // namespace
}  // namespace vx
