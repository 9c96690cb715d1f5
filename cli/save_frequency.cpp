#include "save_frequency.hpp"

#include <fmt/format.h>

#include "formats/frequency_file.hpp"

namespace vx::cli {

int save_frequency_file(Context& ctx, Spectrum& s, const std::string& out, const std::string& source, bool walking,
                        bool exact_count) {
    VfdStoreOptions o;
    o.exact_count = exact_count;
    if (!exact_count && (s.Zerofills > 1 || s.Truncations > 0))
        ctx.ui.MessagePopup("Warning",
                            fmt::format("{} records {} zero-fills and {} truncations: it reads back with {} points "
                                        "instead of {}. --exact-count stores the length as it is.",
                                        out, s.Zerofills, s.Truncations,
                                        (static_cast<long long>(s.datacount) << std::max(s.Zerofills - 1, 0)) >>
                                            std::max(s.Truncations, 0),
                                        s.datacount));
    return StoreVFDFile(s, out, source, walking ? 1 : 0, ctx.ws.sed_mode, ctx.ui, o) == 0 ? 0 : -1;
}

}  // namespace vx::cli
