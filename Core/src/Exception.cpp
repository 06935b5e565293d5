#include "Core/Exception.h"

namespace Core {

Exception::Exception(ErrorCode code, std::string message, std::string details)
    : code(code)
    , message(std::move(message))
    , details(std::move(details))
{}

Exception::Exception(const Exception&) = default;
Exception::Exception(Exception&&) noexcept = default;
Exception& Exception::operator=(const Exception&) = default;
Exception& Exception::operator=(Exception&&) noexcept = default;
Exception::~Exception() = default;

const char* Exception::what() const noexcept
{
    return message.c_str();
}

std::string Exception::GetDetails() const
{
    return details;
}

unsigned int Exception::GetErrorCode() const noexcept
{
    return static_cast<unsigned int>(code);
}

std::string Exception::GetMessage() const
{
    return message;
}

StatusException::StatusException(std::uint32_t status, std::string message)
    : Exception(ErrorCode::Status, std::move(message))
    , status(status)
{}

StatusException::StatusException(const StatusException&) = default;
StatusException& StatusException::operator=(const StatusException&) = default;
StatusException::~StatusException() = default;

template class TypedException<ErrorCode::TypeMismatch>;
template class TypedException<ErrorCode::OutOfRange>;
template class TypedException<ErrorCode::InvalidArgument>;
template class TypedException<ErrorCode::NotFound>;
template class TypedException<ErrorCode::AlreadyExists>;
template class TypedException<ErrorCode::InvalidState>;
template class TypedException<ErrorCode::InvalidModel>;
template class TypedException<ErrorCode::ModuleNotLoadable>;
template class TypedException<ErrorCode::ModuleEntryMissing>;
template class TypedException<ErrorCode::ModuleRefused>;
template class TypedException<ErrorCode::ModuleFailed>;
template class TypedException<ErrorCode::SessionClosed>;
template class TypedException<ErrorCode::NotExecutable>;
template class TypedException<ErrorCode::System>;

} // namespace Core
