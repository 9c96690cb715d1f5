// Reader of mzML files: the road by which Thermo (Xcalibur/Orbitrap) raw data
// reaches this program, after ThermoRawFileParser (-f 2 -N -p) or msconvert
// has turned the raw file into mzML.
//
// One scan is read, never the whole document: an indexed file gives the
// scan's byte offset through the index at its end; a file without an index
// (or with a wrong one) is streamed through in chunks to the scan's element.
// Only that <spectrum> element is parsed as XML.
//
// The scan becomes an m/z profile (domain 5): data the intensities, xvalues
// the m/z of every point, no calibration law. Its sampled noise arrays
// (MS:1002743-1002745) give per point the noise, baseline and S/N
// (xcalnoise, xcalbaseline, xcaldata) by linear interpolation in m/z.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "workspace/workspace.hpp"

namespace vx {

class Ui;

// One spectrum of the file: its id, its scan number (the N of "... scan=N" in
// the id; without such a token its position from 1) and the byte offset of its
// <spectrum> element.
struct MzmlScanRef {
    std::string id;
    int scan = 0;
    std::uint64_t offset = 0;
};

// The spectra of path, from the index when it is there and right, else by
// streaming through the file. indexed tells which. Returns 0, or -1 after a
// message (not mzML, unreadable, no spectra).
int mzml_list_scans(const std::string& path, std::vector<MzmlScanRef>& scans, bool& indexed, Ui& ui);

// The number of the file's last scan (the prompt's count), or -1 after a message.
int GetNumberFilesinRaw(const std::string& path, Ui& ui);

// Reads scan (its scan number) into spectrum. scan 0 asks: "This file contains
// %i files. Please choose one"; an empty answer takes the last scan, and a file
// of one spectrum is read without asking. scans_out/scan_out (optional) get the
// number of spectra and the scan read. Returns 0, or -1 after a message.
int Get_Xcalibur_Data(const std::string& path, Spectrum& spectrum, int scan, Ui& ui, int* scans_out = nullptr,
                      int* scan_out = nullptr);

// The noise curve of step 6: for each point of spectrum (xvalues, data) the
// noise and baseline interpolated linearly in the curve (noise_mz ascending,
// the ends extended along their first/last segment), and S/N =
// (intensity - baseline) / noise, 0 where the noise is not positive. Without
// a curve the three arrays are left empty, which every user reads as zeros.
void apply_noise_curve(Spectrum& spectrum, const std::vector<double>& noise_mz, const std::vector<double>& noise,
                       const std::vector<double>& baseline);

// Opening-road reader (PanelReader): the scan of ws.open_options.scan (0: the
// prompt); reports scans and scan_opened back into ws.open_options.
int read_mzml_into_slot(Workspace& ws, const std::string& path, int slot, Ui& ui);

}  // namespace vx
