// Access to GenICam cameras through Aravis: the list of cameras, opening one
// by its id, and the few features the stream needs (region, pixel format,
// frame rate). Every failure is a Camera_error whose text is the one line a
// user sees.
#ifndef KSI_CAMERA_CAMERA_HPP
#define KSI_CAMERA_CAMERA_HPP

#include <optional>
#include <string>
#include <vector>

#include "frame_source.hpp"

typedef struct _ArvCamera ArvCamera;

namespace ksi_cli {

class Camera_error : public Source_error {
public:
    using Source_error::Source_error;
};

struct Camera_description {
    std::string id;
    std::string model;
    std::string serial;
    std::string interface_name;  // the transport: GigEVision, USB3Vision, Fake
};

// Aravis's simulated camera ("Fake_1", interface Fake) is left out of the
// search unless asked for.
void include_simulated_cameras();
std::vector<Camera_description> list_cameras();

class Camera {
public:
    // Throws when no camera has that id, or when it cannot be opened (held
    // by another program, unreachable).
    explicit Camera(const std::string& id);
    ~Camera();
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    const std::string& id() const noexcept { return id_; }
    ArvCamera* handle() const noexcept { return camera_; }

    Region region() const;
    void set_region(const Region& region);
    void set_frame_rate(double frames_per_second);

    // Asks the camera for the named format, or, without a name, keeps the
    // format it delivers when this tool unpacks it and otherwise switches to
    // the deepest one it offers that this tool unpacks.
    Pixel_format select_pixel_format(const std::optional<std::string>& requested);

private:
    std::vector<std::string> available_pixel_formats() const;

    std::string id_;
    ArvCamera* camera_ = nullptr;
};

}  // namespace ksi_cli

#endif
