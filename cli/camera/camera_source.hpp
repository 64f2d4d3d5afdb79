// A camera as the stream engine's frame source: Aravis fills the buffers
// lent to its stream, and every buffer goes back to Aravis once the engine
// has unpacked it.
#ifndef KSI_CAMERA_CAMERA_SOURCE_HPP
#define KSI_CAMERA_CAMERA_SOURCE_HPP

#include <atomic>
#include <cstdint>
#include <memory>

#include "camera.hpp"
#include "frame_source.hpp"

typedef struct _ArvStream ArvStream;
typedef struct _ArvBuffer ArvBuffer;

namespace ksi_cli {

class Camera_source : public Frame_source {
public:
    // The camera's region and the format already selected on it.
    Camera_source(Camera& camera, const Pixel_format& format);
    ~Camera_source() override;
    Camera_source(const Camera_source&) = delete;
    Camera_source& operator=(const Camera_source&) = delete;

    std::string name() const override;
    Region region() const override { return region_; }
    Pixel_format pixel_format() const override { return format_; }
    unsigned bit_depth() const override { return format_.bit_depth; }

    void start(unsigned buffers) override;
    std::optional<Delivered_frame> next(std::chrono::microseconds wait) override;
    void give_back(const Delivered_frame& frame) override;
    std::uint64_t lost() override;
    std::optional<std::string> failure() override;
    std::optional<std::string> stop() override;

    Camera& camera() const noexcept { return camera_; }

private:
    bool is_expected(ArvBuffer* buffer) const;

    Camera& camera_;
    const Pixel_format format_;
    const Region region_;
    ArvStream* stream_ = nullptr;
    unsigned long control_lost_handler_ = 0;
    std::atomic<bool> control_lost_{false};
    std::uint64_t unexpected_ = 0;  // whole frames of another size or format
    bool acquiring_ = false;
};

}  // namespace ksi_cli

#endif
