#include "error.hpp"
#include "liveParameters.hpp"
#include "support/allocationGuard.hpp"
#include "support/sliceRig.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"
#include "support/thrown.hpp"

#include <lumo/ravelcore/utils.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <numeric>

namespace lumo::ravelctl {
namespace {

namespace fs = std::filesystem;
using ravelcore::test::AllocationGuard;
using test::AreSameBits;
using test::SliceRig;
using test::ThrownLine;
using testing::Each;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::StartsWith;

using Change = LiveParameters::Change;
using Replacement = LiveParameters::Replacement;

constexpr int NUM_MODES = 29;  // slices of 15 and 14 modes: of P2EDC two pieces each, of the others one
constexpr int NUM_SLICES = 2;
constexpr int PIECES_OF_P2EDC = 4;
constexpr int PIECES_OF_THE_OTHERS = 4;
constexpr LiveParameters::Matrices ALL = {true, true, true};

/// A vector with `value` for some modes and 0 for the others.
std::vector<float> PerMode(std::initializer_list<std::size_t> modes, float value)
{
    std::vector<float> values(NUM_MODES, 0.0F);
    for (const std::size_t mode : modes) {
        values.at(mode) = value;
    }
    return values;
}

/// A rig with parameters that can change, and one beside it to which the same is done by hand, or nothing.
class LiveParametersTest : public testing::Test
{
protected:
    /// A change and the cycles until it acts.
    void TakeOverAtOnce(const Change& change)
    {
        m_sut.Publish(change);
        while (m_sut.StagePiece()) {
        }
        ASSERT_TRUE(m_sut.TakeOver());
    }

    void RunBoth(int cycles)
    {
        m_rig.RunCycles(cycles);
        m_twin.RunCycles(cycles);
    }

    testing::AssertionResult AreTwins() const
    {
        const testing::AssertionResult in = AreSameBits(m_rig.ModesIn(), m_twin.ModesIn());
        return in ? AreSameBits(m_rig.ModesOut(), m_twin.ModesOut()) : in;
    }

    LiveParameters::Parts RowParts(const std::vector<float>& matrix, int num_cols) const
    {
        LiveParameters::Parts parts;
        for (const ModeSlice& slice : m_rig.slices.GetModeSlices()) {
            parts.push_back(RowsOf(matrix, num_cols, slice));
        }
        return parts;
    }

    LiveParameters::Parts ColumnParts(const std::vector<float>& matrix) const
    {
        LiveParameters::Parts parts;
        for (const ModeSlice& slice : m_rig.slices.GetModeSlices()) {
            parts.push_back(ColumnsOf(matrix, NUM_MODES, slice));
        }
        return parts;
    }

    LiveParameters::Parts P2Edc(float factor) const
    {
        return RowParts(test::Diagonal(NUM_MODES, mirrorsim::NUM_ES, factor), mirrorsim::NUM_ES);
    }

