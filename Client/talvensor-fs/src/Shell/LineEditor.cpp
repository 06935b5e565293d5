#include "Shell/LineEditor.h"

#include "Client/Exceptions.h"
#include "Output/Text.h"
#include "Support/Utf8.h"

#include <fcntl.h>
#include <histedit.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cwchar>
#include <utility>

namespace Cli {

namespace {

constexpr int historySize = 1'000;

/// Characters as the editor counts them.
int CountCharacters(std::string_view text)
{
    int count = 0;
    for (; !text.empty(); ++count)
        Support::TakeFirst(text);
    return count;
}

} // namespace

class LineEditor::Implementation
{
public:
    Implementation(std::filesystem::path historyFile,
                   std::function<Completion(std::string_view)> complete)
        : historyFile(std::move(historyFile))
        , complete(std::move(complete))
        , editor(el_init("talvensor-fs", stdin, stdout, stderr), el_end)
        , lines(history_init(), history_end)
    {
        if (!editor || !lines)
            throw Client::ClientException("the line editor cannot be started on this terminal");
        LoadHistory();
        SetUp();
    }
    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;
    ~Implementation() { SaveHistory(); }

    std::optional<std::string> Read(const std::string& wantedPrompt,
                                    const Client::Cancellation& wantedCancellation)
    {
        prompt = wantedPrompt;
        cancellation = &wantedCancellation;
        el_resize(editor.get());
        int length = 0;
        // It shows the prompt first otherwise, and what is typed at once goes by the terminal's
        // rules.
        el_set(editor.get(), EL_PREP_TERM, 1);
        const char* const text = el_gets(editor.get(), &length);
        if (wantedCancellation.IsCancelled()) {
            std::fputs("^C\n", stdout);
            std::fflush(stdout);
            throw Client::CancelledException();
        }
        if (text == nullptr || length <= 0)
            return std::nullopt;
        std::string line(text, static_cast<std::size_t>(length));
        Remember(line);
        return line;
    }

private:
    void SetUp()
    {
        auto* const handle = editor.get();
        el_set(handle, EL_CLIENTDATA, this);
        el_set(handle, EL_EDITOR, "emacs");
        el_set(handle, EL_SIGNAL, 0); // the program's own
        el_set(handle, EL_PROMPT, GetPrompt);
        el_set(handle, EL_GETCFN, ReadCharacter);
        el_set(handle, EL_HIST, history, lines.get());
        el_set(handle, EL_ADDFN, "complete", "completes commands and paths", CompleteLine);
        el_set(handle, EL_BIND, "^I", "complete", nullptr);
        el_source(handle, nullptr);
    }

    static Implementation& Get(EditLine* handle)
    {
        void* self = nullptr;
        el_get(handle, EL_CLIENTDATA, &self);
        return *static_cast<Implementation*>(self);
    }

    static char* GetPrompt(EditLine* handle) { return Get(handle).prompt.data(); }

    /// 1: there is one; 0: the end, -1: cancelled or an error.
    static int ReadCharacter(EditLine* handle, wchar_t* character)
    {
        const auto& self = Get(handle);
        std::mbstate_t state = {};
        for (;;) {
            char byte = 0;
            const int count = self.ReadByte(byte);
            if (count <= 0)
                return count;
            const auto result =
                std::mbrtowc(character, &byte, 1, &state); // NOLINT(concurrency-mt-unsafe)
            if (result == static_cast<std::size_t>(-1))
                state = {}; // what is no character is left out
            else if (result != static_cast<std::size_t>(-2))
                return 1;
        }
    }

    int ReadByte(char& byte) const
    {
        std::array<pollfd, 2> waiting = {
            pollfd{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0},
            pollfd{.fd = cancellation->GetDescriptor(), .events = POLLIN, .revents = 0}};
        do
            poll(waiting.data(), waiting.size(), -1);
        while (waiting.front().revents == 0 && !cancellation->IsCancelled());
        if (cancellation->IsCancelled())
            return -1;
        return static_cast<int>(read(STDIN_FILENO, &byte, 1));
    }

    static unsigned char CompleteLine(EditLine* handle, int /*key*/)
    {
        try {
            return Get(handle).Complete();
        } catch (const std::exception&) {
            return CC_ERROR;
        }
    }

    unsigned char Complete()
    {
        const auto* const state = el_line(editor.get());
        const std::string line(state->buffer, state->cursor);
        const auto completion = complete(line);
        const auto typed = line.substr(completion.begin);
        if (typed != completion.replacement) {
            el_deletestr(editor.get(), CountCharacters(typed));
            el_insertstr(editor.get(), completion.replacement.c_str());
            return CC_REFRESH;
        }
        if (completion.choices.empty())
            return CC_ERROR;
        ShowChoices(completion.choices);
        return CC_REDISPLAY;
    }

    /// Below the line that is being typed, in columns.
    void ShowChoices(const std::vector<std::string>& choices) const
    {
        std::vector<std::string> names;
        std::size_t widest = 0;
        for (const auto& choice : choices) {
            names.push_back(EscapeName(choice));
            widest = std::max(widest, CountColumns(names.back()) + 2);
        }
        const auto inOneLine = std::max<std::size_t>(GetColumns() / widest, 1);
        std::string text = "\n";
        for (std::size_t index = 0; index < names.size(); ++index) {
            const bool endsLine = (index + 1) % inOneLine == 0 || index + 1 == names.size();
            text += names[index];
            text += endsLine ? "\n" : std::string(widest - CountColumns(names[index]), ' ');
        }
        std::fputs(text.c_str(), stdout);
        std::fflush(stdout);
    }

    [[nodiscard]] std::size_t GetColumns() const
    {
        int columns = 0;
        el_get(editor.get(), EL_GETTC, "co", &columns);
        return columns > 0 ? static_cast<std::size_t>(columns) : 80;
    }

    void Remember(const std::string& line)
    {
        if (line.find_first_not_of(" \t\r\n") == std::string::npos)
            return;
        HistEvent event = {};
        history(lines.get(), &event, H_ENTER, line.c_str());
    }

    void LoadHistory()
    {
        HistEvent event = {};
        history(lines.get(), &event, H_SETSIZE, historySize);
        history(lines.get(), &event, H_SETUNIQUE, 1);
        history(lines.get(), &event, H_LOAD, historyFile.c_str());
    }

    void SaveHistory() const
    {
        constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;
        const int descriptor =
            open(historyFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, ownerOnly);
        if (descriptor < 0)
            return;
        if (auto* const file = fdopen(descriptor, "w")) {
            HistEvent event = {};
            history(lines.get(), &event, H_SAVE_FP, file);
            std::fclose(file);
        } else {
            close(descriptor);
        }
    }

    const std::filesystem::path historyFile;
    const std::function<Completion(std::string_view)> complete;
    const std::unique_ptr<EditLine, decltype(&el_end)> editor;
    const std::unique_ptr<History, decltype(&history_end)> lines;
    std::string prompt;
    const Client::Cancellation* cancellation = nullptr;
};

LineEditor::LineEditor(std::filesystem::path historyFile,
                       std::function<Completion(std::string_view)> complete)
    : implementation(std::make_unique<Implementation>(std::move(historyFile), std::move(complete)))
{}

LineEditor::~LineEditor() = default;

std::optional<std::string> LineEditor::Read(const std::string& prompt,
                                            const Client::Cancellation& cancellation)
{
    return implementation->Read(prompt, cancellation);
}

} // namespace Cli
