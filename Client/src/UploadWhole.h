#pragma once

#include "Caller.h"
#include "UploadPlan.h"

namespace Client {

/// Takes out of the plan the files that an earlier transfer has finished; marks them where their
/// contents are to be compared. Throws what Caller's waiting throws but CallsLost.
void SkipWhole(Transfer& transfer, Caller& caller, UploadPlan& plan);

} // namespace Client
