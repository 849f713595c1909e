// The velmor-auth binary as a user drives it: exit statuses, output, the
// files it makes, and every flow against the development server it runs.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <vector>

#include "devserver/FormCodec.h"
#include "testing/FullDiskDirectory.h"
#include "testing/TemporaryDirectory.h"
#include "tools/ToolProcess.h"
#include "velmor/Base64.h"
#include "velmor/CurlHttpClient.h"

namespace velmor::test {
namespace {

using Json = nlohmann::json;
using Words = std::vector<std::string>;
using namespace std::chrono_literals;

std::string contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

mode_t modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
  return status.st_mode & 0777;
}

// A home of its own for every test: key file, file store and client
// context all land in a temporary directory; no desktop keyring is touched.
class ToolTest : public ::testing::Test {
 protected:
  ToolRun run(const Words& arguments, const std::string& input = "") {
    return ToolProcess::run(arguments, environment_, input);
  }
  Json runJson(Words arguments, int expectedExit, const std::string& input = "") {
    arguments.push_back("--json");
    const ToolRun result = run(arguments, input);
    EXPECT_EQ(result.exitCode, expectedExit) << result.err;
    Json parsed = Json::parse(result.out, nullptr, false);
    EXPECT_FALSE(parsed.is_discarded()) << result.out;
    return parsed;
  }

  TemporaryDirectory home_;
  EnvironmentChanges environment_ = isolatedToolEnvironment(home_.path());
};

TEST_F(ToolTest, UsageErrorsExitWithTwo) {
  const struct {
    Words arguments;
    const char* message;
  } cases[] = {
      {{}, "no command given"},
      {{"frobnicate"}, "unknown command 'frobnicate'"},
      {{"status", "--bogus"}, "unknown option --bogus for status"},
      {{"--port", "1", "serve"}, "unknown option --port"},
      {{"call"}, "call needs URL"},
      {{"version", "extra"}, "unexpected argument 'extra' for version"},
      {{"version", "--server"}, "--server needs a value (URL)"},
      {{"--json=yes", "version"}, "--json takes no value"},
      {{"version", "--json", "--json"}, "--json is given twice"},
      {{"version", "--log-level", "9"}, "--log-level takes 0 to 5, not '9'"},
      {{"--store", "cloud", "version"},
       "--store takes file, secret-service or memory, not 'cloud'"},
      {{"--store", "memory", "--store-dir", "/tmp", "version"},
       "--store-dir goes with --store file only"},
      {{"--ca-file", "/nonexistent/ca.pem", "version"},
       "cannot read the CA file /nonexistent/ca.pem"},
      {{"status"}, "no server: give --server URL or set VELMOR_SERVER"},
      {{"--server", "not a url", "status"}, "the server 'not a url' is not an absolute URL"},
      {{"--server", "https://h/", "--slot", "-1", "status"},
       "--slot takes a number from 0 to 2^63-1, not '-1'"},
      {{"--server", "https://h/", "--slot", "9223372036854775808", "status"},
       "--slot takes a number from 0 to 2^63-1, not '9223372036854775808'"},
      {{"--server", "https://h/", "sign-in", "--scope", "a"}, "--scope needs --username"},
      {{"--server", "https://h/", "sign-in", "--username", " "}, "--username must not be blank"},
      {{"--server", "https://h/", "sign-in", "--username", "alice"},
       "no terminal to ask for the password; use --password-stdin"},
      {{"--server", "https://h/", "sign-in", "--username", "alice", "--password-stdin"},
       "no password on standard input"},
      {{"--server", "https://h/", "call", "relative/path"},
       "'relative/path' is not an absolute URL"},
      {{"--server", "https://h/", "web-sign-in", "--timeout", "0"},
       "--timeout takes 1 to 86400 seconds, not '0'"},
      {{"--server", "https://h/", "code-exchange", "--redirect-url", "app:/cb"},
       "--code is required"},
      {{"--server", "https://h/", "code-exchange", "--code", "c", "--redirect-url", "app:/cb",
        "--code-verifier", " "},
       "--code-verifier must not be blank"},
      {{"serve", "--port", "70000"}, "--port takes 0 to 65535, not '70000'"},
      {{"serve", "--user", "nopassword"}, "--user takes NAME:PASSWORD, not 'nopassword'"},
      {{"serve", "--lockout-seconds", "0"}, "--lockout-seconds takes a number of seconds, not '0'"},
      {{"store", "--service", "s", "load"}, "--service and --account are required"},
      {{"store", "--service", "s", "--account", "a", "burn"},
       "the action is save, load, status or change-passcode, not 'burn'"},
      {{"store", "--service", "s", "--account", "a", "--no-passcode", "load"},
       "--no-passcode goes with change-passcode only"},
  };
  for (const auto& c : cases) {
    std::string line;
    for (const std::string& word : c.arguments) line += word + " ";
    SCOPED_TRACE(line);
    const ToolRun result = run(c.arguments);
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err.rfind("velmor-auth: " + std::string(c.message) + "\nTry 'velmor-auth ", 0),
              0u)
        << result.err;
  }
}

