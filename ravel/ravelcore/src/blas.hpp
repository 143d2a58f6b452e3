#pragma once

#include <memory>
#include <string>

/// The few forms in which the library calls the BLAS.
namespace lumo::ravelcore::blas {

/// Keeps the BLAS from starting threads of its own for calls made from now on. Warns when the BLAS was built without
/// threads: that is not the same as using one, such a build is not safe to call from two workers.
void UseOneThread();

/// y = A x with A of rows x cols, row-major, no padding; y is overwritten, with zeros when cols is 0.
/// cblas_sgemv with alpha 1, beta 0 and unit strides.
/// Real time: yes, once the BLAS has mapped its buffers (WarmUp).
void Multiply(const float* a, int rows, int cols, const float* x, float* y);

/// y += x, n elements. cblas_saxpy with alpha 1 and unit strides.
/// Real time: yes.
void Add(int n, const float* x, float* y);

/// Whether a matrix can have these counts: none negative, and the product within int.
bool IsMatrixSize(int rows, int cols);

/// What to say of counts that no matrix can have.
std::string ImpossibleSizeText(int rows, int cols);

/// Makes one large product and has the BLAS map its work buffers now and not in the first cycles: as many as there are
/// holders of what this returns, the caller included, because each product that is under way needs one of its own. A
/// task keeps what is returned as long as it lives, and gives it back when it calls this again.
/// Thread:    any.
/// Real time: no (allocates, locks).
std::shared_ptr<void> WarmUp();

}  // namespace lumo::ravelcore::blas
