#pragma once

namespace Host {

/// Makes sure that the OPC UA library draws session identifiers, authentication tokens and nonces
/// from this program's cryptographic generator. Its own generator is seeded with the time at which
/// the server started, which everybody may read. Throws OpcUa::LibraryException when the library
/// uses another generator.
///
/// The library calls its exported functions UA_Guid_random and UA_UInt32_random
/// (UA_Server_newWithConfig and UA_Server_createSession in server/, the policies in crypto/ of its
/// plugins) through the dynamic linker, which prefers this program's functions of the same names.
void RequireUnpredictableSessions();

/// Requires that `draw` draws a random number here. Throws OpcUa::LibraryException.
void RequireDrawnHere(bool (*draw)());

} // namespace Host
