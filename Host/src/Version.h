#pragma once

namespace Host {

/// Of this program: "1.2.3".
[[nodiscard]] const char* GetVersion() noexcept;

struct BuildDate
{
    int year;
    int month;
    int day;
};

/// The day on which this program was configured to be built; SOURCE_DATE_EPOCH sets it.
[[nodiscard]] BuildDate GetBuildDate() noexcept;

} // namespace Host
