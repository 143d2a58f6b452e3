#include <lumo/ravelcore/feMeas.hpp>

#include <algorithm>
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

// A segment's values of all blocks lie side by side in the sample: the size of the inner loops is known here, so that
// they are copies of a few registers and not calls.

template <std::size_t VALUES_PER_SEGMENT, const auto& BLOCKS, typename Record>
void AddSegments(const Record& record, std::vector<float>& samples)
{
    const std::size_t old_size = samples.size();
    samples.resize(old_size + NUM_SEGMENTS * BLOCKS.size() * VALUES_PER_SEGMENT);  // once: all of it or nothing
    float* next = samples.data() + old_size;
    for (std::size_t segment = 0; segment < NUM_SEGMENTS; ++segment) {
        for (const auto block : BLOCKS) {
            next = std::copy_n(&(record.*block)[segment * VALUES_PER_SEGMENT], VALUES_PER_SEGMENT, next);
        }
    }
}

/// Copies one segment, which begins at element `start`.
template <std::size_t VALUES_PER_SEGMENT, const auto& BLOCKS, typename Record>
void CopySegment(std::size_t start, const std::vector<float>& samples, std::size_t segment, Record& record)
{
    // Element access is checked, here at both ends: a start below 0 fails at the first, a short sample at the last.
    const float* next = &samples[start];
    static_cast<void>(samples[start + BLOCKS.size() * VALUES_PER_SEGMENT - 1]);
    for (const auto block : BLOCKS) {
        std::copy_n(next, VALUES_PER_SEGMENT, &(record.*block)[segment * VALUES_PER_SEGMENT]);
        next += VALUES_PER_SEGMENT;
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
    AddSegments<ES_VALUES_PER_SEGMENT, ES_BLOCKS>(record, samples);
}

void AddFeMeasToSamples(const PactMeas& record, std::vector<float>& samples)
{
    AddSegments<PACT_VALUES_PER_SEGMENT, PACT_BLOCKS>(record, samples);
}

void CopySampleToFeMeas(int start, const std::vector<float>& samples, EsMeas& record)
{
    constexpr std::size_t SEGMENT_SIZE = ES_SAMPLE_SIZE / NUM_SEGMENTS;
    auto next = static_cast<std::size_t>(start);
    for (std::size_t segment = 0; segment < NUM_SEGMENTS; ++segment, next += SEGMENT_SIZE) {
        CopySegment<ES_VALUES_PER_SEGMENT, ES_BLOCKS>(next, samples, segment, record);
        record.status1[segment] = 0;
        record.status2[segment] = 0;
    }
}

void CopySampleToFeMeas(int start, const std::vector<float>& samples, PactMeas& record)
{
    constexpr std::size_t SEGMENT_SIZE = PACT_SAMPLE_SIZE / NUM_SEGMENTS;
    auto next = static_cast<std::size_t>(start);
    for (std::size_t segment = 0; segment < NUM_SEGMENTS; ++segment, next += SEGMENT_SIZE) {
        CopySegment<PACT_VALUES_PER_SEGMENT, PACT_BLOCKS>(next, samples, segment, record);
    }
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
