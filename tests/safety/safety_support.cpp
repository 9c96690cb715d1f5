#include "safety/safety_support.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include <zip.h>
#include <zlib.h>

#include "support/files.hpp"

namespace vx::test {

namespace {

std::string raw_deflate(const std::string& in) {
    z_stream z{};
    if (deflateInit2(&z, Z_BEST_SPEED, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::runtime_error("deflateInit2");
    std::string out(deflateBound(&z, static_cast<uLong>(in.size())), '\0');
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(in.data()));
    z.avail_in = static_cast<uInt>(in.size());
    z.next_out = reinterpret_cast<Bytef*>(out.data());
    z.avail_out = static_cast<uInt>(out.size());
    deflate(&z, Z_FINISH);
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
}

}  // namespace

void write_zip(const std::string& path, const ZipMember& m) {
    zipFile zf = zipOpen64(path.c_str(), APPEND_STATUS_CREATE);
    if (!zf) throw std::runtime_error("zipOpen64 " + path);
    zip_fileinfo info{};
    const std::string body = m.deflate ? raw_deflate(m.bytes) : m.bytes;
    const std::uint64_t size = m.announced == UINT64_MAX ? m.bytes.size() : m.announced;
    const int zip64 = size >= 0xffffffffULL ? 1 : 0;
    zipOpenNewFileInZip2_64(zf, m.name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr, m.deflate ? Z_DEFLATED : 0,
                            Z_BEST_SPEED, 1, zip64);
    zipWriteInFileInZip(zf, body.data(), static_cast<unsigned>(body.size()));
    const uLong crc = crc32(0L, reinterpret_cast<const Bytef*>(m.bytes.data()), static_cast<uInt>(m.bytes.size()));
    zipCloseFileInZipRaw64(zf, size, static_cast<uLong>(crc ^ m.crc_xor));
    zipClose(zf, nullptr);
}

namespace {

// VmRSS or VmHWM of this process in bytes (from /proc/self/status).
long long status_bytes(const char* key) {
    std::FILE* f = std::fopen("/proc/self/status", "r");
    if (!f) return -1;
    char line[256];
    long long kb = -1;
    const std::size_t n = std::strlen(key);
    while (std::fgets(line, sizeof line, f))
        if (std::strncmp(line, key, n) == 0) kb = std::atoll(line + n + 1);
    std::fclose(f);
    return kb < 0 ? -1 : kb * 1024;
}

}  // namespace

ChildResult run_in_child(const std::function<int()>& body) {
    int fds[2];
    ChildResult r;
    if (::pipe(fds) != 0) return r;
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::close(fds[0]);
        // The peak a child inherits is its parent's; "5" resets it to the
        // present size so that the peak below is the body's own.
        if (std::FILE* c = std::fopen("/proc/self/clear_refs", "w")) {
            std::fputs("5", c);
            std::fclose(c);
        }
        const long long before = status_bytes("VmRSS:");
        const int verdict = body();
        const long long growth = status_bytes("VmHWM:") - before;
        if (::write(fds[1], &growth, sizeof growth) != sizeof growth) _exit(99);
        _exit(verdict);  // no destructors, no leak report of the parent's objects
    }
    ::close(fds[1]);
    long long growth = -1;
    const bool got = ::read(fds[0], &growth, sizeof growth) == sizeof growth;
    ::close(fds[0]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    if (got && WIFEXITED(status)) {
        r.verdict = WEXITSTATUS(status);
        r.peak_growth = growth;
    }
    return r;
}

std::vector<std::string> entries(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(folder)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string v4_file(std::size_t samples, const std::string& extra_header) {
    std::vector<std::int16_t> v(samples);
    for (std::size_t i = 0; i < samples; ++i) v[i] = static_cast<std::int16_t>((i * 37) % 2001 - 1000);
    return "Vantorix Data File v4.00\nData Points: " + std::to_string(samples) + "\nBandwidth: 1000000\n" +
           extra_header + "Data:\n" + int16_bytes(v);
}

}  // namespace vx::test
