#include "Users/RejectedCertificates.h"

#include "Core/Exception.h"
#include "Support/PrivateFiles.h"
#include "Users/LoginThrottle.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <optional>
#include <system_error>
#include <utility>

namespace Host {

namespace {

using Path = std::filesystem::path;

constexpr std::size_t digitsOfFingerprint = 64;
constexpr std::size_t leastDigits = 8;
constexpr std::size_t longestAddress = 64;
constexpr char separator = '@';
constexpr std::string_view ending = ".der";

/// Returns the digits in upper case and without colons.
std::string Normalize(std::string_view fingerprint)
{
    std::string digits;
    for (const char each : fingerprint) {
        if (each != ':')
            digits += static_cast<char>(std::toupper(static_cast<unsigned char>(each)));
    }
    return digits;
}

bool IsHexadecimal(std::string_view text)
{
    return text.find_first_not_of("0123456789ABCDEF") == std::string_view::npos;
}

/// True for an address of IPv4 or IPv6: what a name of a file may have.
bool IsNumericAddress(std::string_view address)
{
    return !address.empty() && address.size() <= longestAddress &&
           address.find_first_not_of("0123456789abcdefABCDEF.:") == std::string_view::npos;
}

std::string MakeName(std::span<const unsigned char> certificate, const std::string& address)
{
    auto name = Normalize(OpcUa::MakeFingerprint(certificate));
    if (IsNumericAddress(address))
        name += separator + address;
    return name.append(ending);
}

/// Returns nothing for a file of another name.
std::optional<RejectedCertificate> Parse(const Path& file)
{
    auto name = file.filename().string();
    if (!name.ends_with(ending))
        return std::nullopt;
    name.resize(name.size() - ending.size());
    const auto end = name.find(separator);
    RejectedCertificate found;
    found.file = file;
    found.fingerprint = name.substr(0, end);
    if (end != std::string::npos)
        found.address = name.substr(end + 1);
    const bool isAddressed = end == std::string::npos || IsNumericAddress(found.address);
    if (found.fingerprint.size() != digitsOfFingerprint || !IsHexadecimal(found.fingerprint) ||
        !isAddressed)
        return std::nullopt;
    std::error_code error;
    found.lastSeen = std::filesystem::last_write_time(file, error);
    return error ? std::nullopt : std::optional(found); // another process has removed it
}

void MarkAsSeen(const Path& file)
{
    std::error_code error; // if another process has removed it, it is gone
    std::filesystem::last_write_time(file, std::filesystem::file_time_type::clock::now(), error);
}

void Remove(const Path& file)
{
    std::error_code error; // the next one tries again
    std::filesystem::remove(file, error);
}

} // namespace

OpcUa::Bytes RejectedCertificate::Read() const
{
    const auto content = Support::ReadFile(file);
    OpcUa::Bytes certificate(content.begin(), content.end());
    if (Normalize(OpcUa::MakeFingerprint(certificate)) != fingerprint)
        throw Core::InvalidStateException("'" + file.string() +
                                          "' does not hold the certificate that its name says");
    return certificate;
}

RejectedCertificates::RejectedCertificates(std::filesystem::path folder)
    : folder(std::move(folder))
{}

void RejectedCertificates::Add(std::span<const unsigned char> certificate,
                               const std::string& address) const
{
    if (certificate.size() > largest)
        throw Core::InvalidArgumentException("the certificate has more than " +
                                             std::to_string(largest) + " bytes");
    Support::MakePrivateFolder(folder);
    Support::RequirePrivateFolder(folder);
    const auto name = MakeName(certificate, address);
    const auto kept = List();
    // A copy of the certificate from elsewhere does not change from where it came first.
    const auto same = std::find_if(kept.begin(), kept.end(), [&name](const auto& each) {
        return name.starts_with(each.fingerprint);
    });
    if (same != kept.end()) {
        MarkAsSeen(same->file);
        return;
    }
    Support::WritePrivateFile(
        folder / name, {reinterpret_cast<const char*>(certificate.data()), certificate.size()});
    MarkAsSeen(folder / name); // finer than the time that the kernel gives to a new file
    DropOldest();
}

void RejectedCertificates::DropOldest() const
{
    std::map<std::string, std::size_t> ofOrigin;
    std::size_t all = 0;
    for (const auto& each : List()) {
        if (all == most || ofOrigin[GetOrigin(each.address)] == mostOfOrigin) {
            Remove(each.file);
            continue;
        }
        ++all;
        ++ofOrigin[GetOrigin(each.address)];
    }
}

std::vector<RejectedCertificate> RejectedCertificates::List() const
{
    std::vector<RejectedCertificate> kept;
    std::error_code error;
    const std::filesystem::directory_iterator entries(folder, error);
    if (error == std::errc::no_such_file_or_directory)
        return kept; // nobody was refused yet
    if (error)
        throw std::system_error(error, "cannot read the folder '" + folder.string() + "'");
    for (const auto& entry : entries) {
        if (auto found = Parse(entry.path()))
            kept.push_back(std::move(*found));
    }
    std::sort(kept.begin(), kept.end(),
              [](const auto& left, const auto& right) { return left.lastSeen > right.lastSeen; });
    return kept;
}

RejectedCertificate RejectedCertificates::Find(std::string_view fingerprint) const
{
    const auto digits = Normalize(fingerprint);
    if (digits.size() < leastDigits || digits.size() > digitsOfFingerprint ||
        !IsHexadecimal(digits))
        throw Core::InvalidArgumentException(
            "'" + std::string(fingerprint) + "' is no fingerprint: give " +
            std::to_string(leastDigits) + " to " + std::to_string(digitsOfFingerprint) +
            " hexadecimal digits of it, from its beginning");
    std::vector<RejectedCertificate> found;
    for (auto& each : List()) {
        if (each.fingerprint.starts_with(digits))
            found.push_back(std::move(each));
    }
    if (found.empty())
        throw Core::NotFoundException("no certificate in '" + folder.string() +
                                      "' has a fingerprint that begins with " + digits);
    if (found.size() > 1)
        throw Core::NotFoundException(std::to_string(found.size()) + " certificates in '" +
                                      folder.string() + "' have a fingerprint that begins with " +
                                      digits + ": give more of it");
    return found.front();
}

} // namespace Host
