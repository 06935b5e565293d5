#include "Program.h"

#include <malloc.h>

namespace {

/// So that the system does not have to make memory anew, page by page, for every block.
void KeepFreedMemory() noexcept
{
    constexpr int most = 16 << 20U;
    constexpr int ownMapping = 32 << 20U; // the largest that the allocator takes
    // What it refuses costs time only.
    mallopt(M_TRIM_THRESHOLD, most);
    mallopt(M_MMAP_THRESHOLD, ownMapping);
}

} // namespace

int main(int argumentCount, char** arguments)
{
    KeepFreedMemory();
    return Cli::RunProgram({arguments + 1, arguments + argumentCount});
}
