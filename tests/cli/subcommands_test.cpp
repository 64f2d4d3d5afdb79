// Usage errors, the demo, info and the help text.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "cli_test_support.h"

namespace cli_test {
namespace {

class UsageError : public ::testing::Test {
protected:
    void SetUp() override { write_png(directory / "frame.png", random_mosaic(8, 8, 8, 50), 8, 8, 8); }

    // Exit status 2, a message on stderr, and nothing written.
    void expect_usage_error(std::vector<std::string> arguments, const std::string& message)
    {
        arguments.insert(arguments.begin(), "process");
        arguments.insert(arguments.end(), {"-o", "out", "frame.png"});
        const std::vector<std::string> before = file_names(directory.path());
        const Run_result result = run_tool(arguments, directory.path());
        EXPECT_EQ(result.exit_status, 2);
        EXPECT_NE(result.err.find(message), std::string::npos) << result.err;
        EXPECT_FALSE(std::filesystem::exists(directory / "out"));
        EXPECT_EQ(file_names(directory.path()), before);
    }

    void write_text(const std::string& name, const std::string& text) { std::ofstream(directory / name) << text; }

    Temporary_directory directory;
};

TEST_F(UsageError, UnknownOption) { expect_usage_error({"--phase", "0", "--colour"}, "--colour"); }
TEST_F(UsageError, MissingPhase) { expect_usage_error({}, "--phase is required"); }
TEST_F(UsageError, PhaseThatIsNotAQuartetAngle) { expect_usage_error({"--phase", "30"}, "--phase"); }
TEST_F(UsageError, UnknownOutput) { expect_usage_error({"--phase", "0", "--outputs", "s0,hue"}, "hue"); }
TEST_F(UsageError, OriginThatIsNotTwoIntegers)
{
    expect_usage_error({"--phase", "0", "--origin", "3;4"}, "'3;4' is not X,Y");
}
TEST_F(UsageError, BitDepthAboveSixteen) { expect_usage_error({"--phase", "0", "--bit-depth", "17"}, "--bit-depth"); }
TEST_F(UsageError, ZeroOutputMaximum) { expect_usage_error({"--phase", "0", "--output-maximum", "0"}, "--output-maximum"); }
TEST_F(UsageError, RawFormatWithoutRaw) { expect_usage_error({"--phase", "0", "--raw-format", "u8"}, "--raw"); }
TEST_F(UsageError, RawSizeThatIsNotWidthByHeight)
{
    expect_usage_error({"--phase", "0", "--raw", "20by10"}, "'20by10' is not WIDTHxHEIGHT");
}

TEST_F(UsageError, CalibrationFileThatIsNotJson)
{
    write_text("calibration.json", "{\"matrix_0\": [1, 2,");
    expect_usage_error({"--phase", "0", "--calibration", "calibration.json"},
                       "calibration file calibration.json: not valid JSON");
}

TEST_F(UsageError, CalibrationMatrixWithFifteenNumbers)
{
    std::ostringstream text;
    text << "{";
    for (const char* key : {"matrix_0", "matrix_45", "matrix_90", "matrix_135"})
        text << "\"" << key << "\": [" << (std::string(key) == "matrix_90" ? "" : "0, ")
             << "1, 1, 1, 1, 1, 0, 0, -1, 0, -1, 1, 0, 0, 0, 0]" << (std::string(key) == "matrix_135" ? "" : ",");
    text << "}";
    write_text("calibration.json", text.str());
    expect_usage_error({"--phase", "0", "--calibration", "calibration.json"},
                       "matrix_90 must be an array of 16 numbers");
}

TEST_F(UsageError, CalibrationFileWithoutAMatrix)
{
    write_text("calibration.json", "{\"matrix_0\": [1,1,1,1, 1,0,0,-1, 0,-1,1,0, 0,0,0,0]}");
    expect_usage_error({"--phase", "0", "--calibration", "calibration.json"}, "matrix_45 is missing");
}

TEST_F(UsageError, CalibrationFileWithAMisspeltKey)
{
    write_text("calibration.json", "{\"matrix_00\": []}");
    expect_usage_error({"--phase", "0", "--calibration", "calibration.json"}, "unknown key \"matrix_00\"");
}

TEST_F(UsageError, MissingCalibrationFile)
{
    expect_usage_error({"--phase", "0", "--calibration", "absent.json"}, "absent.json: cannot be opened");
}

TEST(Help, ProcessHelpShowsTheFourQuartets)
{
    Temporary_directory directory;
    const Run_result result = run_tool({"process", "--help"}, directory.path());
    EXPECT_EQ(result.exit_status, 0);
    for (const char* layout : {"0:    0 135 /  45  90", "45:   45  90 /   0 135", "90:   90  45 / 135   0",
                               "135:  135   0 /  90  45"})
        EXPECT_NE(result.out.find(layout), std::string::npos) << layout << "\n" << result.out;
}

TEST(Help, NoSubcommandIsAUsageError)
{
    Temporary_directory directory;
    EXPECT_EQ(run_tool({}, directory.path()).exit_status, 2);
}

TEST(Demo, WritesTheSceneAndEveryOutputOfIt)
{
    Temporary_directory directory;
    const Run_result result = run_tool({"demo", "-o", "shown"}, directory.path());
    ASSERT_EQ(result.exit_status, 0) << result.err;
    const std::vector<std::string> expected{
        "demo_scene.png",      "demo_scene_aolp.png", "demo_scene_aolp_color.png", "demo_scene_dolp.png",
        "demo_scene_dolp_color.png", "demo_scene_normalized.tiff", "demo_scene_s0.png", "demo_scene_s1.png",
        "demo_scene_s2.png"};
    EXPECT_EQ(file_names(directory / "shown"), expected);
    for (const std::string& name : expected)
        EXPECT_NE(result.out.find("shown/" + name), std::string::npos) << name << " not named in\n" << result.out;

    // The scene is a 12-bit mosaic stored as PNG defines it, and the images
    // are the library's transform of it.
    const Image scene = read_png(directory / "shown" / "demo_scene.png");
    ASSERT_EQ(scene.significant_bits, 12);
    std::vector<std::uint16_t> frame(scene.samples);
    for (std::uint16_t& sample : frame)
        sample = static_cast<std::uint16_t>(sample >> 4);
    expect_images_equal_library(directory / "shown", "demo_scene", frame, scene.width, scene.height, {0, 0, 0, 12});
}

bool cpu_flag(const std::string& flag)
{
    std::ifstream cpuinfo("/proc/cpuinfo");
    for (std::string line; std::getline(cpuinfo, line);)
        if (line.rfind("flags", 0) == 0)
            return (line + " ").find(" " + flag + " ") != std::string::npos;
    return false;
}

TEST(Info, NamesTheVersionLibraryAndInstructionSets)
{
    Temporary_directory directory;
    const Run_result result = run_tool({"info"}, directory.path());
    ASSERT_EQ(result.exit_status, 0) << result.err;
    EXPECT_EQ(result.out.rfind(std::string("ksi-polarization ") + KSI_VERSION + "\n", 0), 0u) << result.out;
    EXPECT_NE(result.out.find(std::string(" ") +
                              std::filesystem::canonical(KSI_LIBRARY_FILE).string() + "\n"),
              std::string::npos)
        << result.out;
    const auto yes_no = [](bool value) { return value ? "yes" : "no"; };
    EXPECT_NE(result.out.find(std::string("SSE4.1 ") + yes_no(cpu_flag("sse4_1")) + ", AVX2 " +
                              yes_no(cpu_flag("avx2")) + ", AVX-512 F " + yes_no(cpu_flag("avx512f")) + ", BW " +
                              yes_no(cpu_flag("avx512bw")) + ", DQ " + yes_no(cpu_flag("avx512dq")) + ", VL " +
                              yes_no(cpu_flag("avx512vl"))),
              std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("frames computed by: "), std::string::npos) << result.out;
}

}  // namespace
}  // namespace cli_test
