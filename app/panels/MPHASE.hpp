// "Manual Phasing Control": the three phase terms typed or stepped by digit,
// applied live to the complex spectrum kept by the last phasing run (no new
// transform); the graph redraws on every change.
#pragma once

namespace vx {

class MainWindow;

void show_MPHASE(MainWindow& window);

}  // namespace vx
