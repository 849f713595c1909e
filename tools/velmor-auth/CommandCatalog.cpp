#include "CommandCatalog.h"

#include <cstdio>

#include "ClientCommands.h"
#include "Demo.h"
#include "OptionNames.h"
#include "ServeCommand.h"
#include "StoreCommand.h"
#include "velmor/VelmorAuthorizationLibraryVersion.h"

namespace velmor::tool {

namespace {

int runVersion(CommandContext& context) {
  const std::string version = VelmorAuthorizationLibraryVersion::version();
  context.out.set("version", version);
  context.out.line("velmor-auth " + version);
  return kExitSuccess;
}

const OptionSpec kScopeOption{option::kScope, "SCOPE", true,
                              "ask for this scope (repeat for more)"};

std::vector<CommandSpec> makeCommands() {
  using namespace option;
  return {
      {"serve",
       "[--port N] [--http] [--dir DIR] [--user NAME:PASSWORD]... [--require-pkce]",
       "run the development authorization server until interrupted",
       "Prints the base URL and the CA file to trust (--ca-file). State lives in memory.\n"
       "Without --user the users are alice/wonderland and bob/builder. The application\n"
       "token velmor-dev-app is always known, and --app-token adds one. Browser sign-in\n"
       "takes a proof key (PKCE, S256); --require-pkce refuses requests without one.",
       {{{kPort, "N", false, "port on 127.0.0.1 (default 8443, 0 picks a free one)"},
         {kHttp, "", false, "serve plain HTTP instead of HTTPS"},
         {kDir, "DIR", false,
          "where the certificates are kept (default $XDG_CONFIG_HOME/velmor-auth/devserver)"},
         {kUser, "NAME:PASSWORD", true, "a user who may sign in (repeat for more)"},
         {kAccessTokenLifetime, "SECONDS", false, "access token lifetime (default 3600)"},
         {kRefreshTokenLifetime, "SECONDS", false, "refresh token lifetime (default 1209600)"},
         {kMaxFailedSignIns, "N", false,
          "wrong passwords in a row that lock an account (default 3, 0 never)"},
         {kLockoutSeconds, "SECONDS", false, "how long a lock lasts (default 900)"},
         {kRefreshTokenGrace, "SECONDS", false,
          "honour a spent refresh token this long after its rotation instead of revoking the "
          "sign-in (default 0: strict)"},
         {kRequirePkce, "", false, "refuse browser sign-in requests without a code challenge"}},
        {}},
       runServe},
      {"activate", "", "register this installation with the server", "", {}, runActivate},
      {"sign-in",
       "[--username U] [--password-stdin] [--scope S]... [--realm R] [--namespace N]",
       "sign in with a password, or with the client's own credentials",
       "Without --username the client-credentials grant is used. The password is asked\n"
       "for on the terminal without echo unless --password-stdin reads it from the\n"
       "first line of standard input.",
       {{{kUsername, "NAME", false, "the user to sign in"},
         {kPasswordStdin, "", false, "read the password from standard input"},
         kScopeOption,
         {kRealm, "REALM", false, "realm id passed to the server"},
         {kNamespace, "NAMESPACE", false, "namespace id passed to the server"}},
        {}},
       runSignIn},
      {"refresh",
       "[--scope S]...",
       "exchange the refresh token for a new access token",
       "",
       {{kScopeOption}, {}},
       runRefresh},
      {"status",
       "",
       "show the state, the user and how long the tokens are valid",
       "Never shows the tokens themselves.",
       {},
       runStatus},
      {"headers",
       "",
       "check the authorization (refreshing if needed) and print the header",
       "",
       {},
       runHeaders},
      {"call",
       "URL",
       "GET URL with the Bearer header and print the answer",
       "A refusal of the token is handed to the library, which explains it.",
       {{}, {"URL"}},
       runCall},
      {"sign-out", "", "forget the tokens here and revoke them at the server", "", {}, runSignOut},
      {"delete",
       "",
       "delete all stored data: client credentials, user name and tokens",
       "",
       {},
       runDelete},
      {"web-sign-in",
       "[--sign-in-url URL] [--scope S]... [--no-browser] [--paste] [--no-pkce] [--timeout "
       "SECONDS]",
       "sign in on the server's web page in a browser",
       "Listens on 127.0.0.1 for the browser's redirect and completes the sign-in. The\n"
       "request carries a proof key (PKCE, S256) unless --no-pkce is given. When the\n"
       "browser runs on another machine (over SSH, say) it cannot reach 127.0.0.1 here:\n"
       "with --paste, sign in there and paste the address the browser ends up at (it\n"
       "starts with the redirect URL shown) as one line on standard input; whichever\n"
       "comes first, the browser or the pasted line, completes the sign-in.",
       {{{kSignInUrl, "URL", false, "the sign-in page (default the server's oauth2/v1/authorize)"},
         kScopeOption,
         {kNoBrowser, "", false, "print the URL on a line of its own instead of opening it"},
         {kPaste, "", false, "also accept the final address pasted on standard input"},
         {kNoPkce, "", false, "send the request without a proof key"},
         {kTimeout, "SECONDS", false, "how long to wait for the browser (default 300)"}},
        {}},
       runWebSignIn},
      {"code-exchange",
       "--code C --redirect-url U [--code-verifier V]",
       "sign in with an authorization code obtained elsewhere",
       "A code whose sign-in request carried a proof-key challenge needs its verifier.",
       {{{kCode, "CODE", false, "the authorization code"},
         {kRedirectUrl, "URL", false, "the redirect URL the code was issued for"},
         {kCodeVerifier, "VERIFIER", false, "the proof key's code verifier"}},
        {}},
       runCodeExchange},
      {"store",
       "--service S --account A [--passcode-stdin] (save|load|status|change-passcode)",
       "keep one JSON value in a passcode-protected store",
       "save reads a JSON value from standard input, load prints it. With\n"
       "--passcode-stdin, passcodes come first on standard input, one per line\n"
       "(change-passcode: the current one if there is one, then the new one).\n"
       "change-passcode --no-passcode removes the protection.",
       {{{kService, "SERVICE", false, "service name of the store's item"},
         {kAccount, "ACCOUNT", false, "account name of the store's item"},
         {kPasscodeStdin, "", false, "read passcodes from standard input"},
         {kNoPasscode, "", false, "change-passcode: remove the passcode"}},
        {"ACTION"}},
       runStore},
      {"version", "", "print the library version", "", {}, runVersion},
      {"demo",
       "",
       "run a development server in-process and walk through every flow",
       "Uses a temporary store and key; touches nothing of yours.",
       {},
       runDemo},
  };
}

void appendOptions(std::string& text, const std::vector<OptionSpec>& options) {
  for (const OptionSpec& option : options) {
    // Appended piece by piece: g++ 12 at -O3 misreads `"literal" + string`
    // as an overlapping copy (-Wrestrict).
    std::string left = "  ";
    left += option.name;
    if (option.takesValue()) {
      left += ' ';
      left += option.valueName;
    }
    char line[512];
    std::snprintf(line, sizeof(line), "%-30s %.*s\n", left.c_str(),
                  static_cast<int>(option.help.size()), option.help.data());
    text += line;
  }
}

}  // namespace

const std::vector<OptionSpec>& CommandCatalog::commonOptions() {
  using namespace option;
  static const std::vector<OptionSpec> options = {
      {kServer, "URL", false, "authorization server base URL (or VELMOR_SERVER)"},
      {kAppToken, "TOKEN", false,
       "application token (or VELMOR_APP_TOKEN; default velmor-dev-app)"},
      {kSlot, "N", false, "identity slot (default 0)"},
      {kKeyFile, "PATH", false,
       "encryption key, made on first use (default $XDG_CONFIG_HOME/velmor-auth/key)"},
      {kCaFile, "PATH", false, "PEM file of CA certificates to trust as well (or VELMOR_CA_FILE)"},
      {kStore, "KIND", false, "secret store: file, secret-service or memory"},
      {kStoreDir, "DIR", false, "directory of the file store (implies --store file)"},
      {kLogLevel, "N", false, "library log on standard error: 1 errors, 3 info, 5 sensitive"},
      {kJson, "", false, "print one JSON object on standard output"},
  };
  return options;
}

const std::vector<CommandSpec>& CommandCatalog::commands() {
  static const std::vector<CommandSpec> commands = makeCommands();
  return commands;
}

const CommandSpec* CommandCatalog::find(std::string_view name) {
  for (const CommandSpec& command : commands()) {
    if (command.name == name) return &command;
  }
  return nullptr;
}

const CommandSyntax* CommandCatalog::syntaxOf(std::string_view name) {
  const CommandSpec* command = find(name);
  return command ? &command->syntax : nullptr;
}

std::string CommandCatalog::generalHelp() {
  std::string text =
      "usage: velmor-auth [common options] COMMAND [options]\n"
      "\nDrives the Velmor authorization library and runs a development server.\n"
      "\ncommands:\n";
  for (const CommandSpec& command : commands()) {
    char line[512];
    std::snprintf(line, sizeof(line), "  %-15s %.*s\n", std::string(command.name).c_str(),
                  static_cast<int>(command.summary.size()), command.summary.data());
    text += line;
  }
  text += "\ncommon options (before or after the command):\n";
  appendOptions(text, commonOptions());
  text +=
      "\nExit status: 0 success, 1 the operation failed, 2 the command line is wrong.\n"
      "'velmor-auth COMMAND --help' describes one command.\n";
  return text;
}

std::string CommandCatalog::commandHelp(const CommandSpec& command) {
  std::string text = "usage: velmor-auth [common options] ";
  text += command.name;
  if (!command.synopsis.empty()) {
    text += ' ';
    text += command.synopsis;
  }
  text += "\n\n";
  text += command.summary;
  text += '\n';
  if (!command.details.empty()) {
    text += '\n';
    text += command.details;
    text += '\n';
  }
  if (!command.syntax.options.empty()) {
    text += "\noptions:\n";
    appendOptions(text, command.syntax.options);
  }
  text += "\ncommon options: see 'velmor-auth --help'.\n";
  return text;
}

}  // namespace velmor::tool
