#include "scriptPlayer.hpp"
#include "support/recording.hpp"
#include "support/sliceRig.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"

#include <lumo/ravelcore/utils.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

namespace lumo::ravelctl {
namespace {

using test::AreSameBits;
using test::Recording;
using test::SliceRig;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int NUM_MODES = 6;
constexpr int NUM_SLICES = 2;
constexpr double RATE_HZ = 500.0;

ScriptStep At(double time_s)
{
    ScriptStep step;
    step.time_s = time_s;
    return step;
}

ScriptStep ReferencesAt(double time_s, float value_um)
{
    ScriptStep step = At(time_s);
    step.references = ReferenceChange{{0, 1, 2, 3, 4, 5}, value_um};
    return step;
}

ScriptStep PdcAt(double time_s, int mode, float value_um)
{
    ScriptStep step = At(time_s);
    step.pdc = ReplacementChange{{mode}, true, value_um};
    return step;
}

ScriptStep SaveAt(double time_s, const std::string& folder)
{
    ScriptStep step = At(time_s);
    step.save = folder;
    return step;
}

/// Plays a script to slices without a mirror behind them; the test's thread is the cycle's and does not pace.
class ScriptPlayerTest : public testing::Test
{
protected:
    ~ScriptPlayerTest() override { End(); }

    void Play(const std::vector<ScriptStep>& steps)
    {
        LoopPlan plan;
        plan.rate_hz = RATE_HZ;
        m_recordings.Start();
        m_sut = std::make_unique<ScriptPlayer>(steps, plan, NUM_MODES, m_folder.GetPath(),
                                               ScriptPlayer::Loop{m_parameters, m_requests, m_recordings});
        m_sut->StartThread();
    }

    /// Cycles up to `cycle` - 1, and what comes before the latter.
    void RunTo(std::int64_t cycle)
    {
        for (; m_next < cycle; ++m_next) {
            m_requests.BeforeCycle(m_next, [] { return false; });
            m_references.push_back(m_parameters.GetReferences()[0]);
            m_rig.RunCycle();
            m_recordings.Add(static_cast<double>(m_next) / RATE_HZ, {}, {});
        }
    }

    /// The run is over.
    const std::vector<ScriptEvent>& End()
    {
        if (m_sut) {
            m_sut->stop(nullptr);
            m_sut->JoinThread();
            EXPECT_EQ(m_sut->GetThreadException(), nullptr);
            return m_sut->GetEvents();
        }
        static const std::vector<ScriptEvent> none;
        return none;
    }

    /// The first cycle with the references of a step, which is the one that first saw this value.
    std::int64_t FirstCycleWith(float reference_um) const
    {
        return std::find(m_references.begin(), m_references.end(), reference_um) - m_references.begin();
    }

    std::vector<double> SavedStamps(const std::string& file) const
    {
        return test::LoadRecording(m_folder / file).timestamps;
    }

    static std::vector<double> Stamps(std::int64_t first, std::int64_t last)
    {
        std::vector<double> stamps;
        for (std::int64_t cycle = first; cycle <= last; ++cycle) {
            stamps.push_back(static_cast<double>(cycle) * SliceRig::PERIOD_S);
        }
        return stamps;
    }

    test::TestFolder m_folder;
    SliceRig m_rig{NUM_MODES, NUM_SLICES};
    LiveParameters m_parameters{m_rig.slices, NUM_MODES, m_rig.pid_params, {true, true, true}};
    Recordings m_recordings{RecordingPlan{true, false, false, 1, false, 100}, m_rig.slices};
    CycleRequests m_requests{m_parameters, m_recordings, false};
    std::unique_ptr<ScriptPlayer> m_sut;
    std::int64_t m_next = 0;
    std::vector<float> m_references;
};

TEST_F(ScriptPlayerTest, AStepActsFromTheFirstCycleThatBeginsAtItsTimeOrAfterIt)
{
    Play({ReferencesAt(0.0, 1.0F), ReferencesAt(0.0021, 2.0F), ReferencesAt(0.014, 3.0F), ReferencesAt(0.0179, 4.0F)});
    RunTo(15);
    const std::vector<ScriptEvent>& events = End();
    ASSERT_EQ(events.size(), 4U);
    const std::vector<std::int64_t> expected = {0, 2, 7, 9};
    for (std::size_t i = 0; i < events.size(); ++i) {
        EXPECT_EQ(events[i].cycle, expected[i]) << i;
        EXPECT_EQ(events[i].last_cycle, expected[i]) << i;
        EXPECT_EQ(FirstCycleWith(static_cast<float>(i) + 1.0F), expected[i]) << i;
    }
}

TEST_F(ScriptPlayerTest, StepsThatAreDueBeforeTheSameCycleActInTheirOrderOneCycleEach)
{
    Play({ReferencesAt(0.0081, 1.0F), ReferencesAt(0.0085, 2.0F), ReferencesAt(0.009, 3.0F)});
    RunTo(10);
    const std::vector<ScriptEvent>& events = End();
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[0].cycle, 5);
    EXPECT_EQ(events[1].cycle, 6);
    EXPECT_EQ(events[2].cycle, 7);
    EXPECT_EQ(FirstCycleWith(2.0F), 6);
}

TEST_F(ScriptPlayerTest, AnEventSaysWhatWasDoneAndWhen)
{
    Play({PdcAt(0.01, 3, 0.5F)});
    RunTo(8);
    const std::vector<ScriptEvent>& events = End();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].time_s, 0.01);
    EXPECT_EQ(events[0].what, "PDC replaces mode 3 by 0.5 um");
    EXPECT_EQ(events[0].problem, "");
    EXPECT_EQ(events[0].cycle, 5);
    EXPECT_GT(events[0].take_over_us, 0.0);
    EXPECT_THAT(events[0].files, IsEmpty());
}

