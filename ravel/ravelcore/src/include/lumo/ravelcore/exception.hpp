#pragma once

#include <brisk/assert.hpp>
#include <brisk/exception.hpp>
#include <lumo/ravelcore/export.hpp>

#include <string>

namespace lumo::ravelcore {

/// Builds the exception that the library throws by value.
/// `code` is not used. `file` may be a path: only its last component is kept. `function` is the short name.
/// The class name is the demangled name of brisk::Exception, the exception stack one entry, the exception's own type
/// name. Thread: any. Real time: no (allocates).
RAVELCORE_API brisk::Exception CreateExceptionObject(int code, const std::string& file, int line,
                                                     const std::string& function, const std::string& message);

}  // namespace lumo::ravelcore

/// Throws a brisk::Exception that carries `message` and the place and function where this stands.
#define RAVELCORE_THROW(message) \
    throw ::lumo::ravelcore::CreateExceptionObject(0, __FILE__, __LINE__, __func__, (message))

/// Reports a caller's mistake through brisk::Assert, which may return: the code after it must cope.
#define RAVELCORE_ASSERT(condition) ::brisk::Assert((condition), __FILE__, __func__, __LINE__)