TEST_F(ToolTest, EveryCommandHasHelp) {
  const ToolRun general = run({"--help"});
  EXPECT_EQ(general.exitCode, 0);
  EXPECT_EQ(general.out.rfind("usage: velmor-auth [common options] COMMAND [options]\n", 0), 0u);
  for (const char* command :
       {"serve", "activate", "sign-in", "refresh", "status", "headers", "call", "sign-out",
        "delete", "web-sign-in", "code-exchange", "store", "version", "demo"}) {
    SCOPED_TRACE(command);
    EXPECT_NE(general.out.find(std::string("\n  ") + command + " "), std::string::npos);
    // Help wins over everything else on the line, wherever it stands.
    for (const Words& words : {Words{command, "--help"}, Words{"-h", command, "--bogus"}}) {
      const ToolRun help = run(words);
      EXPECT_EQ(help.exitCode, 0);
      EXPECT_EQ(help.out.rfind(std::string("usage: velmor-auth [common options] ") + command, 0),
                0u)
          << help.out;
      EXPECT_EQ(help.err, "");
    }
  }
}

TEST_F(ToolTest, VersionAsTextAndJson) {
  const ToolRun text = run({"version"});
  EXPECT_EQ(text.exitCode, 0);
  EXPECT_EQ(text.out, "velmor-auth 1.1.4 (13)\n");
  EXPECT_EQ(runJson({"version"}, 0), (Json{{"version", "1.1.4 (13)"}}));
}

TEST_F(ToolTest, KeyFileIsMadeOnceWithPrivateModes) {
  const Words status = {"--server", "https://127.0.0.1:9/", "status"};
  EXPECT_EQ(runJson(status, 0),
            (Json{{"state", 1},
                  {"stateName", "activationRequired"},
                  {"username", nullptr},
                  {"validUntil", {{"accessToken", nullptr}, {"refreshToken", nullptr}}},
                  {"store", "files in '" + home_.pathOf("keychain") + "'"}}));
  const std::string path = home_.pathOf("config/velmor-auth/key");
  EXPECT_EQ(modeOf(home_.pathOf("config")), 0700u);
  EXPECT_EQ(modeOf(home_.pathOf("config/velmor-auth")), 0700u);
  EXPECT_EQ(modeOf(path), 0600u);
  const std::string text = contentsOf(path);
  ASSERT_FALSE(text.empty());
  EXPECT_EQ(text.find('\n'), text.size() - 1);
  const std::optional<Data> key = Base64::decodeBase64WithString(text.substr(0, text.size() - 1));
  ASSERT_TRUE(key);
  EXPECT_EQ(key->size(), 32u);

  runJson(status, 0);
  EXPECT_EQ(contentsOf(path), text);

  const std::string elsewhere = home_.pathOf("keys/other.key");
  Words withKeyFile = status;
  withKeyFile.insert(withKeyFile.end(), {"--key-file", elsewhere});
  runJson(withKeyFile, 0);
  EXPECT_NE(contentsOf(elsewhere), text);

  std::ofstream(elsewhere, std::ios::trunc) << "not base64 at all!\n";
  EXPECT_EQ(runJson(withKeyFile, 1).at("error"),
            (Json{{"domain", "com.velmor.authorization.tool"},
                  {"code", 3},
                  {"description", "the key file " + elsewhere + " holds no Base64 key"}}));
}

