#include "blasRecorder.hpp"

#include <cblas.h>

#include <algorithm>

namespace lumo::ravelcore::test {

namespace {

BlasRecorder* g_recorder = nullptr;

}  // namespace

BlasRecorder::BlasRecorder(std::chrono::nanoseconds delay) : m_delay(delay)
{
    g_recorder = this;
}

BlasRecorder::~BlasRecorder()
{
    g_recorder = nullptr;
}

int BlasRecorder::Note(const SgemvCall& call)
{
    Delay();
    m_sgemv_calls.push_back(call);
    return static_cast<int>(m_sgemv_calls.size());
}

int BlasRecorder::Note(const SaxpyCall& call)
{
    Delay();
    m_saxpy_calls.push_back(call);
    return static_cast<int>(m_saxpy_calls.size());
}

void BlasRecorder::Delay() const
{
    const auto end = std::chrono::steady_clock::now() + m_delay;
    while (std::chrono::steady_clock::now() < end) {
    }
}

}  // namespace lumo::ravelcore::test

// Visible, or the library would go on calling the BLAS's.
#define RAVELCORE_REPLACES __attribute__((visibility("default")))

extern "C" {
RAVELCORE_REPLACES void cblas_sgemv(CBLAS_ORDER order, CBLAS_TRANSPOSE trans, blasint m, blasint n, float alpha,
                                    const float* a, blasint lda, const float* x, blasint inc_x, float beta, float* y,
                                    blasint inc_y)
{
    if (lumo::ravelcore::test::g_recorder != nullptr) {
        const int number = lumo::ravelcore::test::g_recorder->Note(
            lumo::ravelcore::test::SgemvCall{order, trans, m, n, alpha, a, lda, x, inc_x, beta, y, inc_y});
        std::fill_n(y, m, static_cast<float>(number));
    }
}

RAVELCORE_REPLACES void cblas_saxpy(blasint n, float alpha, const float* x, blasint inc_x, float* y, blasint inc_y)
{
    if (lumo::ravelcore::test::g_recorder != nullptr) {
        lumo::ravelcore::test::g_recorder->Note(lumo::ravelcore::test::SaxpyCall{n, alpha, x, inc_x, y, inc_y});
    }
}
}
