#pragma once

#include <chrono>
#include <vector>

namespace lumo::ravelcore::test {

/// The arguments of one call of cblas_sgemv, in its order.
struct SgemvCall
{
    int order;
    int trans;
    int m;
    int n;
    float alpha;
    const float* a;
    int lda;
    const float* x;
    int inc_x;
    float beta;
    const float* y;
    int inc_y;
};

/// The arguments of one call of cblas_saxpy, in its order.
struct SaxpyCall
{
    int n;
    float alpha;
    const float* x;
    int inc_x;
    const float* y;
    int inc_y;
};

/// Notes the calls of the BLAS's two routines while it lives. A program that uses it compiles blasRecorder.cpp, which
/// replaces the routines in that program, also while there is no recorder. The replacements compute nothing:
/// cblas_sgemv sets all its outputs to the number of the call, from 1, cblas_saxpy leaves them alone. Thread: one at a
/// time; its thread makes all the calls.
class BlasRecorder
{
public:
    /// Each call takes at least `delay`.
    explicit BlasRecorder(std::chrono::nanoseconds delay = std::chrono::nanoseconds(0));
    ~BlasRecorder();

    BlasRecorder(const BlasRecorder&) = delete;
    BlasRecorder& operator=(const BlasRecorder&) = delete;

    const std::vector<SgemvCall>& GetSgemvCalls() const { return m_sgemv_calls; }
    const std::vector<SaxpyCall>& GetSaxpyCalls() const { return m_saxpy_calls; }

    /// What the replaced routines do; the result is the number of the call.
    int Note(const SgemvCall& call);
    int Note(const SaxpyCall& call);

private:
    void Delay() const;

    std::chrono::nanoseconds m_delay;
    std::vector<SgemvCall> m_sgemv_calls;
    std::vector<SaxpyCall> m_saxpy_calls;
};

}  // namespace lumo::ravelcore::test
