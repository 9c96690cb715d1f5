// The Vosk special analysis: a long record holding short scans end to end is
// cut into those scans, each treated as a transient in its own slot, and the
// development from scan to scan is reported: the centre of frequency (COF),
// the largest ion in a zoom, and the sweep rate (the COF's change per scan).
#pragma once

#include <string>
#include <vector>

#include "workspace/workspace.hpp"

namespace vx {

class Ui;

struct VoskSpecialParams {
    long long start = 0;    // first point of scan 0
    long long points = 0;   // points per scan
    long long step = 0;     // points from one scan's start to the next
    int scans = 0;          // scans to cut (RedoNumberVosk: the number that fit)
    bool process = false;   // run the processing chain on each scan
    bool cof = false;       // COF option
    double cofthresh = 0.0; // COFTHRESH: heights below it are left out of the COF
    bool zoom = false;      // zoom MIN..MAX (m/z) and the largest ion in it
    double zmin = 0.0, zmax = 0.0;
    std::string name;       // NAME of the saved scans
    bool save_raw = false, save_processed = false;
};

struct VoskScan {
    int scan = 0;
    double cof = 0.0;    // Hz
    double maxmz = 0.0;  // m/z of the largest ion in the zoom
};

struct VoskSpecialResult {
    std::vector<VoskScan> scans;
    std::vector<double> sweep_rate;  // COF[k + 1] - COF[k], Hz per scan
    int displayed = 0;               // scans left open in slots
    std::vector<std::string> saved;  // files written
};

// The number of scans that fit in datacount points.
int RedoNumberVosk(long long datacount, long long start, long long points, long long step);

// Tests the values against the record; 0, or -1 after the message.
int CheckVoskSpecial(const VoskSpecialParams& p, long long datacount, Ui& ui);

// Free slots minus one; when fewer than requested, the popup of the limit.
int CheckTulvaCount(const Workspace& ws, int requested, Ui& ui);

// Centre of frequency: sum of point frequency x height over the sum of
// heights, for heights at or above threshold; point frequency i x dbandwidth /
// datacount. 0 when no height counts.
double CalCOF(const Spectrum& spectrum, double threshold);

// Parabola through the top three points of xmin..xmax (points): its apex as
// m/z, or the top point's m/z when the leading coefficient is not negative.
double MaxPeakFromZoom(const Spectrum& spectrum, double xmin, double xmax, Ui& ui);

// Writes the scan of slot as "<name>_000k.dat" (numbered as scan peak lists
// are) through SaveasTULVA; returns 0 or -1.
int VoskSaveFiles(Workspace& ws, int slot, int index, const std::string& name, std::string& written, Ui& ui);

// The run on the record of slot source. Returns 0, or -1 after its message.
int ProcessVoskSpecial(Workspace& ws, int source, const VoskSpecialParams& p, VoskSpecialResult& result, Ui& ui);

}  // namespace vx
