// Packing whole folder trees of transients: every .dat file below a folder
// becomes its .dat.Z beside it, folder by folder, breadth first.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <vector>

namespace vx {

class Ui;

// The folders below dir, breadth first (dir itself first). Symbolic links to
// folders are not followed, so a link loop is walked once.
std::vector<std::string> folders_breadth_first(const std::string& dir);

// The .dat files (any case of the extension) directly in folder, by name;
// links and other kinds of files are passed over.
std::vector<std::string> dat_files_in(const std::string& folder);

struct ZipTreeResult {
    std::vector<std::string> archives;  // written, in order
    bool stopped = false;
};

// Called before each file: (files done, files in all, the file). A second
// call with done == total ends the work.
using ZipProgress = std::function<void(std::size_t done, std::size_t total, const std::string& file)>;

// ZipUpDirCallback's work: packs each .dat of the tree with zip1, checks the
// archive (it must inflate to the source's length with a correct CRC), then
// deletes the source unless keep is set. An existing archive is replaced only
// when the user confirms. stop (may be null) is tested between files. Returns
// 0, 1 when stopped, or -1 after "Error" / "Cannot zip file!" (the sources of
// the files packed so far are gone, the failed one and the rest are intact).
int zip_tree(const std::string& dir, bool keep, const std::atomic<bool>* stop, const ZipProgress& progress,
             ZipTreeResult& result, Ui& ui);

// Checks that archive holds one member equal in length to expected_size with a
// correct CRC. Returns 0 or the unzip1 error code.
int verify_archive(const std::string& archive, std::uint64_t expected_size);

}  // namespace vx