TEST_F(ScriptPlayerTest, NewsAreWhatHasHappenedSinceTheLastTime)
{
    Play({ReferencesAt(0.004, 1.0F), ReferencesAt(0.008, 2.0F), ReferencesAt(0.012, 3.0F)});
    EXPECT_THAT(m_sut->TakeNews(), IsEmpty());
    RunTo(4);  // waits before cycle 3 until the first step is told
    std::vector<ScriptEvent> news = m_sut->TakeNews();
    ASSERT_EQ(news.size(), 1U);
    EXPECT_EQ(news[0].cycle, 2);
    EXPECT_THAT(m_sut->TakeNews(), IsEmpty());
    RunTo(8);
    news = m_sut->TakeNews();
    ASSERT_EQ(news.size(), 2U);
    EXPECT_EQ(news[0].cycle, 4);
    EXPECT_EQ(news[1].cycle, 6);
    EXPECT_EQ(End().size(), 3U) << "all of them, told or not";
}

TEST_F(ScriptPlayerTest, ReplacementsAddUpUntilTheirModesAreGivenBack)
{
    ScriptStep both = PdcAt(0.008, 4, 0.25F);
    both.fdc = ReplacementChange{{3, 5}, true, 0.75F};
    ScriptStep release = At(0.012);
    release.pdc = ReplacementChange{{3}, false, 0.0F};
    ScriptStep release_all = At(0.016);
    release_all.pdc = ReplacementChange{{0, 1, 2, 3, 4, 5}, false, 0.0F};
    release_all.fdc = release_all.pdc;
    Play({PdcAt(0.004, 3, 0.5F), both, release, release_all});
    RunTo(10);
    End();
    const auto modes_in = m_rig.ModesIn();
    SliceRig untouched(NUM_MODES, NUM_SLICES);
    untouched.RunCycles(10);
    auto expected = untouched.ModesIn();
    expected[2][3] = expected[3][3] = 0.5F;
    for (std::size_t cycle = 4; cycle < 8; ++cycle) {
        expected[cycle][3] = expected[cycle][5] = 0.75F;
        expected[cycle][4] = 0.25F;
    }
    EXPECT_TRUE(AreSameBits(modes_in, expected));
}

TEST_F(ScriptPlayerTest, SingleGainsGoToTheirModesAndPlaces)
{
    ScriptStep step = At(0.01);
    step.gains = GainChange{{1, 4}, {{0, 0.9F}, {7, -7.0F}}};
    Play({step});
    RunTo(20);
    End();
    SliceRig expected(NUM_MODES, NUM_SLICES);
    expected.RunCycles(5);
    std::vector<float> gains = expected.pid_params;
    for (const std::size_t place : {10U, 40U}) {
        gains[place] = 0.9F;
        gains[place + 7] = -7.0F;
    }
    expected.slices.SetGains(gains);
    expected.RunCycles(15);
    EXPECT_TRUE(AreSameBits(m_rig.ModesOut(), expected.ModesOut()));
}

