// The tool's per-frame work on 2448 x 2048 frames of random 12-bit pixels
// for a colour polarization sensor (s0_color, aolp, dolp and the aolp_color
// picture at half resolution) against a monochrome one (s0, aolp, dolp,
// aolp_color): Frame_processor's transform, then the picture, and the
// transform alone; one thread, processor time.
// Not a test: run it by hand, e.g.
//   color_sensor_benchmarks --benchmark_min_time=2
#include <benchmark/benchmark.h>

#include <random>

#include "color_pictures.h"
#include "frame_processing.h"

namespace {

namespace kp = kestrion::polarization;
using namespace ksi_cli;

Frame camera_frame()
{
    Frame frame;
    frame.width = 2448;
    frame.height = 2048;
    frame.bit_depth = 12;
    frame.pixels.resize(static_cast<std::size_t>(frame.width) * frame.height);
    std::mt19937 generator(17);
    std::uniform_int_distribution<int> sample(0, 4095);
    for (auto& pixel : frame.pixels)
        pixel = static_cast<std::uint16_t>(sample(generator));
    return frame;
}

void transform_and_picture(benchmark::State& state, Sensor sensor, Output intensity, bool with_picture)
{
    const Frame frame = camera_frame();
    kp::Module module;
    kp::Processor processor;
    Frame_settings settings;
    settings.sensor = sensor;
    settings.outputs = Output_set::of({intensity, Output::aolp, Output::dolp, Output::aolp_color});
    Frame_processor frame_processor(processor, settings);
    std::vector<std::uint8_t> picture;
    for (auto _ : state) {
        frame_processor.transform(frame);
        if (!with_picture)
            continue;
        picture.resize(3 * frame_processor.output_pixels());
        paint_aolp_color(frame_processor.image(Output::aolp).data(), frame_processor.image(Output::dolp).data(),
                         frame_processor.output_pixels(), settings.output_maximum, picture.data());
        benchmark::DoNotOptimize(picture.data());
    }
    state.counters["Mpixel"] =
        benchmark::Counter(static_cast<double>(frame.pixels.size()) * 1e-6, benchmark::Counter::kIsIterationInvariantRate);
}

void mono_frame(benchmark::State& state) { transform_and_picture(state, Sensor::mono, Output::s0, true); }
void color_frame(benchmark::State& state) { transform_and_picture(state, Sensor::color, Output::s0_color, true); }
void mono_transform(benchmark::State& state) { transform_and_picture(state, Sensor::mono, Output::s0, false); }
void color_transform(benchmark::State& state) { transform_and_picture(state, Sensor::color, Output::s0_color, false); }

BENCHMARK(mono_frame)->Name("frame/mono/s0,aolp,dolp,aolp_color")->Unit(benchmark::kMillisecond);
BENCHMARK(color_frame)->Name("frame/color/s0_color,aolp,dolp,aolp_color")->Unit(benchmark::kMillisecond);
BENCHMARK(mono_transform)->Name("transform/mono/s0,aolp,dolp")->Unit(benchmark::kMillisecond);
BENCHMARK(color_transform)->Name("transform/color/s0_color,aolp,dolp")->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
