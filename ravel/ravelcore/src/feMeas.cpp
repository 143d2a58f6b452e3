#include <lumo/ravelcore/feMeas.hpp>

#include <array>
#include <atomic>
#include <cstdlib>

namespace lumo::ravelcore {

namespace {

using nodeio::ES_VALUES_PER_SEGMENT;
using nodeio::EsMeas;
using nodeio::NUM_SEGMENTS;
using nodeio::PACT_VALUES_PER_SEGMENT;
using nodeio::PactMeas;

static_assert(ES_SAMPLE_SIZE == 14364 && PACT_SAMPLE_SIZE == 4788);

// The blocks in the order of the sample. Block 3 before block 2 is meant, and the same in both directions.
constexpr std::array ES_BLOCKS = {&EsMeas::block1, &EsMeas::block3, &EsMeas::block2};
constexpr std::array PACT_BLOCKS = {&PactMeas::block1, &PactMeas::block2};

template <typename Record, typename Blocks>
void AddSegments(const Record& record, const Blocks& blocks, std::size_t values_per_segment,
                 std::vector<float>& samples)
{
    for (std::size_t segment = 0; segment < NUM_SEGMENTS; ++segment) {
        for (const auto block : blocks) {
            const float* values = (record.*block).data() + segment * values_per_segment;
            samples.insert(samples.end(), values, values + values_per_segment);
        }
    }
}

template <typename Record, typename Blocks>
void CopySegments(int start, const std::vector<float>& samples, const Blocks& blocks, std::size_t values_per_segment,
                  Record& record)
{
    auto next = static_cast<std::size_t>(start);
    for (std::size_t segment = 0; segment < NUM_SEGMENTS; ++segment) {
        for (const auto block : blocks) {
            for (std::size_t j = 0; j < values_per_segment; ++j) {
                (record.*block)[segment * values_per_segment + j] = samples[next++];  // element access is checked
            }
        }
    }
}

template <typename Record>
void InitHeader(Record& record, int tag, double time)
{
    static_assert(std::atomic_ref<double>::is_always_lock_free);
    record.time = time;
    record.tag = tag;
    // Orders nothing else: the record's other fields are handed over by other means.
    std::atomic_ref<double>(record.timestamp).store(time);
}

void ClearStatus(EsMeas& record)
{
    record.status1.fill(0);
    record.status2.fill(0);
}

template <typename Record, typename Blocks>
void FillRandomly(Record& record, const Blocks& blocks, std::size_t values_per_segment)
{
    for (std::size_t segment = 0; segment < NUM_SEGMENTS; ++segment) {
        for (std::size_t j = 0; j < values_per_segment; ++j) {
            for (const auto block : blocks) {
                // NOLINTNEXTLINE(cert-msc30-c,cert-msc50-cpp,concurrency-mt-unsafe): the standard generator is meant
                (record.*block)[segment * values_per_segment + j] = static_cast<float>(std::rand());
            }
        }
    }
}

}  // namespace

void AddFeMeasToSamples(const EsMeas& record, std::vector<float>& samples)
{
    AddSegments(record, ES_BLOCKS, ES_VALUES_PER_SEGMENT, samples);
}

void AddFeMeasToSamples(const PactMeas& record, std::vector<float>& samples)
{
    AddSegments(record, PACT_BLOCKS, PACT_VALUES_PER_SEGMENT, samples);
}

void CopySampleToFeMeas(int start, const std::vector<float>& samples, EsMeas& record)
{
    CopySegments(start, samples, ES_BLOCKS, ES_VALUES_PER_SEGMENT, record);
    ClearStatus(record);
}

void CopySampleToFeMeas(int start, const std::vector<float>& samples, PactMeas& record)
{
    CopySegments(start, samples, PACT_BLOCKS, PACT_VALUES_PER_SEGMENT, record);
}

void InitFeMeas(EsMeas& record, int tag, double time, float value)
{
    InitHeader(record, tag, time);
    record.block1.fill(value);
    record.block2.fill(value);
    record.block3.fill(value);
    ClearStatus(record);
}

void InitFeMeas(PactMeas& record, int tag, double time, float value)
{
    InitHeader(record, tag, time);
    record.block1.fill(value);
    record.block2.fill(value);
    record.status.fill(0);
}

void InitFeMeasRandom(EsMeas& record, int tag, double time)
{
    InitHeader(record, tag, time);
    FillRandomly(record, ES_BLOCKS, ES_VALUES_PER_SEGMENT);
    ClearStatus(record);
}

void InitFeMeasRandom(PactMeas& record, int tag, double time)
{
    InitHeader(record, tag, time);
    FillRandomly(record, PACT_BLOCKS, PACT_VALUES_PER_SEGMENT);
    record.status.fill(0);
}

}  // namespace lumo::ravelcore
