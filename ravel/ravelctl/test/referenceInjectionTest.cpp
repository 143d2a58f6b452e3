#include "error.hpp"
#include "referenceInjection.hpp"
#include "support/allocationGuard.hpp"
#include "support/quietLog.hpp"
#include "support/testFolder.hpp"
#include "support/thrown.hpp"

#include <lumo/ravelcore/utils.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <optional>

namespace lumo::ravelctl {
namespace {

using ravelcore::test::AllocationGuard;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using Values = std::vector<float>;

constexpr int NUM_MODES = 3;
constexpr float NOT_A_NUMBER = std::numeric_limits<float>::quiet_NaN();
constexpr float ENDLESS = std::numeric_limits<float>::infinity();

const Values TWO_SAMPLES = {1.0F, 2.0F, 3.0F, -10.0F, -20.0F, -30.0F};

class ReferenceInjectionTest : public testing::Test
{
protected:
    ReferenceInjectionTest() { test::QuietLog(); }

    InjectOptions Make(const Values& values, int decimation = 1, bool loop = false, int num_modes = NUM_MODES) const
    {
        const std::filesystem::path file = m_folder / "samples.fits";
        const int rows = static_cast<int>(values.size()) / num_modes;
        ravelcore::SaveMatrix(file.string(), "M", rows, num_modes, values);
        return {file, decimation, loop};
    }

    static ReferenceInjection MakeInjection(const InjectOptions& options)
    {
        return {options, NUM_MODES, [](const std::string& /*line*/) {
                }};
    }

    static std::string Refusal(const InjectOptions& options)
    {
        return test::ThrownLine<InputError>([&] { MakeInjection(options); });
    }

    /// What the next call adds to 0 for the first mode; none where it says that there is nothing.
    static std::optional<float> Next(ReferenceInjection& sut)
    {
        Values references(NUM_MODES, 0.0F);
        const bool added = sut.AddNext(references);
        if (!added) {
            EXPECT_THAT(references, ElementsAre(0.0F, 0.0F, 0.0F)) << "it says that there was nothing";
            return std::nullopt;
        }
        return references.front();
    }

    static std::vector<std::optional<float>> Next(ReferenceInjection& sut, int calls)
    {
        std::vector<std::optional<float>> added;
        for (int call = 0; call < calls; ++call) {
            added.push_back(Next(sut));
        }
        return added;
    }

