// The built ksi-polarization against Aravis's simulated cameras, as a user
// runs it: over loopback from the GigE Vision simulator, and in-process from
// the Fake camera for Ctrl-C. Every child is bounded in time and killed in
// all cases.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <kestrion_ksi_polarization_processor.h>

#include "image_reading.h"

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

std::string read_text(const std::filesystem::path& file)
{
    std::ifstream stream(file);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

// A child process with stdout and stderr in files.
class Child {
public:
    Child(std::vector<std::string> arguments, const std::filesystem::path& output_stem)
        : stdout_file_(output_stem.string() + ".out"), stderr_file_(output_stem.string() + ".err")
    {
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, stdout_file_.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                         0644);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, stderr_file_.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                         0644);
        std::vector<char*> argv;
        for (std::string& argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        const int error = posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (error != 0)
            pid_ = -1;
    }

    ~Child()
    {
        if (pid_ > 0 && !status_) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }

    bool started() const { return pid_ > 0; }
    void signal(int number) const { kill(pid_, number); }

    // The wait status, or nothing if the child still runs after `seconds`
    // (then it is killed).
    std::optional<int> wait(double seconds)
    {
        const Clock::time_point deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                              std::chrono::duration<double>(seconds));
        while (!status_) {
            int status = 0;
            if (waitpid(pid_, &status, WNOHANG) == pid_) {
                status_ = status;
                break;
            }
            if (Clock::now() >= deadline) {
                kill(pid_, SIGKILL);
                waitpid(pid_, nullptr, 0);
                status_ = -1;
                return std::nullopt;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return status_;
    }

    std::string out() const { return read_text(stdout_file_); }
    std::string err() const { return read_text(stderr_file_); }

private:
    pid_t pid_ = -1;
    std::optional<int> status_;
    std::string stdout_file_;
    std::string stderr_file_;
};

int exit_code(std::optional<int> status)
{
    return status && WIFEXITED(*status) ? WEXITSTATUS(*status) : -1;
}

std::uint64_t count_after(const std::string& text, const std::string& word)
{
    std::smatch match;
    if (!std::regex_search(text, match, std::regex(word + " ([0-9]+)")))
        return 0;
    return std::stoull(match[1]);
}

class StreamCommand : public testing::Test {
protected:
    void SetUp() override
    {
        directory_ = std::filesystem::temp_directory_path() / ("ksi_stream_command_" + std::to_string(getpid()));
        std::filesystem::remove_all(directory_);
        std::filesystem::create_directories(directory_);
    }
    void TearDown() override { std::filesystem::remove_all(directory_); }

    std::unique_ptr<Child> tool(std::vector<std::string> arguments, const std::string& name)
    {
        arguments.insert(arguments.begin(), KSI_TOOL);
        return std::make_unique<Child>(arguments, directory_ / name);
    }

    // The GigE Vision simulator on the loopback address only.
    std::unique_ptr<Child> start_simulator()
    {
        auto simulator = std::make_unique<Child>(std::vector<std::string>{KSI_FAKE_GV_CAMERA, "-i", "127.0.0.1"},
                                                 directory_ / "simulator");
        std::this_thread::sleep_for(std::chrono::milliseconds(700));
        return simulator;
    }

    std::filesystem::path directory_;
};

bool simulator_available()
{
    if (std::string(KSI_FAKE_GV_CAMERA).empty()) {
        std::printf("arv-fake-gv-camera-0.8 not found (apt-get install aravis-tools): loopback streams not run\n");
        return false;
    }
    return true;
}

TEST_F(StreamCommand, StreamsOverLoopbackFromTheGigEVisionSimulator)
{
    if (!simulator_available())
        GTEST_SKIP();
    const auto simulator = start_simulator();
    ASSERT_TRUE(simulator->started());
    const std::filesystem::path recording = directory_ / "recording";
    auto stream = tool({"stream", "--camera", "127.0.0.1", "--phase", "90", "--seconds", "3", "--outputs",
                        "s0,aolp,dolp", "--record", recording.string(), "--every", "10", "-j", "2"},
                       "loopback");
    const auto status = stream->wait(60);
    ASSERT_TRUE(status) << "the stream did not end by itself";
    EXPECT_EQ(exit_code(status), 0) << stream->err();
    const std::string summary = stream->out();
    EXPECT_NE(summary.find("stopped: time limit"), std::string::npos) << summary;
    const std::uint64_t transformed = count_after(summary, "transformed");
    EXPECT_GT(transformed, 0u) << summary;
    EXPECT_EQ(stream->err(), "");
    // The simulator's default frames: 512x512 Mono8.
    EXPECT_NE(summary.find("512x512 Mono8"), std::string::npos) << summary;
    ksi_cli::Frame frame;
    ksi_cli::read_frame(recording / "frame_00000000_s0.png", std::nullopt, frame);
    EXPECT_EQ(frame.width, 512);
    EXPECT_EQ(frame.height, 512);
}

TEST_F(StreamCommand, SecondStreamFromABusyCameraFails)
{
    if (!simulator_available())
        GTEST_SKIP();
    const auto simulator = start_simulator();
    auto first = tool({"stream", "--camera", "127.0.0.1", "--phase", "0", "--seconds", "4", "--outputs", "s0"},
                      "first");
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    auto second = tool({"stream", "--camera", "127.0.0.1", "--phase", "0", "--seconds", "2", "--outputs", "s0"},
                       "second");
    EXPECT_EQ(exit_code(second->wait(30)), 1);
    const std::string error = second->err();
    EXPECT_EQ(error.rfind("ksi-polarization: camera '127.0.0.1'", 0), 0u) << error;
    EXPECT_NE(error.find("busy"), std::string::npos) << error;
    EXPECT_EQ(std::count(error.begin(), error.end(), '\n'), 1) << error;
    EXPECT_EQ(exit_code(first->wait(30)), 0) << first->err();
}

TEST_F(StreamCommand, CameraGoneDuringTheStreamFails)
{
    if (!simulator_available())
        GTEST_SKIP();
    auto simulator = start_simulator();
    auto stream = tool({"stream", "--camera", "127.0.0.1", "--phase", "0", "--seconds", "30", "--outputs", "s0",
                        "--timeout", "1"},
                       "gone");
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    simulator.reset();
    EXPECT_EQ(exit_code(stream->wait(30)), 1);
    const std::string error = stream->err();
    EXPECT_TRUE(error == "ksi-polarization: no complete frame from camera '127.0.0.1' within 1 s\n" ||
                error == "ksi-polarization: camera '127.0.0.1' was lost during the stream\n")
        << error;
    EXPECT_GT(count_after(stream->out(), "transformed"), 0u) << stream->out();
}

// Ctrl-C: acquisition stops, the summary is printed, status 0; under
// AddressSanitizer a leak would turn the status non-zero.
TEST_F(StreamCommand, InterruptEndsTheStreamCleanly)
{
    const std::filesystem::path preview = directory_ / "preview.png";
    auto stream = tool({"stream", "--simulated", "--camera", "Fake_1", "--phase", "45", "--pixel-format", "Mono16",
                        "--region", "0,0,256,256", "--frame-rate", "30", "--preview", preview.string()},
                       "interrupt");
    // The first preview shows that frames flow.
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(30);
    while (!std::filesystem::exists(preview) && Clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_TRUE(std::filesystem::exists(preview)) << stream->err();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    stream->signal(SIGINT);
    const auto status = stream->wait(30);
    ASSERT_TRUE(status) << "the stream did not stop on SIGINT";
    EXPECT_EQ(exit_code(status), 0) << stream->err();
    const std::string summary = stream->out();
    EXPECT_NE(summary.find("stopped: interrupted"), std::string::npos) << summary;
    EXPECT_GT(count_after(summary, "transformed"), 0u) << summary;
    EXPECT_EQ(stream->err(), "");
    // Only the preview is left in its directory, no temporary file.
    std::size_t entries = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory_))
        entries += entry.path().extension() != ".out" && entry.path().extension() != ".err";
    EXPECT_EQ(entries, 1u);
}

