#include "Pages.h"

#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>

namespace {

void WriteFile(const std::filesystem::path& path, const std::string& content)
{
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file;
    file.exceptions(std::ios::badbit | std::ios::failbit);
    file.open(path, std::ios::binary);
    file << content;
}

} // namespace

// Writes manual pages and completions: ManualPages FOLDER
int main(int argumentCount, char** arguments)
try {
    if (argumentCount != 2)
        return 2;
    for (const auto& [name, content] : Manual::MakeFiles())
        WriteFile(std::filesystem::path(arguments[1]) / name, content);
    return 0;
} catch (const std::exception& error) {
    std::cerr << "ManualPages: " << error.what() << '\n';
    return 1;
}
