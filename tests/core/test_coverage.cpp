// Who writes which pixel, through the exported transform: for every pixel the
// matrix position and the neighbours it was computed from are read back from
// marked matrices (see core_coverage_support.h) and compared with the tiny
// frame tables, with hand-written maps of small frames, and with the
// reference rule. Output buffers are poisoned with two different patterns to
// prove that every pixel of every present slot is written, that absent slots
// stay untouched and that nothing outside the buffers changes.
#include "core_coverage_support.h"

namespace core_test {
namespace {

std::string map_text(const Rule_map& map)
{
    std::string text;
    for (const auto& row : map) {
        text += "\n   ";
        for (const auto& cell : row)
            text += " [" + cell + "]";
    }
    return text;
}

// Checks the frame's decoded map against `expected` in every phase and for
// origins of every parity. Pixels of the four-lane block are only checked for
// being written.
void check_exported_rule_map(unsigned rows, unsigned columns, const Rule_map& expected)
{
    ASSERT_EQ(expected.size(), rows);
    Processor processor;
    Matrix_set marks;
    for (int polarizer = 0; polarizer < 4; ++polarizer)
        marks[polarizer] = marked_matrix(polarizer + 1);
    ASSERT_EQ(processor.set(marks), status_success);

    const std::int32_t origins[][2] = {{0, 0}, {1, 0}, {0, 1}, {1, 1}, {-1, 0}, {-7, -2}};
    for (std::int32_t phase = 0; phase < 4; ++phase) {
        for (const auto& origin : origins) {
            Frame_case frame = coverage_frame(rows, columns);
            frame.sensor_phase = phase;
            frame.origin_x = origin[0];
            frame.origin_y = origin[1];
            frame.by_polarizer = marks;
            Output_arena first(frame.pixels(), frame.slots, 0xA5);
            Output_arena second(frame.pixels(), frame.slots, 0x5A);
            ASSERT_EQ(transform_frame(processor.handle(), frame, first), status_success);
            ASSERT_EQ(transform_frame(processor.handle(), frame, second), status_success);
            check_untouched(first, frame, "coverage");
            check_untouched(second, frame, "coverage");

            Rule_map seen(rows, std::vector<std::string>(columns));
            bool all_match = true;
            for (unsigned r = 0; r < rows; ++r) {
                ASSERT_EQ(expected[r].size(), columns);
                for (unsigned c = 0; c < columns; ++c) {
                    const std::size_t i = std::size_t(r) * columns + c;
                    for (int s = 1; s <= 3; ++s)
                        EXPECT_EQ(first.slot_at(s, i), second.slot_at(s, i))
                            << frame.describe() << ": pixel (" << r << ", " << c << ") slot " << s
                            << " depends on the buffer's old contents: not written";
                    if (ksi_reference::is_block_pixel(rows, columns, r, c)) {
                        seen[r][c] = "block";
                        continue;
                    }
                    seen[r][c] = polarizer_marks_to_positions(decode_pixel(frame, first, r, c), frame.region_phase());
                    all_match = all_match && seen[r][c] == expected[r][c];
                }
            }
            if (!all_match) {
                Rule_map shown = expected;
                for (unsigned r = 0; r < rows; ++r)
                    for (unsigned c = 0; c < columns; ++c)
                        if (seen[r][c] == "block")
                            shown[r][c] = "block";
                ADD_FAILURE() << frame.describe() << "\n  expected (matrix, horizontal, vertical):" << map_text(shown)
                              << "\n  actual:" << map_text(seen);
                return;
            }
        }
    }
}

// ---------------------------------------------------------------------------
// The four tiny frames.

TEST(TinyFrames, Frame2x2)
{
    Module_session session;
    check_exported_rule_map(2, 2, rule_map_from_text({"0RD 1LD", "2RU 3LU"}));
}

TEST(TinyFrames, Frame2x3)
{
    Module_session session;
    check_exported_rule_map(2, 3, rule_map_from_text({"0RD 1RD 0LD", "2RU 3RU 0LU"}));
}

TEST(TinyFrames, Frame3x2)
{
    Module_session session;
    check_exported_rule_map(3, 2, rule_map_from_text({"0RD 1LD", "2RD 3LD", "0RU 0LU"}));
}

TEST(TinyFrames, Frame3x3)
{
    Module_session session;
    check_exported_rule_map(3, 3, rule_map_from_text({"0RD 1RD 0LD", "2RD 3RD 2LD", "0RU 1RU 0LU"}));
}

// ---------------------------------------------------------------------------
// Hand-written maps of the four parity combinations.

TEST(CoverageTable, Frame4x6EvenRowsEvenColumns)
{
    Module_session session;
    check_exported_rule_map(4, 6,
                            rule_map_from_text({
                                "0RD 1RD 0RD 1RD 0RD 1LD",
                                "2RD 3RD 2RD 3RD 2RD 3LD",
                                "0RD 1RD 0RD 1RD 0RD 1LD",
                                "2RU 3RU 2RU 3RU 2RU 3LU",
                            }));
}

TEST(CoverageTable, Frame4x7EvenRowsOddColumns)
{
    Module_session session;
    // The bottom right pixel takes matrix 0, not 2.
    check_exported_rule_map(4, 7,
                            rule_map_from_text({
                                "0RD 1RD 0RD 1RD 0RD 1RD 0LD",
                                "2RD 3RD 2RD 3RD 2RD 3RD 2LD",
                                "0RD 1RD 0RD 1RD 0RD 1RD 0LD",
                                "2RU 3RU 2RU 3RU 2RU 3RU 0LU",
                            }));
}

TEST(CoverageTable, Frame5x6OddRowsEvenColumns)
{
    Module_session session;
    // The bottom right pixel takes matrix 0, not 1.
    check_exported_rule_map(5, 6,
                            rule_map_from_text({
                                "0RD 1RD 0RD 1RD 0RD 1LD",
                                "2RD 3RD 2RD 3RD 2RD 3LD",
                                "0RD 1RD 0RD 1RD 0RD 1LD",
                                "2RD 3RD 2RD 3RD 2RD 3LD",
                                "0RU 1RU 0RU 1RU 0RU 0LU",
                            }));
}

TEST(CoverageTable, Frame5x7OddRowsOddColumns)
{
    Module_session session;
    check_exported_rule_map(5, 7,
                            rule_map_from_text({
                                "0RD 1RD 0RD 1RD 0RD 1RD 0LD",
                                "2RD 3RD 2RD 3RD 2RD 3RD 2LD",
                                "0RD 1RD 0RD 1RD 0RD 1RD 0LD",
                                "2RD 3RD 2RD 3RD 2RD 3RD 2LD",
                                "0RU 1RU 0RU 1RU 0RU 1RU 0LU",
                            }));
}

TEST(CoverageTable, Frame6x10OutsideTheBlock)
{
    Module_session session;
    check_exported_rule_map(6, 10, reference_rule_map(6, 10));
}

TEST(CoverageTable, Frame7x11OutsideTheBlock)
{
    Module_session session;
    check_exported_rule_map(7, 11, reference_rule_map(7, 11));
}

TEST(CoverageTable, EverySizeUpTo255PixelsFollowsTheRule)
{
    Module_session session;
    for (unsigned rows = 2; rows <= 15; ++rows)
        for (unsigned columns = 2; columns <= 17 && rows * columns <= 255; ++columns)
            check_exported_rule_map(rows, columns, reference_rule_map(rows, columns));
}

// ---------------------------------------------------------------------------
// The sweep's rows.

TEST(SweepRows, TwoRowFramesAreAllWrittenByTheLastRowsStageAtAnyWidth)
{
    Module_session session;
    // Row 0 looks down, row 1 up, at every width, blocks or not: every pixel
    // depends on the matrices.
    for (unsigned columns = 2; columns <= 40; ++columns) {
        Rule_map expected(2, std::vector<std::string>(columns));
        for (unsigned c = 0; c < columns; ++c) {
            const bool last = c == columns - 1;
            const int top = last && columns % 2 == 1 ? 0 : int(c % 2);
            const int bottom = last && columns % 2 == 1 ? 0 : int(2 + c % 2);
            expected[0][c] = std::to_string(top) + (last ? " L D" : " R D");
            expected[1][c] = std::to_string(bottom) + (last ? " L U" : " R U");
        }
        check_exported_rule_map(2, columns, expected);
        for (unsigned c = 0; c < columns; ++c)
            ASSERT_FALSE(ksi_reference::is_block_pixel(2, columns, 0, c));
    }
}

TEST(SweepRows, ThreeRowFramesHaveOneRowPairAndALastRowReadingRowsOneAndTwo)
{
    Module_session session;
    for (unsigned columns = 2; columns <= 12; ++columns) {
        const Rule_map expected = reference_rule_map(3, columns);
        for (unsigned c = 0; c < columns; ++c) {
            EXPECT_EQ(expected[0][c].back(), 'D');
            EXPECT_EQ(expected[1][c].back(), 'D');
            EXPECT_EQ(expected[2][c].back(), 'U');
        }
        check_exported_rule_map(3, columns, expected);
    }
}

TEST(SweepRows, FourRowFramesHaveOneRowPairAndTwoLastRows)
{
    Module_session session;
    for (unsigned columns = 2; columns <= 12; ++columns) {
        const Rule_map expected = reference_rule_map(4, columns);
        for (unsigned c = 0; c < columns; ++c) {
            EXPECT_EQ(expected[2][c].back(), 'D') << "row 2 looks down into row 3";
            EXPECT_EQ(expected[3][c].back(), 'U') << "row 3 looks up into row 2";
        }
        check_exported_rule_map(4, columns, expected);
    }
}

TEST(SweepRows, FiveRowFramesHaveTwoRowPairsAndOneLastRow)
{
    Module_session session;
    for (unsigned columns = 2; columns <= 12; ++columns) {
        const Rule_map expected = reference_rule_map(5, columns);
        for (unsigned r = 0; r < 4; ++r)
            for (unsigned c = 0; c < columns; ++c)
                EXPECT_EQ(expected[r][c].back(), 'D');
        for (unsigned c = 0; c < columns; ++c)
            EXPECT_EQ(expected[4][c].back(), 'U');
        check_exported_rule_map(5, columns, expected);
    }
}

// Columns 4 to 7 have no block: the matrices reach every pixel.
TEST(SweepColumns, Columns4To7HaveNoBlock)
{
    Module_session session;
    for (unsigned columns = 4; columns <= 7; ++columns) {
        for (unsigned rows = 2; rows <= 12; ++rows) {
            for (unsigned r = 0; r < rows; ++r)
                for (unsigned c = 0; c < columns; ++c)
                    ASSERT_FALSE(ksi_reference::is_block_pixel(rows, columns, r, c));
            check_exported_rule_map(rows, columns, reference_rule_map(rows, columns));
        }
    }
}

// Eight columns: one block per row pair, at column 0; columns 4 to 7 of the
// row pairs and the last rows come from the scalar stages.
TEST(SweepColumns, EightColumnsHaveOneBlockPerRowPairAtColumn0)
{
    Module_session session;
    for (unsigned rows = 3; rows <= 12; ++rows) {
        const unsigned first_last_row = rows % 2 == 0 ? rows - 2 : rows - 1;
        for (unsigned r = 0; r < rows; ++r)
            for (unsigned c = 0; c < 8; ++c)
                ASSERT_EQ(ksi_reference::is_block_pixel(rows, 8, r, c), r < first_last_row && c < 4)
                    << "rows " << rows << " pixel (" << r << ", " << c << ")";
        const Rule_map expected = reference_rule_map(rows, 8);
        for (unsigned r = 0; r < first_last_row; ++r) {
            EXPECT_EQ(expected[r][4], r % 2 ? "2 R D" : "0 R D");
            EXPECT_EQ(expected[r][7], r % 2 ? "3 L D" : "1 L D");
        }
        check_exported_rule_map(rows, 8, expected);
    }
}

// The odd width's last column is even: the end of each row pair uses the
// first and the third matrix and looks left.
TEST(SweepColumns, OddColumnsEndTheRowPairWithTheFirstAndThirdMatrixLookingLeft)
{
    Module_session session;
    for (unsigned columns : {3u, 5u, 7u, 9u, 11u, 13u}) {
        for (unsigned rows : {3u, 4u, 5u, 6u, 9u}) {
            const Rule_map expected = reference_rule_map(rows, columns);
            const unsigned first_last_row = rows % 2 == 0 ? rows - 2 : rows - 1;
            for (unsigned r = 0; r < first_last_row; ++r)
                EXPECT_EQ(expected[r][columns - 1], r % 2 ? "2 L D" : "0 L D");
            check_exported_rule_map(rows, columns, expected);
        }
    }
}

// ---------------------------------------------------------------------------
// The last-column stage.

TEST(LastColumn, FourColumnsWideUsesOneScalarStepThenTheLastColumnAtColumn2)
{
    Module_session session;
    for (unsigned rows : {3u, 4u, 5u, 8u}) {
        const Rule_map expected = reference_rule_map(rows, 4);
        const unsigned first_last_row = rows % 2 == 0 ? rows - 2 : rows - 1;
        for (unsigned r = 0; r < first_last_row; ++r) {
            const std::string even = r % 2 ? "2" : "0", odd = r % 2 ? "3" : "1";
            EXPECT_EQ(expected[r][0], even + " R D");
            EXPECT_EQ(expected[r][1], odd + " R D");
            EXPECT_EQ(expected[r][2], even + " R D");
            EXPECT_EQ(expected[r][3], odd + " L D");
        }
        check_exported_rule_map(rows, 4, expected);
    }
}

TEST(LastColumn, TwoColumnsWideReadsColumn0AsTheLeftNeighbourOfColumn1)
{
    Module_session session;
    for (unsigned rows : {3u, 4u, 5u, 6u, 7u, 10u, 11u}) {
        const Rule_map expected = reference_rule_map(rows, 2);
        const unsigned first_last_row = rows % 2 == 0 ? rows - 2 : rows - 1;
        for (unsigned r = 0; r < first_last_row; ++r) {
            EXPECT_EQ(expected[r][0], r % 2 ? "2 R D" : "0 R D");
            EXPECT_EQ(expected[r][1], r % 2 ? "3 L D" : "1 L D");
        }
        check_exported_rule_map(rows, 2, expected);
    }
}

TEST(LastColumn, OddWidthColumnBeforeTheLastLooksRightIntoTheLastColumn)
{
    Module_session session;
    for (unsigned columns : {3u, 5u, 9u, 15u}) {
        const unsigned rows = 6;
        const Rule_map expected = reference_rule_map(rows, columns);
        for (unsigned r = 0; r < rows; ++r) {
            EXPECT_EQ(expected[r][columns - 2][2], 'R');
            EXPECT_EQ(expected[r][columns - 1][2], 'L');
        }
        check_exported_rule_map(rows, columns, expected);
    }
}

// The lower row of a pair reads rows row + 1 and row + 2, never row.
TEST(LastColumn, TheRowsOfALastColumnPixelNeverMix)
{
    Module_session session;
    for (unsigned columns : {2u, 3u, 4u, 5u, 10u, 11u}) {
        const unsigned rows = 7;
        const Rule_map expected = reference_rule_map(rows, columns);
        for (unsigned r = 1; r < 6; r += 2) {
            EXPECT_EQ(expected[r][columns - 1].back(), 'D');
        }
        check_exported_rule_map(rows, columns, expected);
    }
}

// ---------------------------------------------------------------------------
// The last-rows stage.

TEST(LastRows, TwoColumnsEvenRowCountUsesAllFourMatricesInTheTail)
{
    Module_session session;
    for (unsigned rows : {2u, 4u, 6u, 12u}) {
        const Rule_map expected = reference_rule_map(rows, 2);
        EXPECT_EQ(expected[rows - 2][0], "0 R D");
        EXPECT_EQ(expected[rows - 2][1], "1 L D");
        EXPECT_EQ(expected[rows - 1][0], "2 R U");
        EXPECT_EQ(expected[rows - 1][1], "3 L U");
        check_exported_rule_map(rows, 2, expected);
    }
}

TEST(LastRows, TwoColumnsOddRowCountUsesMatrix0ForBothPixels)
{
    Module_session session;
    for (unsigned rows : {3u, 5u, 7u, 13u}) {
        const Rule_map expected = reference_rule_map(rows, 2);
        EXPECT_EQ(expected[rows - 1][0], "0 R U");
        EXPECT_EQ(expected[rows - 1][1], "0 L U");
        check_exported_rule_map(rows, 2, expected);
    }
}

TEST(LastRows, ThreeColumnsRunTheBodyOnceThenTheTailAtColumn2)
{
    Module_session session;
    for (unsigned rows : {2u, 3u, 4u, 5u}) {
        const Rule_map expected = reference_rule_map(rows, 3);
        const bool even_rows = rows % 2 == 0;
        const unsigned top = even_rows ? rows - 2 : rows - 1;
        EXPECT_EQ(expected[top][0], even_rows ? "0 R D" : "0 R U");
        EXPECT_EQ(expected[top][1], even_rows ? "1 R D" : "1 R U");
        EXPECT_EQ(expected[top][2], even_rows ? "0 L D" : "0 L U");
        if (even_rows) {
            EXPECT_EQ(expected[rows - 1][0], "2 R U");
            EXPECT_EQ(expected[rows - 1][1], "3 R U");
            EXPECT_EQ(expected[rows - 1][2], "0 L U");
        }
        check_exported_rule_map(rows, 3, expected);
    }
}

TEST(LastRows, FourColumnsRunTheBodyOnceThenTheTailAtColumn2)
{
    Module_session session;
    for (unsigned rows : {2u, 3u, 4u, 5u}) {
        const Rule_map expected = reference_rule_map(rows, 4);
        const bool even_rows = rows % 2 == 0;
        if (even_rows) {
            EXPECT_EQ(expected[rows - 2][2], "0 R D");
            EXPECT_EQ(expected[rows - 2][3], "1 L D");
            EXPECT_EQ(expected[rows - 1][2], "2 R U");
            EXPECT_EQ(expected[rows - 1][3], "3 L U");
        } else {
            EXPECT_EQ(expected[rows - 1][2], "0 R U");
            EXPECT_EQ(expected[rows - 1][3], "0 L U");
        }
        check_exported_rule_map(rows, 4, expected);
    }
}

TEST(LastRows, ColumnCountBelow2NeverArrives)
{
    Module_session session;
    Processor processor;
    std::vector<std::uint16_t> input(8, 1), out(8, 0xA5A5);
    for (std::int32_t width : {1, 0, -1})
        for (std::int32_t height : {2, 3, 4})
            EXPECT_EQ(kl_polarization_processor_transform(processor.handle(), 0, input.data(), 0, 0, width, height, 16,
                                                          65535, nullptr, out.data(), nullptr, nullptr, nullptr,
                                                          nullptr),
                      status_invalid_width);
    for (std::uint16_t v : out)
        EXPECT_EQ(v, 0xA5A5);
}

// ---------------------------------------------------------------------------
// Poisoned buffers on random frames.

// Every pixel of every present slot is written: two runs over buffers
// poisoned with different bytes give identical results, the pixels outside
// the block equal the reference, absent slots and guard zones stay as they
// were.
TEST(Poisoning, EveryPixelOfEveryPresentSlotIsWrittenAndNothingElse)
{
    Module_session session;
    Processor processor;
    std::mt19937_64 rng(9001);
    for (unsigned rows = 2; rows <= 17; ++rows) {
        for (unsigned columns = 2; columns <= 19; ++columns) {
            Frame_case frame = random_frame(rng, rows, columns);
            if ((rows + columns) % 3 == 0)
                frame.slots = all_slots;
            ASSERT_EQ(processor.set(frame.by_polarizer), status_success);
            const unsigned char fills[] = {0xA5, 0x5A, 0xFF, 0x00};
            std::vector<Output_arena> runs;
            for (unsigned char fill : fills) {
                runs.emplace_back(frame.pixels(), frame.slots, fill);
                ASSERT_EQ(transform_frame(processor.handle(), frame, runs.back()), status_success);
                check_untouched(runs.back(), frame, "poisoning");
            }
            const auto expected = reference_outputs(frame);
            EXPECT_EQ(compare_with_reference(frame, runs[0], expected, true, "poisoning fill 0xA5"), 0u);
            for (std::size_t run = 1; run < runs.size(); ++run) {
                for (std::size_t i = 0; i < frame.pixels(); ++i) {
                    for (int s = 0; s < 6; ++s) {
                        if (!runs[0].present(s))
                            continue;
                        if (s == 0) {
                            for (int e = 0; e < 2; ++e)
                                ASSERT_EQ(ksi_reference::bits_of(runs[0].normalized_at(2 * i + e)),
                                          ksi_reference::bits_of(runs[run].normalized_at(2 * i + e)))
                                    << frame.describe() << ": pixel " << i << " slot 0 depends on the fill";
                        } else {
                            ASSERT_EQ(runs[0].slot_at(s, i), runs[run].slot_at(s, i))
                                << frame.describe() << ": pixel " << i << " slot " << s << " depends on the fill";
                        }
                    }
                }
            }
        }
    }
}

// A slot that is absent is never written: its pointer is null, and the space
// it would have had between the guard zones keeps its fill.
TEST(Poisoning, AbsentSlotsAreNeverWritten)
{
    Module_session session;
    Processor processor;
    std::mt19937_64 rng(9201);
    for (unsigned columns : {2u, 3u, 7u, 8u, 13u}) {
        Frame_case frame = random_frame(rng, 5, columns);
        for (unsigned slots = 1; slots <= 63; ++slots) {
            frame.slots = slots;
            EXPECT_EQ(check_exported_frame(processor, frame, "absent slots", 0x3C), 0u);
        }
    }
}

// Only the pointer's being null makes a slot absent; the contents of the
// buffers are never read.
TEST(Poisoning, OutputContentsAreNeverConsulted)
{
    Module_session session;
    Processor processor;
    std::mt19937_64 rng(9101);
    for (int i = 0; i < 20; ++i) {
        Frame_case frame = random_frame(rng, 3 + unsigned(i % 6), 2 + unsigned(i % 13));
        frame.slots = all_slots;
        for (unsigned char fill : {0x00, 0x7F, 0xFF})
            EXPECT_EQ(check_exported_frame(processor, frame, "fill", fill), 0u);
    }
}

}  // namespace
}  // namespace core_test
