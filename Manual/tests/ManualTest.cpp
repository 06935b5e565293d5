#include "Pages.h"
#include "Support/TemporaryFolder.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/wait.h>

namespace Manual {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;

struct Outcome
{
    int status = 0;
    std::vector<std::string> lines;
};

/// Runs a command of the shell; its standard error is part of the output.
Outcome RunShell(const std::string& command)
{
    // NOLINTNEXTLINE(cert-env33-c): the commands are those of this file
    FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr)
        throw std::runtime_error("cannot run " + command);
    std::string output;
    std::array<char, 4096> block{};
    for (std::size_t count = 0; (count = fread(block.data(), 1, block.size(), pipe)) > 0;)
        output.append(block.data(), count);
    Outcome outcome{.status = WEXITSTATUS(pclose(pipe)), .lines = {}};
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);)
        outcome.lines.push_back(line);
    return outcome;
}

bool HasProgram(const std::string& name)
{
    return RunShell("command -v " + name).status == 0;
}

std::string GetPath(const std::string& file)
{
    return std::string(TALVENSOR_GENERATED) + '/' + file;
}

std::string ReadFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

std::vector<std::string> GetNames(const CommandLine::Command& command)
{
    std::vector<std::string> names;
    for (const auto& group : command.groups) {
        for (const auto& option : group.options)
            names.insert(names.end(), option.names.begin(), option.names.end());
    }
    return names;
}

/// Completes the last of the words as bash would.
std::vector<std::string> Complete(const std::string& program, const std::vector<std::string>& words)
{
    auto function = '_' + program;
    std::replace(function.begin(), function.end(), '-', '_');
    std::string script = ". " + GetPath("bash/" + program) + "; COMP_WORDS=(" + program;
    for (const auto& word : words)
        script += " \"" + word + '"';
    script += "); COMP_CWORD=" + std::to_string(words.size()) + "; " + function +
              "; printf \"%s\\n\" \"${COMPREPLY[@]}\"";
    auto outcome = RunShell("bash -c '" + script + '\'');
    std::erase(outcome.lines, "");
    return outcome.lines;
}

TEST(TheGeneratedFiles, AreThoseOfThePrograms)
{
    std::vector<std::string> stored;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(TALVENSOR_GENERATED)) {
        if (entry.is_regular_file())
            stored.push_back(std::filesystem::relative(entry.path(), TALVENSOR_GENERATED).string());
    }
    const auto files = MakeFiles();
    std::vector<std::string> names;
    for (const auto& [name, content] : files) {
        names.push_back(name);
        EXPECT_TRUE(ReadFile(GetPath(name)) == content)
            << name << " is out of date: cmake --build --preset dev --target update-manual";
    }
    EXPECT_THAT(stored, testing::UnorderedElementsAreArray(names));
}

TEST(TheManual, HasEveryOptionAndCommand)
{
    for (const auto& program : GetPrograms()) {
        auto page = MakeProgramPage(program);
        std::erase(page, '\\');
        for (const auto& name : GetNames(program.grammar))
            EXPECT_THAT(page, HasSubstr("fB" + name + "fR"));
        for (const auto& command : program.grammar.commands) {
            EXPECT_THAT(page, HasSubstr(".SS " + command.name + '\n'));
            for (const auto& name : GetNames(command))
                EXPECT_THAT(page, HasSubstr("fB" + name + "fR"));
        }
        for (const auto* const title : {"NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "COMMANDS",
                                        "EXIT STATUS", "FILES", "EXAMPLES", "SEE ALSO"})
            EXPECT_THAT(page, HasSubstr(".SH " + std::string(title) + '\n'));
    }
}

TEST(TheManual, IsFormattedWithoutAWarning)
{
    if (!HasProgram("man"))
        GTEST_SKIP() << "needs man";
    for (const auto* const page : {"talvensor-host.8", "talvensor-fs.1", "host.toml.5"})
        EXPECT_THAT(RunShell("LC_ALL=C.UTF-8 man --warnings -E UTF-8 -l -Tutf8 -Z " +
                             GetPath("man/" + std::string(page)) + " >/dev/null")
                        .lines,
                    IsEmpty())
            << page;
}

