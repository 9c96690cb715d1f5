// "Zoom Exact...": the numeric zoom dialogue of a graph window.
#pragma once

namespace vx {

class GraphWindow;

// Runs the dialogue modally over the graph's present axis range; "Apply" and
// "From Full" zoom the graph, "Done" closes.
void run_manual_zoom(GraphWindow& graph);

}  // namespace vx
