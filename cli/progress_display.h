// A progress bar on stderr while frames are processed, shown only when
// stderr is a terminal, and the error lines that interrupt it.
#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>

namespace ksi_cli {

class Progress_display {
public:
    // total: how many frames are expected, 0 when unknown (live streams).
    explicit Progress_display(std::size_t total);
    Progress_display(const Progress_display&) = delete;
    Progress_display& operator=(const Progress_display&) = delete;

    // Both may be called from any thread.
    void frame_done();
    // Prints one line on stderr, above the bar.
    void report_error(const std::string& line);
    // Removes the bar.
    void finish();

private:
    void draw(std::chrono::steady_clock::time_point now);
    void clear();

    std::mutex mutex_;
    const bool on_terminal_;
    const std::size_t total_;
    std::size_t done_ = 0;
    bool drawn_ = false;
    const std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point last_draw_;
};

}  // namespace ksi_cli