    test::TestFolder m_folder;
};

TEST_F(ReferenceInjectionTest, EachSampleIsAddedToWhatIsThere)
{
    ReferenceInjection sut = MakeInjection(Make(TWO_SAMPLES));
    EXPECT_EQ(sut.GetNumSamples(), 2);
    sut.Start();
    Values references = {100.0F, 200.0F, 300.0F};
    EXPECT_TRUE(sut.AddNext(references));
    EXPECT_THAT(references, ElementsAre(101.0F, 202.0F, 303.0F));
    EXPECT_TRUE(sut.AddNext(references));
    EXPECT_THAT(references, ElementsAre(91.0F, 182.0F, 273.0F));
}

TEST_F(ReferenceInjectionTest, BeforeStartNothingIsAdded)
{
    for (const bool loop : {false, true}) {
        ReferenceInjection sut = MakeInjection(Make(TWO_SAMPLES, 1, loop));
        EXPECT_THAT(Next(sut, 3), testing::Each(std::nullopt)) << loop;
        sut.Start();
        EXPECT_EQ(Next(sut), 1.0F) << "the calls before do not count";
    }
}

TEST_F(ReferenceInjectionTest, AfterTheLastSampleNothingIsAddedAlthoughTheModulationHandsOutSomething)
{
    for (const int decimation : {1, 3}) {
        ReferenceInjection sut = MakeInjection(Make(TWO_SAMPLES, decimation));
        sut.Start();
        const auto played = Next(sut, 2 * decimation);
        EXPECT_EQ(played.back(), -10.0F);
        EXPECT_THAT(Next(sut, 10), testing::Each(std::nullopt)) << decimation;
    }
}

TEST_F(ReferenceInjectionTest, ASampleLastsAsManyCyclesAsTheDecimationSays)
{
    ReferenceInjection sut = MakeInjection(Make(TWO_SAMPLES, 3));
    sut.Start();
    EXPECT_THAT(Next(sut, 7), ElementsAre(1.0F, 1.0F, 1.0F, -10.0F, -10.0F, -10.0F, std::nullopt));
}

TEST_F(ReferenceInjectionTest, ALoopBeginsAgainAfterTheLastSample)
{
    ReferenceInjection sut = MakeInjection(Make(TWO_SAMPLES, 2, true));
    sut.Start();
    EXPECT_THAT(Next(sut, 10), ElementsAre(1.0F, 1.0F, -10.0F, -10.0F, 1.0F, 1.0F, -10.0F, -10.0F, 1.0F, 1.0F));
    ReferenceInjection one = MakeInjection(Make({7.0F, 0.0F, 0.0F}, 1, true));
    one.Start();
    EXPECT_THAT(Next(one, 3), ElementsAre(7.0F, 7.0F, 7.0F));
}

TEST_F(ReferenceInjectionTest, StartBeginsWithTheFirstSampleAlsoInTheMiddleAndAfterTheLast)
{
    ReferenceInjection sut = MakeInjection(Make(TWO_SAMPLES, 2));
    for (const int calls : {1, 3, 4, 9}) {
        sut.Start();
        EXPECT_EQ(Next(sut, calls).front(), 1.0F);
    }
    sut.Start();
    EXPECT_THAT(Next(sut, 5), ElementsAre(1.0F, 1.0F, -10.0F, -10.0F, std::nullopt));
}

TEST_F(ReferenceInjectionTest, ADecimationBeyond32BitsInAllIsCountedThrough)
{
    ReferenceInjection sut = MakeInjection(Make(TWO_SAMPLES, std::numeric_limits<int>::max()));
    sut.Start();
    EXPECT_THAT(Next(sut, 100), testing::Each(1.0F));
}

TEST_F(ReferenceInjectionTest, AZeroSampleIsOneAllTheSame)
{
    ReferenceInjection sut = MakeInjection(Make(Values(NUM_MODES, 0.0F)));
    sut.Start();
    EXPECT_THAT(Next(sut, 2), ElementsAre(0.0F, std::nullopt));
}

TEST_F(ReferenceInjectionTest, ADecimationBelowOneIsRefused)
{
    for (const int decimation : {0, -1}) {
        EXPECT_EQ(Refusal(Make(TWO_SAMPLES, decimation)),
                  "--inject-decimation: expected 1 to 2147483647 cycles but got " + std::to_string(decimation));
    }
}

TEST_F(ReferenceInjectionTest, ValuesThatAreNotFiniteAreRefusedWithTheirPlace)
{
    Values values = TWO_SAMPLES;
    const std::string file = (m_folder / "samples.fits").string();
    values[5] = NOT_A_NUMBER;
    EXPECT_EQ(Refusal(Make(values)),
              "--inject: expected finite values but sample 2 of " + file + " has nan for mode 2");
    values[3] = ENDLESS;
    EXPECT_EQ(Refusal(Make(values)),
              "--inject: expected finite values but sample 2 of " + file + " has inf for mode 0");
    values[0] = -ENDLESS;
    EXPECT_EQ(Refusal(Make(values)),
              "--inject: expected finite values but sample 1 of " + file + " has -inf for mode 0");
}

TEST_F(ReferenceInjectionTest, FiniteValuesOfAnySizeAreTaken)
{
    const Values extremes = {std::numeric_limits<float>::max(), std::numeric_limits<float>::lowest(),
                             std::numeric_limits<float>::denorm_min()};
    ReferenceInjection sut = MakeInjection(Make(extremes));
    sut.Start();
    Values references(NUM_MODES, 0.0F);
    EXPECT_TRUE(sut.AddNext(references));
    EXPECT_EQ(references, extremes);
}

TEST_F(ReferenceInjectionTest, ColumnsForAnotherNumberOfModesAreRefusedWithBothNumbers)
{
    for (const int cols : {2, 4}) {
        EXPECT_THAT(Refusal(Make(Values(static_cast<std::size_t>(cols), 1.0F), 1, false, cols)),
                    AllOf(StartsWith("--inject: expected a FITS table of rows of 3 values: "),
                          HasSubstr("expecting 3 elements per sample but read " + std::to_string(cols))));
    }
}

TEST_F(ReferenceInjectionTest, WithoutAFileTheNameIsTold)
{
    const std::filesystem::path missing = m_folder / "missing.fits";
    EXPECT_EQ(Refusal({missing, 1, false}), "--inject: expected a FITS file but there is no " + missing.string());
}

TEST_F(ReferenceInjectionTest, StartAndAddNextNeverAllocate)
{
    for (const bool loop : {false, true}) {
        ReferenceInjection sut = MakeInjection(Make(TWO_SAMPLES, 2, loop));
        Values references(NUM_MODES, 0.0F);
        const AllocationGuard guard;
        sut.Start();
        for (int call = 0; call < 10; ++call) {
            sut.AddNext(references);
        }
        sut.Start();
        EXPECT_EQ(guard.GetCount(), 0) << loop;
    }
}

TEST_F(ReferenceInjectionTest, ItSaysInWhichPartOfARunItActs)
{
    LoopPlan plan;
    plan.cycles = 2000;
    plan.open_cycles = 200;
    plan.lead_cycles = 299;
    plan.rate_hz = 500.0;
    EXPECT_EQ(MakeInjection(Make(TWO_SAMPLES)).Describe(plan), "injecting 2 samples from 1 s on, until 1.004 s");
    EXPECT_EQ(MakeInjection(Make(TWO_SAMPLES, 750)).Describe(plan),
              "injecting 2 samples of 750 cycles each from 1 s on, until 4 s")
        << "the last cycle of the run is the last one with a sample";
    EXPECT_EQ(MakeInjection(Make(TWO_SAMPLES, 1000)).Describe(plan),
              "injecting 2 samples of 1000 cycles each from 1 s on; the run ends 1 s before the last one is over");
    EXPECT_EQ(MakeInjection(Make(TWO_SAMPLES, 1000, true)).Describe(plan),
              "injecting 2 samples of 1000 cycles each from 1 s on, again and again");
}

}  // namespace
}  // namespace lumo::ravelctl
