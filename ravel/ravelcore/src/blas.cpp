#include "blas.hpp"

#include <lumo/ravelcore/logger.hpp>

#include <cblas.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <limits>
#include <mutex>
#include <string>
#include <vector>

// What the BLAS itself takes and returns its work buffers with. Its headers do not declare them, and a build of it may
// lack them: then the buffers are mapped when they are first needed.
extern "C" {
void* blas_memory_alloc(int purpose) __attribute__((weak));
void blas_memory_free(void* buffer) __attribute__((weak));
}

namespace lumo::ravelcore::blas {

namespace {

std::mutex users_mutex;
int num_users = 0;  // holders of a UserMark, under users_mutex

/// Takes `count` work buffers at once and gives them all back: from then on that many products at a time find theirs.
void MapBuffers(int count)
{
    // The table of buffers inside the BLAS is finite and the program ends when it overflows. Users beyond this many
    // have their buffer mapped in the cycle in which they first need it.
    constexpr int MOST = 64;
    // More than the kernels write there for vectors of this system's sizes; each buffer is far larger.
    constexpr std::size_t TOUCHED_BYTES = std::size_t{256} * 1024;
    if (blas_memory_alloc == nullptr || blas_memory_free == nullptr) {
        return;
    }
    std::vector<void*> buffers(static_cast<std::size_t>(std::min(count, MOST)), nullptr);
    for (void*& buffer : buffers) {
        buffer = blas_memory_alloc(0);
        if (buffer != nullptr) {
            std::memset(buffer, 0, TOUCHED_BYTES);  // or the first cycle would pay for the page faults
        }
    }
    for (void* buffer : buffers) {
        if (buffer != nullptr) {
            blas_memory_free(buffer);
        }
    }
}

/// Stands for one task that may be inside a product.
class UserMark
{
public:
    UserMark()
    {
        const std::lock_guard<std::mutex> lock(users_mutex);
        MapBuffers(num_users + 1);
        ++num_users;
    }
    ~UserMark()
    {
        const std::lock_guard<std::mutex> lock(users_mutex);
        --num_users;
    }
    UserMark(const UserMark&) = delete;
    UserMark& operator=(const UserMark&) = delete;
};

}  // namespace

void UseOneThread()
{
    openblas_set_num_threads(1);
    static std::atomic<bool> warned{false};
    if (openblas_get_parallel() == OPENBLAS_SEQUENTIAL && !warned.exchange(true)) {
        LOG4CPLUS_WARN(GetLogger(), "Expected a BLAS built with threads but found "
                                        << openblas_get_config()
                                        << ": products of two workers at once can be wrong. Install one with threads.");
    }
}

void Multiply(const float* a, int rows, int cols, const float* x, float* y)
{
    if (rows == 0 || cols == 0) {  // the BLAS refuses a leading dimension of 0 with a line on standard error
        std::fill_n(y, rows, 0.0F);
        return;
    }
    cblas_sgemv(CblasRowMajor, CblasNoTrans, rows, cols, 1.0F, a, cols, x, 1, 0.0F, y, 1);
}

void Add(int n, const float* x, float* y)
{
    cblas_saxpy(n, 1.0F, x, 1, y, 1);
}

bool IsMatrixSize(int rows, int cols)
{
    return rows >= 0 && cols >= 0 && std::int64_t{rows} * cols <= std::numeric_limits<int>::max();
}

std::string ImpossibleSizeText(int rows, int cols)
{
    return "Expected a matrix with counts of 0 or more and at most " + std::to_string(std::numeric_limits<int>::max()) +
           " elements but received one of " + std::to_string(rows) + " x " + std::to_string(cols) + ".";
}

std::shared_ptr<void> WarmUp()
{
    // Large enough that no small-matrix shortcut of the BLAS applies.
    constexpr int SIZE = 512;
    const std::vector<float> a(static_cast<std::size_t>(SIZE) * SIZE, 0.0F);
    const std::vector<float> x(SIZE, 0.0F);
    std::vector<float> y(SIZE, 0.0F);
    Multiply(a.data(), SIZE, SIZE, x.data(), y.data());
    return std::make_shared<UserMark>();
}

}  // namespace lumo::ravelcore::blas
