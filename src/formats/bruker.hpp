// Bruker acquisitions: XMASS/UXNMR directories (JCAMP-DX `acqus` + `fid`) read
// and written, and the `.d` directories of apex/solariX instruments (`fid` or
// `ser`, parameters in `<method>.m/apexAcquisition.method` or in `acqus`).
//
// Both are directories; a path to any file inside one opens the directory.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "workspace/workspace.hpp"

namespace vx {

class Ui;

// Where the parameters of a Bruker directory come from.
enum class BrukerLayout {
    None,    // not a Bruker directory
    Xmass,   // acqus titled "XMASS Parameter file" / "UXNMR Parameter file": Get_Bruker_Data
    Method,  // apex/solariX .d with <name>.m/apexAcquisition.method
    Acqus,   // apex/solariX .d with a JCAMP-DX acqus of another title
};

// The acquisition parameters of an apex/solariX directory as the files give
// them, before they are mapped onto a Spectrum.
struct BrukerParameters {
    std::string directory;       // the acquisition directory
    std::string parameter_file;  // the file the values came from
    std::string data_file;       // fid or ser
    bool has_TD = false, has_SW_h = false;
    std::int64_t TD = 0;         // samples per transient
    double SW_h = 0.0;           // highest frequency, Hz (real samples at 2 SW_h)
    std::int64_t BYTORDA = 0;    // 0 little-endian, 1 big-endian
    double ML1 = 0.0, ML2 = 0.0, ML3 = 0.0;
    double EXC_low = -1.0, EXC_hi = -1.0;  // m/z limits of the excitation
    std::int64_t NS = 0;         // scans summed
    std::int64_t transients = 1; // transients in the data file (more than 1 for ser)
    std::string date;
    std::string method;          // method name
    std::string user;
    std::string sample;
    // Every parameter of the file by name, as text (the excitation of the
    // phasing run reads its sweep from these).
    std::map<std::string, std::string> values;
};

// The directory a path stands for: the path itself when it is a directory,
// else the folder holding the file (the acquisition above it when the file lies
// in a method folder "*.m"). A folder that holds only "1/acqus" (as written by
// Store_Data_XMASS) stands for its "1".
std::string bruker_directory_of(const std::string& path);
BrukerLayout bruker_layout(const std::string& directory);
// True when path (a directory, or a file inside one) is a Bruker acquisition.
bool is_bruker_path(const std::string& path);

// XMASS/UXNMR: acqus + fid, read as the old instrument software wrote them.
// Returns 0 or -1 after its message.
int Get_Bruker_Data(const std::string& directory, Spectrum& spectrum, Ui& ui);
// Reads fid only, into a record that already holds a valid datacount, with no
// byte swap. Returns 0, or -1 when the fid cannot back that count.
int Get_Bruker2_Data(const std::string& directory, int unused, Spectrum& spectrum, Ui& ui);

// Parameters of an apex/solariX directory (method XML, else acqus), checked
// against the data file. Returns 0 or -1 after its message.
int read_bruker_parameters(const std::string& directory, BrukerParameters& params, Ui& ui);
// An apex/solariX .d directory into the record: the first transient of fid or
// ser, the instrument's calibration law, the excitation limits, scans, date and
// method. Returns 0 or -1 after its message.
int Get_Bruker_Apex_Data(const std::string& directory, Spectrum& spectrum, Ui& ui,
                         BrukerParameters* params = nullptr);

// The opening road's reader for any Bruker directory or file inside one.
int read_bruker_into_slot(Workspace& ws, const std::string& path, int slot, Ui& ui);

// Reads count int32 samples starting at byte offset of a file into out
// (resized to count, with room for two more), byte-swapped when swap is set.
// Returns false when the file cannot be read that far.
bool read_int32_samples(const std::string& path, std::uint64_t offset, std::size_t count, bool swap,
                        std::vector<float>& out);

// Values of the run that the record does not hold (the experiment panel's).
struct XmassRun {
    std::int32_t scans = 0;   // ##$NS
    double trapdelay = 0.0;   // ##$VD of acqu
};

// The base directory a Tulva path with a three-letter extension is written to:
// the path without its last four characters.
std::string xmass_base_of(const std::string& tulva_path);

// Writes the record as an XMASS directory under base: 1/acqu, 1/acqus, 1/fid,
// 1/SPTYPE, 1/pdata/1/proc, 1/pdata/1/procs. Each file is written beside its
// target and renamed over it when complete. Returns 0 or -1 after its message.
int Store_Data_XMASS(const std::string& base, const Spectrum& spectrum, const XmassRun& run, Ui& ui);

// The File menu's "Save As XMASS Directory...": the active slot's transient
// written under base (empty: the slot's file name without its extension).
// Returns 0 or -1 after its message.
int store_active_xmass(Workspace& ws, const std::string& base, Ui& ui);

// Largest TD accepted: a transient of int32 samples must stay below 2^31 bytes.
inline constexpr std::int64_t MAX_BRUKER_TD = (std::int64_t{1} << 31) / 4;

}  // namespace vx
