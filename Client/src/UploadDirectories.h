#pragma once

#include "Caller.h"
#include "UploadPlan.h"

namespace Client {

// They tell the tally of what fails, and throw what Caller's waiting throws but CallsLost.

/// Makes the directories, and takes out those that could not be made. New ones that not everybody
/// may enter or list are closed before anything is in them.
void MakeDirectories(Transfer& transfer, Caller& caller, UploadPlan& plan);

/// Sets the times of directories, from below to above: what is done in a directory changes its
/// time.
void SetDirectoryTimes(Transfer& transfer, Caller& caller,
                       std::vector<UploadDirectory>& directories);

} // namespace Client