TEST_F(ToolTest, StoreKeepsAValueBehindAPasscode) {
  const Words store = {"store", "--service", "notes", "--account", "anna"};
  auto with = [&store](std::initializer_list<std::string> more) {
    Words words = store;
    words.insert(words.end(), more);
    return words;
  };
  EXPECT_EQ(runJson(with({"status"}), 0),
            (Json{{"exists", false}, {"passcodeProtected", false}, {"passcodeInputType", 0}}));
  const Json nothing = runJson(with({"load"}), 1);
  EXPECT_EQ(nothing.at("error"), (Json{{"domain", "com.velmor.authorization.tool"},
                                       {"code", 5},
                                       {"description", "The store holds no value"}}));

  const Json value = {{"list", {1, "two", 3.5, nullptr, true}}, {"big", 18446744073709551615ull}};
  EXPECT_EQ(runJson(with({"save"}), 0, value.dump()), (Json{{"saved", true}}));
  const Json changed = runJson(with({"change-passcode", "--passcode-stdin"}), 0, "1234\n");
  EXPECT_EQ(changed.at("passcodeInputType"), 1);
  EXPECT_EQ(changed.at("passcodeProtected"), true);

  const Json wrong = runJson(with({"load", "--passcode-stdin"}), 1, "4321\n");
  EXPECT_EQ(wrong.at("error"), (Json{{"domain", "com.velmor.authorization.tool"},
                                     {"code", 4},
                                     {"description", "The passcode is wrong"}}));
  EXPECT_EQ(runJson(with({"load", "--passcode-stdin"}), 0, "1234\n").at("value"), value);
  EXPECT_EQ(runJson(with({"save", "--passcode-stdin"}), 0, "1234\n[\"replaced\"]\n"),
            (Json{{"saved", true}}));
  EXPECT_EQ(runJson(with({"change-passcode", "--passcode-stdin"}), 0, "1234\nab12\n")
                .at("passcodeInputType"),
            3);
  const Json removed =
      runJson(with({"change-passcode", "--passcode-stdin", "--no-passcode"}), 0, "ab12\n");
  EXPECT_EQ(removed.at("passcodeProtected"), false);
  EXPECT_EQ(runJson(with({"load"}), 0).at("value"), Json::array({"replaced"}));

  const ToolRun invalid = run(with({"save"}), "{not json");
  EXPECT_EQ(invalid.exitCode, 2);
  EXPECT_EQ(invalid.err.rfind("velmor-auth: standard input holds no JSON value\n", 0), 0u);
  // The human form prints the value as indented JSON.
  EXPECT_EQ(run(with({"load"})).out, "[\n  \"replaced\"\n]\n");
}

// A relative --store-dir means one below where the tool runs (the store
// itself takes absolute directories only).
TEST_F(ToolTest, ARelativeStoreDirectoryIsTakenFromTheWorkingDirectory) {
  ASSERT_EQ(::chdir(home_.path().c_str()), 0);
  const Words names = {"--service", "notes", "--account", "anna"};
  Words save = {"store", "save", "--store", "file", "--store-dir", "kept"};
  save.insert(save.end(), names.begin(), names.end());
  EXPECT_EQ(runJson(save, 0, "[1]"), (Json{{"saved", true}}));
  Words load = {"store", "load", "--store-dir", home_.pathOf("kept")};
  load.insert(load.end(), names.begin(), names.end());
  EXPECT_EQ(runJson(load, 0).at("value"), Json::array({1}));
}

Json storeError(const std::string& description) {
  return {{"domain", "com.velmor.authorization.tool"}, {"code", 10}, {"description", description}};
}

// Nothing is sent and nothing reported done while the store cannot keep the
// result; status still answers, and says why.
TEST_F(ToolTest, CommandsThatWriteRefuseAStoreThatCannotSave) {
  const std::string directory = home_.writeFile("not-a-directory", "") + "/keychain";
  environment_["VELMOR_SECRET_STORE_DIR"] = directory;
  const std::string reason = "The file store's directory '" + directory + "' cannot be written.";
  const Words server = {"--server", "https://127.0.0.1:9/"};
  const struct {
    Words words;
    std::string input;
  } cases[] = {
      {{"activate"}, ""},
      {{"sign-in", "--username", "alice", "--password-stdin"}, "wonderland\n"},
      {{"sign-in"}, ""},
      {{"refresh"}, ""},
      {{"headers"}, ""},
      {{"call", "https://127.0.0.1:9/api/v1/me"}, ""},
      {{"sign-out"}, ""},
      {{"delete"}, ""},
      {{"code-exchange", "--code", "c", "--redirect-url", "app:/cb"}, ""},
      {{"web-sign-in", "--no-browser"}, ""},
      {{"store", "--service", "notes", "--account", "anna", "save"}, "[1]"},
      {{"store", "--service", "notes", "--account", "anna", "change-passcode", "--no-passcode"},
       ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.words.front());
    Words words = server;
    words.insert(words.end(), c.words.begin(), c.words.end());
    const Json result = runJson(words, 1, c.input);
    EXPECT_EQ(result, (Json{{"error", storeError(reason)}}));
  }
  const ToolRun status = run({"--server", "https://127.0.0.1:9/", "status"});
  EXPECT_EQ(status.exitCode, 0);
  EXPECT_NE(
      status.out.find("\nStore: files in '" + directory + "'\nStore problem: " + reason + "\n"),
      std::string::npos)
      << status.out;
}

