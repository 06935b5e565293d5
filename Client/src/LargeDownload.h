#pragma once

#include "Caller.h"
#include "DownloadPlaces.h"

namespace Client {

/// Fetches a file in parts, from where an earlier transfer left off if it has to, and compares the
/// contents if it has to. Tells the tally of failures. Throws CallsLost only.
void FetchLarge(Transfer& transfer, Caller& caller, const DownloadFile& job,
                const DownloadPlaces& places);

} // namespace Client
