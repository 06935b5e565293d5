#pragma once

namespace Host {

/// Returns the version of this program: "1.2.3".
[[nodiscard]] const char* GetVersion() noexcept;

struct BuildDate
{
    int year;
    int month;
    int day;
};

/// Returns the day on which the build was configured; SOURCE_DATE_EPOCH sets it.
[[nodiscard]] BuildDate GetBuildDate() noexcept;

} // namespace Host
