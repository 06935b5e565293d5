#pragma once

#include "Core/Export.h"

#include <cstdint>
#include <exception>
#include <string>
#include <utility>

namespace Core {

/// The subject of an exception of the host; `GetErrorCode` returns its number. Log entries publish
/// the numbers, which never change.
enum class CORE_API ErrorCode : unsigned int
{
    TypeMismatch = 1,       ///< a value does not convert to the requested type
    OutOfRange = 2,         ///< a number or an index does not fit
    InvalidArgument = 3,    ///< an argument has no meaning
    NotFound = 4,           ///< a node, type, field, namespace or factory is not known
    AlreadyExists = 5,      ///< a node, factory or namespace exists already
    InvalidState = 6,       ///< the operation is not possible now
    InvalidModel = 7,       ///< an information model cannot be read
    ModuleNotLoadable = 8,  ///< the dynamic linker refused a module
    ModuleEntryMissing = 9, ///< a module does not export `RegisterFactories`
    ModuleRefused = 10,     ///< `RegisterFactories` did not return 1
    ModuleFailed = 11,      ///< `RegisterFactories` threw
    SessionClosed = 12,     ///< a call was made for a session that has ended
    NotExecutable = 13,     ///< a method was called on an object that takes no calls
    System = 14,            ///< the operating system refused; the text carries its reason
    Status = 15,            ///< a behaviour refused, with a status of its own for the caller
};

/// The base of every exception of the host. The message names the operation that failed, its
/// object, and the reason.
class CORE_API Exception : public std::exception
{
public:
    /// `details` is a further text for logs, and may be empty.
    Exception(ErrorCode code, std::string message, std::string details = {});
    Exception(const Exception&);
    Exception(Exception&&) noexcept;
    Exception& operator=(const Exception&);
    Exception& operator=(Exception&&) noexcept;
    ~Exception() override;

    /// Returns the message, valid as long as the exception lives.
    [[nodiscard]] const char* what() const noexcept override;

    /// Returns the further text.
    [[nodiscard]] virtual std::string GetDetails() const;

    [[nodiscard]] unsigned int GetErrorCode() const noexcept;
    [[nodiscard]] std::string GetMessage() const;

private:
    ErrorCode code;
    std::string message;
    std::string details;
};

/// Ends a call with a status for its caller. The message is for the caller, too: it says the reason
/// in the operating system's own words where there are such.
class CORE_API StatusException : public Exception
{
public:
    /// `status` is a bad one of the status codes of OPC 10000-6, annex A.2.
    StatusException(std::uint32_t status, std::string message);
    StatusException(const StatusException&);
    StatusException& operator=(const StatusException&);
    ~StatusException() override;

    [[nodiscard]] std::uint32_t GetStatus() const noexcept { return status; }

private:
    std::uint32_t status;
};

/// An exception with a type of its own for each error code.
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

// Instantiated in libCore.so only, so that no module exports a copy.
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
