#pragma once

#include <gtest/gtest.h>

#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace FileSystemTests {

/// Makes empty files "0", "1" and so on in a folder. Most are further names of another one, which
/// takes a quarter of the time. File systems bound the names of a file, so not all are.
inline void MakeManyFiles(const std::string& directory, unsigned int count)
{
    constexpr unsigned int namesOfOne = 1000;
    for (unsigned int i = 0; i < count; ++i) {
        const std::string file = directory + '/' + std::to_string(i);
        const std::string first = directory + '/' + std::to_string(i - i % namesOfOne);
        const int failed = i % namesOfOne == 0 ? ::mknod(file.c_str(), S_IFREG | 0600, 0)
                                               : ::link(first.c_str(), file.c_str());
        ASSERT_EQ(failed, 0) << file;
    }
}

} // namespace FileSystemTests
