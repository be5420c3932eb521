// Progress of a bake on stderr: a bar with the percentage, the rate and the time left when stderr
// is a terminal, plain lines at every tenth otherwise.
#pragma once

// Installs the display as the pass's progress hooks; a pass's first report (0 %) starts its clock.
void StartProgressDisplay(bool terminal);
void ProgressDisplayEndPass();  // clears the bar