// A colour sensor's recording and preview have half the frame's size.
TEST_F(StreamCommand, RecordsAColourSensorsOutputsAtHalfResolution)
{
    const std::filesystem::path recording = directory_ / "recording", preview = directory_ / "preview.png";
    auto stream = tool({"stream", "--simulated", "--camera", "Fake_1", "--sensor", "color", "--color-order", "gbrg",
                        "--phase", "0", "--pixel-format", "Mono16", "--region", "0,0,256,192", "--frames", "3",
                        "--outputs", "s0_color,imin,aolp_color", "--record", recording.string(), "--preview",
                        preview.string(), "-j", "1"},
                       "color");
    const auto status = stream->wait(60);
    ASSERT_TRUE(status) << "the stream did not end by itself";
    ASSERT_EQ(exit_code(status), 0) << stream->err();
    EXPECT_EQ(count_after(stream->out(), "transformed"), 3u) << stream->out();
    ksi_cli::Frame frame;
    ksi_cli::read_frame(recording / "frame_00000000_imin.png", std::nullopt, frame);
    EXPECT_EQ(frame.width, 128);
    EXPECT_EQ(frame.height, 96);
    // s0_color is RGB: the tool's reader of mosaics refuses it by name.
    EXPECT_TRUE(std::filesystem::exists(recording / "frame_00000000_s0_color.png"));
    EXPECT_THROW(ksi_cli::read_frame(recording / "frame_00000000_s0_color.png", std::nullopt, frame),
                 ksi_cli::Input_error);
    ASSERT_TRUE(std::filesystem::exists(preview));
    EXPECT_EQ(read_text(preview).substr(16, 8), std::string("\0\0\0\x80\0\0\0\x60", 8));  // IHDR 128x96
}

