#include "progress_display.h"

#include <unistd.h>

#include <cstdio>

namespace ksi_cli {

namespace {
constexpr auto redraw_interval = std::chrono::milliseconds(200);
constexpr int bar_width = 30;
}  // namespace

Progress_display::Progress_display(std::size_t total)
    : on_terminal_(isatty(STDERR_FILENO) != 0), total_(total), start_(std::chrono::steady_clock::now())
{
}

void Progress_display::frame_done()
{
    std::lock_guard lock(mutex_);
    ++done_;
    const auto now = std::chrono::steady_clock::now();
    if (on_terminal_ && (now - last_draw_ >= redraw_interval || done_ == total_))
        draw(now);
}

void Progress_display::report_error(const std::string& line)
{
    std::lock_guard lock(mutex_);
    clear();
    std::fprintf(stderr, "%s\n", line.c_str());
    if (on_terminal_ && done_ > 0)
        draw(std::chrono::steady_clock::now());
}

void Progress_display::finish()
{
    std::lock_guard lock(mutex_);
    clear();
}

void Progress_display::draw(std::chrono::steady_clock::time_point now)
{
    last_draw_ = now;
    const double elapsed = std::chrono::duration<double>(now - start_).count();
    const double rate = elapsed > 0 ? done_ / elapsed : 0.0;
    if (total_ == 0) {
        std::fprintf(stderr, "\r%zu frames, %.1f frames/s\033[K", done_, rate);
    } else {
        const int filled = static_cast<int>(bar_width * done_ / total_);
        const double left = rate > 0 ? (total_ - done_) / rate : 0.0;
        std::fprintf(stderr, "\r[%.*s%*s] %zu/%zu frames, %.1f frames/s, %.0f s left\033[K", filled,
                     "##############################", bar_width - filled, "", done_, total_, rate, left);
    }
    std::fflush(stderr);
    drawn_ = true;
}

void Progress_display::clear()
{
    if (!drawn_)
        return;
    std::fprintf(stderr, "\r\033[K");
    drawn_ = false;
}

}  // namespace ksi_cli
