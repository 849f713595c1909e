#include "transport/WwwAuthenticateHeaderParser.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <typeinfo>
#include <vector>

#include "transport/BearerChallenge.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor {
namespace {

using State = WwwAuthenticateHeaderParser::State;

// What one parsed challenge should be: a BearerChallenge (no scheme) or a
// plain challenge with its scheme, and its attributes.
struct ExpectedChallenge {
  bool bearer;
  std::optional<std::string> scheme;
  Dictionary attributes;
};

ExpectedChallenge bearer(Dictionary attributes) { return {true, std::nullopt, attributes}; }

void expectChallenges(const WwwAuthenticateHeaderData& data,
                      const std::vector<ExpectedChallenge>& expected) {
  ASSERT_EQ(data.challenges().size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const WwwAuthenticateChallenge& challenge = *data.challenges()[i];
    EXPECT_EQ(typeid(challenge) == typeid(BearerChallenge), expected[i].bearer);
    EXPECT_EQ(challenge.scheme(), expected[i].scheme);
    EXPECT_EQ(challenge.attributeNameValuePairs(), expected[i].attributes)
        << Value(challenge.attributeNameValuePairs()).description();
  }
}

TEST(WwwAuthenticateHeaderParserTest, ReadsWellFormedHeaders) {
  struct Case {
    std::string header;
    std::vector<ExpectedChallenge> challenges;
  };
  const Case cases[] = {
      {R"(Bearer realm="example", error="invalid_token", error_description="The token expired")",
       {bearer({{"realm", "example"},
                {"error", "invalid_token"},
                {"error_description", "The token expired"}})}},
      {R"(bearer realm="x")", {bearer({{"realm", "x"}})}},
      {R"(BEARER realm="x")", {bearer({{"realm", "x"}})}},
      {R"(Basic realm="site")", {{false, "Basic", {{"realm", "site"}}}}},
      // A scheme is anything up to white space.
      {"Sch=me,(x) a=1,", {{false, "Sch=me,(x)", {{"a", "1"}}}}},
      // Unquoted values end at white space or a comma; the last one, with
      // nothing after it, is dropped.
      {"Bearer realm=abc error=invalid_token", {bearer({{"realm", "abc"}})}},
      {"Bearer realm=abc,error=invalid_token,",
       {bearer({{"realm", "abc"}, {"error", "invalid_token"}})}},
      // White space after "=" is part of the value, and a quote still opens
      // a quoted value after it.
      {R"(Bearer realm= "x")", {bearer({{"realm", " x"}})}},
      {"Bearer realm=  x ", {bearer({{"realm", "  x"}})}},
      // A comma right after "=" starts an unquoted value.
      {"Bearer a=,b=1,", {bearer({{"a", ",b=1"}})}},
      {"Bearer a=x\"y ", {bearer({{"a", "x\"y"}})}},
      // No escapes: a backslash is kept and the next quote ends the value.
      {R"(Bearer realm="C:\dir\" scope="read write")",
       {bearer({{"realm", R"(C:\dir\)"}, {"scope", "read write"}})}},
      {R"(Bearer error="")", {bearer({{"error", ""}})}},
      {R"(Bearer realm="a" realm="b")", {bearer({{"realm", "b"}})}},
      {"Bearer z=1 b=2 a=3 z=4 b=5,", {bearer({{"a", "3"}, {"b", "5"}, {"z", "4"}})}},
      {R"(Bearer ,, realm="x",,  error="y" ,)", {bearer({{"realm", "x"}, {"error", "y"}})}},
      {"Bearer\trealm=\"x\"\r\nerror=y\n", {bearer({{"realm", "x"}, {"error", "y"}})}},
      {"Bearer\u00a0realm=\"x\"", {bearer({{"realm", "x"}})}},
      {"Bearer !#$%&'*+-.^_`|~=v ", {bearer({{"!#$%&'*+-.^_`|~", "v"}})}},
      {"Bearer réalm=\"x\" 名前=\"y\" ٣=z,", {bearer({{"réalm", "x"}, {"名前", "y"}, {"٣", "z"}})}},
      {"Bearer realm=\"😀\"", {bearer({{"realm", "😀"}})}},
      // Unfinished parts at the end are dropped without an error.
      {"Bearer", {}},
      {"Bearer ", {bearer({})}},
      {R"(Bearer realm="x)", {bearer({})}},
      {"Bearer realm", {bearer({})}},
      {"Bearer realm=", {bearer({})}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.header);
    ErrorRef error = std::make_shared<Error>("stale", 1);
    std::shared_ptr<WwwAuthenticateHeaderData> data =
        WwwAuthenticateHeaderParser::parse(c.header, &error);
    EXPECT_EQ(error, nullptr);
    ASSERT_NE(data, nullptr);
    expectChallenges(*data, c.challenges);
  }
}

// A hostile server may send thousands of attributes; each must be kept,
// whatever the order in which the names arrive.
TEST(WwwAuthenticateHeaderParserTest, KeepsEveryAttributeOfALongHeader) {
  constexpr int kCount = 5000;
  std::string header = "Bearer";
  for (int i = kCount; i > 0; --i) header += " a" + std::to_string(i) + "=" + std::to_string(i);
  header += ",";
  auto data = WwwAuthenticateHeaderParser::parse(header, nullptr);
  ASSERT_NE(data, nullptr);
  ASSERT_EQ(data->challenges().size(), 1u);
  const Dictionary& attributes = data->challenges()[0]->attributeNameValuePairs();
  EXPECT_EQ(attributes.size(), static_cast<std::size_t>(kCount));
  for (int i : {1, 2, 999, kCount}) {
    const std::string* value = attributes.findString("a" + std::to_string(i));
    ASSERT_NE(value, nullptr) << i;
    EXPECT_EQ(*value, std::to_string(i));
  }
}

TEST(WwwAuthenticateHeaderParserTest, BearerAccessorsReadExactAttributeNames) {
  auto data = WwwAuthenticateHeaderParser::parse(
      R"(Bearer realm="r", error="invalid_token", error_description="d", error_uri="u", scope="s")",
      nullptr);
  ASSERT_NE(data, nullptr);
  ASSERT_EQ(data->challenges().size(), 1u);
  const auto* challenge = dynamic_cast<const BearerChallenge*>(data->challenges()[0].get());
  ASSERT_NE(challenge, nullptr);
  EXPECT_EQ(challenge->realm(), "r");
  EXPECT_EQ(challenge->error(), "invalid_token");
  EXPECT_EQ(challenge->errorDescription(), "d");
  EXPECT_EQ(challenge->errorUri(), "u");
  EXPECT_EQ(challenge->scope(), "s");
  EXPECT_EQ(BearerChallenge::schemeName(), "Bearer");

  data = WwwAuthenticateHeaderParser::parse(R"(Bearer Realm="r" Error="e" SCOPE="s")", nullptr);
  ASSERT_NE(data, nullptr);
  const auto& upper = dynamic_cast<const BearerChallenge&>(*data->challenges().at(0));
  EXPECT_EQ(upper.attributeNameValuePairs().size(), 3u);
  EXPECT_EQ(upper.realm(), std::nullopt);
  EXPECT_EQ(upper.error(), std::nullopt);
  EXPECT_EQ(upper.scope(), std::nullopt);
}

TEST(WwwAuthenticateHeaderParserTest, ReportsTheStateCharacterAndUtf16Position) {
  struct Case {
    std::string header;
    std::string state;
    std::string character;
    int position;
  };
  const Case cases[] = {
      {" Bearer", "scheme start", " ", 1},
      {"\nBearer", "scheme start", "\n", 1},
      {"\"Bearer\"", "scheme start", "\"", 1},
      {"Bea\"rer realm", "scheme end", "\"", 4},
      {"Bearer realm =\"x\"", "attribute name end", " ", 13},
      // A second challenge: its scheme is read as an attribute name.
      {"Bearer realm=\"x\", Basic realm=\"y\"", "attribute name end", " ", 24},
      {R"(Bearer realm="a\"b")", "attribute name end", "\"", 19},
      {"Bearer =x", "attribute name start", "=", 8},
      {"Bearer (realm)=\"x\"", "attribute name start", "(", 8},
      {"Bearer realm=\"x\",,  ;", "attribute name start", ";", 21},
      {"Bearer re@lm=\"x\"", "attribute name end", "@", 10},
      // Positions count UTF-16 units, not bytes: "é" is one unit, "😀" two.
      {"Bearer ré€=\"x\"", "attribute name end", "€", 10},
      {"Bearer realm=\"😀\" x y", "attribute name end", " ", 20},
      // Half of a surrogate pair is no letter; alone it prints as U+FFFD.
      {"Bearer a😀=\"x\"", "attribute name end", "\uFFFD", 9},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.header);
    ErrorRef error;
    EXPECT_EQ(WwwAuthenticateHeaderParser::parse(c.header, &error), nullptr);
    auto failure = std::dynamic_pointer_cast<VelmorAuthorizationError>(error);
    ASSERT_NE(failure, nullptr);
    EXPECT_EQ(failure->domain(), "com.velmor.authorization.server");
    EXPECT_EQ(failure->code(), 1);
    EXPECT_EQ(failure->userInfo(), std::nullopt);
    EXPECT_EQ(failure->description(), "Unexpected WWW-Authenticate header format. Expecting " +
                                          c.state + " but found character: '" + c.character +
                                          "' at position " + std::to_string(c.position) +
                                          ". Header text: '" + c.header + "'");
    // Without an error location the failure is only the missing result.
    EXPECT_EQ(WwwAuthenticateHeaderParser::parse(c.header, nullptr), nullptr);
  }
}

