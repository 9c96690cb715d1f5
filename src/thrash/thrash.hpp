// The THRASH scan: walk a magnitude spectrum upward one m/z unit at a time,
// take the strongest peak of each window, find its charge, fit the averagine
// pattern to its isotope cluster, report the monoisotopic mass of a reliable
// fit, subtract the cluster from a working copy and look at the region again,
// so that overlapping clusters come out one by one.
#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "thrash/averagine.hpp"
#include "thrash/charge.hpp"

namespace vx {

class Ui;
struct Spectrum;
struct SequenceTables;

inline constexpr int THRASH_PAIRS = 100;
inline constexpr int THRASH_LIMIT = 1000;

// One found cluster (one row of the THRASH table; a cluster with several
// sequence assignments has several, sharing count_of_table_row).
struct ThrashPeak {
    std::int32_t charge = 0;
    double monoisotopic_mz = 0.0;
    std::int32_t count_of_table_row = 0;
    double rl = 0.0;
    std::string assignment_text = "N/A";
    std::string mass_error_text = "N/A";
    std::array<std::pair<double, double>, THRASH_PAIRS> pairs{};  // the fitted model (m/z, height)
    std::int32_t distrib_size = 0;
    std::string rl_text;
    // What the table and the exports show besides.
    double monoisotopic_mass = 0.0;  // as the scan computes it (mono m/z from the proton spacing)
    double mostabundant_mass = 0.0;
    double mostabundant_mz = 0.0;    // on a data point
    double monoisotopic_mw_refined = 0.0;  // interpolated top, 1.00235 spacing, exact proton
    double average_mw = 0.0;
    double abundance = 0.0;          // height of the most abundant peak in the data
    double fwhm = 0.0;               // of the most abundant peak, m/z
    double signal_noise = 0.0;
    double mono_abundance = 0.0, mono_plus2_abundance = 0.0;  // model heights
    double theoretical_mass = 0.0;   // 0 without an assignment
    double mass_error_ppm = 0.0;
    bool continuation = false;       // a further assignment of the cluster above
    double fom = 0.0;
    double second_charge_score = 0.0;
    bool all_charges = false;        // the all-charges pass decided the charge
};

struct ThrashParams {
    int bins = 100;             // combo_cd's highest charge
    double floor = 0.0;
    int min_charge = 1;
    double max_mass = 1000000.0;
    int max_charge = 2000;
    int all_charges = 0;
    // The scan of the program passes 3.0, above any RL, and so reports nothing;
    // the setup field and the command line start from 0.9.
    double min_rl = 0.9;
    int positive = 1;
    double low_mass = 20.0;
    double high_mass = 1000000.0;
    double min_s2n = 3.0;
    int limit = THRASH_LIMIT;
    ModelSettings model;
    const SequenceTables* sequence = nullptr;  // matching when set
    // Off: the subtraction takes from each peak of a reported cluster the
    // model's share of it (shape x model height / peak), which leaves the part
    // the 11 fixed scales and the averagine shape did not explain: a fainter
    // copy of the cluster that the scan reports again, 1-2 Da low. On: a peak
    // the model explains to at least half is taken away whole.
    bool clean_residues = false;
};

struct ThrashResult {
    std::vector<ThrashPeak> peaks;  // table rows
    int clusters = 0;
    bool aborted = false;
    bool limit_reached = false;
    double final_noise = 0.0, final_sigma = 0.0;
    int all_charge_passes = 0;
    int fits = 0;
    double all_charge_seconds = 0.0;  // wall time spent in the all-charges passes
};

// Stop and progress of a run: the stop flag may be set from any thread and is
// looked at at the head of every window; progress(mass, clusters) is called
// there too (from the scanning thread).
struct ThrashControl {
    std::atomic<bool>* stop = nullptr;
    std::function<void(double, int)> progress;
};

// The full-spectrum scan (thrash()). Reads the averagine table from table_path
// (the default place when empty); a missing one shows its message and returns
// -1. The spectrum's data are not changed; its working copy exists only
// during the run. Returns 0 (also when stopped: the clusters found are kept).
int thrash(Spectrum& s, const ThrashParams& p, ThrashResult& result, Ui& ui, const ThrashControl& control = {},
           const std::string& table_path = {});

// The same with a table already read.
int thrash_with_table(Spectrum& s, const ThrashParams& p, const AveragineTable& table, ThrashResult& result, Ui& ui,
                      const ThrashControl& control = {});

// One cluster between two m/z (Mass): the charge from combo_cd unless given
// (newmatch), the fit over the span, the report. Returns 0 and one or more rows,
// or -1 after a message.
int thrash_cluster(Spectrum& s, double low_mz, double high_mz, int charge, const ThrashParams& p,
                   const AveragineTable& table, ThrashResult& result, Ui& ui);

// Figure of merit of every start position of a cluster fit (match).
struct MatchResult {
    double best_fom = 0.0;
    double best_mz = 0.0;   // m/z of the point of the best most-abundant position
    long best_point = -1;
    double best_scale = 0.0;
    std::vector<double> fom;  // by point, from first_point
    long first_point = 0;
};
MatchResult match(const Spectrum& s, const std::vector<float>& work, double noise, double floor, double sigma,
                  double min_s2n, int charge, int quick, double start_mz, double end_mz, const double* pattern,
                  const ModelSettings& model);

// The noise of the first estimate of the scan: median of the squares of the
// values below median + deviation.
double thrash_first_noise(const Spectrum& s);

// Zeroes values below threshold x factor.
void ProfileThrashData(double threshold, double factor, float* data, long n);

// Files of the table.
std::string tpk_text(const Spectrum& s, const std::vector<ThrashPeak>& rows);
std::string pkl_text(const Spectrum& s, const std::vector<ThrashPeak>& rows);
// Reads a .pk/.tpk file back; -1 after a message.
int load_thrash_peaklist(const std::string& path, std::vector<ThrashPeak>& rows, Ui& ui);
int parse_thrash_peaklist(const std::string& text, std::vector<ThrashPeak>& rows, Ui& ui);
// DeconTools' _isos.csv columns, then ours.
std::string isos_csv_text(const std::vector<ThrashPeak>& rows, int scan_num = 1);

}  // namespace vx
