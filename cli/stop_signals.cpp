#include "stop_signals.h"

namespace ksi_cli {

namespace {

std::atomic<bool> requested{false};
std::atomic<int> requesting_signal{0};

static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free,
              "set from a signal handler");

extern "C" void request_stop(int number)
{
    requesting_signal.store(number);
    requested.store(true);
}

}  // namespace

Stop_signals::Stop_signals()
{
    requested.store(false);
    requesting_signal.store(0);
    struct sigaction action {};
    action.sa_handler = request_stop;
    // Library threads (Aravis's, the web server's) may take the signal in a
    // system call.
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &previous_interrupt_);
    sigaction(SIGTERM, &action, &previous_terminate_);
}

Stop_signals::~Stop_signals()
{
    sigaction(SIGINT, &previous_interrupt_, nullptr);
    sigaction(SIGTERM, &previous_terminate_, nullptr);
}

const std::atomic<bool>& Stop_signals::stop_requested() { return requested; }

int Stop_signals::signal_number() { return requesting_signal.load(); }

}  // namespace ksi_cli