// A `velmor-auth serve` process for the test, and the options that point
// the client commands at it.
class ServedToolTest : public ToolTest {
 protected:
  void SetUp() override {
    Words serve = {"serve", "--port", "0", "--dir", home_.pathOf("devserver"), "--json"};
    serve.insert(serve.end(), serveOptions_.begin(), serveOptions_.end());
    server_ = std::make_unique<ToolProcess>(serve, environment_);
    const std::optional<std::string> line =
        server_->readLine([](const std::string&) { return true; }, 60s);
    ASSERT_TRUE(line) << server_->finish(SIGKILL).err;
    announced_ = Json::parse(*line);
    baseUrl_ = announced_.at("baseUrl");
    caFile_ = announced_.at("caFile");
  }

  Words client(std::initializer_list<std::string> words) const {
    Words all = {"--server", baseUrl_, "--ca-file", caFile_};
    all.insert(all.end(), words);
    return all;
  }

  Words serveOptions_;
  std::unique_ptr<ToolProcess> server_;
  Json announced_;
  std::string baseUrl_;
  std::string caFile_;
};

TEST_F(ServedToolTest, ServeAnnouncesItselfAndStopsOnSigterm) {
  EXPECT_EQ(baseUrl_.rfind("https://127.0.0.1:", 0), 0u);
  EXPECT_EQ(caFile_, home_.pathOf("devserver") + "/ca.pem");
  EXPECT_EQ(announced_.at("appTokens"), Json::array({"velmor-dev-app"}));
  EXPECT_EQ(announced_.at("users"), Json::array({"alice", "bob"}));
  HttpResult index;
  {
    CurlHttpClient http(CurlHttpClientOptions{60s, caFile_, 1024 * 1024});
    index = http.send(HttpRequest(*Url::withString(baseUrl_)));
  }
  ASSERT_TRUE(index.response) << (index.error ? *index.error->description() : "");
  EXPECT_EQ(index.response->statusCode(), 200);

  const ToolRun stopped = server_->finish(SIGTERM);
  EXPECT_EQ(stopped.exitCode, 0);
  EXPECT_NE(stopped.err.find("velmor-auth serve: GET / 200\n"), std::string::npos) << stopped.err;
  EXPECT_NE(stopped.err.find("velmor-auth serve: stopped\n"), std::string::npos);
}

TEST_F(ServedToolTest, PasswordSignInThroughEveryCommand) {
  EXPECT_EQ(runJson(client({"activate"}), 0),
            (Json{{"state", 2}, {"stateName", "signInRequired"}}));
  const Json signedIn =
      runJson(client({"sign-in", "--username", "alice", "--password-stdin"}), 0, "wonderland\n");
  EXPECT_EQ(signedIn.at("state"), 3);
  EXPECT_EQ(signedIn.at("stateName"), "authorized");
  EXPECT_EQ(signedIn.at("username"), "alice");
  EXPECT_EQ(signedIn.at("scopes"), Json::array({"profile", "email"}));
  const std::regex utc(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)");
  EXPECT_TRUE(
      std::regex_match(signedIn.at("validUntil").at("accessToken").get<std::string>(), utc));
  EXPECT_TRUE(
      std::regex_match(signedIn.at("validUntil").at("refreshToken").get<std::string>(), utc));

  const Json status = runJson(client({"status"}), 0);
  EXPECT_EQ(status.at("username"), "alice");
  EXPECT_EQ(status.at("validUntil"), signedIn.at("validUntil"));
  // The status never shows a token.
  const ToolRun statusText = run(client({"status"}));
  EXPECT_EQ(
      statusText.out.rfind("State: 3 (authorized)\nUser: alice\nAccess token valid until: ", 0), 0u)
      << statusText.out;

  const ToolRun headers = run(client({"headers"}));
  EXPECT_EQ(headers.exitCode, 0);
  EXPECT_TRUE(
      std::regex_match(headers.out, std::regex("Authorization: Bearer [A-Za-z0-9_-]{43}\n")))
      << headers.out;
  EXPECT_EQ(runJson(client({"headers"}), 0).at("headers").at("Authorization"),
            headers.out.substr(15, headers.out.size() - 16));

  const ToolRun call = run(client({"call", baseUrl_ + "api/v1/me"}));
  EXPECT_EQ(call.exitCode, 0) << call.err;
  EXPECT_EQ(Json::parse(call.out).at("username"), "alice");

  const Json refreshed = runJson(client({"refresh", "--scope", "email"}), 0);
  EXPECT_EQ(refreshed.at("scopes"), Json::array({"email"}));
  EXPECT_EQ(runJson(client({"sign-out"}), 0),
            (Json{{"state", 2}, {"stateName", "signInRequired"}}));
  EXPECT_EQ(runJson(client({"headers"}), 1).at("error"),
            (Json{{"domain", "com.velmor.authorization.tool"},
                  {"code", 1},
                  {"description", "Not signed in: the state is 2 (signInRequired)"}}));
  EXPECT_EQ(runJson(client({"delete"}), 0),
            (Json{{"state", 1}, {"stateName", "activationRequired"}}));
}

