#include "Connection/Trust.h"

#include "Shell/Prompt.h"

#include <algorithm>
#include <cctype>
#include <string_view>
#include <utility>

namespace Cli {

namespace {

std::string ToUpper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char character) {
        return static_cast<char>(std::toupper(character));
    });
    return text;
}

bool IsYes(const std::string& answer)
{
    const auto upper = ToUpper(answer);
    return upper == "Y" || upper == "YES";
}

} // namespace

std::string ParseFingerprint(const std::string& text)
{
    constexpr std::string_view label = "SHA256:";
    constexpr std::size_t digitsOfSha256 = 64;
    auto digits = ToUpper(text);
    if (digits.starts_with(label))
        digits.erase(0, label.size());
    std::erase(digits, ':');
    const bool isHexadecimal = std::all_of(digits.begin(), digits.end(), [](unsigned char digit) {
        return std::isxdigit(digit) != 0;
    });
    if (digits.size() != digitsOfSha256 || !isHexadecimal)
        throw Client::InvalidArgumentException(
            "'" + text + "' is not a fingerprint: 64 hexadecimal digits (SHA-256)");
    std::string fingerprint = digits.substr(0, 2);
    for (std::size_t position = 2; position < digits.size(); position += 2)
        fingerprint += ":" + digits.substr(position, 2);
    return fingerprint;
}

Trust::Trust(Options options, Console& console, const Client::Cancellation& cancellation)
    : options(std::move(options))
    , console(console)
    , cancellation(cancellation)
{}

bool Trust::Decide(const Client::ServerCertificate& certificate)
{
    if (options.fingerprint)
        return IsGivenOne(certificate);
    switch (certificate.acquaintance) {
    case Client::Acquaintance::Known:
        return true;
    case Client::Acquaintance::FirstSeen:
        return DecideOnNewOne(certificate);
    case Client::Acquaintance::Changed:
        break;
    }
    return Refuse(
        certificate.server +
        " shows another certificate than before: its key was replaced, or somebody "
        "impersonates it. Before: " +
        certificate.previousFingerprint + ". Now: " + certificate.fingerprint +
        ". If its operator confirms the new one ('talvensor-host fingerprint' shows it on "
        "the server), forget the old one with 'talvensor-fs known --forget " +
        certificate.server + "'");
}

bool Trust::IsGivenOne(const Client::ServerCertificate& certificate)
{
    if (certificate.fingerprint == *options.fingerprint)
        return true;
    return Refuse("the certificate of " + certificate.server + " has the fingerprint " +
                  certificate.fingerprint + ", not " + *options.fingerprint);
}

bool Trust::DecideOnNewOne(const Client::ServerCertificate& certificate)
{
    if (!options.acceptsNew)
        return AskUser(certificate);
    console.Report("trusting " + certificate.server + " from now on: " + certificate.fingerprint);
    return true;
}

bool Trust::AskUser(const Client::ServerCertificate& certificate)
{
    const auto prompt = options.mayAsk ? Prompt::Open() : std::nullopt;
    if (!prompt)
        return Refuse(certificate.server +
                      (options.mayAsk ? " is not known, and there is no terminal to ask. "
                                      : " is not known. ") +
                      "Its certificate's fingerprint is " + certificate.fingerprint +
                      "; compare it with what 'talvensor-host fingerprint' shows on the server, "
                      "and use --trust-fingerprint or --accept-new to trust it");
    const auto answer = prompt->Ask(
        certificate.server + " is not known. Its certificate has the fingerprint (SHA-256)\n  " +
            certificate.fingerprint +
            "\nCompare it with what 'talvensor-host fingerprint' shows on the server. If it\n"
            "differs, you are connected to something else.\n"
            "Trust it from now on? (yes/no) ",
        cancellation);
    return (answer && IsYes(*answer)) || Refuse(certificate.server + " is not trusted");
}

bool Trust::Refuse(const std::string& why)
{
    reason = why;
    return false;
}

} // namespace Cli
