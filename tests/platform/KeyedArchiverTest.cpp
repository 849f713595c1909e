#include "platform/KeyedArchiver.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "platform/KeyedUnarchiver.h"
#include "platform/PropertyList.h"
#include "velmor/Exception.h"

namespace velmor {
namespace {

TEST(KeyedArchiver, RoundTripsEveryValueKind) {
  const Value samples[] = {
      Value(),
      Value(true),
      Value(std::int64_t{-5}),
      Value(std::numeric_limits<std::int64_t>::min()),
      Value(std::int64_t{1} << 40),
      Value(2.5),
      Value("caf\xC3\xA9"),
      Value(""),
      Value(Data{}),
      Value(Data{0, 1, 255}),
      Value(Array{1, "two", Array{}}),
      Value(Dictionary{{"ClientId", "x"}, {"nested", Dictionary{{"n", Value()}}}}),
  };
  for (const Value& sample : samples) {
    SCOPED_TRACE(sample.description());
    KeyedArchiver archiver;
    archiver.encodeObject(sample, "Object");
    KeyedUnarchiver unarchiver(archiver.finishEncoding());
    std::optional<Value> decoded = unarchiver.decodeObjectForKey("Object");
    if (sample.isNull()) {
      EXPECT_FALSE(decoded);
      EXPECT_TRUE(unarchiver.containsValueForKey("Object"));
    } else {
      ASSERT_TRUE(decoded);
      EXPECT_EQ(*decoded, sample);
    }
  }
}

TEST(KeyedArchiver, KeepsKeysInEncodingOrderAndTypedAccess) {
  KeyedArchiver archiver;
  archiver.encodeInt32(1, "Version");
  archiver.encodeBool(true, "Encrypted");
  archiver.encodeBytes(Data(16, 7), "IV");
  archiver.encodeObject(Dictionary{{"a", "b"}}, "DataDictionary");
  Data archive = archiver.finishEncoding();
  ASSERT_GE(archive.size(), 8u);
  EXPECT_EQ(std::string(archive.begin(), archive.begin() + 8), "bplist00");
  // The root's keys appear in the order they were encoded.
  std::string text(archive.begin(), archive.end());
  EXPECT_LT(text.find("Version"), text.find("Encrypted"));
  EXPECT_LT(text.find("Encrypted"), text.find("IV"));

  KeyedUnarchiver unarchiver(archive);
  EXPECT_EQ(unarchiver.decodeInt32ForKey("Version"), 1);
  EXPECT_TRUE(unarchiver.decodeBoolForKey("Encrypted"));
  EXPECT_EQ(unarchiver.decodeBytesForKey("IV"), Data(16, 7));
  EXPECT_EQ(unarchiver.decodeStringDictionaryForKey("DataDictionary"), (Dictionary{{"a", "b"}}));
  EXPECT_EQ(unarchiver.decodeInt32ForKey("Missing"), 0);
  EXPECT_FALSE(unarchiver.decodeBoolForKey("Missing"));
  EXPECT_EQ(unarchiver.decodeBytesForKey("Missing"), std::nullopt);
}

TEST(KeyedUnarchiver, RaisesOnDamagedArchivesAndWrongKinds) {
  Data arrayRoot = PropertyList::xmlFromDictionary({});
  std::string xml(arrayRoot.begin(), arrayRoot.end());
  xml.replace(xml.find("<dict/>"), 7, "<array/>");
  const Data damaged[] = {Data{}, Data{'b', 'p', 'l', 'i', 's', 't', '0', '0', 1, 2, 3},
                          Data(100, 0xFF), Data{'<', 'x', '>'}, Data(xml.begin(), xml.end())};
  for (const Data& bytes : damaged) {
    EXPECT_THROW(KeyedUnarchiver{bytes}, InvalidArgumentException);
  }
  KeyedArchiver archiver;
  archiver.encodeObject("text", "Version");
  archiver.encodeObject(Dictionary{{"a", 1}}, "DataDictionary");
  archiver.encodeInt32(7, "IV");
  KeyedUnarchiver unarchiver(archiver.finishEncoding());
  for (const auto& decode :
       {+[](const KeyedUnarchiver& u) { u.decodeInt32ForKey("Version"); },
        +[](const KeyedUnarchiver& u) { u.decodeBoolForKey("Version"); },
        +[](const KeyedUnarchiver& u) { u.decodeBytesForKey("IV"); },
        +[](const KeyedUnarchiver& u) { u.decodeStringDictionaryForKey("DataDictionary"); }}) {
    try {
      decode(unarchiver);
      ADD_FAILURE() << "expected an exception";
    } catch (const Exception& e) {
      EXPECT_EQ(e.name(), "NSInvalidUnarchiveOperationException");
    }
  }
}

TEST(PropertyList, WritesXmlThatReadsBack) {
  Dictionary context{{"Context", "Device Name: \"x\" | Model: \"y\" | User: \"(null)\""}};
  Data xml = PropertyList::xmlFromDictionary(context);
  std::string text(xml.begin(), xml.end());
  EXPECT_NE(text.find("<key>Context</key>"), std::string::npos);
  EXPECT_EQ(PropertyList::parse(xml), Value(context));
}

// Found by fuzzing the credential record: a text that is not UTF-8 (a user
// name from the application) lost everything from its first bad byte on.
TEST(PropertyList, KeepsTextAfterMalformedUtf8InBothForms) {
  const std::string text = "a\x9D\x87z\xC3(\xF0\x9F\x98\x80";
  const std::string stored = "a\xEF\xBF\xBD\xEF\xBF\xBDz\xEF\xBF\xBD(\xF0\x9F\x98\x80";
  const Dictionary written{{text, text}};
  const Value expected(Dictionary{{stored, stored}});
  EXPECT_EQ(PropertyList::parse(PropertyList::binaryFromEntries({{text, Value(written)}})),
            Value(Dictionary{{stored, expected}}));
  EXPECT_EQ(PropertyList::parse(PropertyList::xmlFromDictionary(written)), expected);
}

}  // namespace
}  // namespace velmor

