#include "workspace/data_service.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <cstdlib>
#include <vector>

#include <fmt/format.h>

#include "platform/ui.hpp"
#include "workspace/conversions.hpp"

namespace vx {
namespace {

// "%f " of a single-precision value (fmt writes what printf's "%f" writes,
// several times faster, which a reply of millions of values needs).
void put(std::string& out, float v) { fmt::format_to(std::back_inserter(out), "{:f} ", static_cast<double>(v)); }

// The plot's x array descends (frequency or m/z drawn from a reversed axis):
// then values go out first to last.
bool descending(const PlotArrays* view) {
    return view && view->count >= 2 && view->x[0] > view->x[view->count - 1];
}

// "%s:%d,%d": the word and the two indices.
bool parse_data_item(std::string_view item, std::string& word, long long& i, long long& j) {
    const auto colon = item.find(':');
    if (colon == std::string_view::npos) return false;
    word = std::string(item.substr(0, colon));
    const std::string rest(item.substr(colon + 1));
    char* end = nullptr;
    i = std::strtoll(rest.c_str(), &end, 10);
    if (end == rest.c_str() || *end != ',') return false;
    const char* second = end + 1;
    j = std::strtoll(second, &end, 10);
    return end != second;
}

}  // namespace

std::string DDE_Send_Relative(const float* values, std::size_t count) {
    std::string out;
    if (count == 0) return out;
    const float largest = *std::max_element(values, values + count);
    out.reserve(count * 12);
    for (std::size_t k = count; k-- > 0;) put(out, largest != 0.0f ? values[k] / largest * 100.0f : 0.0f);
    return out;
}

std::string DDE_Send_Data_Double(const double* values, std::size_t count, bool forward) {
    std::string out;
    out.reserve(count * 14);
    for (std::size_t n = 0; n < count; ++n) put(out, static_cast<float>(values[forward ? n : count - 1 - n]));
    return out;
}

std::string DDE_Send_Data_Single(const float* values, std::size_t count, bool forward) {
    std::string out;
    out.reserve(count * 12);
    for (std::size_t n = 0; n < count; ++n) put(out, values[forward ? n : count - 1 - n]);
    return out;
}

std::string DDE_Send_Int(long long value) { return fmt::format("{}", value); }

int DDE_Request(const Workspace& ws, const PlotArrays* view, std::string_view topic, std::string_view item,
                std::string& reply, std::string& why, Ui& ui, std::size_t limit) {
    reply.clear();
    why.clear();
    const int slot = ws.active_panel;
    if (slot < 0 || slot >= MAX_PANELS || !ws.panels[static_cast<std::size_t>(slot)].active) {
        why = "no active window";
        return -1;
    }
    const AnalysisPanel& p = ws.panels[static_cast<std::size_t>(slot)];
    const Spectrum& s = p.spectrum;
    const auto n = static_cast<long long>(s.data.size());

    if (topic == "Data") {
        std::string word;
        long long i = 0, j = 0;
        if (!parse_data_item(item, word, i, j)) {
            why = "the item is not word:first,last";
            return -1;
        }
        const char c = word.empty() ? '\0' : static_cast<char>(std::tolower(static_cast<unsigned char>(word[0])));
        if (c == 'b') {
            reply = fmt::format("{:f} ", static_cast<float>(s.dbandwidth));
        } else if (c == 'd') {
            if (i < 0 || j < i || j >= n) {
                why = fmt::format("points {} to {} are not within 0 to {}", i, j, n - 1);
                return -1;
            }
            const std::size_t count = static_cast<std::size_t>(j - i + 1);
            if (count * 11 > limit) {
                ui.MessagePopup("DDE Message", "ServerDDEWrite Error");
                why = "the reply is larger than the bus carries";
                return -2;
            }
            reply = DDE_Send_Relative(s.data.data() + i, count);
        } else {
            why = "unknown data word";
            return -1;
        }
    } else if (topic == "Screen_Data") {
        // The shown range: the smaller to the larger of xmin, xmax, truncated.
        long long lo = static_cast<long long>(std::min(p.xmin, p.xmax));
        long long hi = static_cast<long long>(std::max(p.xmin, p.xmax));
        lo = std::clamp<long long>(lo, 0, std::max<long long>(n - 1, 0));
        hi = std::clamp<long long>(hi, 0, std::max<long long>(n - 1, 0));
        const long long count = n == 0 ? 0 : hi - lo + 1;
        if (item == "Count") {
            reply = DDE_Send_Int(count);
        } else if (item == "X Data" || item == "Y Data") {
            if (static_cast<std::size_t>(count) * 14 > limit) {
                ui.MessagePopup("DDE Message", "ServerDDEWrite Error");
                why = "the reply is larger than the bus carries";
                return -2;
            }
            if (item == "X Data") {
                std::vector<double> points(static_cast<std::size_t>(count)), masses(static_cast<std::size_t>(count));
                for (long long k = 0; k < count; ++k) points[static_cast<std::size_t>(k)] = static_cast<double>(lo + k);
                Pt_tomass(s, points, masses);
                reply = DDE_Send_Data_Double(masses.data(), masses.size(), descending(view));
            } else {
                reply = DDE_Send_Relative(s.data.data() + lo, static_cast<std::size_t>(count));
            }
        } else {
            why = "unknown item";
            return -1;
        }
    } else if (topic == "Screen_View") {
        const std::size_t count = view ? view->count : 0;
        if (item == "Count") {
            reply = DDE_Send_Int(static_cast<long long>(count));
        } else if (item == "X Data") {
            reply = count ? DDE_Send_Data_Double(view->x.data(), count, descending(view)) : std::string();
        } else if (item == "Y Data") {
            reply = count ? DDE_Send_Data_Single(view->y.data(), count, descending(view)) : std::string();
        } else {
            why = "unknown item";
            return -1;
        }
    } else {
        why = "unknown topic";
        return -1;
    }
    if (reply.size() + 1 > limit) {
        ui.MessagePopup("DDE Message", "ServerDDEWrite Error");
        reply.clear();
        why = "the reply is larger than the bus carries";
        return -2;
    }
    return 0;
}

}  // namespace vx
