#pragma once

#include <brisk/export.hpp>

#include <exception>
#include <list>
#include <string>

namespace brisk {

/// The exception of the framework: a message, and the place it comes from as far as its thrower has filled it in.
/// Thrown by value, caught by reference to const. Its type is one and the same in every library of a process.
/// Thread:    one object belongs to one thread at a time, as with any value; the getters may be called at the same
///            time.
/// Real time: no; everything but what() and the getters allocates.
/// Data:      the getters' references live as long as the exception and until the same field is set again.
/// Failure:   std::bad_alloc only.
class BRISK_API Exception : public std::exception
{
public:
    /// Everything but the message is empty, the line number 0.
    explicit Exception(const std::string& message);

    Exception(const Exception&);
    Exception(Exception&&) noexcept;
    Exception& operator=(const Exception&);
    Exception& operator=(Exception&&) noexcept;
    ~Exception() override;

    /// The message; never null, valid as long as the exception.
    const char* what() const noexcept override;

    void SetFileName(const std::string& file_name);
    void SetFunctionName(const std::string& function_name);
    void SetLineNumber(int line_number);
    void SetClassName(const std::string& class_name);
    void SetExceptionStack(const std::list<std::string>& exception_stack);

    const std::string& GetMessage() const noexcept;
    const std::string& GetFileName() const noexcept;
    const std::string& GetFunctionName() const noexcept;
    int GetLineNumber() const noexcept;
    const std::string& GetClassName() const noexcept;
    const std::list<std::string>& GetExceptionStack() const noexcept;

    /// The demangled name of the object's own type: "brisk::Exception", or that of the class derived from it.
    std::string GetTypeName() const;

private:
    std::string m_message;
    std::string m_file_name;
    std::string m_function_name;
    int m_line_number = 0;
    std::string m_class_name;
    std::list<std::string> m_exception_stack;
};

}  // namespace brisk