TEST_F(ScriptPlayerTest, EveryKindOfFileIsTakenOver)
{
    const auto save = [this](const char* name, int rows, int cols, const std::vector<float>& values) {
        ravelcore::SaveMatrix((m_folder / name).string(), "M", rows, cols, values);
        return m_folder / name;
    };
    const std::vector<float> gains = test::LivelyGains(NUM_MODES, 1.0F);
    ScriptStep step = At(0.006);
    step.gains_file = save("gains.fits", 1, 10 * NUM_MODES, gains);
    step.references_file = save("references.fits", 1, NUM_MODES, std::vector<float>(NUM_MODES, 0.5F));
    step.p2edc = save("a.fits", NUM_MODES, mirrorsim::NUM_ES, test::Diagonal(NUM_MODES, mirrorsim::NUM_ES, 2.0F));
    step.pact2modes =
        save("b.fits", NUM_MODES, mirrorsim::NUM_PACT, test::Diagonal(NUM_MODES, mirrorsim::NUM_PACT, 3.0F));
    step.modes2pact =
        save("c.fits", mirrorsim::NUM_PACT, NUM_MODES, test::Diagonal(mirrorsim::NUM_PACT, NUM_MODES, 4.0F));
    Play({step});
    RunTo(10);
    const std::vector<ScriptEvent>& events = End();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].problem, "");
    EXPECT_EQ(events[0].cycle, 3);
    EXPECT_EQ(FirstCycleWith(0.5F), 3);

    SliceRig expected(NUM_MODES, NUM_SLICES);
    expected.RunCycles(3);
    expected.slices.SetGains(gains);
    for (const ModeSlice& slice : expected.slices.GetModeSlices()) {
        std::vector<float> p2edc = RowsOf(test::Diagonal(NUM_MODES, mirrorsim::NUM_ES, 2.0F), mirrorsim::NUM_ES, slice);
        std::vector<float> pact2modes =
            RowsOf(test::Diagonal(NUM_MODES, mirrorsim::NUM_PACT, 3.0F), mirrorsim::NUM_PACT, slice);
        expected.slices.SwapP2Edc(slice.first / 3, p2edc);
        expected.slices.SwapPact2Modes(slice.first / 3, pact2modes);
    }
    expected.RunCycles(7);
    EXPECT_TRUE(AreSameBits(m_rig.ModesIn(), expected.ModesIn()));
    EXPECT_TRUE(AreSameBits(m_rig.ModesOut(), expected.ModesOut()));
    std::vector<float> commands = expected.Commands();
    for (float& command : commands) {
        command *= 4.0F;
    }
    EXPECT_EQ(m_rig.Commands(), commands);
}

TEST_F(ScriptPlayerTest, AStepWithOneBadFileIsRefusedAsAWholeAndTheNextOnesAreDone)
{
    const auto refused = [this](double time_s) {
        ScriptStep step = ReferencesAt(time_s, 9.0F);
        step.gains = GainChange{{1, 4}, {{0, 0.9F}}};
        step.pdc = ReplacementChange{{3}, true, 9.0F};
        step.fdc = ReplacementChange{{4}, true, 9.0F};
        step.save = "refused";
        return step;
    };
    const std::filesystem::path missing = m_folder / "missing.fits";
    const std::filesystem::path small = m_folder / "small.fits";
    ravelcore::SaveMatrix(small.string(), "M", 2, 3, std::vector<float>(6, 1.0F));
    const std::filesystem::path good = m_folder / "good.fits";
    ravelcore::SaveMatrix(good.string(), "M", NUM_MODES, mirrorsim::NUM_ES,
                          test::Diagonal(NUM_MODES, mirrorsim::NUM_ES, 9.0F));
    ScriptStep first = refused(0.004);
    first.references_file = missing;
    first.references.reset();
    ScriptStep second = refused(0.006);
    second.p2edc = good;
    second.modes2pact = small;  // the last one that is loaded
    Play({first, second, PdcAt(0.01, 5, 0.5F)});
    RunTo(12);
    const std::vector<ScriptEvent>& events = End();
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[0].problem, "Not able to find file <" + missing.string() + ">");
    EXPECT_EQ(events[1].problem, "Matrix MODES2PACT (" + small.string() + ") has dimension [2,3], expecting [2394,6]");
    for (const std::size_t i : {0U, 1U}) {
        EXPECT_EQ(events[i].cycle, -1) << i;
        EXPECT_EQ(events[i].last_cycle, -1) << i;
        EXPECT_THAT(events[i].files, IsEmpty()) << i;
    }
    EXPECT_FALSE(std::filesystem::exists(m_folder / "refused"));
    EXPECT_EQ(events[2].problem, "");
    EXPECT_EQ(events[2].cycle, 5);
    EXPECT_THAT(m_references, Each(0.0F));

    SliceRig expected(NUM_MODES, NUM_SLICES);
    expected.RunCycles(5);
    const std::vector<float> mask = {0.0F, 0.0F, 0.0F, 0.0F, 0.0F, 1.0F};
    expected.slices.SetPdc(mask, std::vector<float>(NUM_MODES, 0.5F));
    expected.RunCycles(7);
    EXPECT_TRUE(AreSameBits(m_rig.ModesIn(), expected.ModesIn()));
    EXPECT_TRUE(AreSameBits(m_rig.ModesOut(), expected.ModesOut()));
}

