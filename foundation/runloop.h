#pragma once

namespace quirepad {

// Runs the event loop of the calling (main) thread until the given number
// of seconds has passed, so timers, interface and network events are served
// meanwhile. Callers must tolerate that re-entry. Zero runs one pass.
void sleep_main_loop(double seconds);

// One pass of the event loop, waiting at most 0.1 s for something to do.
void run_idle_loop();

} // namespace quirepad
