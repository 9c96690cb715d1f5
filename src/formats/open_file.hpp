// One opening road for every kind of data file: the reader and the file type
// are chosen from the path, then the file goes through open_data_file.
#pragma once

#include <string>

#include "workspace/workspace.hpp"

namespace vx {

class Ui;

// The file type a path opens as: FILETYPE_BRUKER for a Bruker acquisition
// directory or any file inside one, FILETYPE_PEAKLIST for a .pks peak list,
// FILETYPE_TULVA for everything else (the Tulva reader says what it refuses).
int filetype_of_path(const std::string& path);

// The reader a path opens with: ws.open_options.format when given, else
// "mzml", "raw" (a Thermo raw file, refused), "pks", "bruker", "odyssey" (by
// the script line behind the header, inside a .Z too) or "tulva".
std::string open_format_of(const Workspace& ws, const std::string& path);
bool is_thermo_raw(const std::string& path);
extern const char* const THERMO_RAW_TEXT;

// A PanelReader that reads path by open_format_of (the desktop's Open entries
// and drops take it after setting ws.open_options).
int read_any_into_slot(Workspace& ws, const std::string& path, int slot, Ui& ui);

// Opens path into a new slot through the reader of its type. Returns the slot,
// or -1 after the reader's message.
int open_any_file(Workspace& ws, const std::string& path, Ui& ui);

}  // namespace vx
