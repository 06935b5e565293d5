#pragma once

#include "HostProcess.h"

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

namespace CliTest {

using Environment = std::map<std::string, std::string>;

struct Result
{
    int status = -1; ///< of its exit; 1000 and the number when a signal ended it
    std::string output;
    std::string error;
};

/// A host, and what somebody needs to run talvensor-fs against it: a home of their own, a folder
/// for local files, settings in the environment.
class Desk
{
public:
    explicit Desk(std::vector<std::string> hostFlags = {}, ClientTest::HostStart start = {});
    Desk(const Desk&) = delete;
    Desk& operator=(const Desk&) = delete;
    ~Desk();

    /// Runs it to its end, without a terminal, in the local folder.
    [[nodiscard]] Result Run(const std::vector<std::string>& arguments,
                             const std::string& input = "") const;

    /// The same with another program.
    [[nodiscard]] Result RunOther(const std::string& program,
                                  const std::vector<std::string>& arguments,
                                  const std::string& input = "") const;

    [[nodiscard]] std::filesystem::path GetLocal(const std::string& name) const;
    [[nodiscard]] std::filesystem::path GetRemote(const std::string& name) const;
    [[nodiscard]] std::filesystem::path GetHome() const;

    /// The host's own command, before there is a host. The user file's path.
    static std::filesystem::path MakeUserFile(const std::filesystem::path& folder);

    ClientTest::TemporaryFolder folder;
    ClientTest::HostProcess host;
    Environment environment;

private:
    [[nodiscard]] std::filesystem::path GetState() const;

    ClientTest::KeptKey key{"client"};
};

constexpr const char* userName = "ann";
constexpr const char* password = "one two";

void WriteFile(const std::filesystem::path& file, const std::string& content);
[[nodiscard]] std::string ReadFile(const std::filesystem::path& file);
/// Of zeros, without room on the disk.
void MakeSparseFile(const std::filesystem::path& file, std::uintmax_t size);
/// Takes as little room, and no two parts of it are the same.
void MakeMarkedFile(const std::filesystem::path& file, std::uintmax_t size);
[[nodiscard]] bool AreSame(const std::filesystem::path& left, const std::filesystem::path& right);

/// Interrupts, typed at a terminal.
inline constexpr const char* controlC = "\x03";

/// talvensor-fs as somebody at a terminal sees it. What is seen is collected.
class Terminal
{
public:
    Terminal(const Desk& desk, const std::vector<std::string>& arguments,
             unsigned short columns = 80);
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    /// Ends it.
    ~Terminal();

    void Type(const std::string& text) const;
    /// Types it again and again, and collects to the end. Its status, as in `Result`.
    [[nodiscard]] int TypeUntilEnd(const std::string& text);
    /// Collects until the text comes behind what was waited for before. False when it does not.
    [[nodiscard]] bool WaitFor(const std::string& text);
    /// Collects to the end. Its status, as in `Result`.
    [[nodiscard]] int WaitForEnd();
    [[nodiscard]] bool IsEchoing() const;
    [[nodiscard]] const std::string& GetSeen() const noexcept { return seen; }

private:
    [[nodiscard]] bool ReadMore();

    int descriptor = -1;
    pid_t process = -1;
    std::string seen;
    std::size_t waitedFor = 0;
};

} // namespace CliTest
