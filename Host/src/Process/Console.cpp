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
    return sandbox.hasMountNamespace ? "holds: " + sandbox.ToString()
                                     : "NONE: clients reach whatever this program's user may reach";
}

std::string DescribeLogins(const StartSummary& summary)
{
    if (summary.admission.allowsAnonymous)
        return "anybody on this machine, without a name";
    return std::to_string(summary.users) +
           (summary.users == 1 ? " user, with a password" : " users, with their passwords");
}

/// Where clients may come unencrypted, a certificate keeps nobody out.
std::string DescribeEncryption(const StartSummary& summary)
{
    if (summary.admission.allowsUnencrypted)
        return "possible, with any client's certificate";
    return summary.trustsAnyClient
               ? "required; any client's certificate is accepted"
               : "required; clients' certificates have to be in " + summary.trustedFolder;
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
    if (summary.isRoot)
        add("warning   ", "runs as root; a user of its own would need no more than its roots");
    return text;
}

} // namespace Host
