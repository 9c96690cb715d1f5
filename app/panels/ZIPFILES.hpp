// "Zip Files": the progress panel of packing the .dat files of a folder tree
// (ZipUpDirCallback), with its Stop button.
#pragma once

#include <string>

namespace vx {

class MainWindow;

// Asks for the folder when dir is empty. Returns 0 when all were packed, 1
// when stopped, -1 after the message (or when no folder was chosen).
int zip_files_dialog(MainWindow& main, const std::string& dir = {});

}  // namespace vx
