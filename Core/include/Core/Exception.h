#pragma once

#include "Core/Export.h"

#include <exception>
#include <string>
#include <utility>

namespace Core {

/// What an exception of the host is about. The number is what `GetErrorCode` returns;
/// numbers are published through log entries and never change.
enum class CORE_API ErrorCode : unsigned int
{
    TypeMismatch = 1,       ///< a value holds something that does not convert to the type asked for
    OutOfRange = 2,         ///< a number or an index does not fit
    InvalidArgument = 3,    ///< an argument has no meaning
    NotFound = 4,           ///< a node, type, field, namespace or factory is not known
    AlreadyExists = 5,      ///< a node, factory or namespace is there already
    InvalidState = 6,       ///< the operation is not possible now
    InvalidModel = 7,       ///< an information model cannot be read
    ModuleNotLoadable = 8,  ///< the dynamic linker refused a module
    ModuleEntryMissing = 9, ///< a module does not export `RegisterFactories`
    ModuleRefused = 10,     ///< `RegisterFactories` did not return 1
    ModuleFailed = 11,      ///< `RegisterFactories` threw
    SessionClosed = 12,     ///< a call was made for a session that has ended
    NotExecutable = 13,     ///< a method was called on an object that takes no calls
    System = 14,            ///< the operating system refused; the text carries its reason
};

/// Base of every exception that the host throws. The message names what failed, on what, and why.
class CORE_API Exception : public std::exception
{
public:
    /// `details` is a further text for logs; it may stay empty.
    Exception(ErrorCode code, std::string message, std::string details = {});
    Exception(const Exception&);
    Exception(Exception&&) noexcept;
    Exception& operator=(const Exception&);
    Exception& operator=(Exception&&) noexcept;
    ~Exception() override;

    /// The message; valid as long as the exception lives.
    [[nodiscard]] const char* what() const noexcept override;

    /// The further text, empty unless the thrower had more to say.
    [[nodiscard]] virtual std::string GetDetails() const;

    [[nodiscard]] unsigned int GetErrorCode() const noexcept;
    [[nodiscard]] std::string GetMessage() const;

private:
    ErrorCode code;
    std::string message;
    std::string details;
};

/// An exception that can be caught by what it is about.
template <ErrorCode errorCode>
class CORE_API TypedException : public Exception
{
public:
    explicit TypedException(std::string message, std::string details = {})
        : Exception(errorCode, std::move(message), std::move(details))
    {}
};

using TypeMismatchException = TypedException<ErrorCode::TypeMismatch>;
using OutOfRangeException = TypedException<ErrorCode::OutOfRange>;
using InvalidArgumentException = TypedException<ErrorCode::InvalidArgument>;
using NotFoundException = TypedException<ErrorCode::NotFound>;
using AlreadyExistsException = TypedException<ErrorCode::AlreadyExists>;
using InvalidStateException = TypedException<ErrorCode::InvalidState>;
using InvalidModelException = TypedException<ErrorCode::InvalidModel>;
using ModuleNotLoadableException = TypedException<ErrorCode::ModuleNotLoadable>;
using ModuleEntryMissingException = TypedException<ErrorCode::ModuleEntryMissing>;
using ModuleRefusedException = TypedException<ErrorCode::ModuleRefused>;
using ModuleFailedException = TypedException<ErrorCode::ModuleFailed>;
using SessionClosedException = TypedException<ErrorCode::SessionClosed>;
using NotExecutableException = TypedException<ErrorCode::NotExecutable>;
using SystemException = TypedException<ErrorCode::System>;

// Instantiated in libCore.so alone, so that no module exports a copy.
extern template class TypedException<ErrorCode::TypeMismatch>;
extern template class TypedException<ErrorCode::OutOfRange>;
extern template class TypedException<ErrorCode::InvalidArgument>;
extern template class TypedException<ErrorCode::NotFound>;
extern template class TypedException<ErrorCode::AlreadyExists>;
extern template class TypedException<ErrorCode::InvalidState>;
extern template class TypedException<ErrorCode::InvalidModel>;
extern template class TypedException<ErrorCode::ModuleNotLoadable>;
extern template class TypedException<ErrorCode::ModuleEntryMissing>;
extern template class TypedException<ErrorCode::ModuleRefused>;
extern template class TypedException<ErrorCode::ModuleFailed>;
extern template class TypedException<ErrorCode::SessionClosed>;
extern template class TypedException<ErrorCode::NotExecutable>;
extern template class TypedException<ErrorCode::System>;

} // namespace Core
