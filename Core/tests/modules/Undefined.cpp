#include "FailingModule.h"

/// Defined nowhere.
extern "C" int MissingOperation();

int RegisterFactories(Core::CoreContext& /*context*/)
{
    return MissingOperation();
}