TEST(WwwAuthenticateHeaderParserTest, MissingHeaderIsCode42WithoutText) {
  for (const std::optional<std::string>& header : {std::optional<std::string>(), {""}}) {
    SCOPED_TRACE(header ? "empty" : "absent");
    ErrorRef error;
    EXPECT_EQ(WwwAuthenticateHeaderParser::parse(header, &error), nullptr);
    auto failure = std::dynamic_pointer_cast<VelmorAuthorizationError>(error);
    ASSERT_NE(failure, nullptr);
    EXPECT_EQ(failure->domain(), "com.velmor.authorization.server");
    EXPECT_EQ(failure->code(), 42);
    EXPECT_EQ(failure->userInfo(), std::nullopt);
    EXPECT_EQ(failure->descriptionText(), std::nullopt);
  }
}

TEST(WwwAuthenticateHeaderParserTest, ParsingErrorNamesEveryState) {
  const std::pair<State, const char*> names[] = {
      {State::kSchemeStart, "scheme start"},
      {State::kSchemeEnd, "scheme end"},
      {State::kAttributeNameStart, "attribute name start"},
      {State::kAttributeNameEnd, "attribute name end"},
      {State::kAttributeValueStart, "attribute value start"},
      {State::kAttributeQuotedValueEnd, "attribute quoted value end"},
      {State::kAttributeUnquotedValueEnd, "attribute unquoted value end"},
  };
  for (const auto& [state, name] : names) {
    SCOPED_TRACE(name);
    auto error = WwwAuthenticateHeaderParser::generateParsingError(state, u'ж', 41, "h");
    EXPECT_EQ(error->description(),
              std::string("Unexpected WWW-Authenticate header format. Expecting ") + name +
                  " but found character: 'ж' at position 42. Header text: 'h'");
  }
}

