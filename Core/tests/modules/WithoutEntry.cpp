#include "Core/Export.h"

extern "C" CORE_API int SomethingElse();

int SomethingElse()
{
    return 1;
}
