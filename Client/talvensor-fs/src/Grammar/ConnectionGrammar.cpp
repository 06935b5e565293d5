#include "Grammar/ConnectionGrammar.h"

namespace Cli {

namespace {

constexpr const char* groupName = "Connection";
constexpr const char* manyGroupName = "Many hosts";

CLI::Option* AddOption(CLI::App& app, const std::string& flag, const std::string& placeholder,
                       const std::string& text)
{
    return app.add_option(flag)->type_name(placeholder)->description(text)->group(groupName);
}

} // namespace

ConnectionGrammar::ConnectionGrammar(CLI::App& app)
    : endpoint(AddOption(app, "-e,--endpoint", "URL",
                         "the server: opc.tcp://HOST:PORT, HOST or HOST:PORT (port 4840)"))
    , profile(AddOption(app, "--profile", "NAME", "take settings from this profile"))
    , user(AddOption(app, "-u,--user", "NAME", "log in as this user (anonymous)"))
    , passwordFile(AddOption(app, "--password-file", "FILE",
                             "read the password from the first line of this file; nobody else may "
                             "read it"))
    , security(AddOption(app, "--security", "auto|plain|encrypted",
                         "auto: encrypted if the server offers it; the default is encrypted "
                         "with a user, otherwise auto"))
    , timeout(AddOption(app, "--timeout", "SECONDS",
                        "give up on a call after this long without any answer (60)"))
    , connectTimeout(AddOption(app, "--connect-timeout", "SECONDS",
                               "give up connecting and logging in after this long (10)"))
    , reconnectTimeout(AddOption(app, "--reconnect-timeout", "SECONDS",
                                 "try this long to restore a lost connection; 0: do not try (60)"))
    , fingerprint(
          AddOption(app, "--trust-fingerprint", "FP",
                    "trust only the server whose certificate has this fingerprint (SHA-256)"))
    , acceptsNew(AddFlag(app, "--accept-new",
                         "trust a new server without asking; a changed "
                         "certificate is still refused")
                     ->group(groupName))
    , hosts(app.add_option("--on")
                ->type_name("NAMES")
                ->description("run the command on these hosts: profiles, @GROUP, opc.tcp:// "
                              "endpoints, with commas between; -: those on standard input")
                ->group(manyGroupName))
    , atOnce(std::make_shared<std::size_t>(HostChoice().atOnce))
{
    app.add_option("--parallel", *atOnce, "run on this many hosts at the same time (8)")
        ->type_name("COUNT")
        ->check(CLI::Range(1, 1000).description(""))
        ->group(manyGroupName);
}

std::optional<HostChoice> ConnectionGrammar::GetHosts() const
{
    const auto list = GetText(hosts);
    if (!list)
        return std::nullopt;
    if (GetText(endpoint) || GetText(profile))
        throw Client::InvalidArgumentException(
            "--on names the hosts: it cannot be combined with -e or --profile");
    return HostChoice{.list = *list, .atOnce = *atOnce};
}

ConnectionSettings ConnectionGrammar::GetSettings() const
{
    ConnectionSettings settings;
    settings.endpoint = GetText(endpoint);
    settings.user = GetText(user);
    settings.passwordFile = GetText(passwordFile);
    if (const auto text = GetText(security))
        settings.security = ParseSecurity(*text);
    if (const auto text = GetText(timeout))
        settings.timeout = ParseTimeout(*text);
    if (const auto text = GetText(connectTimeout))
        settings.connectTimeout = ParseTimeout(*text);
    if (const auto text = GetText(reconnectTimeout))
        settings.reconnectTimeout = ParseTimeout(*text, 0);
    return settings;
}

Trust::Options ConnectionGrammar::GetTrust() const
{
    Trust::Options options{.fingerprint = std::nullopt, .acceptsNew = IsSet(acceptsNew)};
    if (const auto text = GetText(fingerprint))
        options.fingerprint = ParseFingerprint(*text);
    return options;
}

} // namespace Cli
