#include "Process/Console.h"

#include "Version.h"

namespace Host {

namespace {

std::string DescribeRoots(const std::vector<Root>& roots)
{
    std::string text;
    for (const auto& root : roots) {
        text += (text.empty() ? "" : "\n            ") + root.given.string();
        if (root.given != root.real)
            text += " (" + root.real.string() + ")";
        if (root.isReadOnly)
            text += ", read-only";
    }
    return text;
}

std::string DescribeSandbox(const SandboxReport& sandbox)
{
    return sandbox.hasMountNamespace
               ? "holds: " + sandbox.ToString()
               : "NONE: clients may reach everything that the host's user may reach";
}

std::string DescribeLogins(const StartSummary& summary)
{
    if (summary.admission.allowsAnonymous)
        return "anybody on this machine, without a password";
    return std::to_string(summary.users) +
           (summary.users == 1 ? " user, with a password" : " users, with their passwords");
}

/// If unencrypted connections are allowed, a client's certificate does not matter.
std::string DescribeEncryption(const StartSummary& summary)
{
    if (summary.admission.allowsUnencrypted)
        return "possible, with any client's certificate";
    if (summary.trustsAnyClient)
        return "required, with any client's certificate";
    return "required; certificates of clients must be in " + summary.trustedFolder +
           (summary.trustedClients > 0
                ? ""
                : ", which has none yet: let a client connect, then see 'talvensor-host rejected'");
}

} // namespace

std::string Describe(const StartSummary& summary)
{
    std::string text = std::string("talvensor-host ") + GetVersion() + "\n";
    const auto add = [&text](const char* heading, const std::string& content) {
        text += std::string("  ") + heading + content + "\n";
    };
    add("endpoint  ", summary.endpoint);
    add("roots     ", DescribeRoots(summary.roots));
    add("sandbox   ", DescribeSandbox(summary.sandbox));
    add("logins    ", DescribeLogins(summary));
    add("encrypted ", DescribeEncryption(summary));
    add("identity  fingerprint ", summary.fingerprint);
    if (summary.isRoot)
        add("warning   ", "runs as root; a user with access to the roots is enough");
    return text;
}

} // namespace Host
