// The recent-file list tulva.ini: NUMFILE=n and FILE1= .. FILE5=, latest first.
#pragma once

#include <string>
#include <vector>

namespace vx {

inline constexpr int RECENT_FILES = 5;

struct RecentFiles {
    int count = 0;                       // NUMFILE
    std::vector<std::string> names;      // always RECENT_FILES entries, "" where empty
};

// Reads dir/tulva.ini; a missing or unreadable file gives an empty list.
RecentFiles read_file_list(const std::string& dir);
// Writes dir/tulva.ini. Returns 0 or -1.
int write_file_list(const std::string& dir, const RecentFiles& list);

// Creates tulva.ini with NUMFILE=0 and five empty entries when it does not
// exist. Returns the list as it stands.
RecentFiles FileList(const std::string& dir);

// Moves path to the top of the list (adding it when new) and writes the file.
RecentFiles updateFileList(const std::string& dir, const std::string& path);

// The same move on a list in memory.
void update_recent(RecentFiles& list, const std::string& path);

// Menu texts of the File menu's recent entries ("__1 path", shortened paths).
std::vector<std::string> loadFileList(const RecentFiles& list);

// Text of one recent-file menu entry: "__" number, a blank and the path, the
// path shortened when it is over 30 characters and at least two folders deep.
std::string recent_menu_text(int number, const std::string& path);

}  // namespace vx
