#pragma once

#include <cstdint>
#include <string>

namespace FileObjects {

/// The status codes of OPC 10000-6, annex A.2, that this module answers with.
namespace Status {
inline constexpr std::uint32_t unexpectedError = 0x80010000;
inline constexpr std::uint32_t outOfMemory = 0x80030000;
inline constexpr std::uint32_t resourceUnavailable = 0x80040000;
inline constexpr std::uint32_t timeout = 0x800A0000;
inline constexpr std::uint32_t shutdown = 0x800C0000;
inline constexpr std::uint32_t userAccessDenied = 0x801F0000;
inline constexpr std::uint32_t sessionClosed = 0x80260000;
inline constexpr std::uint32_t noCommunication = 0x80310000;
inline constexpr std::uint32_t notReadable = 0x803A0000;
inline constexpr std::uint32_t notWritable = 0x803B0000;
inline constexpr std::uint32_t notSupported = 0x803D0000;
inline constexpr std::uint32_t notFound = 0x803E0000;
inline constexpr std::uint32_t browseNameInvalid = 0x80600000;
inline constexpr std::uint32_t browseNameDuplicated = 0x80610000;
inline constexpr std::uint32_t argumentsMissing = 0x80760000;
inline constexpr std::uint32_t deviceFailure = 0x808B0000;
inline constexpr std::uint32_t invalidArgument = 0x80AB0000;
inline constexpr std::uint32_t invalidState = 0x80AF0000;
} // namespace Status

/// Returns the status that says most about an errno. The standard has none for a full disk:
/// Bad_ResourceUnavailable stands for it, as for every other limit of the system.
[[nodiscard]] std::uint32_t ToStatus(int error) noexcept;

/// Throws Core::StatusException with the text "SUBJECT: REASON".
[[noreturn]] void Refuse(std::uint32_t status, const std::string& subject,
                         const std::string& reason);

/// Throws Core::StatusException for an errno, with the system's own words as the reason.
[[noreturn]] void RefuseWithErrno(const std::string& subject, int error);

} // namespace FileObjects
