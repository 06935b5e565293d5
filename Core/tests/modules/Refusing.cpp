#include "FailingModule.h"

namespace {
const FailingModule::Presence presence;
}

int RegisterFactories(Core::CoreContext& context)
{
    FailingModule::RegisterOne(context, "00000000000000000000000000000002");
    return 0;
}
