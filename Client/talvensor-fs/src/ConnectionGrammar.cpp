#include "ConnectionGrammar.h"

namespace Cli {

namespace {

constexpr const char* groupName = "Connection";

CLI::Option* AddOption(CLI::App& app, const std::string& flag, const std::string& placeholder,
                       const std::string& text)
{
    return app.add_option(flag)->type_name(placeholder)->description(text)->group(groupName);
}

} // namespace

ConnectionGrammar::ConnectionGrammar(CLI::App& app)
    : endpoint(AddOption(app, "-e,--endpoint", "URL", "the server, opc.tcp://HOST:PORT"))
    , profile(AddOption(app, "--profile", "NAME", "take settings from this profile"))
    , user(AddOption(app, "-u,--user", "NAME", "log in as this user (anonymous)"))
    , passwordFile(AddOption(app, "--password-file", "FILE",
                             "read the password from the first line of this file; nobody else may "
                             "read it"))
    , security(AddOption(app, "--security", "auto|plain|encrypted",
                         "auto: encrypted if the server offers it (encrypted with a user, "
                         "otherwise auto)"))
    , timeout(AddOption(app, "--timeout", "SECONDS",
                        "give up on a call after so long without a sign of life (60)"))
    , fingerprint(AddOption(app, "--trust-fingerprint", "FP",
                            "trust the server with this certificate (SHA-256) and no other"))
    , acceptsNew(AddFlag(app, "--accept-new",
                         "trust a server that was never seen before without asking; a changed "
                         "certificate is still refused")
                     ->group(groupName))
{}

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
