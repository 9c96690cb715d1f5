// The active spectrum offered to other programs: the replies of the data
// service (topics "Data", "Screen_Data", "Screen_View") as text, one "%f "
// per value. The desktop program serves them on the session bus; the replies
// are made here so they can be checked without a bus.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "workspace/display.hpp"
#include "workspace/workspace.hpp"

namespace vx {

class Ui;

// The largest reply the bus carries (its message limit), with the NUL.
inline constexpr std::size_t SERVICE_REPLY_LIMIT = std::size_t{128} << 20;

// Answers topic / item for the active panel. view is the reduced plot of the
// active graph (nullptr: none drawn). Returns 0 with the reply; -1 with why
// filled when the request has no answer (unknown topic or item, bad indices,
// no active window); -2 after "DDE Message" / "ServerDDEWrite Error" when the
// reply would not fit the bus.
int DDE_Request(const Workspace& ws, const PlotArrays* view, std::string_view topic, std::string_view item,
                std::string& reply, std::string& why, Ui& ui, std::size_t limit = SERVICE_REPLY_LIMIT);

// The reply forms: the values as float, "%f " each.
// DDE_Send_Relative: percent of the largest value, last value first.
std::string DDE_Send_Relative(const float* values, std::size_t count);
// The values, last first unless forward.
std::string DDE_Send_Data_Double(const double* values, std::size_t count, bool forward);
std::string DDE_Send_Data_Single(const float* values, std::size_t count, bool forward);
std::string DDE_Send_Int(long long value);

}  // namespace vx
