// Ctrl-C (SIGINT) and SIGTERM as a request to stop cleanly: while a
// Stop_signals object lives, either signal sets the flag that
// stop_requested() returns instead of ending the process, so that the
// subcommand can finish or abandon its work and release what it holds.
#pragma once

#include <atomic>
#include <signal.h>

namespace ksi_cli {

class Stop_signals {
public:
    // Clears the flag and installs the handlers; the destructor puts the
    // previous ones back.
    Stop_signals();
    ~Stop_signals();
    Stop_signals(const Stop_signals&) = delete;
    Stop_signals& operator=(const Stop_signals&) = delete;

    // Set from the signal handler; read from any thread.
    static const std::atomic<bool>& stop_requested();
    // The signal that asked, 0 if none yet.
    static int signal_number();

private:
    struct sigaction previous_interrupt_ {};
    struct sigaction previous_terminate_ {};
};

}  // namespace ksi_cli
