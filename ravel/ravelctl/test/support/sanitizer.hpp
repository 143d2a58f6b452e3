#pragma once

namespace lumo::ravelctl::test {

/// Whether this is a build with a sanitizer, in which everything takes several times as long.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool SANITIZED = true;
#else
inline constexpr bool SANITIZED = false;
#endif

}  // namespace lumo::ravelctl::test
