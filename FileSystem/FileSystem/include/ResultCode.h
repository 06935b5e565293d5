#pragma once

/// The "Result" field of an `AckEvent`.
namespace FileSystem::ResultCode {

// NOLINTBEGIN(readability-identifier-naming): the published names
inline constexpr unsigned char Success = 0;
inline constexpr unsigned char OpenFailed = 1;
inline constexpr unsigned char WriteIncomplete = 2;
inline constexpr unsigned char CloseFailed = 3;
inline constexpr unsigned char SetDateTimeFailed = 4;
inline constexpr unsigned char SetPermissionsFailed = 5;
// NOLINTEND(readability-identifier-naming)

} // namespace FileSystem::ResultCode
