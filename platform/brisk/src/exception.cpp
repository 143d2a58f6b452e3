#include "demangle.hpp"

#include <brisk/exception.hpp>

#include <typeinfo>

namespace brisk {

Exception::Exception(const std::string& message) : m_message(message)
{
}

// Defined here and not in the header, so that the type information exists once, in this library.
Exception::Exception(const Exception&) = default;
Exception::Exception(Exception&&) noexcept = default;
Exception& Exception::operator=(const Exception&) = default;
Exception& Exception::operator=(Exception&&) noexcept = default;
Exception::~Exception() = default;

const char* Exception::what() const noexcept
{
    return m_message.c_str();
}

void Exception::SetFileName(const std::string& file_name)
{
    m_file_name = file_name;
}
void Exception::SetFunctionName(const std::string& function_name)
{
    m_function_name = function_name;
}
void Exception::SetLineNumber(int line_number)
{
    m_line_number = line_number;
}
void Exception::SetClassName(const std::string& class_name)
{
    m_class_name = class_name;
}
void Exception::SetExceptionStack(const std::list<std::string>& exception_stack)
{
    m_exception_stack = exception_stack;
}

const std::string& Exception::GetMessage() const noexcept
{
    return m_message;
}
const std::string& Exception::GetFileName() const noexcept
{
    return m_file_name;
}
const std::string& Exception::GetFunctionName() const noexcept
{
    return m_function_name;
}
int Exception::GetLineNumber() const noexcept
{
    return m_line_number;
}
const std::string& Exception::GetClassName() const noexcept
{
    return m_class_name;
}
const std::list<std::string>& Exception::GetExceptionStack() const noexcept
{
    return m_exception_stack;
}

std::string Exception::GetTypeName() const
{
    return Demangle(typeid(*this).name());
}

}  // namespace brisk
