#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace lumo::ravelctl {

/// What a real-time process asks of the system, for itself. What may be refused answers 0 or an errno value.
class SystemCalls
{
public:
    virtual ~SystemCalls() = default;

    /// Whether a thread may have this real-time priority. Tried by a thread of its own.
    virtual int TryPriority(int priority) = 0;

    /// Locks every page that the process has and will have, from its first use on: what is mapped but never used, such
    /// as the buffers of the BLAS, takes no memory. Refused too (EAGAIN) where a limit would let a later allocation
    /// fail: without a lock it would not.
    virtual int LockMemory() = 0;
    virtual void UnlockMemory() = 0;

    /// Bytes that may be locked; missing: no limit.
    virtual std::optional<std::uint64_t> GetLockLimit() = 0;

    /// Finds all pages of the program and its libraries now.
    virtual void TouchProgram() = 0;

    /// Memory that is freed stays with the process: giving it back would interrupt every CPU that runs one of its
    /// threads.
    virtual void KeepFreedMemory() = 0;

    /// The CPUs of the calling thread, and of those that it starts.
    virtual std::vector<int> GetCpus() = 0;
    virtual int SetCpus(const std::vector<int>& cpus) = 0;
};

/// This machine's.
SystemCalls& ThisSystem();

}  // namespace lumo::ravelctl
