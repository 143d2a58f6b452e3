#pragma once

#include <lumo/ravelcore/export.hpp>
#include <lumo/ravelcore/task.hpp>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace lumo::ravelcore {

/// One single-precision matrix-vector product per cycle: loads and times a processor with a known amount of work.
/// y = A x. A: rows x cols, row-major, no padding. x: cols values. y: rows values.
class RAVELCORE_API TaskSgemv : public Task
{
public:
    /// Stores the counts; the vectors stay empty until Initialize.
    TaskSgemv(int num_rows, int num_cols);
    ~TaskSgemv() override;

    /// Sizes the matrix and both vectors for the current counts and zeroes them; earlier contents are discarded.
    /// Also lets the BLAS map its buffers now, so that the first cycle does not pay for it.
    /// Thread:    the worker's before its first cycle, or the owner's while no cycle runs.
    /// Real time: no.
    /// Failure:   brisk::Exception for a negative count or more than 2^31 - 1 elements, each time until Configure gives
    ///            other counts; counts and vectors are unchanged.
    void Initialize() override;

    /// Takes KEY_TASK_SGEMV_NUM_ROWS and KEY_TASK_SGEMV_NUM_COLS; if either is there, calls Initialize.
    /// Thread:    the owner's, while no cycle runs.
    /// Real time: no.
    /// Failure:   what std::stoi throws; a key read before the bad one keeps its new value, Initialize is not called.
    ///            What Initialize throws; the new counts are kept. Either way the vectors are unchanged, and Execute
    ///            goes on with them.
    void Configure(const std::map<std::string, std::string>& cfg) override;

    /// One product, of the sizes with which Initialize has last succeeded; of no elements before. Both arguments are
    /// ignored.
    /// Thread:    the worker's.
    /// Real time: yes.
    void Execute(double time_stamp, bool first) override;

    /// Replaces the matrix, num_rows x num_cols values, row-major; copied. May be GetMatrix().
    /// Thread:    the owner's, while no cycle runs (no lock).
    /// Real time: allocation-free.
    /// Failure:   brisk::Exception for another number of elements; the task is unchanged.
    void SetMatrix(const std::vector<float>& m);

    /// Replaces the input vector, num_cols values; copied. May be GetInputVector().
    /// Thread:    the owner's, while no cycle runs (no lock).
    /// Real time: allocation-free.
    /// Failure:   brisk::Exception for another number of elements; the task is unchanged.
    void SetInputVector(const std::vector<float>& v);

    /// The counts are those configured, also where Initialize has refused them; the vectors are those of Execute.
    /// Thread: any; the vectors only while no cycle runs. Real time: yes. The references live as long as the task.
    int GetNumRows() const;
    int GetNumCols() const;
    const std::vector<float>& GetMatrix() const;
    const std::vector<float>& GetInputVector() const;
    const std::vector<float>& GetOutputVector() const;

private:
    int m_num_rows;
    int m_num_cols;
    std::vector<float> m_vector_in;
    std::vector<float> m_matrix;
    std::vector<float> m_vector_out;
    std::shared_ptr<void> m_blas_user;  // since Initialize: keeps a work buffer of the BLAS ready for this task
};

}  // namespace lumo::ravelcore
