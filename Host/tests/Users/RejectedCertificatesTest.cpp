#include "Users/RejectedCertificates.h"

#include "Core/Exception.h"
#include "TemporaryFolder.h"
#include "Users/TrustCommands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <set>
#include <tuple>

namespace Host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

OpcUa::Bytes MakeCertificate(std::size_t number)
{
    const auto text = "certificate " + std::to_string(number);
    return {text.begin(), text.end()};
}

std::string MakeDigits(const OpcUa::Bytes& certificate)
{
    auto digits = OpcUa::MakeFingerprint(certificate);
    std::erase(digits, ':');
    return digits;
}

class RefusedCertificates : public testing::Test
{
protected:
    void Add(std::size_t number, const std::string& address = "192.0.2.1") const
    {
        rejected.Add(MakeCertificate(number), address);
    }

    std::vector<std::string> ListNames() const
    {
        std::vector<std::string> names;
        for (const auto& each : rejected.List())
            names.push_back(each.file.filename());
        return names;
    }

    /// The contents, the latest first.
    std::vector<OpcUa::Bytes> ListContents() const
    {
        std::vector<OpcUa::Bytes> contents;
        for (const auto& each : rejected.List())
            contents.push_back(each.Read());
        return contents;
    }

    template <typename Operation>
    static std::string GetComplaint(const Operation& operation)
    {
        try {
            operation();
        } catch (const std::exception& error) {
            return error.what();
        }
        return {};
    }

    TemporaryFolder pki;
    std::filesystem::path folder = pki.GetPath() / "rejected";
    RejectedCertificates rejected{folder};
};

TEST_F(RefusedCertificates, AreKeptForTheirOwnerAloneWithFingerprintAndAddress)
{
    EXPECT_THAT(rejected.List(), IsEmpty());
    Add(1, "2001:db8::1");
    Add(2, "");
    struct stat status = {};
    ASSERT_EQ(stat(folder.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0700U);
    EXPECT_THAT(ListNames(), ElementsAre(MakeDigits(MakeCertificate(2)) + ".der",
                                         MakeDigits(MakeCertificate(1)) + "@2001:db8::1.der"));
    EXPECT_THAT(ListContents(), ElementsAre(MakeCertificate(2), MakeCertificate(1)));
    EXPECT_EQ(rejected.List().back().address, "2001:db8::1");
}

TEST_F(RefusedCertificates, GetNoNameFromAnAddressThatIsNone)
{
    Add(1, "../../trusted/x");
    Add(2, std::string(65, '1'));
    EXPECT_THAT(ListNames(), ElementsAre(MakeDigits(MakeCertificate(2)) + ".der",
                                         MakeDigits(MakeCertificate(1)) + ".der"));
}

TEST_F(RefusedCertificates, AreBoundedForEachOrigin)
{
    for (std::size_t i = 0; i < RejectedCertificates::mostOfOrigin; ++i)
        Add(i);
    Add(100, "192.0.2.2");
    Add(0); // is seen again, so the next one is the oldest
    Add(200);
    const auto contents = ListContents();
    EXPECT_EQ(contents.size(), RejectedCertificates::mostOfOrigin + 1);
    EXPECT_EQ(std::count(contents.begin(), contents.end(), MakeCertificate(0)), 1);
    EXPECT_EQ(std::count(contents.begin(), contents.end(), MakeCertificate(1)), 0);
    EXPECT_EQ(std::count(contents.begin(), contents.end(), MakeCertificate(100)), 1);
}

TEST_F(RefusedCertificates, CountANetworkOfIPv6AsOneOrigin)
{
    for (std::size_t i = 0; i < 2 * RejectedCertificates::mostOfOrigin; ++i)
        Add(i, "2001:db8::" + std::to_string(i));
    EXPECT_EQ(rejected.List().size(), RejectedCertificates::mostOfOrigin);
}

TEST_F(RefusedCertificates, AreBoundedInAll)
{
    constexpr std::size_t more = 5;
    for (std::size_t i = 0; i < RejectedCertificates::most + more; ++i)
        Add(i, "192.0.2." + std::to_string(i));
    const auto contents = ListContents();
    EXPECT_EQ(contents.size(), RejectedCertificates::most);
    EXPECT_EQ(contents.front(), MakeCertificate(RejectedCertificates::most + more - 1));
    EXPECT_EQ(contents.back(), MakeCertificate(more));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}),
              static_cast<std::ptrdiff_t>(RejectedCertificates::most));
}

