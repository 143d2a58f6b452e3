#include "blas.hpp"

#include <lumo/ravelcore/exception.hpp>
#include <lumo/ravelcore/logger.hpp>
#include <lumo/ravelcore/names.hpp>
#include <lumo/ravelcore/taskSgemv.hpp>

#include <algorithm>

namespace lumo::ravelcore {

TaskSgemv::TaskSgemv(int num_rows, int num_cols) : Task("TaskSgemv"), m_num_rows(num_rows), m_num_cols(num_cols)
{
    RAVELCORE_TRACE_ENTRY(m_logger);
}

TaskSgemv::~TaskSgemv()
{
    RAVELCORE_TRACE_ENTRY(m_logger);
}

void TaskSgemv::Initialize()
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    blas::UseOneThread();
    if (!blas::IsMatrixSize(m_num_rows, m_num_cols)) {
        RAVELCORE_THROW(blas::ImpossibleSizeText(m_num_rows, m_num_cols));
    }
    m_vector_in.assign(static_cast<std::size_t>(m_num_cols), 0.0F);
    m_matrix.assign(static_cast<std::size_t>(m_num_rows) * static_cast<std::size_t>(m_num_cols), 0.0F);
    m_vector_out.assign(static_cast<std::size_t>(m_num_rows), 0.0F);
    m_blas_user.reset();
    m_blas_user = blas::WarmUp();
}

void TaskSgemv::Configure(const std::map<std::string, std::string>& cfg)
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    bool resized = false;
    for (const auto& [key, value] : cfg) {
        if (key == KEY_TASK_SGEMV_NUM_ROWS) {
            m_num_rows = std::stoi(value);
            resized = true;
        } else if (key == KEY_TASK_SGEMV_NUM_COLS) {
            m_num_cols = std::stoi(value);
            resized = true;
        }
    }
    if (resized) {
        Initialize();
    }
}

void TaskSgemv::Execute(double /*time_stamp*/, bool /*first*/)
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    const auto start = std::chrono::steady_clock::now();
    // The vectors' own sizes: the counts may be ahead of them, where Initialize has refused them or was not called.
    const auto num_rows = static_cast<int>(m_vector_out.size());
    const auto num_cols = static_cast<int>(m_vector_in.size());
    blas::Multiply(m_matrix.data(), num_rows, num_cols, m_vector_in.data(), m_vector_out.data());
    UpdateExecTime(start);
}

void TaskSgemv::SetMatrix(const std::vector<float>& m)
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    if (m.size() != m_matrix.size()) {
        RAVELCORE_THROW("Expected matrix of " + std::to_string(m_matrix.size()) + " but received one of " +
                        std::to_string(m.size()) + " elements.");
    }
    if (&m != &m_matrix) {
        std::copy(m.begin(), m.end(), m_matrix.begin());
    }
}

void TaskSgemv::SetInputVector(const std::vector<float>& v)
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    if (v.size() != m_vector_in.size()) {
        // Meant: the expected figure is the matrix's element count, although the vector is what is compared.
        RAVELCORE_THROW("Expected input vector of " + std::to_string(m_matrix.size()) + " but received one of " +
                        std::to_string(v.size()) + " elements.");
    }
    if (&v != &m_vector_in) {
        std::copy(v.begin(), v.end(), m_vector_in.begin());
    }
}

int TaskSgemv::GetNumRows() const
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    return m_num_rows;
}

int TaskSgemv::GetNumCols() const
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    return m_num_cols;
}

const std::vector<float>& TaskSgemv::GetMatrix() const
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    return m_matrix;
}

const std::vector<float>& TaskSgemv::GetInputVector() const
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    return m_vector_in;
}

const std::vector<float>& TaskSgemv::GetOutputVector() const
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    return m_vector_out;
}

}  // namespace lumo::ravelcore
