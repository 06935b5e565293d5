#pragma once

namespace Host {

/// Makes sure that the OPC UA library draws session identifiers, authentication tokens and nonces
/// from this program's cryptographic generator. Its own generator is seeded with the time at which
/// the server started, which everybody may read. Throws InvalidStateException when the library
/// uses another generator.
void RequireUnpredictableSessions();

} // namespace Host