    SliceRig m_rig{NUM_MODES, NUM_SLICES};
    SliceRig m_twin{NUM_MODES, NUM_SLICES};
    LiveParameters m_sut{m_rig.slices, NUM_MODES, m_rig.pid_params, ALL};
};

TEST_F(LiveParametersTest, WithoutAChangeNothingChanges)
{
    RunBoth(3);
    EXPECT_FALSE(m_sut.StagePiece());
    EXPECT_TRUE(m_sut.TakeOver());
    m_sut.Publish({});
    EXPECT_FALSE(m_sut.StagePiece());
    EXPECT_TRUE(m_sut.TakeOver());
    RunBoth(3);
    EXPECT_TRUE(AreTwins());
    EXPECT_EQ(m_sut.GetReferences().size(), static_cast<std::size_t>(NUM_MODES));
    EXPECT_THAT(m_sut.GetReferences(), Each(0.0F));
}

TEST_F(LiveParametersTest, WhatIsPublishedActsWhenItIsTakenOverAndNotBefore)
{
    const std::vector<float> gains = test::LivelyGains(NUM_MODES, 1.0F);
    const std::vector<float> all_modes(NUM_MODES, 1.0F);
    RunBoth(3);
    Change change;
    change.gains = gains;
    change.references_um = all_modes;
    change.pdc = Replacement{all_modes, all_modes};
    change.fdc = Replacement{all_modes, all_modes};
    change.p2edc = P2Edc(2.0F);
    m_sut.Publish(change);
    while (m_sut.StagePiece()) {
        RunBoth(1);
    }
    EXPECT_TRUE(AreTwins());
    EXPECT_THAT(m_sut.GetReferences(), Each(0.0F));
    ASSERT_TRUE(m_sut.TakeOver());
    EXPECT_THAT(m_sut.GetReferences(), Each(1.0F));
    RunBoth(1);
    EXPECT_FALSE(AreTwins());
}

TEST_F(LiveParametersTest, AllGainsAreThoseOfTheChange)
{
    RunBoth(5);
    Change change;
    change.gains = test::LivelyGains(NUM_MODES, 1.0F);
    TakeOverAtOnce(change);
    m_twin.slices.SetGains(change.gains);
    RunBoth(20);
    EXPECT_TRUE(AreTwins());
}

TEST_F(LiveParametersTest, SingleGainsChangeThoseInForceFromTheFirstOnes)
{
    std::vector<float> expected = m_rig.pid_params;
    RunBoth(5);
    for (const int place : {0, 7, ravelcore::NUM_PID_FILTER_PARAMS * NUM_MODES - 1}) {
        Change change;
        change.single_gains = {{place, 1.5F}};  // the ones before stay
        TakeOverAtOnce(change);
        expected.at(static_cast<std::size_t>(place)) = 1.5F;
        m_twin.slices.SetGains(expected);
        RunBoth(10);
        ASSERT_TRUE(AreTwins()) << "place " << place;
    }
}

TEST_F(LiveParametersTest, SingleGainsComeAfterAllOfTheSameChange)
{
    RunBoth(5);
    Change change;
    change.gains = test::LivelyGains(NUM_MODES, 1.0F);
    change.single_gains = {{20, 0.9F}, {21, 33.0F}};
    TakeOverAtOnce(change);
    std::vector<float> expected = change.gains;
    expected[20] = 0.9F;
    expected[21] = 33.0F;
    m_twin.slices.SetGains(expected);
    RunBoth(20);
    EXPECT_TRUE(AreTwins());
}

TEST_F(LiveParametersTest, ReferencesAreAddedUpFromAllAndSingleOnes)
{
    Change change;
    change.references_um.resize(NUM_MODES);
    std::iota(change.references_um.begin(), change.references_um.end(), 1.0F);
    change.single_references_um = {{3, -1.0F}, {28, -2.0F}};
    TakeOverAtOnce(change);
    std::vector<float> expected = change.references_um;
    expected[3] = -1.0F;
    expected[28] = -2.0F;
    EXPECT_THAT(m_sut.GetReferences(), ElementsAreArray(expected));

    Change next;
    next.single_references_um = {{0, 7.0F}};
    TakeOverAtOnce(next);
    expected[0] = 7.0F;
    EXPECT_THAT(m_sut.GetReferences(), ElementsAreArray(expected)) << "the others stay";
    RunBoth(5);
    EXPECT_TRUE(AreTwins()) << "they are for whoever sets the references";
}

TEST_F(LiveParametersTest, MasksAndValuesAreThoseOfTheLastChange)
{
    Change change;
    change.pdc = Replacement{PerMode({3, 20}, 1.0F), PerMode({3, 4, 20}, 5.0F)};
    TakeOverAtOnce(change);
    m_rig.RunCycle();
    std::vector<float> in = m_rig.ModesIn().back();
    EXPECT_EQ(in[3], 5.0F);
    EXPECT_EQ(in[4], m_rig.es_meas[4]);
    EXPECT_EQ(in[20], 5.0F);

    change = {};
    change.fdc = Replacement{PerMode({20, 28}, 1.0F), PerMode({20, 28}, 6.0F)};
    TakeOverAtOnce(change);
    m_rig.RunCycle();
    in = m_rig.ModesIn().back();
    EXPECT_EQ(in[3], 5.0F) << "still";
    EXPECT_EQ(in[20], 6.0F) << "FDC wins";
    EXPECT_EQ(in[28], 6.0F);

    change = {};
    change.pdc = Replacement{PerMode({}, 0.0F), PerMode({}, 0.0F)};
    change.fdc = change.pdc;
    TakeOverAtOnce(change);
    m_rig.RunCycle();
    EXPECT_EQ(m_rig.ModesIn().back(), std::vector<float>(m_rig.es_meas.begin(), m_rig.es_meas.begin() + NUM_MODES));
}

TEST_F(LiveParametersTest, EachMatrixIsExchangedForItsOwnKind)
{
    RunBoth(2);
    Change change;
    change.p2edc = P2Edc(2.0F);
    TakeOverAtOnce(change);
    for (std::size_t slice = 0; slice < NUM_SLICES; ++slice) {
        m_twin.slices.SwapP2Edc(static_cast<int>(slice), change.p2edc[slice]);
    }
    RunBoth(3);
    EXPECT_EQ(m_rig.ModesIn().back()[17], 2.0F * m_rig.es_meas[17]);
    EXPECT_TRUE(AreTwins());

    change = {};
    change.pact2modes = RowParts(test::Diagonal(NUM_MODES, mirrorsim::NUM_PACT, -3.0F), mirrorsim::NUM_PACT);
    TakeOverAtOnce(change);
    RunBoth(3);
    EXPECT_FALSE(AreTwins());
    for (std::size_t slice = 0; slice < NUM_SLICES; ++slice) {
        EXPECT_FALSE(change.pact2modes[slice].empty());
    }

    change = {};
    change.modes2pact = ColumnParts(test::Diagonal(mirrorsim::NUM_PACT, NUM_MODES, 4.0F));
    TakeOverAtOnce(change);
    m_rig.RunCycle();
    std::vector<float> expected = m_rig.ModesOut().back();
    for (float& command : expected) {
        command *= 4.0F;
    }
    EXPECT_EQ(m_rig.Commands(), expected);
}

TEST_F(LiveParametersTest, TheActuatorsMatrixActsAsIfItHadBeenSwapped)
{
    RunBoth(2);
    Change change;
    change.pact2modes = RowParts(test::Diagonal(NUM_MODES, mirrorsim::NUM_PACT, -3.0F), mirrorsim::NUM_PACT);
    TakeOverAtOnce(change);
    for (std::size_t slice = 0; slice < NUM_SLICES; ++slice) {
        m_twin.slices.SwapPact2Modes(static_cast<int>(slice), change.pact2modes[slice]);
    }
    RunBoth(10);
    EXPECT_TRUE(AreTwins());
}

TEST_F(LiveParametersTest, AMatrixCanBeExchangedAgainAndAgain)
{
    for (const float factor : {2.0F, 3.0F, 4.0F}) {
        Change change;
        change.p2edc = P2Edc(factor);
        TakeOverAtOnce(change);
        m_rig.RunCycle();
        for (std::size_t mode = 0; mode < NUM_MODES; ++mode) {
            ASSERT_EQ(m_rig.ModesIn().back()[mode], factor * m_rig.es_meas[mode]) << mode;
        }
    }
}

TEST_F(LiveParametersTest, NothingAtAllActsBeforeTheLastPieceOfTheLastMatrixAndThenEverythingDoes)
{
    RunBoth(3);
    Change change;
    change.gains = test::LivelyGains(NUM_MODES, 2.0F);
    change.single_gains = {{0, 0.5F}};
    change.references_um.assign(NUM_MODES, 0.25F);
    change.single_references_um = {{1, 0.75F}};
    change.pdc = Replacement{PerMode({5}, 1.0F), PerMode({5}, 0.5F)};
    change.fdc = Replacement{PerMode({6}, 1.0F), PerMode({6}, 0.6F)};
    change.p2edc = P2Edc(2.0F);
    change.pact2modes = RowParts(test::Diagonal(NUM_MODES, mirrorsim::NUM_PACT, -3.0F), mirrorsim::NUM_PACT);
    change.modes2pact = ColumnParts(test::Diagonal(mirrorsim::NUM_PACT, NUM_MODES, 4.0F));
    m_sut.Publish(change);
    for (int piece = 0; piece < PIECES_OF_P2EDC + PIECES_OF_THE_OTHERS; ++piece) {
        ASSERT_FALSE(m_sut.TakeOver()) << "after " << piece << " pieces";
        RunBoth(1);
        ASSERT_TRUE(AreTwins());
        ASSERT_EQ(m_rig.Commands(), m_twin.Commands());
        ASSERT_THAT(m_sut.GetReferences(), Each(0.0F));
        ASSERT_TRUE(m_sut.StagePiece());
    }
    EXPECT_FALSE(m_sut.StagePiece());
    ASSERT_TRUE(m_sut.TakeOver());

    change.gains[0] = 0.5F;
    m_twin.slices.SetGains(change.gains);
    m_twin.slices.SetPdc(change.pdc->mask, change.pdc->values);
    m_twin.slices.SetFdc(change.fdc->mask, change.fdc->values);
    for (std::size_t slice = 0; slice < NUM_SLICES; ++slice) {
        m_twin.slices.SwapP2Edc(static_cast<int>(slice), change.p2edc[slice]);
        m_twin.slices.SwapPact2Modes(static_cast<int>(slice), change.pact2modes[slice]);
        m_twin.slices.SwapModes2Pact(static_cast<int>(slice), change.modes2pact[slice]);
    }
    std::vector<float> references(NUM_MODES, 0.25F);
    references[1] = 0.75F;
    EXPECT_THAT(m_sut.GetReferences(), ElementsAreArray(references));
    for (int cycle = 0; cycle < 5; ++cycle) {
        RunBoth(1);
        ASSERT_TRUE(AreTwins());
        ASSERT_EQ(m_rig.Commands(), m_twin.Commands());
    }
}

TEST_F(LiveParametersTest, TheCyclesSideNeverAllocates)
{
    RunBoth(1);
    std::int64_t allocations = 0;
    for (int round = 0; round < 2; ++round) {
        Change change;
        change.gains = test::LivelyGains(NUM_MODES, 1.0F + static_cast<float>(round));
        change.single_gains = {{0, 1.0F}, {289, 2.0F}};
        change.references_um = PerMode({1}, 1.0F);
        change.single_references_um = {{2, 2.0F}};
        change.pdc = Replacement{PerMode({5}, 1.0F), PerMode({5}, 0.5F)};
        change.fdc = change.pdc;
        change.p2edc = P2Edc(2.0F);
        change.pact2modes = RowParts(m_rig.modes.pact2modes, mirrorsim::NUM_PACT);
        change.modes2pact = ColumnParts(m_rig.modes.modes2pact);
        m_sut.Publish(change);
        int pieces = 0;
        const AllocationGuard guard;
        bool taken = m_sut.TakeOver();
        while (m_sut.StagePiece()) {
            ++pieces;
        }
        taken = !taken && m_sut.TakeOver();
        const float reference = m_sut.GetReferences()[2];
        allocations += guard.GetCount();
        EXPECT_EQ(pieces, PIECES_OF_P2EDC + PIECES_OF_THE_OTHERS);
        EXPECT_TRUE(taken);
        EXPECT_EQ(reference, 2.0F);
    }
    EXPECT_EQ(allocations, 0);
}

/// Files, as a script names them.
class LiveParametersFileTest : public LiveParametersTest
{
protected:
    fs::path Save(const std::string& name, int rows, int cols, const std::vector<float>& values) const
    {
        ravelcore::SaveMatrix((m_folder / name).string(), "M", rows, cols, values);
        return m_folder / name;
    }

