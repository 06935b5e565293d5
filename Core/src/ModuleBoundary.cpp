#include "ModuleBoundary.h"

#include "Core/Exception.h"

#include <exception>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>
#include <typeinfo>
#include <utility>

namespace Core {

namespace {

template <typename... Types>
bool IsOneOf(const std::type_info& type)
{
    return ((type == typeid(Types)) || ...);
}

/// True for the types of the standard library whose destructors are compiled into it. An inline
/// destructor is compiled into the module that throws the exception.
bool IsPermanent(const std::exception& exception)
{
    return IsOneOf<std::logic_error, std::invalid_argument, std::domain_error, std::length_error,
                   std::out_of_range, std::runtime_error, std::range_error, std::overflow_error,
                   std::underflow_error, std::system_error, std::filesystem::filesystem_error,
                   std::future_error, std::bad_alloc, std::bad_cast, std::bad_typeid,
                   std::bad_weak_ptr, std::bad_function_call>(typeid(exception));
}

template <ErrorCode code>
void ThrowCopyIf(const Exception& exception)
{
    if (dynamic_cast<const TypedException<code>*>(&exception) != nullptr)
        throw TypedException<code>(exception.GetMessage(), exception.GetDetails());
}

template <unsigned int... codes>
void ThrowTypedCopy(const Exception& exception,
                    std::integer_sequence<unsigned int, codes...> /*from 0*/)
{
    (ThrowCopyIf<static_cast<ErrorCode>(codes + 1)>(exception), ...);
}

[[noreturn]] void ThrowCopy(const Exception& exception)
{
    if (const auto* status = dynamic_cast<const StatusException*>(&exception))
        throw StatusException(*status);
    constexpr auto last = static_cast<unsigned int>(ErrorCode::System);
    ThrowTypedCopy(exception, std::make_integer_sequence<unsigned int, last>());
    throw Exception(static_cast<ErrorCode>(exception.GetErrorCode()), exception.GetMessage(),
                    exception.GetDetails());
}

} // namespace

void RethrowWithoutModuleCode()
{
    try {
        throw;
    } catch (const Exception& exception) {
        ThrowCopy(exception);
    } catch (const std::exception& exception) {
        if (IsPermanent(exception))
            throw;
        if (dynamic_cast<const std::logic_error*>(&exception) != nullptr)
            throw std::logic_error(exception.what());
        throw std::runtime_error(exception.what());
    } catch (...) {
        throw std::runtime_error("an exception of a module's own type");
    }
}

} // namespace Core
