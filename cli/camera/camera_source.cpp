#include "camera_source.hpp"

#include <arv.h>

namespace ksi_cli {

namespace {

void on_control_lost(ArvDevice*, gpointer lost_flag) { static_cast<std::atomic<bool>*>(lost_flag)->store(true); }

// Takes an Aravis error and turns it into a Camera_error.
void throw_if_set(GError* error, const std::string& what)
{
    if (error == nullptr)
        return;
    const std::string message = what + ": " + error->message;
    g_error_free(error);
    throw Camera_error(message);
}

}  // namespace

Camera_source::Camera_source(Camera& camera, const Pixel_format& format)
    : camera_(camera), format_(format), region_(camera.region())
{
}

Camera_source::~Camera_source()
{
    if (acquiring_)
        stop();
    if (control_lost_handler_ != 0)
        g_signal_handler_disconnect(arv_camera_get_device(camera_.handle()), control_lost_handler_);
    if (stream_ != nullptr)
        g_object_unref(stream_);
}

std::string Camera_source::name() const { return "camera '" + camera_.id() + "'"; }

void Camera_source::start(unsigned buffers)
{
    ArvCamera* camera = camera_.handle();
    GError* error = nullptr;
    const guint payload = arv_camera_get_payload(camera, &error);
    throw_if_set(error, name() + ": cannot read its payload size");
    const std::size_t needed =
        packed_size(format_.encoding, static_cast<std::size_t>(region_.width) * region_.height);
    if (payload < needed)
        throw Camera_error(name() + " reports a payload of " + std::to_string(payload) + " bytes, less than the " +
                           std::to_string(needed) + " of a " + std::to_string(region_.width) + "x" +
                           std::to_string(region_.height) + " " + format_.name + " frame");
    stream_ = arv_camera_create_stream(camera, nullptr, nullptr, &error);
    throw_if_set(error, name() + ": cannot open a stream (busy in another program?)");
    for (unsigned i = 0; i < buffers; ++i)
        arv_stream_push_buffer(stream_, arv_buffer_new_allocate(payload));

    arv_camera_set_acquisition_mode(camera, ARV_ACQUISITION_MODE_CONTINUOUS, &error);
    throw_if_set(error, name() + ": cannot select continuous acquisition");
    control_lost_handler_ = g_signal_connect(arv_camera_get_device(camera), "control-lost",
                                             G_CALLBACK(on_control_lost), &control_lost_);
    arv_camera_start_acquisition(camera, &error);
    throw_if_set(error, name() + ": cannot start acquisition (busy in another program?)");
    acquiring_ = true;
}

// A buffer of status success holds a complete image in a buffer of the
// payload size checked at the start; only its geometry and format are left
// to compare. (Aravis's simulated camera leaves the received size at 0 when
// a custom fill pattern writes the pixels, so the check does not rest on it.)
bool Camera_source::is_expected(ArvBuffer* buffer) const
{
    return arv_buffer_get_image_data(buffer, nullptr) != nullptr &&
           arv_buffer_get_image_width(buffer) == region_.width &&
           arv_buffer_get_image_height(buffer) == region_.height &&
           arv_buffer_get_image_pixel_format(buffer) == format_.code;
}

std::optional<Delivered_frame> Camera_source::next(std::chrono::microseconds wait)
{
    ArvBuffer* buffer = arv_stream_timeout_pop_buffer(stream_, static_cast<guint64>(wait.count()));
    const Stream_clock::time_point arrival = Stream_clock::now();
    if (buffer == nullptr)
        return std::nullopt;
    // Aravis counts incomplete buffers itself; frames of another size or
    // format than the one set up are counted here.
    if (arv_buffer_get_status(buffer) != ARV_BUFFER_STATUS_SUCCESS) {
        arv_stream_push_buffer(stream_, buffer);
        return std::nullopt;
    }
    if (!is_expected(buffer)) {
        ++unexpected_;
        arv_stream_push_buffer(stream_, buffer);
        return std::nullopt;
    }
    return Delivered_frame{static_cast<const std::uint8_t*>(arv_buffer_get_image_data(buffer, nullptr)), buffer,
                           arrival};
}

void Camera_source::give_back(const Delivered_frame& frame)
{
    arv_stream_push_buffer(stream_, static_cast<ArvBuffer*>(frame.buffer));
}

std::uint64_t Camera_source::lost()
{
    guint64 completed = 0, failures = 0, underruns = 0;
    if (stream_ != nullptr)
        arv_stream_get_statistics(stream_, &completed, &failures, &underruns);
    return failures + underruns + unexpected_;
}

std::optional<std::string> Camera_source::failure()
{
    if (control_lost_.load())
        return name() + " was lost during the stream";
    return std::nullopt;
}

std::optional<std::string> Camera_source::stop()
{
    if (!acquiring_)
        return std::nullopt;
    acquiring_ = false;
    GError* error = nullptr;
    arv_camera_stop_acquisition(camera_.handle(), &error);
    if (error == nullptr)
        return std::nullopt;
    const std::string failure = name() + ": stopping acquisition failed: " + error->message;
    g_clear_error(&error);
    return failure;
}

}  // namespace ksi_cli
