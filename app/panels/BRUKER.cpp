#include "panels/BRUKER.hpp"

#include <filesystem>

#include "formats/bruker.hpp"
#include "platform/ui.hpp"
#include "workspace/workspace.hpp"

namespace vx {

std::optional<std::string> select_bruker_directory(Ui& ui) { return ui.DirSelectPopup("Select Bruker Directory", ""); }

int save_as_xmass_dialog(Workspace& ws, Ui& ui) {
    if (ws.active_panel < 0 || ws.active_panel >= MAX_PANELS ||
        !ws.panels[static_cast<std::size_t>(ws.active_panel)].active)
        return store_active_xmass(ws, "", ui);  // says "No Spectrum Chosen"
    const std::string source = ws.panels[static_cast<std::size_t>(ws.active_panel)].spectrum.filename;
    const std::filesystem::path src(xmass_base_of(source));
    const auto folder = ui.DirSelectPopup("Select Folder for the XMASS Directory", src.parent_path().string());
    if (!folder) return 1;
    return store_active_xmass(ws, (std::filesystem::path(*folder) / src.filename()).string(), ui);
}

}  // namespace vx
