#include "camera.hpp"

#include <arv.h>

#include <algorithm>

namespace ksi_cli {

namespace {

// Owns a GError and turns it into the text of a Camera_error.
class Error_slot {
public:
    ~Error_slot() { g_clear_error(&error_); }
    GError** operator&() noexcept { return &error_; }
    explicit operator bool() const noexcept { return error_ != nullptr; }
    std::string message() const { return error_ != nullptr ? error_->message : "unknown error"; }
    void throw_if_set(const std::string& what)
    {
        if (error_ != nullptr)
            throw Camera_error(what + ": " + message());
    }

private:
    GError* error_ = nullptr;
};

std::string text_or_empty(const char* text) { return text != nullptr ? text : ""; }

bool is_listed(const std::string& id)
{
    arv_update_device_list();
    for (unsigned i = 0; i < arv_get_n_devices(); ++i)
        if (id == text_or_empty(arv_get_device_id(i)) || id == text_or_empty(arv_get_device_address(i)) ||
            id == text_or_empty(arv_get_device_physical_id(i)))
            return true;
    return false;
}

}  // namespace

void include_simulated_cameras() { arv_enable_interface("Fake"); }

std::vector<Camera_description> list_cameras()
{
    arv_update_device_list();
    std::vector<Camera_description> cameras;
    for (unsigned i = 0; i < arv_get_n_devices(); ++i)
        cameras.push_back({text_or_empty(arv_get_device_id(i)), text_or_empty(arv_get_device_model(i)),
                           text_or_empty(arv_get_device_serial_nbr(i)), text_or_empty(arv_get_device_protocol(i))});
    return cameras;
}

Camera::Camera(const std::string& id) : id_(id)
{
    Error_slot error;
    camera_ = arv_camera_new(id.c_str(), &error);
    if (camera_ != nullptr)
        return;
    // Aravis opens a GigE Vision camera by its address even when discovery
    // does not list it, so the list decides only the wording.
    if (!is_listed(id))
        throw Camera_error("no camera with id '" + id + "' (ksi-polarization cameras lists them): " +
                           error.message());
    throw Camera_error("camera '" + id + "' cannot be opened (busy in another program, or gone): " +
                       error.message());
}

Camera::~Camera() { g_object_unref(camera_); }

Region Camera::region() const
{
    Region region;
    Error_slot error;
    arv_camera_get_region(camera_, &region.x, &region.y, &region.width, &region.height, &error);
    error.throw_if_set("camera '" + id_ + "': cannot read its region of interest");
    return region;
}

void Camera::set_region(const Region& region)
{
    Error_slot error;
    arv_camera_set_region(camera_, region.x, region.y, region.width, region.height, &error);
    error.throw_if_set("camera '" + id_ + "': cannot set the region " + std::to_string(region.x) + "," +
                       std::to_string(region.y) + "," + std::to_string(region.width) + "," +
                       std::to_string(region.height));
    const Region applied = this->region();
    if (applied.x != region.x || applied.y != region.y || applied.width != region.width ||
        applied.height != region.height)
        throw Camera_error("camera '" + id_ + "' refused the region " + std::to_string(region.x) + "," +
                           std::to_string(region.y) + "," + std::to_string(region.width) + "," +
                           std::to_string(region.height) + " (it applied " + std::to_string(applied.x) + "," +
                           std::to_string(applied.y) + "," + std::to_string(applied.width) + "," +
                           std::to_string(applied.height) + ")");
}

void Camera::set_frame_rate(double frames_per_second)
{
    Error_slot error;
    arv_camera_set_frame_rate(camera_, frames_per_second, &error);
    error.throw_if_set("camera '" + id_ + "': cannot set the frame rate to " + std::to_string(frames_per_second));
}

std::vector<std::string> Camera::available_pixel_formats() const
{
    Error_slot error;
    guint count = 0;
    const char** names = arv_camera_dup_available_pixel_formats_as_strings(camera_, &count, &error);
    error.throw_if_set("camera '" + id_ + "': cannot read its pixel formats");
    std::vector<std::string> formats(names, names + count);
    g_free(names);
    return formats;
}

Pixel_format Camera::select_pixel_format(const std::optional<std::string>& requested)
{
    const std::vector<std::string> offered = available_pixel_formats();
    auto offered_list = [&offered] {
        std::string list;
        for (const std::string& name : offered)
            list += (list.empty() ? "" : ", ") + name;
        return list;
    };
    if (requested) {
        const std::optional<Pixel_format> format = pixel_format_by_name(*requested);
        if (!format)
            throw Camera_error("pixel format '" + *requested + "' is not one this tool unpacks (" +
                               unpacked_format_names() + ")");
        if (std::find(offered.begin(), offered.end(), *requested) == offered.end())
            throw Camera_error("camera '" + id_ + "' does not offer " + *requested + " (it offers " + offered_list() +
                               ")");
        Error_slot error;
        arv_camera_set_pixel_format(camera_, format->code, &error);
        error.throw_if_set("camera '" + id_ + "': cannot set the pixel format " + *requested);
        return *format;
    }

    Error_slot error;
    const ArvPixelFormat current = arv_camera_get_pixel_format(camera_, &error);
    error.throw_if_set("camera '" + id_ + "': cannot read its pixel format");
    if (const std::optional<Pixel_format> format = pixel_format_by_code(current))
        return *format;
    for (const Pixel_format& format : unpacked_formats)
        if (std::find(offered.begin(), offered.end(), format.name) != offered.end()) {
            Error_slot set_error;
            arv_camera_set_pixel_format(camera_, format.code, &set_error);
            set_error.throw_if_set("camera '" + id_ + "': cannot set the pixel format " + format.name);
            return format;
        }
    const bool offers_monochrome = std::any_of(offered.begin(), offered.end(), [](const std::string& name) {
        return name.rfind("Mono", 0) == 0;
    });
    if (!offers_monochrome)
        throw Camera_error("camera '" + id_ + "' offers no monochrome pixel format (it offers " + offered_list() +
                           "); a polarization sensor delivers its mosaic as Mono");
    throw Camera_error("camera '" + id_ + "' offers only monochrome formats this tool does not unpack (" +
                       offered_list() + "; it unpacks " + unpacked_format_names() + ")");
}

}  // namespace ksi_cli
