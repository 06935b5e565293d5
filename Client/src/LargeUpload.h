#pragma once

#include "Caller.h"
#include "UploadPlan.h"

namespace Client {

/// Sends a file in blocks, from where an earlier transfer left off if it has to, and compares the
/// contents if it has to. `marker`: a time that no file has by chance. Tells the tally of failures.
/// Throws CallsLost only.
void SendLarge(Transfer& transfer, Caller& caller, const UploadFile& job, FileTime marker);

} // namespace Client
