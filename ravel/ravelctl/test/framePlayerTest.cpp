#include "error.hpp"
#include "framePlayer.hpp"
#include "support/allocationGuard.hpp"
#include "support/quietLog.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"
#include "support/thrown.hpp"

#include <lumo/ravelcore/feMeas.hpp>
#include <lumo/ravelcore/recorder.hpp>
#include <lumo/ravelcore/utils.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstring>

namespace lumo::ravelctl {
namespace {

using ravelcore::test::AllocationGuard;
using testing::HasSubstr;
using testing::StartsWith;

constexpr int ES = static_cast<int>(ravelcore::ES_SAMPLE_SIZE);
constexpr int PACT = static_cast<int>(ravelcore::PACT_SAMPLE_SIZE);

/// What a record holds before it is played into, to see what is left alone.
template <typename Record>
Record MakeDirty()
{
    Record record;
    std::memset(&record, 0x5A, sizeof(record));
    return record;
}

template <typename Record>
bool IsSame(const Record& a, const Record& b)
{
    return std::memcmp(&a, &b, sizeof(Record)) == 0;
}

/// Column `col` of a frame: another value everywhere, exact in a float.
float ValueAt(int frame, int col)
{
    return static_cast<float>(20'000 * frame + col);
}

std::uint32_t Bits(float value)
{
    return std::bit_cast<std::uint32_t>(value);
}

void Ignore(const std::string& /*line*/)
{
}

class FramePlayerTest : public testing::Test
{
protected:
    FramePlayerTest() { test::QuietLog(); }

    std::filesystem::path Make(const std::string& name, int frames, int cols) const
    {
        std::vector<float> values;
        for (int frame = 0; frame < frames; ++frame) {
            for (int col = 0; col < cols; ++col) {
                values.push_back(ValueAt(frame, col));
            }
        }
        ravelcore::SaveMatrix((m_folder / name).string(), "frames", frames, cols, values);
        return m_folder / name;
    }

    static FramePlayer MakePlayer(const PlayOptions& options) { return {options, Ignore}; }

    static std::string Refusal(const PlayOptions& options)
    {
        return test::ThrownLine<InputError>([&] { MakePlayer(options); });
    }

    test::TestFolder m_folder;
};

/// A segment's 6 values of block 1, then its 6 of block 3, then its 6 of block 2.
void ExpectEsFrame(int frame, const mirrorsim::EsRecord& record)
{
    for (int segment = 0; segment < 798; ++segment) {
        for (int j = 0; j < 6; ++j) {
            const auto i = static_cast<std::size_t>(6 * segment + j);
            ASSERT_EQ(record.block1[i], ValueAt(frame, 18 * segment + j));
            ASSERT_EQ(record.block3[i], ValueAt(frame, 18 * segment + 6 + j));
            ASSERT_EQ(record.block2[i], ValueAt(frame, 18 * segment + 12 + j));
        }
    }
}

/// A segment's 3 values of block 1, then its 3 of block 2.
void ExpectPactFrame(int frame, const mirrorsim::PactRecord& record)
{
    for (int segment = 0; segment < 798; ++segment) {
        for (int j = 0; j < 3; ++j) {
            const auto i = static_cast<std::size_t>(3 * segment + j);
            ASSERT_EQ(record.block1[i], ValueAt(frame, 6 * segment + j));
            ASSERT_EQ(record.block2[i], ValueAt(frame, 6 * segment + 3 + j));
        }
    }
}

TEST_F(FramePlayerTest, NothingIsPlayedWhereNothingIsNamed)
{
    const FramePlayer sut = MakePlayer({});
    EXPECT_FALSE(sut.HasEs() || sut.HasPact());
    EXPECT_FALSE(sut.GetNumFrames());
}

TEST_F(FramePlayerTest, FramesThatWereTakenAtAnotherPaceAreSaidToBe)
{
    const auto describe = [this](const std::vector<double>& timestamps) {
        const auto frames = static_cast<int>(timestamps.size());
        const std::vector<float> values(timestamps.size() * static_cast<std::size_t>(PACT));
        ravelcore::SaveMatrixWithTimestamps((m_folder / "timed.fits").string(), "pact", frames, PACT, values,
                                            timestamps);
        return MakePlayer({{}, m_folder / "timed.fits"}).DescribeOtherPace(0.002);
    };
    const std::string name = "note: " + (m_folder / "timed.fits").string();
    const std::string end = "; they are played one a cycle, every 2 ms";
    EXPECT_THAT(describe({7.000, 7.002, 7.004, 7.006}), testing::IsEmpty());
    EXPECT_THAT(describe({0.00, 0.01, 0.02}), testing::ElementsAre(name + " has a frame every 10 ms" + end));
    EXPECT_THAT(describe({0.000, 0.002, 0.004, 0.010, 0.012, 0.014}),
                testing::ElementsAre(name + " has a frame every 2 ms with 1 gap" + end));
}

TEST_F(FramePlayerTest, FramesWithoutTimeStampsHaveNoPace)
{
    const std::filesystem::path file = Make("pact.fits", 3, PACT);
    EXPECT_THAT(MakePlayer({{}, file}).DescribeOtherPace(0.002), testing::IsEmpty());
}

TEST_F(FramePlayerTest, FramesComeBackOnePerCallInTheirOrder)
{
    FramePlayer sut = MakePlayer({Make("es.fits", 3, ES), Make("pact.fits", 3, PACT)});
    EXPECT_TRUE(sut.HasEs() && sut.HasPact());
    sut.Start();
    auto es = MakeDirty<mirrorsim::EsRecord>();
    auto pact = MakeDirty<mirrorsim::PactRecord>();
    for (int frame = 0; frame < 3; ++frame) {
        sut.PlayEs(es);
        sut.PlayPact(pact);
        ExpectEsFrame(frame, es);
        ExpectPactFrame(frame, pact);
    }
}

TEST_F(FramePlayerTest, TheTwoKindsArePlayedIndependently)
{
    FramePlayer sut = MakePlayer({Make("es.fits", 3, ES), Make("pact.fits", 3, PACT)});
    sut.Start();
    mirrorsim::EsRecord es{};
    mirrorsim::PactRecord pact{};
    sut.PlayEs(es);
    sut.PlayEs(es);
    sut.PlayPact(pact);
    ExpectEsFrame(1, es);
    ExpectPactFrame(0, pact);
}

TEST_F(FramePlayerTest, OneKindAloneCanBePlayed)
{
    FramePlayer es_alone = MakePlayer({Make("es.fits", 1, ES), {}});
    EXPECT_TRUE(es_alone.HasEs());
    EXPECT_FALSE(es_alone.HasPact());
    es_alone.Start();
    mirrorsim::EsRecord es{};
    es_alone.PlayEs(es);
    ExpectEsFrame(0, es);
    FramePlayer pact_alone = MakePlayer({{}, Make("pact.fits", 1, PACT)});
    EXPECT_FALSE(pact_alone.HasEs());
    EXPECT_TRUE(pact_alone.HasPact());
    pact_alone.Start();
    mirrorsim::PactRecord pact{};
    pact_alone.PlayPact(pact);
    ExpectPactFrame(0, pact);
}

TEST_F(FramePlayerTest, EveryBitOfAValueComesBackWhateverItMeans)
{
    constexpr std::array BITS = {0x80000000U, 0x00000001U, 0x807FFFFFU, 0x007FFFFFU, 0x7FC00000U, 0x7FC12345U,
                                 0xFFFFFFFFU, 0x7F800001U, 0x7F800000U, 0xFF800000U, 0x7F7FFFFFU, 0x3DCCCCCDU};
    const auto bits_at = [&BITS](std::size_t col) {
        return BITS.at(col % BITS.size());
    };
    const auto make = [&](const char* name, int cols) {
        std::vector<float> values;
        for (std::size_t col = 0; col < static_cast<std::size_t>(cols); ++col) {
            values.push_back(std::bit_cast<float>(bits_at(col)));
        }
        ravelcore::SaveMatrixWithTimestamps((m_folder / name).string(), "frames", 1, cols, values, {0.0});
        return m_folder / name;
    };
    FramePlayer sut = MakePlayer({make("es.fits", ES), make("pact.fits", PACT)});
    sut.Start();
    mirrorsim::EsRecord es{};
    mirrorsim::PactRecord pact{};
    sut.PlayEs(es);
    sut.PlayPact(pact);
    for (std::size_t segment = 0; segment < 798; ++segment) {
        for (std::size_t j = 0; j < 6; ++j) {
            ASSERT_EQ(Bits(es.block1[6 * segment + j]), bits_at(18 * segment + j));
            ASSERT_EQ(Bits(es.block3[6 * segment + j]), bits_at(18 * segment + 6 + j));
            ASSERT_EQ(Bits(es.block2[6 * segment + j]), bits_at(18 * segment + 12 + j));
        }
        for (std::size_t j = 0; j < 3; ++j) {
            ASSERT_EQ(Bits(pact.block1[3 * segment + j]), bits_at(6 * segment + j));
            ASSERT_EQ(Bits(pact.block2[3 * segment + j]), bits_at(6 * segment + 3 + j));
        }
    }
}

TEST_F(FramePlayerTest, WhatARecorderSavedComesBackAsItWas)
{
    auto es = MakeDirty<mirrorsim::EsRecord>();
    for (std::size_t i = 0; i < es.block1.size(); ++i) {
        es.block1[i] = static_cast<float>(i) * 0.1F;
        es.block2[i] = static_cast<float>(i) * -0.3F;
        es.block3[i] = static_cast<float>(i) * 0.7F;
    }
    std::vector<float> sample;
    ravelcore::AddFeMeasToSamples(es, sample);
    ravelcore::Recorder recorder("es");
    recorder.Init(1, ES);
    recorder.Start(false, 0);
    recorder.AddSample(5.0, sample.data());
    recorder.Save((m_folder / "es.fits").string());
    FramePlayer sut = MakePlayer({m_folder / "es.fits", {}});
    sut.Start();
    mirrorsim::EsRecord played{};
    sut.PlayEs(played);
    EXPECT_EQ(played.block1, es.block1);
    EXPECT_EQ(played.block2, es.block2);
    EXPECT_EQ(played.block3, es.block3);
}

TEST_F(FramePlayerTest, TheHeaderIsLeftAloneAndStatusWordsBecomeZero)
{
    FramePlayer sut = MakePlayer({Make("es.fits", 1, ES), Make("pact.fits", 1, PACT)});
    sut.Start();
    auto es = MakeDirty<mirrorsim::EsRecord>();
    auto pact = MakeDirty<mirrorsim::PactRecord>();
    sut.PlayEs(es);
    sut.PlayPact(pact);
    const auto dirty_es = MakeDirty<mirrorsim::EsRecord>();
    const auto dirty_pact = MakeDirty<mirrorsim::PactRecord>();
    EXPECT_EQ(std::memcmp(&es, &dirty_es, offsetof(mirrorsim::EsRecord, block1)), 0);
    EXPECT_EQ(std::memcmp(&pact, &dirty_pact, offsetof(mirrorsim::PactRecord, block1)), 0);
    EXPECT_THAT(es.status1, testing::Each(0U));
    EXPECT_THAT(es.status2, testing::Each(0U));
    EXPECT_THAT(pact.status, testing::Each(0U));
}

TEST_F(FramePlayerTest, AfterTheLastFrameTheRecordIsLeftAlone)
{
    FramePlayer sut = MakePlayer({Make("es.fits", 2, ES), Make("pact.fits", 1, PACT)});
    sut.Start();
    mirrorsim::EsRecord es{};
    mirrorsim::PactRecord pact{};
    sut.PlayEs(es);
    sut.PlayEs(es);
    sut.PlayPact(pact);
    ExpectEsFrame(1, es);
    for (int call = 0; call < 3; ++call) {
        es = MakeDirty<mirrorsim::EsRecord>();
        pact = MakeDirty<mirrorsim::PactRecord>();
        sut.PlayEs(es);
        sut.PlayPact(pact);
        EXPECT_TRUE(IsSame(es, MakeDirty<mirrorsim::EsRecord>())) << call;
        EXPECT_TRUE(IsSame(pact, MakeDirty<mirrorsim::PactRecord>())) << call;
    }
}

TEST_F(FramePlayerTest, StartBeginsWithTheFirstFrameAlsoInTheMiddleAndAfterTheLast)
{
    FramePlayer sut = MakePlayer({Make("es.fits", 3, ES), {}});
    for (const int calls : {1, 2, 3, 5}) {
        sut.Start();
        mirrorsim::EsRecord es{};
        sut.PlayEs(es);
        ExpectEsFrame(0, es);
        for (int call = 1; call < calls; ++call) {
            sut.PlayEs(es);
        }
        ExpectEsFrame(std::min(calls, 3) - 1, es);
    }
}

TEST_F(FramePlayerTest, ThereAreAsManyFramesAsTheShorterOfTwoHas)
{
    const std::filesystem::path es = Make("es.fits", 3, ES);
    const std::filesystem::path pact = Make("pact.fits", 2, PACT);
    EXPECT_EQ(MakePlayer({es, {}}).GetNumFrames(), 3);
    EXPECT_EQ(MakePlayer({{}, pact}).GetNumFrames(), 2);
    EXPECT_EQ(MakePlayer({es, pact}).GetNumFrames(), 2);
    EXPECT_EQ(MakePlayer({es, Make("longer.fits", 4, PACT)}).GetNumFrames(), 3);
}

TEST_F(FramePlayerTest, WithoutAFileTheOptionAndTheNameAreTold)
{
    const std::filesystem::path missing = m_folder / "missing.fits";
    EXPECT_EQ(Refusal({missing, {}}), "--play-es: expected a FITS file but there is no " + missing.string());
    EXPECT_EQ(Refusal({{}, missing}), "--play-pact: expected a FITS file but there is no " + missing.string());
}

TEST_F(FramePlayerTest, FramesOfTheOtherKindAreRefused)
{
    EXPECT_THAT(Refusal({Make("pact.fits", 1, PACT), {}}),
                AllOf(StartsWith("--play-es: expected a FITS table of rows of 14364 values: "),
                      HasSubstr("expecting 14364 elements per sample but read 4788")));
    EXPECT_THAT(Refusal({{}, Make("es.fits", 1, ES)}),
                AllOf(StartsWith("--play-pact: expected a FITS table of rows of 4788 values: "),
                      HasSubstr("expecting 4788 elements per sample but read 14364")));
}

TEST_F(FramePlayerTest, WhatIsNoFitsFileIsRefused)
{
    const std::filesystem::path file = m_folder / "text.fits";
    test::WriteBytes(file, "no FITS file\n");
    EXPECT_THAT(Refusal({file, {}}), StartsWith("--play-es: expected a FITS table of rows of 14364 values: "));
    EXPECT_THAT(Refusal({{}, file}), StartsWith("--play-pact: expected a FITS table of rows of 4788 values: "));
}

TEST_F(FramePlayerTest, PlayingNeverAllocates)
{
    FramePlayer sut = MakePlayer({Make("es.fits", 2, ES), Make("pact.fits", 2, PACT)});
    mirrorsim::EsRecord es{};
    mirrorsim::PactRecord pact{};
    sut.Start();
    const AllocationGuard guard;
    for (int call = 0; call < 4; ++call) {  // also after the last frame
        sut.PlayEs(es);
        sut.PlayPact(pact);
    }
    EXPECT_EQ(guard.GetCount(), 0);
}

}  // namespace
}  // namespace lumo::ravelctl