TEST(TheCompletionOfBash, KnowsEveryCommandAndOption)
{
    for (const auto& program : GetPrograms()) {
        const auto& grammar = program.grammar;
        std::vector<std::string> commands;
        for (const auto& command : grammar.commands) {
            commands.push_back(command.name);
            EXPECT_THAT(Complete(grammar.name, {command.name, "-"}),
                        IsSupersetOf(GetNames(command)));
        }
        EXPECT_THAT(Complete(grammar.name, {"-"}),
                    testing::UnorderedElementsAreArray(GetNames(grammar)));
        EXPECT_THAT(Complete(grammar.name, {""}), testing::UnorderedElementsAreArray(commands));
    }
}

TEST(TheCompletionOfBash, DoesNotTakeValuesForCommands)
{
    EXPECT_THAT(Complete("talvensor-fs", {"-e", "opc.tcp", ":", "//h", ":", "4840", "pu"}),
                ElementsAre("put"));
    EXPECT_THAT(Complete("talvensor-fs", {"--endpoint", "=", "opc.tcp", ":", "//h", "pu"}),
                ElementsAre("put"));
    EXPECT_THAT(Complete("talvensor-fs", {"-u", "ls", "put", "--ver"}),
                ElementsAre("--version", "--verify"));
    EXPECT_THAT(Complete("talvensor-fs", {"-u", "put", "--verif"}), IsEmpty());
}

TEST(TheCompletionOfBash, CompletesValues)
{
    EXPECT_THAT(Complete("talvensor-fs", {"--security", "p"}), ElementsAre("plain"));
    EXPECT_THAT(Complete("talvensor-fs", {"--security", "=", "e"}), ElementsAre("encrypted"));
    EXPECT_THAT(Complete("talvensor-fs", {"put", "-j", ""}), IsEmpty());
    const Support::TemporaryFolder folder;
    const auto directory = folder.MakeFolder("below").string();
    const auto file = folder.MakeFile("begin").string();
    const auto begin = (folder.GetPath() / "be").string();
    EXPECT_THAT(Complete("talvensor-fs", {"put", begin}),
                testing::UnorderedElementsAre(file, directory));
    EXPECT_THAT(Complete("talvensor-host", {"--root", begin}), ElementsAre(directory));
    EXPECT_THAT(Complete("talvensor-fs", {"rm", begin}), IsEmpty());
}

using ShellAndFile = std::pair<std::string, std::string>;

class ACompletion : public testing::TestWithParam<ShellAndFile>
{};

TEST_P(ACompletion, IsAcceptedByItsShell)
{
    const auto [shell, file] = GetParam();
    if (!HasProgram(shell))
        GTEST_SKIP() << "needs " << shell;
    const auto outcome = RunShell(shell + " -n " + GetPath(file));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.lines, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(All, ACompletion,
                         testing::Values(ShellAndFile{"bash", "bash/talvensor-host"},
                                         ShellAndFile{"bash", "bash/talvensor-fs"},
                                         ShellAndFile{"zsh", "zsh/_talvensor-host"},
                                         ShellAndFile{"zsh", "zsh/_talvensor-fs"},
                                         ShellAndFile{"fish", "fish/talvensor-host.fish"},
                                         ShellAndFile{"fish", "fish/talvensor-fs.fish"}));

TEST(TheCompletionOfFish, KnowsEveryOption)
{
    if (!HasProgram("fish"))
        GTEST_SKIP() << "needs fish";
    const Support::TemporaryFolder home;
    for (const auto& program : GetPrograms()) {
        const auto& name = program.manual.name;
        for (const auto& command : program.grammar.commands) {
            const auto outcome =
                RunShell("HOME=" + home.GetPath().string() + " fish --no-config -c 'source " +
                         GetPath("fish/" + name + ".fish") + "; complete -C \"" + name + ' ' +
                         command.name + " --\"'");
            for (const auto& option : GetNames(command)) {
                if (!option.starts_with("--"))
                    continue;
                EXPECT_THAT(outcome.lines, testing::Contains(testing::StartsWith(option)));
            }
        }
    }
}

} // namespace
} // namespace Manual
