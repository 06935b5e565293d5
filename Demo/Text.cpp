#include "Text.h"

#include "Support/Escape.h"

#include <cstdio>

namespace Demo {

std::string Escape(std::string_view raw)
{
    return Support::Escape(raw, Support::EscapeForm::Hexadecimal, "\\\"");
}

std::string Quote(const std::filesystem::path& path)
{
    return '"' + Escape(path.native()) + '"';
}

void PrintLine(const std::string& line)
{
    const auto whole = line + '\n';
    std::fwrite(whole.data(), 1, whole.size(), stdout);
}

} // namespace Demo
