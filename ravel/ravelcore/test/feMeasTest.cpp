#include "support/allocationGuard.hpp"
#include "support/logCapture.hpp"

#include <lumo/ravelcore/feMeas.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <bit>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace lumo::ravelcore {
namespace {

using test::AllocationGuard;
using test::LogCapture;
using ::testing::IsEmpty;

using EsRecord = nodeio::SingleFEMeasType<FE_TYPES_COLLECT_ES_MEAS>;
using PactRecord = nodeio::SingleFEMeasType<FE_TYPES_COLLECT_PACT_MEAS>;

// The records as the front end lays them out, in bytes. The tests read and write records through these numbers only,
// not through the members of the types.
constexpr std::size_t SEGMENTS = 798;
constexpr std::size_t TIMESTAMP = 0;
constexpr std::size_t TAG = 8;
constexpr std::size_t RESERVED = 12;
constexpr std::size_t TIME = 16;

struct EsLayout
{
    using Record = EsRecord;
    static constexpr std::size_t VALUES = 6;  // of one segment, in each block
    static constexpr std::size_t SAMPLE = 14364;
    static constexpr std::size_t RECORD_BYTES = 63864;
    static constexpr std::size_t BLOCKS[] = {24, 38328, 19176};  // in the order of the sample: 1, 3, 2
    static constexpr std::size_t STATUS[] = {57480, 60672};
    static constexpr bool COPY_CLEARS_STATUS = true;
};

struct PactLayout
{
    using Record = PactRecord;
    static constexpr std::size_t VALUES = 3;
    static constexpr std::size_t SAMPLE = 4788;
    static constexpr std::size_t RECORD_BYTES = 22368;
    static constexpr std::size_t BLOCKS[] = {24, 9600};
    static constexpr std::size_t STATUS[] = {19176};
    static constexpr bool COPY_CLEARS_STATUS = false;
};

static_assert(sizeof(EsRecord) == EsLayout::RECORD_BYTES && sizeof(PactRecord) == PactLayout::RECORD_BYTES);
static_assert(ES_SAMPLE_SIZE == EsLayout::SAMPLE && PACT_SAMPLE_SIZE == PactLayout::SAMPLE);

template <typename T, typename Record>
T Get(const Record& record, std::size_t offset)
{
    T value;
    std::memcpy(&value, reinterpret_cast<const std::byte*>(&record) + offset, sizeof(T));
    return value;
}

template <typename T, typename Record>
void Put(Record& record, std::size_t offset, T value)
{
    std::memcpy(reinterpret_cast<std::byte*>(&record) + offset, &value, sizeof(T));
}

/// The bytes [begin, end) of a record.
template <typename Record>
std::vector<unsigned char> Bytes(const Record& record, std::size_t begin, std::size_t end)
{
    std::vector<unsigned char> bytes(end - begin);
    std::memcpy(bytes.data(), reinterpret_cast<const std::byte*>(&record) + begin, bytes.size());
    return bytes;
}

/// The offset of the block element that element `k` of a sample comes from.
template <typename Layout>
std::size_t OffsetOf(std::size_t k)
{
    constexpr std::size_t PER_SEGMENT = Layout::VALUES * std::size(Layout::BLOCKS);
    const std::size_t in_segment = k % PER_SEGMENT;
    return Layout::BLOCKS[in_segment / Layout::VALUES] +
           4 * (Layout::VALUES * (k / PER_SEGMENT) + in_segment % Layout::VALUES);
}

/// A record in which no two block elements, status words or header fields are alike.
template <typename Record>
std::unique_ptr<Record> MakeDistinctRecord()
{
    auto record = std::make_unique<Record>();
    for (std::size_t offset = 0; offset < sizeof(Record); offset += 4) {
        Put(*record, offset, static_cast<float>(offset) + 0.5F);
    }
    return record;
}

template <typename Record>
std::unique_ptr<Record> MakeRecordOfBytes(int byte)
{
    auto record = std::make_unique<Record>();
    std::memset(static_cast<void*>(record.get()), byte, sizeof(Record));
    return record;
}

/// A sample whose elements are `base`, base + 1, ...
template <typename Layout>
std::vector<float> MakeSample(float base)
{
    std::vector<float> sample(Layout::SAMPLE);
    for (std::size_t k = 0; k < sample.size(); ++k) {
        sample[k] = base + static_cast<float>(k);
    }
    return sample;
}

template <typename Layout>
class FeMeasTest : public ::testing::Test
{
protected:
    using Record = typename Layout::Record;

