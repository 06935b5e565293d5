#pragma once

#include "HostProcess.h"

#include "Client/FileSystem.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace ClientTest {

/// A modification time that lies well in the past, in seconds.
constexpr long oldTime = 1'600'000'000;

[[nodiscard]] std::string MakeContent(std::size_t size);
void WriteFile(const std::filesystem::path& file, const std::string& content);
[[nodiscard]] std::string ReadFile(const std::filesystem::path& file);
/// With the folders above it, and with the old time.
void MakeFile(const std::filesystem::path& file, std::size_t size);
[[nodiscard]] long GetSeconds(const std::filesystem::path& file);
/// Names, contents and times of files.
void ExpectSameTrees(const std::filesystem::path& left, const std::filesystem::path& right);
[[nodiscard]] std::string Describe(const Client::TransferResult& result);

/// Returns why connecting was refused; fails the test when it was not.
[[nodiscard]] Client::Refusal GetRefusal(const std::function<void()>& connect);

/// A host that serves a folder. By default it has no file objects.
class WithHost : public testing::Test
{
protected:
    explicit WithHost(const std::vector<std::string>& more = {})
        : host(root.GetPath(), more)
    {
        clientKey.GiveTo(GetClientState());
    }
    ~WithHost() override { clientKey.TakeFrom(GetClientState()); }

    std::filesystem::path GetClientState() const { return state.GetPath() / "client"; }

    Client::ConnectionOptions MakeOptions(const HostProcess& server,
                                          Client::Security security = Client::Security::Plain)
    {
        Client::ConnectionOptions options;
        options.url = server.GetUrl();
        options.security = security;
        options.stateFolder = GetClientState();
        return options;
    }

    TemporaryFolder root;
    TemporaryFolder local;
    TemporaryFolder state;
    KeptKey clientKey{"client"};
    HostProcess host;
};

/// A host with file objects.
class WithObjects : public WithHost
{
protected:
    WithObjects()
        : WithHost(GetObjectArguments())
    {}
};

} // namespace ClientTest
