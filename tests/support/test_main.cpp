#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>
#include <system_error>

#include "support/files.hpp"

// Every test program runs in a fresh temporary folder of its own. A test that
// writes to a relative path (a writer handed "scan.mzML" instead of a path
// under its TempDir once left scan_mzML.pks in the repository) then writes
// there instead of into whatever folder the suite was started from, and the
// leftover fails the run by name.
int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    ::testing::InitGoogleTest(&argc, argv);
    std::error_code ec;
    const fs::path started = fs::current_path(ec);
    vx::test::TempDir cwd;
    fs::current_path(cwd.path(), ec);
    int rc = RUN_ALL_TESTS();
    for (const auto& entry : fs::directory_iterator(cwd.path(), ec)) {
        std::cerr << "A test left " << entry.path().filename() << " in its working folder: write under a TempDir.\n";
        rc = 1;
    }
    fs::current_path(started, ec);
    return rc;
}
