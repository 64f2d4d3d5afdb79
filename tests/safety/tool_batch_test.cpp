// The command-line tool on a batch that mixes good and failing files, on
// several threads (-j): the good files give their outputs, each failing file
// one line on stderr, the exit status is 1. The tool is built like the rest
// of the tree, so in the sanitizer build LeakSanitizer checks that the run
// leaves nothing allocated, and in the ThreadSanitizer pass that the threads
// share the processor handle without a data race; either would change the
// exit status and write its report to stderr.

#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace {

class Batch_directory {
public:
    Batch_directory()
    {
        std::string pattern = (fs::temp_directory_path() / "ksi_safety_batch_XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("cannot create a directory from " + pattern);
        root = pattern;
        fs::create_directories(root / "in");
        fs::create_directories(root / "out");
    }
    ~Batch_directory()
    {
        std::error_code ignored;
        fs::remove_all(root, ignored);
    }
    fs::path root;
};

void write_bytes(const fs::path& file, const std::string& bytes)
{
    std::ofstream(file, std::ios::binary) << bytes;
}

// A binary 16-bit PGM of 12-bit samples.
std::string pgm_16(unsigned width, unsigned height, unsigned seed)
{
    std::string bytes = "P5\n" + std::to_string(width) + " " + std::to_string(height) + "\n4095\n";
    for (unsigned i = 0; i < width * height; ++i) {
        const unsigned value = (i * 2654435761u + seed * 97u) >> 20;
        bytes += char(value >> 8);
        bytes += char(value & 0xFF);
    }
    return bytes;
}

struct Tool_run {
    int exit_status = -1;
    std::string error_output;
};

Tool_run run_tool(const std::vector<std::string>& arguments, const fs::path& error_file)
{
    std::string command = KSI_TOOL_FILE;
    for (const std::string& argument : arguments)
        command += " '" + argument + "'";
    command += " 2>'" + error_file.string() + "'";
    Tool_run run;
    const int status = std::system(command.c_str());
    run.exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    std::ifstream stream(error_file);
    std::ostringstream text;
    text << stream.rdbuf();
    run.error_output = text.str();
    return run;
}

std::size_t count_lines_naming(const std::string& text, const std::string& name)
{
    std::size_t count = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        count += line.find(name) != std::string::npos;
    return count;
}

}  // namespace

TEST(ToolBatch, FailingFilesOnManyThreadsLeaveNoSanitizerReport)
{
    const Batch_directory batch;
    std::vector<std::string> good, bad;
    for (unsigned i = 0; i < 12; ++i) {
        const std::string name = "good_" + std::to_string(i) + ".pgm";
        write_bytes(batch.root / "in" / name, pgm_16(9 + 7 * i, 6 + 5 * i, i));
        good.push_back(name);
    }
    write_bytes(batch.root / "in" / "empty.pgm", "");
    write_bytes(batch.root / "in" / "truncated.pgm", pgm_16(40, 30, 1).substr(0, 200));
    write_bytes(batch.root / "in" / "text.png", "not an image at all\n");
    write_bytes(batch.root / "in" / "too_small.pgm", pgm_16(1, 5, 2));
    write_bytes(batch.root / "in" / "bad_maximum.pgm", "P5\n2 2\n0\n\0\0\0\0");
    bad = {"empty.pgm", "truncated.pgm", "text.png", "too_small.pgm", "bad_maximum.pgm"};

    for (const char* threads : {"2", "4", "8"}) {
        std::vector<std::string> arguments = {"process", "--phase", "45", "-j", threads, "--outputs",
                                              "s0,aolp,dolp,aolp_color", "-o", (batch.root / "out").string(),
                                              (batch.root / "in").string()};
        const Tool_run run = run_tool(arguments, batch.root / "errors.txt");
        EXPECT_EQ(run.exit_status, 1) << "-j " << threads << ": some files fail, so the status is 1\n"
                                      << run.error_output;
        for (const char* sanitizer : {"Sanitizer", "runtime error"})
            EXPECT_EQ(run.error_output.find(sanitizer), std::string::npos) << "-j " << threads << "\n"
                                                                           << run.error_output;
        for (const std::string& name : bad)
            EXPECT_EQ(count_lines_naming(run.error_output, name), 1u) << name << "\n" << run.error_output;
        for (const std::string& name : good) {
            const std::string stem = fs::path(name).stem().string();
            for (const char* output : {"_s0.png", "_aolp.png", "_dolp.png", "_aolp_color.png"})
                EXPECT_TRUE(fs::is_regular_file(batch.root / "out" / (stem + output))) << stem + output;
            EXPECT_EQ(count_lines_naming(run.error_output, name), 0u) << name << "\n" << run.error_output;
        }
        for (const std::string& name : bad)
            EXPECT_FALSE(fs::exists(batch.root / "out" / (fs::path(name).stem().string() + "_s0.png"))) << name;
        fs::remove_all(batch.root / "out");
        fs::create_directories(batch.root / "out");
    }
}
