// "Save Peaklist": the THRASH table written as a .pkl file chosen by the user,
// then printed, as the lab has always filed its THRASH results on paper.
#pragma once

#include <string>
#include <vector>

#include "thrash/thrash.hpp"

class QPrinter;

namespace vx {

class MainWindow;
struct Spectrum;

// The text printed on the page(s), in a fixed-width font.
int print_peaklist_text(const std::string& text, QPrinter& printer);
// The same into a PDF file (made beside it and renamed when complete).
int print_peaklist_to_pdf(const std::string& text, const std::string& path);

// Writes rows as path (asked for with "*.pkl" when empty), refusing the data
// file itself, then prints it: to pdf when given (unattended runs and tests),
// else through the print dialogue (cancelling the print keeps the file).
// Returns 0, or -1 after a message.
int save_thrash_peaklist(MainWindow& main, const Spectrum& s, const std::vector<ThrashPeak>& rows, std::string path,
                         const std::string& pdf = {});

}  // namespace vx