    static std::vector<float> Ascending(int rows, int cols)
    {
        std::vector<float> values(static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols));
        std::iota(values.begin(), values.end(), 0.0F);
        return values;
    }

    fs::path SaveAscending(const std::string& name, int rows, int cols) const
    {
        return Save(name, rows, cols, Ascending(rows, cols));
    }

    template <typename Loading>
    static std::string Refusal(const Loading& load)
    {
        return ThrownLine<InputError>(load);
    }

    /// Nothing has been published.
    void ExpectNothingChanged()
    {
        RunBoth(2);
        EXPECT_FALSE(m_sut.StagePiece());
        EXPECT_TRUE(m_sut.TakeOver());
        RunBoth(2);
        EXPECT_TRUE(AreTwins());
        EXPECT_THAT(m_sut.GetReferences(), Each(0.0F));
    }

    test::TestFolder m_folder;
};

TEST_F(LiveParametersFileTest, GainsAndReferencesAreTheFilesOneRow)
{
    const std::vector<float> gains = test::LivelyGains(NUM_MODES, 3.0F);
    EXPECT_EQ(m_sut.LoadGains(Save("gains.fits", 1, 10 * NUM_MODES, gains)), gains);
    EXPECT_EQ(m_sut.LoadReferences(SaveAscending("references.fits", 1, NUM_MODES)), Ascending(1, NUM_MODES));
    ExpectNothingChanged();
}

TEST_F(LiveParametersFileTest, MatricesAreCutIntoThePartsOfTheSlices)
{
    EXPECT_TRUE(m_sut.LoadP2Edc(SaveAscending("a.fits", NUM_MODES, mirrorsim::NUM_ES)) ==
                RowParts(Ascending(NUM_MODES, mirrorsim::NUM_ES), mirrorsim::NUM_ES));
    EXPECT_TRUE(m_sut.LoadPact2Modes(SaveAscending("b.fits", NUM_MODES, mirrorsim::NUM_PACT)) ==
                RowParts(Ascending(NUM_MODES, mirrorsim::NUM_PACT), mirrorsim::NUM_PACT));
    EXPECT_TRUE(m_sut.LoadModes2Pact(SaveAscending("c.fits", mirrorsim::NUM_PACT, NUM_MODES)) ==
                ColumnParts(Ascending(mirrorsim::NUM_PACT, NUM_MODES)));
    ExpectNothingChanged();
}

TEST_F(LiveParametersFileTest, AnotherShapeIsRefusedWithBothShapes)
{
    const fs::path row = SaveAscending("row.fits", 1, 28);
    const fs::path rows = SaveAscending("rows.fits", 2, NUM_MODES);
    const fs::path square = SaveAscending("square.fits", NUM_MODES, NUM_MODES);
    const auto expected = [](const char* name, const fs::path& file, const char* came, const char* wanted) {
        return std::string("Matrix ") + name + " (" + file.string() + ") has dimension " + came + ", expecting " +
               wanted;
    };
    EXPECT_EQ(Refusal([&] { m_sut.LoadGains(row); }), expected("gains", row, "[1,28]", "[1,290]"));
    EXPECT_EQ(Refusal([&] { m_sut.LoadReferences(row); }), expected("references", row, "[1,28]", "[1,29]"));
    EXPECT_EQ(Refusal([&] { m_sut.LoadReferences(rows); }), expected("references", rows, "[2,29]", "[1,29]"));
    EXPECT_EQ(Refusal([&] { m_sut.LoadP2Edc(square); }), expected("P2EDC", square, "[29,29]", "[29,4788]"));
    EXPECT_EQ(Refusal([&] { m_sut.LoadPact2Modes(square); }), expected("PACT2MODES", square, "[29,29]", "[29,2394]"));
    EXPECT_EQ(Refusal([&] { m_sut.LoadModes2Pact(square); }), expected("MODES2PACT", square, "[29,29]", "[2394,29]"));
    ExpectNothingChanged();
}

TEST_F(LiveParametersFileTest, AFileThatIsNotThereIsRefused)
{
    const fs::path file = m_folder / "none.fits";
    const std::string expected = "Not able to find file <" + file.string() + ">";
    EXPECT_EQ(Refusal([&] { m_sut.LoadGains(file); }), expected);
    EXPECT_EQ(Refusal([&] { m_sut.LoadReferences(file); }), expected);
    EXPECT_EQ(Refusal([&] { m_sut.LoadP2Edc(file); }), expected);
    EXPECT_EQ(Refusal([&] { m_sut.LoadPact2Modes(file); }), expected);
    EXPECT_EQ(Refusal([&] { m_sut.LoadModes2Pact(file); }), expected);
    ExpectNothingChanged();
}

TEST_F(LiveParametersFileTest, ATableWithoutRowsIsRefused)
{
    const fs::path file = SaveAscending("none.fits", 1, 29);
    std::string bytes = test::ReadBytes(file);
    const std::size_t card = bytes.find("NAXIS2  =                    1");
    ASSERT_NE(card, std::string::npos);
    bytes[card + 29] = '0';
    test::WriteBytes(file, bytes);
    const std::string expected = file.string() + ": expected a FITS table with rows but it has none";
    EXPECT_EQ(Refusal([&] { m_sut.LoadGains(file); }), expected);
    EXPECT_EQ(Refusal([&] { m_sut.LoadReferences(file); }), expected);
    EXPECT_EQ(Refusal([&] { m_sut.LoadP2Edc(file); }), expected);
    ExpectNothingChanged();
}

TEST_F(LiveParametersFileTest, AFileOfAnotherKindIsRefusedWithItsName)
{
    const fs::path file = m_folder / "text.fits";
    test::WriteBytes(file, "kp = 0.5\n");
    for (const std::string& line :
         {Refusal([&] { m_sut.LoadGains(file); }), Refusal([&] { m_sut.LoadReferences(file); }),
          Refusal([&] { m_sut.LoadP2Edc(file); }), Refusal([&] { m_sut.LoadPact2Modes(file); }),
          Refusal([&] { m_sut.LoadModes2Pact(file); })}) {
        EXPECT_THAT(line, StartsWith(file.string() + ": "));
        EXPECT_GT(line.size(), file.string().size() + 3) << line;
    }
    ExpectNothingChanged();
}

TEST_F(LiveParametersFileTest, ValuesThatAreNotFiniteAreRefusedWithTheirPlace)
{
    const auto save = [this](const char* name, int rows, int cols, std::size_t place, float value) {
        std::vector<float> values(static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols), 1.0F);
        values.at(place) = value;
        return Save(name, rows, cols, values);
    };
    constexpr float NOT_A_NUMBER = std::numeric_limits<float>::quiet_NaN();
    constexpr float INFINITE = std::numeric_limits<float>::infinity();
    const auto expected = [](const fs::path& file, const char* rest) {
        return file.string() + ": expected finite values but element " + rest;
    };
    fs::path file = save("gains.fits", 1, 290, 289, NOT_A_NUMBER);
    EXPECT_EQ(Refusal([&] { m_sut.LoadGains(file); }), expected(file, "289 is nan"));
    file = save("references.fits", 1, NUM_MODES, 0, INFINITE);
    EXPECT_EQ(Refusal([&] { m_sut.LoadReferences(file); }), expected(file, "0 is inf"));
    file = save("a.fits", NUM_MODES, mirrorsim::NUM_ES, 4788, -INFINITE);
    EXPECT_EQ(Refusal([&] { m_sut.LoadP2Edc(file); }), expected(file, "4788 is -inf"));
    file = save("b.fits", NUM_MODES, mirrorsim::NUM_PACT, 7, NOT_A_NUMBER);
    EXPECT_EQ(Refusal([&] { m_sut.LoadPact2Modes(file); }), expected(file, "7 is nan"));
    file = save("c.fits", mirrorsim::NUM_PACT, NUM_MODES, 8, NOT_A_NUMBER);
    EXPECT_EQ(Refusal([&] { m_sut.LoadModes2Pact(file); }), expected(file, "8 is nan"));
    ExpectNothingChanged();
}

}  // namespace
}  // namespace lumo::ravelctl
