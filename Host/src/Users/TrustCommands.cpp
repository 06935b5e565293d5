#include "Users/TrustCommands.h"

#include "OpcUa/Certificates.h"
#include "Support/Escape.h"
#include "Support/PrivateFiles.h"
#include "Support/SystemError.h"
#include "Users/Pki.h"
#include "Users/RejectedCertificates.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <chrono>
#include <string_view>
#include <system_error>

namespace Host {

namespace {

std::string MakeReadable(const std::string& text)
{
    return Support::Escape(text, Support::EscapeForm::Hexadecimal, "\\");
}

std::string DescribeContent(const OpcUa::Bytes& certificate)
{
    return fmt::format("{}\n  subject  {}\n  valid    {}\n", OpcUa::MakeFingerprint(certificate),
                       MakeReadable(OpcUa::DescribeSubject(certificate)),
                       OpcUa::DescribeValidity(certificate));
}

std::string DescribeRefusal(const RejectedCertificate& rejected)
{
    const auto time = std::chrono::floor<std::chrono::seconds>(
        std::chrono::file_clock::to_sys(rejected.lastSeen));
    return fmt::format("  refused  {:%Y-%m-%dT%H:%M:%SZ}, first from {}\n",
                       fmt::gmtime(std::chrono::system_clock::to_time_t(time)),
                       rejected.address.empty() ? "an unknown address" : rejected.address);
}

std::string Describe(const RejectedCertificate& rejected)
{
    try {
        return DescribeContent(rejected.Read()) + DescribeRefusal(rejected);
    } catch (const std::exception& error) { // one of them must not hide the others
        return fmt::format("{}\n  {}\n", rejected.fingerprint, MakeReadable(error.what()));
    }
}

} // namespace

std::string ListRejected(const std::filesystem::path& pkiFolder)
{
    const auto folder = GetRejectedFolder(pkiFolder);
    std::string text;
    for (const auto& each : RejectedCertificates(folder).List())
        text += Describe(each);
    return text.empty() ? fmt::format("There is no certificate of a refused client in '{}'.\n",
                                      folder.string())
                        : text;
}

std::string DescribeOwnCertificate(const std::filesystem::path& pkiFolder)
{
    const auto file = GetOwnCertificateFile(pkiFolder);
    const auto content = Support::ReadFile(file);
    return DescribeContent({content.begin(), content.end()}) +
           fmt::format("  file     {}\n", file.string());
}

std::string TrustRejected(const std::filesystem::path& pkiFolder, const std::string& fingerprint)
{
    const auto rejected = RejectedCertificates(GetRejectedFolder(pkiFolder)).Find(fingerprint);
    const auto certificate = rejected.Read();
    const auto folder = GetTrustedFolder(pkiFolder);
    for (const auto& each : {pkiFolder, folder})
        Support::RequirePrivateFolder(each);
    const auto file = folder / (rejected.fingerprint + ".der");
    Support::WritePrivateFile(
        file, {reinterpret_cast<const char*>(certificate.data()), certificate.size()});
    std::error_code error;
    std::filesystem::remove(rejected.file, error);
    if (error)
        throw std::system_error(error,
                                "trusted, but cannot remove '" + rejected.file.string() + "'");
    return fmt::format("{}is trusted: '{}'. A host that runs takes it when it reloads: systemctl "
                       "reload talvensor-host, or SIGHUP.\n",
                       DescribeContent(certificate), file.string());
}

} // namespace Host
