#include "support/files.hpp"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace vx::test {

namespace fs = std::filesystem;

TempDir::TempDir() {
    std::random_device rd;
    for (int i = 0; i < 100; ++i) {
        fs::path p = fs::temp_directory_path() / ("vantorix-test-" + std::to_string(rd()));
        std::error_code ec;
        if (fs::create_directory(p, ec)) {
            path_ = p;
            return;
        }
    }
    path_ = fs::temp_directory_path();
}

TempDir::~TempDir() {
    std::error_code ec;
    if (path_ != fs::temp_directory_path()) fs::remove_all(path_, ec);
}

std::string TempDir::write(const std::string& name, const std::string& bytes) const {
    const std::string p = file(name);
    write_file(p, bytes);
    return p;
}

template <typename T>
static std::string bytes_of(const std::vector<T>& v) {
    std::string s(v.size() * sizeof(T), '\0');
    if (!v.empty()) std::memcpy(s.data(), v.data(), s.size());
    return s;
}

std::string int16_bytes(const std::vector<std::int16_t>& v) { return bytes_of(v); }
std::string int32_bytes(const std::vector<std::int32_t>& v) { return bytes_of(v); }
std::string float_bytes(const std::vector<float>& v) { return bytes_of(v); }
std::string double_bytes(const std::vector<double>& v) { return bytes_of(v); }

std::string tulva_text(const std::vector<std::string>& header_lines, const std::string& block,
                       const std::string& marker, bool crlf) {
    const std::string eol = crlf ? "\r\n" : "\n";
    std::string out;
    for (const auto& l : header_lines) out += l + eol;
    out += marker + "\n";
    out += block;
    return out;
}

void write_file(const std::string& path, const std::string& bytes) {
    std::ofstream f(path, std::ios::binary);
    f.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string read_file(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    std::ostringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

int run_command(const std::string& command, std::string* out, std::string* err) {
    static int counter = 0;
    const fs::path dir = fs::temp_directory_path();
    const std::string tag = std::to_string(::getpid()) + "-" + std::to_string(counter++);
    const std::string o = (dir / ("vx-out-" + tag)).string();
    const std::string e = (dir / ("vx-err-" + tag)).string();
    const std::string full = command + " >" + o + " 2>" + e + " </dev/null";
    const int status = std::system(full.c_str());
    if (out) *out = read_file(o);
    if (err) *err = read_file(e);
    std::error_code ec;
    fs::remove(o, ec);
    fs::remove(e, ec);
    if (status == -1) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace vx::test