// Several commands of one identity at once, against a server that revokes
// the sign-in when a spent refresh token comes back: each one succeeds and
// the user stays signed in.
TEST_F(ServedToolTest, ConcurrentCommandsOfOneIdentityAllSucceed) {
  ASSERT_EQ(run(client({"activate"})).exitCode, 0);
  ASSERT_EQ(
      run(client({"sign-in", "--username", "alice", "--password-stdin"}), "wonderland\n").exitCode,
      0);
  std::vector<std::unique_ptr<ToolProcess>> commands;
  for (const char* command : {"refresh", "refresh", "refresh", "refresh", "headers", "headers"}) {
    commands.push_back(std::make_unique<ToolProcess>(client({command}), environment_));
  }
  for (auto& command : commands) {
    const ToolRun finished = command->finish();
    EXPECT_EQ(finished.exitCode, 0) << finished.err;
  }
  EXPECT_EQ(runJson(client({"status"}), 0).at("state"), 3);
}

TEST_F(ServedToolTest, ClientCredentialsSignInHasNoUser) {
  runJson(client({"activate"}), 0);
  const Json signedIn = runJson(client({"sign-in"}), 0);
  EXPECT_EQ(signedIn.at("username"), nullptr);
  EXPECT_EQ(signedIn.at("validUntil").at("refreshToken"), nullptr);
  const Json call = runJson(client({"call", baseUrl_ + "api/v1/me"}), 0);
  EXPECT_EQ(call.at("httpStatus"), 200);
  EXPECT_EQ(Json::parse(call.at("body").get<std::string>()).at("username"), nullptr);
}

TEST_F(ServedToolTest, ARefusedTokenIsExplainedByTheLibrary) {
  runJson(client({"activate"}), 0);
  runJson(client({"sign-in", "--username", "alice", "--password-stdin", "--scope", "email"}), 0,
          "wonderland\n");
  const Json call = runJson(client({"call", baseUrl_ + "api/v1/me"}), 1);
  EXPECT_EQ(call.at("httpStatus"), 403);
  EXPECT_EQ(call.at("error"),
            (Json{{"domain", "com.velmor.authorization.server"},
                  {"code", 2},
                  {"description",
                   "Server error: 'insufficient_scope', Description: 'The access token lacks the "
                   "scope profile'"}}));
  // The library forgot the refused access token; the refresh token stays.
  EXPECT_EQ(call.at("state"), 4);
}

TEST_F(ServedToolTest, WrongPasswordsEndInTheLockoutText) {
  runJson(client({"activate"}), 0);
  const Words bob = client({"sign-in", "--username", "bob", "--password-stdin"});
  const Json wrong = runJson(bob, 1, "nope\n");
  EXPECT_EQ(wrong.at("error"),
            (Json{{"domain", "com.velmor.authorization.server"},
                  {"code", 4},
                  {"description",
                   "Your User ID or password was entered incorrectly. Please try again."}}));
  runJson(bob, 1, "nope\n");
  // The server locks for 900 s; the library words anything under an hour
  // as "1 minute".
  const std::string lockout =
      "velmor-auth: This account has been temporarily locked out. Please try again in 1 "
      "minute. (com.velmor.authorization.server, code 4)\n";
  const ToolRun locked = run(bob, "nope\n");
  EXPECT_EQ(locked.exitCode, 1);
  EXPECT_EQ(locked.err, lockout);
  // The right password does not help while the lock lasts.
  EXPECT_EQ(run(bob, "builder\n").err, lockout);
}

