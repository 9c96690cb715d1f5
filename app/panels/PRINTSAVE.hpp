// "Print Graph" and the panel snapshots: a graph printed black on white at
// 300 dpi (to a printer or a PDF file) from a copy of it, so the window on
// the screen keeps its colours and cursors; any long-lived panel saved as a
// PNG, BMP or JPG picture.
#pragma once

#include <string>

class QDialog;
class QPrinter;
class QWidget;

namespace vx {

class GraphWindow;
class MainWindow;

// PrintGraphHiRes: the graph redrawn at the printer's resolution (an
// envelope of the samples two values per printed column) into a hidden copy
// placed at (50, 50) and scaled to the page, black on white. Returns 0, or a
// negative value when a step failed (-10: the window has no graph).
int PrintGraphHiRes(MainWindow& main, GraphWindow& graph, QPrinter& printer);

// The same into a PDF file (written beside and renamed when complete).
int print_graph_to_pdf(MainWindow& main, GraphWindow& graph, const std::string& path);

// "Print Graph": the print dialogue, then the active graph.
int print_graph(MainWindow& main);

// The picture of a panel by the path's extension (.png, .bmp, .jpg/.jpeg).
// jpeg_quality < 0 reads as 6, else the quality control's value plus one, as
// the snapshot dialogue has always done. A panel not yet made (nullptr) writes
// nothing and returns -1.
int save_panel_snapshot(QWidget* panel, const std::string& path, int jpeg_quality = -1);

// The panel of that object name (e.g. "EXPERIMENT", "PREFERENCE",
// "ANALYZE", a graph "GRAPH<slot>"), or nullptr.
QWidget* find_panel(MainWindow& main, const std::string& name);

// The snapshot dialogue: the long-lived panels by name, each with its button.
QDialog* show_PRINTSAVE(MainWindow& main);

}  // namespace vx