TEST_F(RefusedCertificates, AreNotTakenWhenTheyAreTooLarge)
{
    const OpcUa::Bytes large(RejectedCertificates::largest + 1, 0x30);
    EXPECT_THROW(rejected.Add(large, ""), Core::InvalidArgumentException);
    EXPECT_THAT(rejected.List(), IsEmpty());
}

TEST_F(RefusedCertificates, LeaveOtherFilesAlone)
{
    std::filesystem::create_directory(folder);
    const auto other = pki.MakeFile("rejected/notes.txt");
    const auto named = pki.MakeFile("rejected/" + std::string(64, 'G') + ".der");
    for (std::size_t i = 0; i < RejectedCertificates::most + 1; ++i)
        Add(i, "192.0.2." + std::to_string(i));
    EXPECT_TRUE(std::filesystem::exists(other));
    EXPECT_TRUE(std::filesystem::exists(named));
    EXPECT_EQ(rejected.List().size(), RejectedCertificates::most);
}

TEST_F(RefusedCertificates, AreFoundByTheBeginningOfTheirFingerprints)
{
    Add(1);
    Add(2);
    const auto whole = OpcUa::MakeFingerprint(MakeCertificate(1));
    auto small = MakeDigits(MakeCertificate(1)).substr(0, 8);
    std::transform(small.begin(), small.end(), small.begin(), ::tolower);
    EXPECT_EQ(rejected.Find(whole).Read(), MakeCertificate(1));
    EXPECT_EQ(rejected.Find(small).Read(), MakeCertificate(1));
    for (const auto& wrong : {small.substr(0, 7), small + "x", whole + "00", std::string("*")})
        EXPECT_THAT(GetComplaint([&] { std::ignore = rejected.Find(wrong); }),
                    HasSubstr("is no fingerprint"));
    EXPECT_THAT(GetComplaint([&] { std::ignore = rejected.Find("0000000000"); }),
                HasSubstr("has a fingerprint that begins with 0000000000"));
}

TEST_F(RefusedCertificates, AreNotFoundWhenSeveralBeginAlike)
{
    Add(1);
    const auto digits = MakeDigits(MakeCertificate(1));
    pki.MakeFile("rejected/" + digits.substr(0, 8) + std::string(56, '0') + ".der");
    EXPECT_THAT(GetComplaint([&] { std::ignore = rejected.Find(digits.substr(0, 8)); }),
                HasSubstr("give more of it"));
    EXPECT_EQ(rejected.Find(digits.substr(0, 9)).Read(), MakeCertificate(1));
}

TEST_F(RefusedCertificates, AreTrustedOnlyIfTheyAreWhatTheirNameSays)
{
    std::filesystem::create_directory(folder);
    pki.MakeFile("rejected/" + std::string(64, 'A') + ".der", "something else");
    std::filesystem::create_directory(pki.GetPath() / "trusted");
    EXPECT_THAT(GetComplaint([&] { std::ignore = TrustRejected(pki.GetPath(), "AAAAAAAA"); }),
                HasSubstr("does not hold the certificate that its name says"));
    EXPECT_TRUE(std::filesystem::is_empty(pki.GetPath() / "trusted"));
    EXPECT_THAT(ListRejected(pki.GetPath()), HasSubstr("does not hold the certificate"));
}

TEST_F(RefusedCertificates, MoveToTheTrustedOnes)
{
    const auto certificate = OpcUa::MakeKeyAndCertificate("tester").certificate;
    rejected.Add(certificate, "192.0.2.7");
    const auto list = ListRejected(pki.GetPath());
    const auto fingerprint = OpcUa::MakeFingerprint(certificate);
    EXPECT_THAT(list, HasSubstr(fingerprint + "\n  subject  CN=Talvensor tester on "));
    EXPECT_THAT(list, HasSubstr("Z, first from 192.0.2.7\n"));

    std::filesystem::create_directory(pki.GetPath() / "trusted");
    std::filesystem::permissions(pki.GetPath() / "trusted", std::filesystem::perms(0770));
    EXPECT_THAT(GetComplaint([&] { std::ignore = TrustRejected(pki.GetPath(), fingerprint); }),
                HasSubstr("trusted': chmod 700 it"));
    std::filesystem::permissions(pki.GetPath() / "trusted", std::filesystem::perms(0700));
    EXPECT_THAT(TrustRejected(pki.GetPath(), fingerprint), HasSubstr("SIGHUP"));
    const auto file = pki.GetPath() / "trusted" / (MakeDigits(certificate) + ".der");
    EXPECT_EQ(ReadWhole(file), std::string(certificate.begin(), certificate.end()));
    EXPECT_THAT(ListRejected(pki.GetPath()), HasSubstr("There is no certificate"));
}

} // namespace
} // namespace Host
