#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

/// What the front end collects. Unscoped and outside any namespace, as in the front end's C interface.
enum FE_TYPES_COLLECT : int
{
    FE_TYPES_COLLECT_ES_MEAS,   ///< measurements of the edge sensors (ES)
    FE_TYPES_COLLECT_PACT_MEAS  ///< measurements of the position actuators (PACT)
};

namespace nodeio {

using ::FE_TYPES_COLLECT;
using ::FE_TYPES_COLLECT_ES_MEAS;
using ::FE_TYPES_COLLECT_PACT_MEAS;

inline constexpr std::size_t NUM_SEGMENTS = 798;
inline constexpr std::size_t ES_VALUES_PER_SEGMENT = 6;    // in each block of the ES record
inline constexpr std::size_t PACT_VALUES_PER_SEGMENT = 3;  // in each block of the PACT record

/// One record of the front end, as it stands in memory shared with it: one per cycle and type.
/// Blocks are segment-major: value j of segment s is element s * VALUES_PER_SEGMENT + j.
/// A record is plain data and may hold anything until it is filled. `timestamp` is the only field that a reader may
/// poll while a writer fills the record; both then access it atomically (std::atomic_ref). Only the two types below
/// exist.
template <FE_TYPES_COLLECT type>
struct SingleFEMeasType;

/// The record of the edge sensors.
template <>
struct SingleFEMeasType<FE_TYPES_COLLECT_ES_MEAS>
{
    static constexpr std::size_t NUM_VALUES = NUM_SEGMENTS * ES_VALUES_PER_SEGMENT;  // in each block

    double timestamp;                      // s, accessed atomically
    std::int32_t tag;                      // counter or tag, as the writer pleases
    std::array<std::byte, 4> reserved;     // not touched
    double time;                           // s, the writer's copy of `timestamp`
    std::array<float, NUM_VALUES> block1;  // the meaning of the blocks and status words is the front end's
    std::array<float, NUM_VALUES> block2;
    std::array<float, NUM_VALUES> block3;
    std::array<std::uint32_t, NUM_SEGMENTS> status1;
    std::array<std::uint32_t, NUM_SEGMENTS> status2;
};

/// The record of the position actuators.
template <>
struct SingleFEMeasType<FE_TYPES_COLLECT_PACT_MEAS>
{
    static constexpr std::size_t NUM_VALUES = NUM_SEGMENTS * PACT_VALUES_PER_SEGMENT;  // in each block

    double timestamp;                      // s, accessed atomically
    std::int32_t tag;                      // counter or tag, as the writer pleases
    std::array<std::byte, 4> reserved;     // not touched
    double time;                           // s, the writer's copy of `timestamp`
    std::array<float, NUM_VALUES> block1;  // the meaning of the blocks and the status word is the front end's
    std::array<float, NUM_VALUES> block2;
    std::array<std::uint32_t, NUM_SEGMENTS> status;
};

using EsMeas = SingleFEMeasType<FE_TYPES_COLLECT_ES_MEAS>;
using PactMeas = SingleFEMeasType<FE_TYPES_COLLECT_PACT_MEAS>;

// The layout is agreed with the front end, byte by byte.
static_assert(std::is_trivially_copyable_v<EsMeas> && std::is_standard_layout_v<EsMeas>);
static_assert(alignof(EsMeas) == 8 && sizeof(EsMeas) == 63864);
static_assert(offsetof(EsMeas, timestamp) == 0 && sizeof(EsMeas::timestamp) == 8);
static_assert(offsetof(EsMeas, tag) == 8 && sizeof(EsMeas::tag) == 4);
static_assert(offsetof(EsMeas, reserved) == 12 && sizeof(EsMeas::reserved) == 4);
static_assert(offsetof(EsMeas, time) == 16 && sizeof(EsMeas::time) == 8);
static_assert(offsetof(EsMeas, block1) == 24 && sizeof(EsMeas::block1) == 19152);
static_assert(offsetof(EsMeas, block2) == 19176 && sizeof(EsMeas::block2) == 19152);
static_assert(offsetof(EsMeas, block3) == 38328 && sizeof(EsMeas::block3) == 19152);
static_assert(offsetof(EsMeas, status1) == 57480 && sizeof(EsMeas::status1) == 3192);
static_assert(offsetof(EsMeas, status2) == 60672 && sizeof(EsMeas::status2) == 3192);

static_assert(std::is_trivially_copyable_v<PactMeas> && std::is_standard_layout_v<PactMeas>);
static_assert(alignof(PactMeas) == 8 && sizeof(PactMeas) == 22368);
static_assert(offsetof(PactMeas, timestamp) == 0 && sizeof(PactMeas::timestamp) == 8);
static_assert(offsetof(PactMeas, tag) == 8 && sizeof(PactMeas::tag) == 4);
static_assert(offsetof(PactMeas, reserved) == 12 && sizeof(PactMeas::reserved) == 4);
static_assert(offsetof(PactMeas, time) == 16 && sizeof(PactMeas::time) == 8);
static_assert(offsetof(PactMeas, block1) == 24 && sizeof(PactMeas::block1) == 9576);
static_assert(offsetof(PactMeas, block2) == 9600 && sizeof(PactMeas::block2) == 9576);
static_assert(offsetof(PactMeas, status) == 19176 && sizeof(PactMeas::status) == 3192);

}  // namespace nodeio