TEST(WwwAuthenticateHeaderParserTest, BearerLikelihoodNeedsBearerRealmAndAQuote) {
  const std::pair<std::optional<std::string>, bool> cases[] = {
      {R"(Bearer realm="x")", true},
      {R"(bEARER REALM="x", error="invalid_token")", true},
      {R"(Basic realm="a", Bearer realm="b")", true},
      {R"(xBearer realm=")", true},
      {R"(Bearer  realm="x")", false},
      {"Bearer\trealm=\"x\"", false},
      {R"(Bearer realm ="x")", false},
      {R"(Bearer realm= "x")", false},
      {"Bearer realm=x", false},
      {R"(Bearer error="invalid_token")", false},
      {R"(Basic realm="x")", false},
      {"", false},
      {std::nullopt, false},
  };
  for (const auto& [header, likely] : cases) {
    SCOPED_TRACE(header.value_or("(absent)"));
    EXPECT_EQ(
        WwwAuthenticateHeaderParser::isHeaderLikelyToBeBearerTokenWwwAuthenticateFormatted(header),
        likely);
  }
}

TEST(WwwAuthenticateHeaderParserTest, CharacterClasses) {
  for (char16_t c : std::u16string(u"az09=,;\\()@/\u00e9\U0001F600") + char16_t(0)) {
    SCOPED_TRACE(static_cast<int>(c));
    EXPECT_TRUE(WwwAuthenticateHeaderParser::isValidSchemeCharacter(c));
  }
  for (char16_t c : std::u16string(u"\" \t\n\r\v\f\u0085\u00a0\u2003\u2028\u2029\u3000")) {
    SCOPED_TRACE(static_cast<int>(c));
    EXPECT_FALSE(WwwAuthenticateHeaderParser::isValidSchemeCharacter(c));
  }
  // Symbols of HTTP tokens, then letters, marks and digits of any script
  // (superscript two, Arabic-Indic three, combining acute, full-width A).
  for (char16_t c :
       std::u16string(u"!#$%&'*+-.^_`|~azAZ09\u00aa\u00b2\u00c0\u00e9\u0436\u0663\u0301\uff21")) {
    SCOPED_TRACE(static_cast<int>(c));
    EXPECT_TRUE(WwwAuthenticateHeaderParser::isValidAttributeNameCharacter(c));
  }
  // Separators, white space, controls, symbols and punctuation, surrogates.
  std::u16string others = u"()<>@,;:\\\"/[]?={} \t\n\x01\x7f\u00a0\u00bf\u00d7\u20ac\u3000\uffff";
  others += {char16_t(0), char16_t(0xD83D), char16_t(0xDE00)};
  for (char16_t c : others) {
    SCOPED_TRACE(static_cast<int>(c));
    EXPECT_FALSE(WwwAuthenticateHeaderParser::isValidAttributeNameCharacter(c));
  }
}

}  // namespace
}  // namespace velmor
