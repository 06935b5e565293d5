#pragma once

#include <open62541/types.h>

#include <stdexcept>
#include <string>
#include <string_view>

namespace OpcUa {

// Everything that both ends of a connection assume of open62541 beyond what its documentation
// promises, with the place in the library's source (of 1.4.18) that it comes from. A host has more
// of them, see its Endpoint/LibraryAssumptions.h.
//
// Assumptions of a client, which need a server and are checked by the tests of the client alone:
//
// - Answers. A client that waits for an answer stops at it; bytes behind it stay in the channel
// until
//   the loop runs again (__Client_networkCallback in client/ua_client_connect.c,
//   UA_SecureChannel_persistBuffer in ua_securechannel.c). The client's loop therefore hands
//   messages over one by one.
// - Endpoints. Without an endpoint in its configuration a client looks for one that it could log in
//   to, and closes if there is none (client/ua_client_connect.c).
// - Memory. Messages to send are freed by the loop that has made them, or by UA_ByteString_clear,
//   so their memory comes from malloc (sendSymmetricChunk in ua_securechannel.c).

/// Thrown when the open62541 that this process has loaded does not do what this program assumes of
/// it. The text names the assumption, the version and what would go wrong.
class LibraryException : public std::runtime_error
{
public:
    /// `assumption`: a short name. `consequence`: why the program cannot do without it.
    LibraryException(std::string assumption, const std::string& consequence);

    [[nodiscard]] const std::string& GetAssumption() const noexcept { return assumption; }

private:
    std::string assumption;
};

/// Returns the version that was noted last, as the library tells it: "1.4.18-undefined"; empty
/// before. The library tells it in the defaults of a server's configuration alone (`buildInfo`,
/// plugins/ua_config_default.c).
[[nodiscard]] const std::string& GetLibraryVersion() noexcept;

/// Notes the version of the library that this process has loaded. Before other threads ask for it.
void NoteLibraryVersion(std::string version) noexcept;

/// The largest chunk that the library makes: its default at both ends (createServerSecureChannel in
/// server/ua_server_binary.c, UA_ConnectionConfig_default in plugins/ua_config_default.c), which a
/// host also sets.
inline constexpr UA_UInt32 largestChunk = UA_UInt32{1} << 16U;

/// Requires 1.4.18 or a newer 1.4. Older ones let a client end a server, and both ends are compiled
/// for the structures of 1.4. Throws LibraryException.
void RequireVersion(std::string_view version);

/// Requires that the library describes its types at the places and with the sizes for which this
/// program was compiled: both follow from the list of types with which a library was built
/// (tools/generate_datatypes.py). `types`: the library's table. Throws LibraryException.
void RequireTypes(const UA_DataType* types);

} // namespace OpcUa
