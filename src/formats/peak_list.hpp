// Peak-list files: the .pks text forms (batch and table forms), a CSV form, the
// file-name rules, and the reader that turns a batch .pks file back into a stick
// spectrum.
//
// Later tools and our own reader read .pks rows by column position, so every
// width and every run of blanks below is part of the format. Lines end in CR LF,
// as the files have always been written.
#pragma once

#include <string>
#include <vector>

#include "workspace/spectrum.hpp"

namespace vx {

class Ui;

// Name of a batch peak list: the last "." of the source path becomes "_", then
// ".pks" (x.dat -> x_dat.pks). Profile data (filetype 4) number their scans:
// n = scanindex + 1 as "_000n" / "_00n" / "_0n" / "_n" for n below 10, 100,
// 1000, 10000. Empty for a scan number of 10000 and above, which has no name.
std::string peak_list_path(const std::string& source, int filetype, int scanindex);

// Default name of the table's "Print Peaks To File": the last four characters
// of the file's name replaced by ".pks".
std::string table_peak_list_path(const std::string& source);

// What the last column of a batch row holds.
enum class PeakListColumn { None, SN, Baseline };

struct BatchPeakListOptions {
    double low_mass = 0.0;        // limits of line 1
    double high_mass = 0.0;
    double noise_threshold = 0.0; // line 3
    double peak_threshold = 0.0;
    int precision = 4;            // decimals of m/z and of the last column
    PeakListColumn last_column = PeakListColumn::None;
    bool vfd_last_column = false; // the frequency-file form: last column "%9.2f"
    double window_max = 0.0;      // largest sample of the window; <= 0: relabundance is the percent
    std::vector<double> baselines;  // one per peak for PeakListColumn::Baseline
};

// The batch form as text (LF line ends; the writers turn them into CR LF).
std::string batch_peak_list_text(const Spectrum& spectrum, const BatchPeakListOptions& options);

// The batch form into a file of the caller's choosing. Returns 0 or -1 after a message.
int write_batch_peak_list(const std::string& path, const Spectrum& spectrum, const BatchPeakListOptions& options,
                          Ui& ui);

// Writers of the batch form into peak_list_path(basepath, ...). They return 0,
// or -1 after a message when the file cannot be written.
int SavePeakList(const Spectrum& spectrum, const std::string& basepath, double noise, int scanindex, int precision,
                 int withsn, double threshold, Ui& ui);
int SavePeakListBaseline(const Spectrum& spectrum, const std::string& basepath, double noise, int scanindex,
                         int precision, const std::vector<double>& baselines, double threshold, Ui& ui);
int SaveVFDPeakList(const Spectrum& spectrum, const std::string& basepath, double noise, int scanindex,
                    int precision, int withsn, double threshold, Ui& ui);
// After a calibration: the masses recomputed from each peak's frequency by the
// spectrum's present law, rows in list order.
int SaveAutoCalPeakList(const Spectrum& spectrum, const std::string& basepath, double noise, double threshold,
                        Ui& ui);

// Decimals of the table form: mass, relative abundance, abundance, frequency.
struct PeakListDecimals {
    int mass = 7, relabundance = 5, abundance = 2, frequency = 5;
};

// The table form ("Vantorix Analysis Peaklist V2.0 - ..."), written by the
// table's "Print Peaks To File". abundance_scale multiplies profile abundances.
std::string table_peak_list_text(const Spectrum& spectrum, const PeakListDecimals& decimals, bool with_sn,
                                 double abundance_scale);
int SavePeakList2(const Spectrum& spectrum, const std::string& path, const PeakListDecimals& decimals, bool with_sn,
                  double abundance_scale, Ui& ui);

// A CSV table of the list, one header line and one row per peak, ascending m/z.
std::string csv_peak_list_text(const Spectrum& spectrum);
int SavePeakListCsv(const Spectrum& spectrum, const std::string& path, Ui& ui);

// Reads a batch .pks file into spectrum as a stick spectrum (domain 3): data and
// xvalues hold five points per peak, peaks the rows in file order. Returns 0, or
// -1 after a message when the file cannot be read or announces more peaks than
// it could hold.
int Get_Tulva_Peak_List(const std::string& path, Spectrum& spectrum, Ui& ui);

}  // namespace vx