TEST_F(ScriptPlayerTest, ASaveWritesWhatWasRecordedAndRecordingBeginsAnewOneCycleLater)
{
    Play({SaveAt(0.01, "first"), SaveAt(0.02, "second")});
    RunTo(15);
    const std::vector<ScriptEvent>& events = End();
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0].what, "saves what was recorded into first");
    EXPECT_EQ(events[0].problem, "");
    EXPECT_THAT(events[0].files, ElementsAre("first/modes_in.fits", "first/modes_out.fits", "first/modes_ref.fits",
                                             "first/modes_arw.fits"));
    EXPECT_EQ(events[0].cycle, 5);
    EXPECT_EQ(events[0].last_cycle, 6);
    EXPECT_THAT(events[1].files, ElementsAre("second/modes_in.fits", "second/modes_out.fits", "second/modes_ref.fits",
                                             "second/modes_arw.fits"));
    EXPECT_EQ(events[1].cycle, 10);
    EXPECT_EQ(events[1].last_cycle, 11);

    SliceRig expected(NUM_MODES, NUM_SLICES);
    expected.RunCycles(15);
    const auto rows_of = [](const Recording& recording) {
        std::vector<std::vector<float>> rows;
        for (int row = 0; row < recording.rows; ++row) {
            const auto begin = recording.values.begin() + static_cast<std::ptrdiff_t>(row) * recording.cols;
            rows.emplace_back(begin, begin + recording.cols);
        }
        return rows;
    };
    const auto part = [](const std::vector<std::vector<float>>& rows, std::ptrdiff_t begin, std::ptrdiff_t end) {
        return std::vector<std::vector<float>>(rows.begin() + begin, rows.begin() + end);
    };
    for (const auto& [name, modes] :
         {std::pair("modes_in.fits", expected.ModesIn()), std::pair("modes_out.fits", expected.ModesOut())}) {
        const Recording first = test::LoadRecording(m_folder / "first" / name);
        const Recording second = test::LoadRecording(m_folder / "second" / name);
        EXPECT_EQ(first.timestamps, Stamps(0, 4)) << name;
        EXPECT_EQ(second.timestamps, Stamps(6, 9)) << name;
        EXPECT_TRUE(AreSameBits(rows_of(first), part(modes, 0, 5))) << name;
        EXPECT_TRUE(AreSameBits(rows_of(second), part(modes, 6, 10))) << name;
    }
    EXPECT_TRUE(AreSameBits(m_rig.ModesIn(), part(expected.ModesIn(), 11, 15))) << "what is left for the run's end";
}

TEST_F(ScriptPlayerTest, AStepThatChangesAndSavesChangesFirst)
{
    ScriptStep step = ReferencesAt(0.01, 1.0F);
    step.save = "first";
    Play({step});
    RunTo(10);
    const std::vector<ScriptEvent>& events = End();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].cycle, 5) << "the first one with the change";
    EXPECT_EQ(events[0].last_cycle, 7) << "the one in which recording begins anew";
    EXPECT_EQ(FirstCycleWith(1.0F), 5);
    EXPECT_EQ(SavedStamps("first/modes_in.fits"), Stamps(0, 5));
    EXPECT_EQ(m_recordings.GetCycles(), 3);
}

TEST_F(ScriptPlayerTest, ASaveBeforeAnythingIsRecordedSavesNothing)
{
    Play({SaveAt(0.0, "first")});
    RunTo(5);
    const std::vector<ScriptEvent>& events = End();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].problem, "");
    EXPECT_EQ(events[0].cycle, 0);
    EXPECT_EQ(events[0].last_cycle, 1);
    EXPECT_THAT(events[0].files, IsEmpty());
    EXPECT_EQ(m_recordings.GetCycles(), 4);
}