    /// Expects all status words of the segments before `end` to be `value`.
    static void ExpectStatus(const Record& record, std::uint32_t value, std::size_t end = SEGMENTS)
    {
        for (const std::size_t status : Layout::STATUS) {
            for (std::size_t segment = 0; segment < end; ++segment) {
                ASSERT_EQ(Get<std::uint32_t>(record, status + 4 * segment), value) << status << " of " << segment;
            }
        }
    }

    static void ExpectHeader(const Record& record, int tag, double time)
    {
        EXPECT_EQ(Get<double>(record, TIMESTAMP), time);
        EXPECT_EQ(Get<std::int32_t>(record, TAG), tag);
        EXPECT_EQ(Get<double>(record, TIME), time);
    }
};

using Layouts = ::testing::Types<EsLayout, PactLayout>;
class LayoutNames
{
public:
    template <typename Layout>
    static std::string GetName(int /*index*/)
    {
        return std::is_same_v<Layout, EsLayout> ? "Es" : "Pact";
    }
};
TYPED_TEST_SUITE(FeMeasTest, Layouts, LayoutNames);

// ---- AddFeMeasToSamples ------------------------------------------------------------------------------------------

TYPED_TEST(FeMeasTest, AppendsOneSampleInTheOrderOfTheSample)
{
    const auto record = MakeDistinctRecord<typename TypeParam::Record>();
    std::vector<float> samples;
    AddFeMeasToSamples(*record, samples);
    ASSERT_EQ(samples.size(), TypeParam::SAMPLE);
    for (std::size_t k = 0; k < samples.size(); ++k) {
        ASSERT_EQ(samples[k], Get<float>(*record, OffsetOf<TypeParam>(k))) << "element " << k;
    }
}

TYPED_TEST(FeMeasTest, AppendsBehindWhatIsThere)
{
    const auto first = MakeDistinctRecord<typename TypeParam::Record>();
    auto second = MakeDistinctRecord<typename TypeParam::Record>();
    Put(*second, OffsetOf<TypeParam>(0), -1.0F);
    std::vector<float> samples = {7.0F, 8.0F, 9.0F};
    AddFeMeasToSamples(*first, samples);
    AddFeMeasToSamples(*second, samples);
    ASSERT_EQ(samples.size(), 3 + 2 * TypeParam::SAMPLE);
    EXPECT_EQ(samples[0], 7.0F);
    EXPECT_EQ(samples[2], 9.0F);
    for (std::size_t k = 0; k < TypeParam::SAMPLE; ++k) {
        ASSERT_EQ(samples[3 + k], Get<float>(*first, OffsetOf<TypeParam>(k)));
        ASSERT_EQ(samples[3 + TypeParam::SAMPLE + k], Get<float>(*second, OffsetOf<TypeParam>(k)));
    }
}

TYPED_TEST(FeMeasTest, AppendLeavesTheRecordAlone)
{
    const auto record = MakeDistinctRecord<typename TypeParam::Record>();
    const auto before = Bytes(*record, 0, TypeParam::RECORD_BYTES);
    std::vector<float> samples;
    AddFeMeasToSamples(*record, samples);
    EXPECT_EQ(Bytes(*record, 0, TypeParam::RECORD_BYTES), before);
}

TYPED_TEST(FeMeasTest, EveryBitPatternPassesInBothDirections)
{
    // Quiet and signalling NaN with payload, -0, a subnormal number, infinity.
    const std::uint32_t patterns[] = {0x7FC01234U, 0x7F801234U, 0x80000000U, 0x00000001U, 0xFF800000U};
    auto record = MakeRecordOfBytes<typename TypeParam::Record>(0);
    for (std::size_t i = 0; i < std::size(patterns); ++i) {
        Put(*record, OffsetOf<TypeParam>(i), patterns[i]);
    }
    std::vector<float> samples;
    AddFeMeasToSamples(*record, samples);
    const auto back = MakeRecordOfBytes<typename TypeParam::Record>(0x55);
    CopySampleToFeMeas(0, samples, *back);
    for (std::size_t i = 0; i < std::size(patterns); ++i) {
        EXPECT_EQ(std::bit_cast<std::uint32_t>(samples[i]), patterns[i]);
        EXPECT_EQ(Get<std::uint32_t>(*back, OffsetOf<TypeParam>(i)), patterns[i]);
    }
}

TYPED_TEST(FeMeasTest, AppendIntoReservedCapacityNeverAllocates)
{
    const auto record = MakeDistinctRecord<typename TypeParam::Record>();
    std::vector<float> samples;
    samples.reserve(10 * TypeParam::SAMPLE);
    const float* const storage = samples.data();
    const AllocationGuard guard;
    for (int cycle = 0; cycle < 10; ++cycle) {
        AddFeMeasToSamples(*record, samples);
    }
    EXPECT_EQ(guard.GetCount(), 0);
    EXPECT_EQ(samples.size(), 10 * TypeParam::SAMPLE);
    EXPECT_EQ(samples.data(), storage);
}

TYPED_TEST(FeMeasTest, RepeatedAppendsGrowTheVectorMoreThanOneSampleAtATime)
{
    const auto record = MakeDistinctRecord<typename TypeParam::Record>();
    std::vector<float> samples;
    int num_moves = 0;
    for (int cycle = 0; cycle < 64; ++cycle) {
        const std::size_t capacity = samples.capacity();
        AddFeMeasToSamples(*record, samples);
        num_moves += samples.capacity() != capacity ? 1 : 0;
    }
    EXPECT_LE(num_moves, 8) << "else a long recording would be copied again with every sample";
}

// ---- CopySampleToFeMeas ------------------------------------------------------------------------------------------

TYPED_TEST(FeMeasTest, CopyFillsTheBlocksInTheOrderOfTheSample)
{
    const std::vector<float> sample = MakeSample<TypeParam>(1.0F);
    auto record = MakeRecordOfBytes<typename TypeParam::Record>(0x55);
    CopySampleToFeMeas(0, sample, *record);
    for (std::size_t k = 0; k < sample.size(); ++k) {
        ASSERT_EQ(Get<float>(*record, OffsetOf<TypeParam>(k)), sample[k]) << "element " << k;
    }
}

TYPED_TEST(FeMeasTest, CopyBeginsAtElementStart)
{
    std::vector<float> samples = {-1.0F, -2.0F, -3.0F, -4.0F, -5.0F};
    const std::vector<float> sample = MakeSample<TypeParam>(100.0F);
    samples.insert(samples.end(), sample.begin(), sample.end());
    samples.push_back(-6.0F);
    auto record = MakeRecordOfBytes<typename TypeParam::Record>(0x55);
    CopySampleToFeMeas(5, samples, *record);
    for (std::size_t k = 0; k < sample.size(); ++k) {
        ASSERT_EQ(Get<float>(*record, OffsetOf<TypeParam>(k)), sample[k]) << "element " << k;
    }
}

TYPED_TEST(FeMeasTest, CopyLeavesTheHeaderAlone)
{
    auto record = MakeDistinctRecord<typename TypeParam::Record>();
    const auto header = Bytes(*record, 0, 24);
    CopySampleToFeMeas(0, MakeSample<TypeParam>(1.0F), *record);
    EXPECT_EQ(Bytes(*record, 0, 24), header);
}

TYPED_TEST(FeMeasTest, CopyClearsTheStatusWordsOfTheEdgeSensorsAndLeavesThoseOfTheActuatorsAlone)
{
    auto record = MakeRecordOfBytes<typename TypeParam::Record>(0x55);
    CopySampleToFeMeas(0, MakeSample<TypeParam>(1.0F), *record);
    this->ExpectStatus(*record, TypeParam::COPY_CLEARS_STATUS ? 0U : 0x55555555U);
}

TYPED_TEST(FeMeasTest, AppendThenCopyFromThePreviousSizeRestoresTheBlocks)
{
    const auto record = MakeDistinctRecord<typename TypeParam::Record>();
    std::vector<float> samples(1234, 5.0F);
    const auto previous_size = static_cast<int>(samples.size());
    AddFeMeasToSamples(*record, samples);
    auto back = MakeRecordOfBytes<typename TypeParam::Record>(0x55);
    CopySampleToFeMeas(previous_size, samples, *back);
    const std::size_t first_status = TypeParam::STATUS[0];
    EXPECT_EQ(Bytes(*back, 24, first_status), Bytes(*record, 24, first_status));
    this->ExpectStatus(*back, TypeParam::COPY_CLEARS_STATUS ? 0U : 0x55555555U);
}

TYPED_TEST(FeMeasTest, CopyNeverAllocates)
{
    const std::vector<float> sample = MakeSample<TypeParam>(1.0F);
    auto record = MakeRecordOfBytes<typename TypeParam::Record>(0);
    const AllocationGuard guard;
    CopySampleToFeMeas(0, sample, *record);
    EXPECT_EQ(guard.GetCount(), 0);
}

/// A record that a child process shares with this one.
template <typename Record>
class SharedRecord
{
public:
    SharedRecord() : m_memory(mmap(nullptr, sizeof(Record), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
    {
        if (m_memory == MAP_FAILED) {
            throw std::runtime_error("no shared memory");
        }
        std::memset(m_memory, 0x55, sizeof(Record));
        m_record = new (m_memory) Record;  // leaves the bytes as they are: the type is trivial
    }
    ~SharedRecord() { munmap(m_memory, sizeof(Record)); }

    SharedRecord(const SharedRecord&) = delete;
    SharedRecord& operator=(const SharedRecord&) = delete;

    Record& operator*() const { return *m_record; }

private:
    void* m_memory;
    Record* m_record;
};

/// Whether `action` ends its process with abort(). It runs in a child, which shares what is mapped as shared.
template <typename Action>
bool Aborts(Action&& action)
{
    const pid_t child = fork();
    if (child == 0) {
        std::freopen("/dev/null", "w", stderr);  // the assertion's text is the same in every death test
        action();
        _exit(0);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) {
        throw std::runtime_error("no child process");
    }
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
}

TYPED_TEST(FeMeasTest, ShortSampleEndsTheProcessInTheSegmentWhereTheDataRunsOutWithTheSegmentsBeforeWritten)
{
    constexpr std::size_t PER_SEGMENT = TypeParam::SAMPLE / SEGMENTS;
    for (const std::size_t missing : {std::size_t{1}, PER_SEGMENT, PER_SEGMENT + 1, TypeParam::SAMPLE}) {
        std::vector<float> samples = MakeSample<TypeParam>(1.0F);
        samples.resize(TypeParam::SAMPLE - missing);
        const SharedRecord<typename TypeParam::Record> record;
        ASSERT_TRUE(Aborts([&] { CopySampleToFeMeas(0, samples, *record); })) << missing;
        const std::size_t whole_segments = samples.size() / PER_SEGMENT;
        for (std::size_t k = 0; k < whole_segments * PER_SEGMENT; ++k) {
            ASSERT_EQ(Get<float>(*record, OffsetOf<TypeParam>(k)), samples[k]) << missing << ", element " << k;
        }
        for (std::size_t k = (whole_segments + 1) * PER_SEGMENT; k < TypeParam::SAMPLE; ++k) {
            ASSERT_EQ(Get<std::uint32_t>(*record, OffsetOf<TypeParam>(k)), 0x55555555U) << missing << ", " << k;
        }
        this->ExpectStatus(*record, TypeParam::COPY_CLEARS_STATUS ? 0U : 0x55555555U, whole_segments);
    }
}

TYPED_TEST(FeMeasTest, SampleThatJustFitsDoesNotEndTheProcess)
{
    const std::vector<float> samples(TypeParam::SAMPLE + 10, 1.0F);
    const SharedRecord<typename TypeParam::Record> record;
    EXPECT_FALSE(Aborts([&] { CopySampleToFeMeas(10, samples, *record); }));
    EXPECT_TRUE(Aborts([&] { CopySampleToFeMeas(11, samples, *record); }));
}

TYPED_TEST(FeMeasTest, StartOutOfRangeEndsTheProcessWithNothingWritten)
{
    const std::vector<float> samples(2 * TypeParam::SAMPLE, 1.0F);
    for (const int start : {-1, -static_cast<int>(TypeParam::SAMPLE), std::numeric_limits<int>::min(),
                            static_cast<int>(samples.size()), std::numeric_limits<int>::max()}) {
        const SharedRecord<typename TypeParam::Record> record;
        EXPECT_TRUE(Aborts([&] { CopySampleToFeMeas(start, samples, *record); })) << start;
        EXPECT_THAT(Bytes(*record, 0, TypeParam::RECORD_BYTES), ::testing::Each(0x55)) << start;
    }
}

TEST(FeMeasDeathTest, ShortSampleIsReportedAsAnElementOutOfRange)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EsRecord record{};
    EXPECT_DEATH(CopySampleToFeMeas(0, std::vector<float>(14363), record), "Assertion '__n < this->size\\(\\)' failed");
}

// ---- InitFeMeas, InitFeMeasRandom --------------------------------------------------------------------------------

TYPED_TEST(FeMeasTest, InitWritesEverythingButTheReservedBytes)
{
    auto record = MakeRecordOfBytes<typename TypeParam::Record>(0x55);
    InitFeMeas(*record, -42, 1234.5, -2.25F);
    this->ExpectHeader(*record, -42, 1234.5);
    EXPECT_EQ(Get<std::uint32_t>(*record, RESERVED), 0x55555555U);
    for (std::size_t offset = 24; offset < TypeParam::STATUS[0]; offset += 4) {
        ASSERT_EQ(Get<float>(*record, offset), -2.25F) << "offset " << offset;
    }
    this->ExpectStatus(*record, 0U);
}

TYPED_TEST(FeMeasTest, RandomInitDrawsOneNumberPerElementSegmentBySegmentAndElementByElementOverTheBlocks)
{
    auto record = MakeRecordOfBytes<typename TypeParam::Record>(0x55);
    std::srand(4711);
    InitFeMeasRandom(*record, 7, 0.125);
    const int next_drawn = std::rand();

    this->ExpectHeader(*record, 7, 0.125);
    EXPECT_EQ(Get<std::uint32_t>(*record, RESERVED), 0x55555555U);
    this->ExpectStatus(*record, 0U);
    std::srand(4711);
    for (std::size_t segment = 0; segment < SEGMENTS; ++segment) {
        for (std::size_t j = 0; j < TypeParam::VALUES; ++j) {
            for (const std::size_t block : TypeParam::BLOCKS) {
                ASSERT_EQ(Get<float>(*record, block + 4 * (TypeParam::VALUES * segment + j)),
                          static_cast<float>(std::rand()))
                    << "block at " << block << ", segment " << segment << ", element " << j;
            }
        }
    }
    EXPECT_EQ(std::rand(), next_drawn) << "one number for each element and none besides";
}

TYPED_TEST(FeMeasTest, RandomInitNeverSeeds)
{
    auto first = MakeRecordOfBytes<typename TypeParam::Record>(0);
    auto second = MakeRecordOfBytes<typename TypeParam::Record>(0);
    InitFeMeasRandom(*first, 0, 0.0);
    InitFeMeasRandom(*second, 0, 0.0);
    EXPECT_NE(Bytes(*first, 24, TypeParam::STATUS[0]), Bytes(*second, 24, TypeParam::STATUS[0]));
}

TYPED_TEST(FeMeasTest, NothingIsLogged)
{
    const LogCapture log("");
    auto record = MakeRecordOfBytes<typename TypeParam::Record>(0);
    InitFeMeas(*record, 0, 0.0, 1.0F);
    InitFeMeasRandom(*record, 0, 0.0);
    std::vector<float> samples;
    AddFeMeasToSamples(*record, samples);
    CopySampleToFeMeas(0, samples, *record);
    EXPECT_THAT(log.Events(), IsEmpty());
}

/// The thread sanitizer reports the store if it is not atomic.
TYPED_TEST(FeMeasTest, TimeStampMayBePolledWhileTheRecordIsFilled)
{
    constexpr int NUM_FILLINGS = 100;
    // Two time stamps that have no byte in common: half of each would be neither.
    const double even = std::bit_cast<double>(std::uint64_t{0x3FF1112233445566U});
    const double odd = std::bit_cast<double>(std::uint64_t{0x4008778899AABBCCU});
    auto record = MakeRecordOfBytes<typename TypeParam::Record>(0);
    auto& timestamp = *reinterpret_cast<double*>(record.get());
    std::atomic_ref<double>(timestamp).store(even);
    std::atomic<bool> stop{false};
    std::atomic<int> num_polls{0};
    int num_torn = 0;
    {
        std::jthread poller([&] {
            while (!stop.load(std::memory_order_relaxed)) {
                const double seen = std::atomic_ref<double>(timestamp).load(std::memory_order_relaxed);
                num_torn += seen != even && seen != odd ? 1 : 0;
                num_polls.fetch_add(1, std::memory_order_relaxed);
            }
        });
        for (int i = 0; i < NUM_FILLINGS; ++i) {
            const int polls_before = num_polls.load(std::memory_order_relaxed);
            InitFeMeas(*record, i, odd, 1.0F);
            InitFeMeasRandom(*record, i, even);
            while (num_polls.load(std::memory_order_relaxed) == polls_before) {
                std::this_thread::yield();
            }
        }
        stop.store(true, std::memory_order_relaxed);
    }
    EXPECT_EQ(num_torn, 0);
    EXPECT_GE(num_polls.load(), NUM_FILLINGS);
}

}  // namespace
}  // namespace lumo::ravelcore