TEST_F(StreamCommand, ColourSensorWithAnOddOriginIsAUsageError)
{
    auto stream = tool({"stream", "--simulated", "--camera", "Fake_1", "--sensor", "color", "--phase", "0",
                        "--origin", "2,1", "--frames", "1"},
                       "odd");
    EXPECT_EQ(exit_code(stream->wait(60)), 2);
    EXPECT_NE(stream->err().find("--origin: 2,1 starts inside a polarizer quartet"), std::string::npos)
        << stream->err();
}

TEST_F(StreamCommand, UnknownCameraIsOneLine)
{
    auto stream = tool({"stream", "--camera", "No_such_camera", "--phase", "0", "--frames", "1"}, "unknown");
    EXPECT_EQ(exit_code(stream->wait(60)), 1);
    const std::string error = stream->err();
    EXPECT_EQ(error.rfind("ksi-polarization: no camera with id 'No_such_camera'", 0), 0u) << error;
    EXPECT_EQ(std::count(error.begin(), error.end(), '\n'), 1) << error;
}

// Raw dumps replayed at a camera's pace: every recorded frame is the
// library's transform of the file it came from (the n-th frame received is
// file n mod count).
TEST_F(StreamCommand, ReplaysFilesAndRecordsEveryFrame)
{
    const int width = 30, height = 20;
    std::vector<std::vector<std::uint16_t>> mosaics;
    for (int file = 0; file < 3; ++file) {
        std::vector<std::uint16_t>& mosaic = mosaics.emplace_back(static_cast<std::size_t>(width) * height);
        for (std::size_t i = 0; i < mosaic.size(); ++i)
            mosaic[i] = static_cast<std::uint16_t>((i * 2654435761u + file * 40503u) >> 7 & 0xfff);
        std::ofstream(directory_ / ("dump_" + std::to_string(file) + ".raw"), std::ios::binary)
            .write(reinterpret_cast<const char*>(mosaic.data()), static_cast<std::streamsize>(mosaic.size() * 2));
    }
    const std::filesystem::path recording = directory_ / "recording";
    auto stream = tool({"stream", "--phase", "135", "--rate", "200", "--frames", "7", "--raw", "30x20", "--bit-depth",
                        "12", "--pixel-format", "Mono12p", "--outputs", "s0,dolp", "--record", recording.string(),
                        "-j", "1", "--buffers", "64", directory_.string()},
                       "replay");
    const auto status = stream->wait(60);
    ASSERT_TRUE(status) << "the replay did not end by itself";
    ASSERT_EQ(exit_code(status), 0) << stream->err();
    const std::string summary = stream->out();
    EXPECT_NE(summary.find("30x20 Mono12p"), std::string::npos) << summary;
    EXPECT_NE(summary.find("stopped: frame limit"), std::string::npos) << summary;
    EXPECT_EQ(count_after(summary, "transformed"), 7u) << summary;
    const std::uint64_t received = count_after(summary, "received");
    std::size_t checked = 0;
    for (std::uint64_t number = 0; number < received; ++number) {
        char stem[32];
        std::snprintf(stem, sizeof stem, "frame_%08llu", static_cast<unsigned long long>(number));
        if (!std::filesystem::exists(recording / (std::string(stem) + "_s0.png")))
            continue;  // dropped while every buffer was busy
        const std::vector<std::uint16_t>& mosaic = mosaics[number % mosaics.size()];
        std::vector<std::uint16_t> s0(mosaic.size()), dolp(mosaic.size());
        ASSERT_EQ(kl_polarization_processor_module_initialize(), status_success);
        void* processor = nullptr;
        ASSERT_EQ(kl_polarization_processor_create_polarization_processor(&processor), status_success);
        EXPECT_EQ(kl_polarization_processor_transform(processor, polar_phase_135, mosaic.data(), 0, 0, width, height,
                                                      12, 65535, nullptr, s0.data(), nullptr, nullptr, nullptr,
                                                      dolp.data()),
                  status_success);
        kl_polarization_processor_destroy_polarization_processor(processor);
        kl_polarization_processor_module_terminate();
        ksi_cli::Frame frame;
        ksi_cli::read_frame(recording / (std::string(stem) + "_s0.png"), std::nullopt, frame);
        EXPECT_EQ(frame.pixels, s0) << stem;
        ksi_cli::read_frame(recording / (std::string(stem) + "_dolp.png"), std::nullopt, frame);
        EXPECT_EQ(frame.pixels, dolp) << stem;
        ++checked;
    }
    EXPECT_EQ(checked, 7u);
}

