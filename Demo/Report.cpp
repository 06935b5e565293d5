#include "Report.h"

#include "Text.h"

namespace Demo {

void Report::Fail(const std::string& what)
{
    ++failures;
    PrintLine("  FAILURE  " + what);
}

void Report::Skip(const std::string& what)
{
    ++skipped;
    PrintLine("  skipped  " + what);
}

} // namespace Demo
