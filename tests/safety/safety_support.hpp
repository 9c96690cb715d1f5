// Shared pieces of the data-safety tests: archives built byte by byte (so a
// test can give a member a wrong CRC or a false size) and peak memory of a
// child process.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vx::test {

struct ZipMember {
    std::string name;
    std::string bytes;                  // the member's content
    bool deflate = true;
    std::uint32_t crc_xor = 0;          // non-zero: the stored CRC is wrong by this
    std::uint64_t announced = UINT64_MAX;  // the uncompressed size written in the archive
};

// Writes a one-member zip archive through minizip's raw mode.
void write_zip(const std::string& path, const ZipMember& m);

// Runs body in a forked child and returns how much its peak resident memory
// grew in bytes (negative when the child failed or died). body returns the
// child's verdict: 0 for "as expected".
struct ChildResult {
    int verdict = -1;        // body's return value, or -1 when the child did not exit normally
    long long peak_growth = 0;
};
ChildResult run_in_child(const std::function<int()>& body);

// Names of the entries of a folder, sorted.
std::vector<std::string> entries(const std::string& folder);

// A Tulva v4 data file of n int16 samples.
std::string v4_file(std::size_t samples, const std::string& extra_header = "");

}  // namespace vx::test
