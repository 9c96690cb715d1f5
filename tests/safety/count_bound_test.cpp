// Counts read from a header are checked against the file before anything is
// allocated: the peak memory of a read that is refused stays far below what
// the count asks for.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "formats/peak_list.hpp"
#include "formats/tulva_reader.hpp"
#include "platform/ui.hpp"
#include "platform/zip.hpp"
#include "safety/safety_support.hpp"
#include "support/cli.hpp"
#include "support/files.hpp"

namespace vx {
namespace {

namespace fs = std::filesystem;

// Floor of what any read grows by (code pages, stdio buffers, sanitizer
// bookkeeping); the counts below ask for 256 MB to 2 GB.
constexpr long long SLACK = 48LL << 20;

enum class Reader { Open, SecondChannel, PeakList };

struct CountCase {
    const char* what;
    Reader reader;
    std::string bytes;
};

std::string f32(std::size_t n) { return test::float_bytes(std::vector<float>(n, 1.5f)); }
std::string i16(std::size_t n) { return test::int16_bytes(std::vector<std::int16_t>(n, 3)); }

TEST(CountBounds, CountsBeyondTheFileAreRefusedBeforeAllocation) {
    std::string pks = "There were 30000000 Peaks found from m/z=   100.00    to m/z=  1000.00.\n";
    for (int i = 0; i < 500; ++i) pks += "  500.1234567     1234.5    100.00     500000.0  123456.789\n";
    const CountCase cases[] = {
        {"v4 int", Reader::Open, "Vantorix Data File v4.00\nData Points: 268435456\nData:\n" + i16(4000)},
        {"v4 padded 32000000", Reader::Open, "Vantorix Data File v4.00\nData Points: 32000000\nData:\n" + i16(4000)},
        {"v4 float", Reader::Open,
         "Vantorix Data File v4.00\nStorage Type: float\nData Points: 100000000\nData:\n" + f32(2000)},
        {"v4 two channels", Reader::Open,
         "Vantorix Data File v4.00\nCollection Mode: SED\nData Points: 134217728\nData:\n" + i16(4000)},
        {"v3", Reader::Open, "TULVA Data File v3.0\nData Points: 268435456\nData:\n" + i16(4000)},
        {"v2.0", Reader::Open, "TULVA Data File v2.0\nData Points: 268435456\nData:\n" + f32(2000)},
        {"legacy", Reader::Open, "TULVA Data File\nData Points: 268435456\nData:\n" + f32(2000)},
        {"second channel open", Reader::SecondChannel,
         "Vantorix Data File v4.00\nData Points: 268435456\nSED:\n" + i16(4000)},
        {"peak list", Reader::PeakList, pks},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        test::TempDir dir;
        const std::string path = dir.write(c.reader == Reader::PeakList ? "claims.pks" : "claims.dat", c.bytes);
        const auto r = test::run_in_child([&] {
            auto ws = std::make_unique<Workspace>();
            RecordingUi ui;
            ui.has_console = false;
            int rc = 0;
            switch (c.reader) {
                case Reader::Open: rc = test::open_tulva_file(*ws, path, ui) < 0 ? -1 : 0; break;
                case Reader::SecondChannel: {
                    Spectrum& s = ws->panels[0].spectrum;
                    rc = Get_Tulva_Data_SED(*ws, path, s, ui);
                    break;
                }
                case Reader::PeakList: {
                    auto s = std::make_unique<Spectrum>();
                    rc = Get_Tulva_Peak_List(path, *s, ui);
                    break;
                }
            }
            if (rc >= 0) return 1;  // read as if whole
            if (ui.messages.empty()) return 2;
            if (ui.messages.back().text.find(path) == std::string::npos) return 3;  // the message names the file
            return 0;
        });
        EXPECT_EQ(r.verdict, 0);
        EXPECT_LT(r.peak_growth, 2 * static_cast<long long>(c.bytes.size()) + SLACK);
    }
}

TEST(CountBounds, ArchiveMembersBeyondTheBoundAreNeverUnpacked) {
    test::TempDir dir;
    const std::string temp = dir.file("temp");
    fs::create_directories(temp);
    const std::string member = test::v4_file(1000);
    struct {
        const char* what;
        test::ZipMember member;
        std::uint64_t bound;
        int expected;
    } cases[] = {
        // The size in the archive says too much: refused before inflating.
        {"announced", {"a.dat", member, true, 0, MAX_ARCHIVE_MEMBER + 1}, MAX_ARCHIVE_MEMBER, UNZIP_TOO_LARGE},
        // The size says little, the stream holds more: inflating stops at the
        // announced size and the member then fails its CRC.
        {"understated", {"a.dat", member, true, 0, 100}, 1000, UNZIP_CLOSE_ERROR},
        // The size is honest but beyond the bound.
        {"honest but too large", {"a.dat", member, true, 0}, 1000, UNZIP_TOO_LARGE},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.what);
        const std::string archive = dir.file("a.dat.Z");
        test::write_zip(archive, c.member);
        EXPECT_EQ(unzip1(archive, temp, "a.dat", c.bound), c.expected);
        EXPECT_TRUE(fs::is_empty(temp));
    }
    // Through the reader: the announced size alone refuses the archive.
    const std::string archive = dir.file("b.dat.Z");
    test::write_zip(archive, {"b.dat", member, true, 0, 5ULL << 30});
    Workspace ws;
    ws.settings.WINZIP = "minizip";
    ws.settings.TEMP = temp;
    RecordingUi ui;
    EXPECT_LT(test::open_tulva_file(ws, archive, ui), 0);
    EXPECT_TRUE(ui.saw("Error", "Cannot unzip file!"));
    EXPECT_TRUE(fs::is_empty(temp));
}

}  // namespace
}  // namespace vx