// Plays the browser: loads the page, submits the form the way the page
// would, and follows the redirect when `follow`.
class ScriptedBrowser final {
 public:
  explicit ScriptedBrowser(const std::string& caFile)
      : http_(CurlHttpClientOptions{60s, caFile, 1024 * 1024}) {}

  // The redirect's Location after submitting `extra` with the page's
  // parameters (those of `signInUrl`'s query, as the hidden fields carry).
  std::string submit(const std::string& signInUrl, const std::string& extra) {
    const HttpResult page = http_.send(HttpRequest(*Url::withString(signInUrl)));
    EXPECT_EQ(page.response ? page.response->statusCode() : 0, 200);
    HttpRequest form(*Url::withString(signInUrl));
    form.method = "POST";
    form.headerFields = {{"Content-Type", "application/x-www-form-urlencoded"}};
    const std::string body = *form.url.query() + "&" + extra;
    form.body = Data(body.begin(), body.end());
    const HttpResult posted = http_.send(form);
    EXPECT_EQ(posted.response ? posted.response->statusCode() : 0, 302);
    return posted.response ? posted.response->valueForHTTPHeaderField("Location").value_or("") : "";
  }
  std::string get(const std::string& url) {
    const HttpResult result = http_.send(HttpRequest(*Url::withString(url)));
    return result.body ? std::string(result.body->begin(), result.body->end()) : "";
  }

 private:
  CurlHttpClient http_;
};

bool isSignInUrl(const std::string& line) { return line.rfind("https://", 0) == 0; }

TEST_F(ServedToolTest, WebSignInCompletesWhenTheBrowserComesBack) {
  runJson(client({"activate"}), 0);
  ToolProcess signIn(client({"web-sign-in", "--no-browser", "--scope", "profile"}), environment_);
  const std::optional<std::string> url = signIn.readLine(isSignInUrl, 60s);
  ASSERT_TRUE(url);
  EXPECT_EQ(url->rfind(baseUrl_ + "oauth2/v1/authorize?response_type=code&client_id=", 0), 0u);
  EXPECT_TRUE(std::regex_search(
      *url, std::regex("&code_challenge=[A-Za-z0-9_-]{43}&code_challenge_method=S256$")))
      << *url;

  ScriptedBrowser browser(caFile_);
  const std::string location =
      browser.submit(*url, "username=alice&password=wonderland&action=sign-in");
  ASSERT_EQ(location.rfind("http://127.0.0.1:", 0), 0u) << location;
  EXPECT_NE(browser.get(location).find("<h1>Signed in</h1>"), std::string::npos);

  const ToolRun result = signIn.finish();
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_NE(result.out.find("\nSigned in as alice.\nScopes: profile\nState: 3 (authorized)\n"),
            std::string::npos)
      << result.out;
}

TEST_F(ServedToolTest, WebSignInReportsACancelAndATimeout) {
  runJson(client({"activate"}), 0);
  const ToolRun timedOut = run(client({"web-sign-in", "--no-browser", "--timeout", "1", "--json"}));
  EXPECT_EQ(timedOut.exitCode, 1);
  EXPECT_EQ(Json::parse(timedOut.out).at("error"),
            (Json{{"domain", "com.velmor.authorization.tool"},
                  {"code", 7},
                  {"description", "No redirect came back from the browser within 1 s"}}));

  ToolProcess signIn(client({"web-sign-in", "--no-browser"}), environment_);
  const std::optional<std::string> url = signIn.readLine(isSignInUrl, 60s);
  ASSERT_TRUE(url);
  ScriptedBrowser browser(caFile_);
  const std::string location = browser.submit(*url, "action=cancel");
  EXPECT_NE(browser.get(location).find("<h1>Sign-in failed</h1>"), std::string::npos);
  const ToolRun result = signIn.finish();
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.err,
            "velmor-auth: Server error: 'access_denied' (com.velmor.authorization.server, code "
            "1)\n");
}

