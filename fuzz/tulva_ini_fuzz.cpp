// The recent-file list tulva.ini, read as the File menu reads it.
#include <cstddef>
#include <cstdint>

#include "fuzz_support.hpp"
#include "workspace/filelist.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vx::fuzz::input_file("tulva.ini", data, size);
    const vx::RecentFiles list = vx::read_file_list(vx::fuzz::scratch_folder());
    (void)list;
    return 0;
}
