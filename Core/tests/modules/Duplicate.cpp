#include "FailingModule.h"

int RegisterFactories(Core::CoreContext& context)
{
    FailingModule::RegisterOne(context, "00000000000000000000000000000002");
    FailingModule::RegisterOne(context, "00000000000000000000000000000001"); // Recording has it
    return 1;
}