TEST_F(ServedToolTest, TakesTheCaFileFromTheEnvironment) {
  environment_["VELMOR_CA_FILE"] = caFile_;
  EXPECT_EQ(runJson({"--server", baseUrl_, "activate"}, 0).at("state"), 2);
  // The option wins over the variable.
  environment_["VELMOR_CA_FILE"] = home_.pathOf("missing.pem");
  EXPECT_EQ(run({"--server", baseUrl_, "--ca-file", caFile_, "status"}).exitCode, 0);
  const ToolRun unreadable = run({"--server", baseUrl_, "status"});
  EXPECT_EQ(unreadable.exitCode, 2);
  EXPECT_EQ(unreadable.err.rfind(
                "velmor-auth: cannot read the CA file " + home_.pathOf("missing.pem") + "\n", 0),
            0u)
      << unreadable.err;
}

TEST_F(ServedToolTest, CodeExchangeWithACodeObtainedElsewhere) {
  runJson(client({"activate"}), 0);
  // The tool's own sign-in URL names the client; the code is then asked
  // for with another redirect URL and proof key, as another program would.
  std::string url;
  {
    ToolProcess signIn(client({"web-sign-in", "--no-browser"}), environment_);
    url = signIn.readLine(isSignInUrl, 60s).value_or("");
  }
  ASSERT_FALSE(url.empty());
  const std::string redirect = "http://127.0.0.1:9/elsewhere";
  url = std::regex_replace(url, std::regex("redirect_uri=[^&]*"),
                           "redirect_uri=" + devserver::FormCodec::encode(redirect));
  // RFC 7636, appendix B.
  url = std::regex_replace(url, std::regex("code_challenge=[^&]*"),
                           "code_challenge=E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM");
  ScriptedBrowser browser(caFile_);
  const std::string location =
      browser.submit(url, "username=alice&password=wonderland&action=sign-in");
  std::smatch code;
  ASSERT_TRUE(std::regex_search(location, code, std::regex("code=([^&]+)"))) << location;

  const Words exchange = client({"code-exchange", "--code", code[1], "--redirect-url", redirect});
  EXPECT_EQ(runJson(exchange, 1).at("error").at("code"), 4);
  Words proven = exchange;
  proven.insert(proven.end(), {"--code-verifier", "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk"});
  const Json signedIn = runJson(proven, 0);
  EXPECT_EQ(signedIn.at("state"), 3);
  EXPECT_EQ(signedIn.at("username"), nullptr);
  EXPECT_EQ(runJson(proven, 1).at("error").at("code"), 4);
}

// A server that refuses browser sign-in requests without a proof key.
class PkceRequiredToolTest : public ServedToolTest {
 protected:
  void SetUp() override {
    serveOptions_ = {"--require-pkce"};
    ServedToolTest::SetUp();
  }
};

TEST_F(PkceRequiredToolTest, APastedRedirectCompletesTheSignIn) {
  runJson(client({"activate"}), 0);
  ToolProcess signIn(client({"web-sign-in", "--no-browser", "--paste"}), environment_, "", true);
  const std::optional<std::string> url = signIn.readLine(isSignInUrl, 60s);
  ASSERT_TRUE(url);
  const std::optional<std::string> instruction = signIn.readLine(
      [](const std::string& line) { return line.find(" paste here ") != std::string::npos; }, 60s);
  ASSERT_TRUE(instruction);
  std::smatch redirect;
  ASSERT_TRUE(std::regex_search(*instruction, redirect,
                                std::regex(R"(starts with (http://127\.0\.0\.1:\d+/callback)\?$)")))
      << *instruction;

  ScriptedBrowser browser(caFile_);
  const std::string location =
      browser.submit(*url, "username=alice&password=wonderland&action=sign-in");
  ASSERT_EQ(location.rfind(redirect[1].str() + "?code=", 0), 0u) << location;
  // The browser on the other machine never reaches the listener; the user
  // copies its address bar instead, after a stray line.
  signIn.writeInput("\nhttps://example.com/?code=x\n  " + location + "  \n");
  const ToolRun result = signIn.finish();
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_NE(result.out.find("That is not the address to paste; it starts with the redirect URL "
                            "shown above.\n"),
            std::string::npos)
      << result.out;
  EXPECT_NE(result.out.find("\nSigned in as alice.\n"), std::string::npos) << result.out;
}

