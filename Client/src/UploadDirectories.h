#pragma once

#include "Caller.h"
#include "UploadPlan.h"

#include <vector>

namespace Client {

// Both tell the tally of what fails, and throw what Caller's waiting throws but CallsLost.

/// Makes the directories, and takes out those that could not be made.
void MakeDirectories(Transfer& transfer, Caller& caller, std::vector<UploadDirectory>& directories);

/// Sets the times of directories, from below to above: what is done in a directory changes its
/// time.
void SetDirectoryTimes(Transfer& transfer, Caller& caller,
                       std::vector<UploadDirectory>& directories);

} // namespace Client