TEST_F(ScriptPlayerTest, ASaveThatFailsIsAProblemAndTheLoopGoesOn)
{
    test::WriteBytes(m_folder / "first", "a file");
    std::filesystem::create_directories(m_folder / "second" / "modes_out.fits" / "in the way");
    Play({SaveAt(0.01, "first"), SaveAt(0.02, "second"), ReferencesAt(0.03, 1.0F)});
    RunTo(20);
    const std::vector<ScriptEvent>& events = End();
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[0].problem, "cannot make the folder " + (m_folder / "first").string() + ": Not a directory");
    EXPECT_EQ(events[0].cycle, 5);
    EXPECT_EQ(events[0].last_cycle, 6);
    EXPECT_THAT(events[0].files, IsEmpty());
    EXPECT_THAT(events[1].problem,
                testing::StartsWith("cannot write " + (m_folder / "second" / "modes_out.fits").string() + ": "));
    EXPECT_THAT(events[1].files, ElementsAre("second/modes_in.fits", "second/modes_ref.fits", "second/modes_arw.fits"))
        << "what could be written";
    EXPECT_EQ(events[1].last_cycle, 11);
    EXPECT_EQ(events[2].problem, "");
    EXPECT_EQ(events[2].cycle, 15);
}

TEST_F(ScriptPlayerTest, StepsThatTheRunDidNotGetToAreNoEvents)
{
    Play({ReferencesAt(0.004, 1.0F), SaveAt(0.02, "first"), ReferencesAt(0.03, 2.0F)});
    RunTo(8);
    const std::vector<ScriptEvent>& events = End();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].cycle, 2);
    EXPECT_FALSE(std::filesystem::exists(m_folder / "first"));
    EXPECT_EQ(m_recordings.GetCycles(), 8);
}

TEST_F(ScriptPlayerTest, AChangeThatTheRunDidNotGetToIsNoEvent)
{
    Play({ReferencesAt(0.02, 1.0F)});
    RunTo(8);
    EXPECT_THAT(End(), IsEmpty());
    EXPECT_THAT(m_references, Each(0.0F));
}

TEST_F(ScriptPlayerTest, AStepOfWhichTheRunDidOnlyAPartSaysSo)
{
    ScriptStep step = ReferencesAt(0.01, 1.0F);
    step.save = "first";
    Play({step});
    RunTo(6);  // the change, and then no cycle more
    const std::vector<ScriptEvent>& events = End();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].cycle, 5);
    EXPECT_EQ(events[0].problem, "the run ended before the recordings were saved");
    EXPECT_EQ(m_recordings.GetCycles(), 6) << "they are left for the run's end";
}

TEST_F(ScriptPlayerTest, WhatIsSavedBeforeTheLastCycleIsNotSavedOnceMoreAtTheEnd)
{
    Play({SaveAt(0.01, "first")});
    RunTo(6);  // the recording has stopped before the last one
    const std::vector<ScriptEvent>& events = End();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].problem, "");
    EXPECT_EQ(SavedStamps("first/modes_in.fits"), Stamps(0, 4));
    EXPECT_EQ(m_recordings.GetCycles(), 0);
    m_recordings.Save(
        m_folder.GetPath(), [](const std::string& name) { ADD_FAILURE() << name << " is written"; },
        [](const std::string& problem) { ADD_FAILURE() << problem; });
}

TEST_F(ScriptPlayerTest, APlayerWithoutStepsAsksForNothing)
{
    Play({});
    RunTo(5);
    EXPECT_THAT(End(), IsEmpty());
}

TEST(ScriptPlayerMatricesTest, MatricesAreNeededThatAnyStepNames)
{
    const auto find = [](const std::vector<ScriptStep>& steps) {
        const LiveParameters::Matrices matrices = ScriptPlayer::FindMatrices(steps);
        return std::vector<bool>{matrices.p2edc, matrices.pact2modes, matrices.modes2pact};
    };
    ScriptStep p2edc = At(1.0);
    p2edc.p2edc = "a.fits";
    ScriptStep pact2modes = At(2.0);
    pact2modes.pact2modes = "b.fits";
    ScriptStep modes2pact = At(3.0);
    modes2pact.modes2pact = "c.fits";
    EXPECT_THAT(find({}), ElementsAre(false, false, false));
    EXPECT_THAT(find({SaveAt(1.0, "first")}), ElementsAre(false, false, false));
    EXPECT_THAT(find({p2edc, At(2.0)}), ElementsAre(true, false, false));
    EXPECT_THAT(find({At(1.0), pact2modes}), ElementsAre(false, true, false));
    EXPECT_THAT(find({modes2pact}), ElementsAre(false, false, true));
    EXPECT_THAT(find({p2edc, pact2modes, modes2pact}), ElementsAre(true, true, true));
}

}  // namespace
}  // namespace lumo::ravelctl