TEST_F(PkceRequiredToolTest, ASignInWithoutAProofKeyIsRefused) {
  runJson(client({"activate"}), 0);
  ToolProcess signIn(client({"web-sign-in", "--no-browser", "--no-pkce"}), environment_);
  const std::optional<std::string> url = signIn.readLine(isSignInUrl, 60s);
  ASSERT_TRUE(url);
  EXPECT_EQ(url->find("code_challenge"), std::string::npos);
  CurlHttpClient http(CurlHttpClientOptions{60s, caFile_, 1024 * 1024});
  const HttpResult page = http.send(HttpRequest(*Url::withString(*url)));
  ASSERT_TRUE(page.response);
  EXPECT_EQ(page.response->statusCode(), 302);
  const std::string location = page.response->valueForHTTPHeaderField("Location").value_or("");
  const HttpResult landed = http.send(HttpRequest(*Url::withString(location)));
  const std::string shown =
      landed.body ? std::string(landed.body->begin(), landed.body->end()) : "";
  EXPECT_NE(shown.find("<h1>Sign-in failed</h1>"), std::string::npos) << shown;
  const ToolRun result = signIn.finish();
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.err,
            "velmor-auth: Server error: 'invalid_request' (com.velmor.authorization.server, code "
            "5)\n");
}

// A store that takes nothing while its condition says it could (here a full
// disk): the registration the server made is not reported as done.
TEST_F(ServedToolTest, AWriteTheStoreRefusedIsNotReportedAsDone) {
  FullDiskDirectory disk;
  environment_["VELMOR_SECRET_STORE_DIR"] = disk.path() + "/keychain";
  runJson(client({"status"}), 0);  // makes the key file while files can still grow
  disk.fill();
  const Json activated = runJson(client({"activate"}), 1);
  disk.release();
  EXPECT_EQ(activated,
            (Json{{"state", 1},
                  {"stateName", "activationRequired"},
                  {"error", storeError("The registration was not saved: the secret store refused "
                                       "it (--log-level 1 shows why)")}}));
}

// Against a private gnome-keyring whose default collection is locked
// (tests/tools/CMakeLists.txt runs it under with-secret-service --locked):
// the store is chosen as on a desktop, and every write names the keyring.
class LockedKeyringToolTest : public ToolTest {
 protected:
  void SetUp() override {
    const char* scenario = std::getenv("VELMOR_SECRET_SERVICE_SCENARIO");
    if (!scenario) GTEST_SKIP() << "runs under ctest, which sets up its Secret Service";
    ASSERT_STREQ(scenario, "locked");
    environment_.erase("DBUS_SESSION_BUS_ADDRESS");
    environment_["VELMOR_SECRET_STORE"] = std::nullopt;
  }
};

TEST_F(LockedKeyringToolTest, WritesFailNamingTheKeyringAndStatusSaysWhy) {
  const std::string reason =
      "The Secret Service's default keyring \"Login\" is locked, so nothing can be read from it "
      "or saved in it; unlock it (for example in the desktop's password manager, Seahorse) and "
      "try again.";
  const Words server = {"--server", "https://127.0.0.1:9/"};
  for (const Words& command : {Words{"activate"}, Words{"sign-in"}, Words{"delete"}}) {
    SCOPED_TRACE(command.front());
    Words words = server;
    words.insert(words.end(), command.begin(), command.end());
    const ToolRun result = run(words);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "velmor-auth: " + reason + " (com.velmor.authorization.tool, code 10)\n");
  }
  const Json status = runJson({"--server", "https://127.0.0.1:9/", "status"}, 0);
  EXPECT_EQ(status.at("store"), "Secret Service (default collection)");
  EXPECT_EQ(status.at("storeProblem"), reason);
}

TEST_F(ToolTest, LogLevelShowsTheLibrarysLinesOnStandardError) {
  const ToolRun quiet = run({"--server", "https://127.0.0.1:9/", "status"});
  EXPECT_EQ(quiet.err, "");
  const ToolRun logged = run({"--server", "https://127.0.0.1:9/", "status", "--log-level", "3"});
  EXPECT_EQ(logged.exitCode, 0);
  EXPECT_NE(logged.err.find("velmor-auth: log: INFO\t"), std::string::npos) << logged.err;
}

TEST_F(ToolTest, DemoWalksThroughEveryStep) {
  const Json demo = runJson({"demo"}, 0);
  ASSERT_EQ(demo.at("steps").size(), 12u) << demo.dump(2);
  for (const Json& step : demo.at("steps")) {
    SCOPED_TRACE(step.dump());
    EXPECT_EQ(step.at("ok"), true);
  }
  EXPECT_EQ(demo.at("failed"), 0);
  EXPECT_EQ(demo.at("steps").at(8).at("detail"),
            "This account has been temporarily locked out. Please try again in 1 hour and 30 "
            "minutes.");
}

}  // namespace
}  // namespace velmor::test
