#include "demangle.hpp"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>

namespace brisk {

std::string Demangle(const char* mangled)
{
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> demangled(abi::__cxa_demangle(mangled, nullptr, nullptr, &status),
                                                           &std::free);
    return demangled != nullptr ? demangled.get() : mangled;
}

}  // namespace brisk
