#include "thrash_common.hpp"

#include <iostream>

#include "formats/open_file.hpp"
#include "workspace/processing.hpp"

namespace vx::cli {

int open_spectrum_file(Context& ctx, const std::string& file) {
    if (ctx.load_settings() < 0) return -1;
    Workspace& ws = ctx.ws;
    ws.settings_folder.clear();
    const int slot = open_any_file(ws, file, ctx.ui);
    if (slot < 0) {
        std::cerr << file << ": not opened\n";
        return -1;
    }
    Spectrum& s = ws.panels[static_cast<std::size_t>(slot)].spectrum;
    if (s.domain == DOMAIN_TIME) {
        ws.active_panel = slot;
        ProcessCommandResult r;
        if (process_command(ws, ctx.ui, &r) < 0) return -1;
        if (r.handed_to_phasing) {
            ctx.ui.MessagePopup("Operator Error", "Two-channel (SED) data are transformed by the phasing commands, not here.");
            return -1;
        }
    }
    return slot;
}

}  // namespace vx::cli
