// Where threads run, so that a figure does not tell of their placement.
#pragma once

// Keeps the calling thread, and those that it starts from now on, on one of the processors that the process may use:
// the last for 0, the one before for 1, and so on, around.
void pin(int place);
