// The names of the tool's options, shared by the catalog that declares them
// and the commands that read them.
#ifndef VELMOR_TOOLS_VELMOR_AUTH_OPTION_NAMES_H_
#define VELMOR_TOOLS_VELMOR_AUTH_OPTION_NAMES_H_

namespace velmor::tool::option {

// Common to every command.
inline constexpr char kServer[] = "--server";
inline constexpr char kAppToken[] = "--app-token";
inline constexpr char kSlot[] = "--slot";
inline constexpr char kKeyFile[] = "--key-file";
inline constexpr char kCaFile[] = "--ca-file";
inline constexpr char kStore[] = "--store";
inline constexpr char kStoreDir[] = "--store-dir";
inline constexpr char kLogLevel[] = "--log-level";
inline constexpr char kJson[] = "--json";

// serve
inline constexpr char kPort[] = "--port";
inline constexpr char kHttp[] = "--http";
inline constexpr char kDir[] = "--dir";
inline constexpr char kUser[] = "--user";
inline constexpr char kAccessTokenLifetime[] = "--access-token-lifetime";
inline constexpr char kRefreshTokenLifetime[] = "--refresh-token-lifetime";
inline constexpr char kMaxFailedSignIns[] = "--max-failed-sign-ins";
inline constexpr char kLockoutSeconds[] = "--lockout-seconds";
inline constexpr char kRefreshTokenGrace[] = "--refresh-token-grace";
inline constexpr char kRequirePkce[] = "--require-pkce";

// sign-in, refresh, web-sign-in, code-exchange
inline constexpr char kUsername[] = "--username";
inline constexpr char kPasswordStdin[] = "--password-stdin";
inline constexpr char kScope[] = "--scope";
inline constexpr char kRealm[] = "--realm";
inline constexpr char kNamespace[] = "--namespace";
inline constexpr char kSignInUrl[] = "--sign-in-url";
inline constexpr char kNoBrowser[] = "--no-browser";
inline constexpr char kNoPkce[] = "--no-pkce";
inline constexpr char kPaste[] = "--paste";
inline constexpr char kTimeout[] = "--timeout";
inline constexpr char kCode[] = "--code";
inline constexpr char kRedirectUrl[] = "--redirect-url";
inline constexpr char kCodeVerifier[] = "--code-verifier";

// store
inline constexpr char kService[] = "--service";
inline constexpr char kAccount[] = "--account";
inline constexpr char kPasscodeStdin[] = "--passcode-stdin";
inline constexpr char kNoPasscode[] = "--no-passcode";

}  // namespace velmor::tool::option

#endif  // VELMOR_TOOLS_VELMOR_AUTH_OPTION_NAMES_H_