TEST_F(StreamCommand, ReplayRefusals)
{
    // A 2x2 dump whose second sample, 256, needs nine bits.
    std::ofstream(directory_ / "deep.raw", std::ios::binary).write("\x00\x00\x00\x01\x00\x00\x00\x00", 8);
    const std::string missing = (directory_ / "missing.pgm").string();
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"stream", "--phase", "0", "--camera", "Fake_1", missing}, "a camera or files to replay, not both"},
        {{"stream", "--phase", "0"}, "a camera (--camera ID) or files to replay (INPUT...) is required"},
        {{"stream", "--phase", "0", "--camera", "Fake_1", "--rate", "10"},
         "applies to a replay of files, not to a camera"},
        {{"stream", "--phase", "0", "--region", "0,0,8,8", missing}, "applies to a camera, not to a replay of files"},
    };
    for (const auto& [arguments, message] : cases) {
        auto stream = tool(arguments, "refused");
        EXPECT_EQ(exit_code(stream->wait(30)), 2) << arguments.back();
        EXPECT_NE(stream->err().find(message), std::string::npos) << stream->err();
    }
    auto unreadable = tool({"stream", "--phase", "0", missing}, "missing");
    EXPECT_EQ(exit_code(unreadable->wait(30)), 1);
    EXPECT_EQ(unreadable->err(), "ksi-polarization: " + missing + ": missing (no such file)\n");
    const std::string deep = (directory_ / "deep.raw").string();
    auto too_deep = tool({"stream", "--phase", "0", "--raw", "2x2", "--pixel-format", "Mono8", deep}, "deep");
    EXPECT_EQ(exit_code(too_deep->wait(30)), 1);
    EXPECT_EQ(too_deep->err(), "ksi-polarization: " + deep + ": the sample 256 does not fit Mono8's 8 bits\n");
}

TEST_F(StreamCommand, CamerasListsTheSimulatedCamera)
{
    auto cameras = tool({"cameras", "--simulated"}, "cameras");
    EXPECT_EQ(exit_code(cameras->wait(60)), 0);
    EXPECT_NE(cameras->out().find("Fake_1\tmodel Fake\tserial 1\tinterface Fake\n"), std::string::npos)
        << cameras->out();
}

}  // namespace
