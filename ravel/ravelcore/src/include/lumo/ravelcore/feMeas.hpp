#pragma once

#include <lumo/ravelcore/export.hpp>
#include <nodeio/feMeas.hpp>

#include <cstddef>
#include <vector>

/// The front end's measurement records to flat sample vectors and back, and records filled for simulation.
///
/// A sample is segment-major. Of the edge sensors (ES) it holds for each segment 6 values of block 1, 6 of block 3 and
/// 6 of block 2, in this order, in both directions; of the position actuators (PACT) 3 values of block 1 and 3 of
/// block 2.
///
/// Of a record only the time stamp at its beginning may be polled by another thread meanwhile (std::atomic_ref);
/// everything else is plain memory.
namespace lumo::ravelcore {

/// Floats per sample.
inline constexpr std::size_t ES_SAMPLE_SIZE = nodeio::NUM_SEGMENTS * 3 * nodeio::ES_VALUES_PER_SEGMENT;
inline constexpr std::size_t PACT_SAMPLE_SIZE = nodeio::NUM_SEGMENTS * 2 * nodeio::PACT_VALUES_PER_SEGMENT;

/// Appends one sample to `samples`.
/// Thread:    any that owns both.
/// Real time: yes where `samples` has the capacity (reserve it); otherwise the vector grows.
/// Failure:   std::bad_alloc where the vector cannot grow; `samples` is then as it was.
RAVELCORE_API void AddFeMeasToSamples(const nodeio::EsMeas& record, std::vector<float>& samples);
RAVELCORE_API void AddFeMeasToSamples(const nodeio::PactMeas& record, std::vector<float>& samples);

/// Fills the blocks of a record with the sample that begins at element `start`. The ES record's status words become 0,
/// the PACT record's stay as they are; neither header is touched.
/// Thread:    any that owns the record.
/// Real time: yes.
/// Failure:   a sample that is too short ends the process in the segment where the data runs out; the segments before
///            are written.
RAVELCORE_API void CopySampleToFeMeas(int start, const std::vector<float>& samples, nodeio::EsMeas& record);
RAVELCORE_API void CopySampleToFeMeas(int start, const std::vector<float>& samples, nodeio::PactMeas& record);

/// Writes `time` (s) and `tag` into the header, `value` into every block element and 0 into every status word.
/// Thread:    the writer's; the time stamp is stored atomically.
/// Real time: yes.
RAVELCORE_API void InitFeMeas(nodeio::EsMeas& record, int tag, double time, float value);
RAVELCORE_API void InitFeMeas(nodeio::PactMeas& record, int tag, double time, float value);

/// As InitFeMeas, with one std::rand() per block element, unscaled, in the order of the sample. Never seeds.
/// Thread:    as rand(): one thread at a time in the whole process.
/// Real time: no (rand() locks).
RAVELCORE_API void InitFeMeasRandom(nodeio::EsMeas& record, int tag, double time);
RAVELCORE_API void InitFeMeasRandom(nodeio::PactMeas& record, int tag, double time);

}  // namespace lumo::ravelcore