namespace velmor {
namespace {

// A binary property list made of the given objects (object 0 is the root),
// with 2-byte references and 4-byte offsets.
Data binaryPropertyList(const std::vector<Data>& objects) {
  Data out{'b', 'p', 'l', 'i', 's', 't', '0', '0'};
  std::vector<std::uint32_t> offsets;
  for (const Data& object : objects) {
    offsets.push_back(static_cast<std::uint32_t>(out.size()));
    out.insert(out.end(), object.begin(), object.end());
  }
  const std::uint64_t table = out.size();
  for (std::uint32_t offset : offsets) {
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back((offset >> shift) & 0xFF);
  }
  Data trailer(32, 0);
  trailer[6] = 4;
  trailer[7] = 2;
  for (int i = 0; i < 8; ++i) {
    trailer[8 + i] = (std::uint64_t{objects.size()} >> (56 - 8 * i)) & 0xFF;
    trailer[24 + i] = (table >> (56 - 8 * i)) & 0xFF;
  }
  out.insert(out.end(), trailer.begin(), trailer.end());
  return out;
}

Data arrayOf(std::uint16_t child) {
  return Data{0xA1, std::uint8_t(child >> 8), std::uint8_t(child)};
}

// Damaged records must end in an exception the record's reader catches, never
// in libplist aborting or overflowing the stack.
TEST(KeyedUnarchiver, RefusesInputThatWouldBringDownThePropertyListReader) {
  std::vector<Data> deep;
  for (std::uint16_t i = 1; i < 5000; ++i) deep.push_back(arrayOf(i));
  deep.push_back(Data{0xA0});
  struct Case {
    const char* what;
    Data bytes;
  };
  const Case cases[] = {
      {"key with a NUL",
       binaryPropertyList({Data{0xD1, 0, 1, 0, 2}, Data{0x53, 'K', 0, 'z'}, Data{0x51, 'v'}})},
      {"UTF-16 text with a NUL", binaryPropertyList({Data{0xA1, 0, 1}, Data{0x61, 0, 0}})},
      {"an array inside itself", binaryPropertyList({arrayOf(1), arrayOf(0)})},
      {"5000 nested arrays", binaryPropertyList(deep)},
      {"reference past the objects", binaryPropertyList({arrayOf(7)})},
      {"XML with a character reference", Data{'<', 'p', 'l', 'i', 's', 't', '>', '<', 's', 't', 'r',
                                              'i', 'n', 'g', '>', '&', '#', '0', ';'}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_FALSE(PropertyList::parse(c.bytes));
    EXPECT_THROW(KeyedUnarchiver{c.bytes}, InvalidArgumentException);
  }
  std::vector<Data> shallow;
  for (std::uint16_t i = 1; i < 200; ++i) shallow.push_back(arrayOf(i));
  shallow.push_back(Data{0xA0});
  EXPECT_TRUE(PropertyList::parse(binaryPropertyList(shallow)));
}

}  // namespace
}  // namespace velmor
