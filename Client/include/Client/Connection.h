#pragma once

#include "Client/Cancellation.h"
#include "Client/Exceptions.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Client {

class Engine;
class FileObjects;
class FileSystem;
class Watch;

enum class Security
{
    Automatic, ///< encrypted where the server offers it, otherwise plain; never plain with a
               ///< password, or with a server whose certificate was accepted before
    Plain,     ///< neither signed nor encrypted; a password is encrypted all the same where the
               ///< server names a way to do so
    Encrypted, ///< signed and encrypted, or not at all
};

struct Login
{
    std::string user;
    std::string password;
};

/// The history of the certificate that a server shows.
enum class Acquaintance
{
    Known,     ///< the one that was accepted before
    FirstSeen, ///< no certificate was accepted before at this host name and port
    Changed,   ///< another one was accepted before
};

struct ServerCertificate
{
    Acquaintance acquaintance = Acquaintance::FirstSeen;
    std::string server;      ///< host name and port, as in the URL
    std::string fingerprint; ///< SHA-256 of the DER form: 32 times two upper-case hexadecimal
                             ///< digits, with colons between
    std::string previousFingerprint;    ///< the accepted one; empty when first seen
    std::filesystem::path knownServers; ///< the file that remembers what was accepted
    std::vector<unsigned char> der;     ///< the certificate
};

struct ConnectionOptions
{
    /// opc.tcp://HOST[:PORT]; IPv6 addresses in brackets, port 4840 when none is said.
    std::string url;
    Security security = Security::Automatic;
    /// Without one the login is anonymous.
    std::optional<Login> login;

    /// Holds our own key and certificate, made on first use, and the fingerprints of known servers.
    /// Made with mode 0700 when missing; its files have mode 0600. Needed unless security is Plain
    /// and there is no login.
    std::filesystem::path stateFolder;

    /// Asked once for each `Connection` that encrypts something, on the calling thread of its
    /// constructor, before anything is sent that should be secret. True: go on, and remember the
    /// certificate, in place of another one. False: the constructor throws RefusedException with
    /// Refusal::ServerCertificate. Without a callback known certificates alone are accepted.
    /// A reconnected server must show the same certificate.
    std::function<bool(const ServerCertificate&)> trustServer;

    /// For finding the server and logging in, in all.
    std::chrono::milliseconds connectTime{10'000};
    /// The time that a call may be without any sign of life: no answer and no event, of this call
    /// or of any other of the same FileSystem. Then the connection counts as lost, and an operation
    /// that is no transfer throws ConnectionLostException with the name of the call. Work that the
    /// server reports when it is done, such as deleting a tree, has to be done in that time.
    std::chrono::milliseconds answerTime{60'000};
    /// The time for which a lost connection is tried again; 0: not at all.
    std::chrono::milliseconds reconnectTime{60'000};

    /// Takes messages about the connection itself: lost, made again. Called on a thread of the
    /// library; must return soon and call nothing of the library.
    std::function<void(const std::string&)> report;
};

/// Facts about the server and the session with it.
struct ServerInfo
{
    std::string url;             ///< as asked for
    std::string applicationName; ///< as it calls itself
    std::string applicationUri;
    std::string productName; ///< empty where the server does not tell
    std::string softwareVersion;
    std::string securityPolicy; ///< the short name, "None" when plain
    std::string securityMode;   ///< "None" or "SignAndEncrypt"
    std::string fingerprint;    ///< of the server's certificate; empty when it shows none
    std::string user;           ///< empty when anonymous
    std::string sessionId;      ///< the name that the session has at the server
    std::chrono::milliseconds sessionTimeout{0};
    std::vector<std::string> namespaces;  ///< their URIs, by index
    std::vector<std::string> sharedNodes; ///< the names of the file systems that all clients share
    std::vector<std::string> modules;     ///< URIs of the namespaces that modules brought

    // Limits, 0 where the server names none.
    std::uint32_t maximumByteString = 0; ///< bytes
    std::uint32_t maximumArray = 0;      ///< elements
    std::uint32_t maximumCalls = 0;      ///< method calls in one request
};

/// A session with one server, and the one thread that drives it. Operations are on FileSystem and
/// Watch.
///
/// Threads: every operation may be called from any thread, several at once.
/// Lost connections are made again by themselves while an operation needs one, and the session is
/// re-activated when the server still has it.
class Connection
{
public:
    /// Connects and logs in. Throws NoConnectionException, RefusedException,
    /// InvalidArgumentException, CancelledException, and ClientException when the state folder
    /// cannot be used.
    explicit Connection(ConnectionOptions options, const Cancellation* cancellation = nullptr);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    /// Closes the session, with what is open in it. REQUIRES: no FileSystem and no Watch of it
    /// exists.
    ~Connection();

    /// Closes the session as the destructor does, for a caller that bounds it with `EndBy` from
    /// another thread. REQUIRES: as the destructor; no operation is running.
    void Close() noexcept;

    /// Ends the connection at that time at the latest, and lets the destructor wait no longer: the
    /// server learns of the end by itself then. Operations that need a connection throw
    /// ConnectionLostException afterwards.
    void EndBy(std::chrono::steady_clock::time_point deadline) noexcept;

    /// Asks the server. Throws ConnectionLostException, CallRefusedException.
    [[nodiscard]] ServerInfo GetInfo() const;

private:
    friend class FileObjects;
    friend class FileSystem;
    friend class Watch;

    std::unique_ptr<Engine> engine;
};

} // namespace Client
