// Shared by the fuzz targets: the bytes of one input become a real file in a
// private folder, so each target reads them through the same entry point a
// user's file takes.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>

namespace vx::fuzz {

// A folder of this process under the system temp folder, removed at exit.
inline const std::string& scratch_folder() {
    static const std::string folder = [] {
        std::string pattern = (std::filesystem::temp_directory_path() / "vantorix-fuzz-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) std::abort();
        static struct Remover {
            std::string path;
            ~Remover() {
                std::error_code ec;
                std::filesystem::remove_all(path, ec);
            }
        } remover{pattern};
        return pattern;
    }();
    return folder;
}

// Writes bytes to path (a file inside the scratch folder).
inline void write_bytes(const std::string& path, std::string_view bytes) {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) std::abort();
    if (!bytes.empty() && std::fwrite(bytes.data(), 1, bytes.size(), f) != bytes.size()) std::abort();
    std::fclose(f);
}

// Writes the input as scratch_folder()/name and returns its path.
inline std::string input_file(const std::string& name, const std::uint8_t* data, std::size_t size) {
    const std::string path = scratch_folder() + "/" + name;
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) std::abort();
    if (size && std::fwrite(data, 1, size, f) != size) std::abort();
    std::fclose(f);
    return path;
}

}  // namespace vx::fuzz
