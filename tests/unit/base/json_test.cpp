#include "base/json.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

namespace kova {
namespace {

Json::Value Example() {
  Json::Value value;
  value["name"] = "a/b \"q\" \xc3\xa9";
  value["empty"] = Json::Value(Json::objectValue);
  value["list"].append(1);
  value["list"].append(true);
  value["Upper"] = Json::Value();
  return value;
}

std::string File(const std::string& content) {
  const std::string path = "/tmp/base_json_test";
  std::ofstream(path, std::ios::binary) << content;
  return path;
}

TEST(JsonText, HasAOneLineFormEndedByALineFeed) {
  EXPECT_EQ(JsonFastText(Example()),
            R"({"Upper":null,"empty":{},"list":[1,true],"name":"a/b \"q\" \u00e9"})"
            "\n");
}

TEST(JsonText, HasACompactFormWithoutALineFeed) {
  EXPECT_EQ(JsonToString(Example()),
            R"({"Upper":null,"empty":{},"list":[1,true],"name":"a/b \"q\" \u00e9"})");
  EXPECT_EQ(JsonToString(Json::Value("ends in\n")), R"("ends in\n")");
}

TEST(JsonText, HasAnIndentedForm) {
  EXPECT_EQ(JsonStyledText(Example()),
            "{\n"
            "   \"Upper\" : null,\n"
            "   \"empty\" : {},\n"
            "   \"list\" : [ 1, true ],\n"
            "   \"name\" : \"a/b \\\"q\\\" \\u00e9\"\n"
            "}\n");
}

TEST(JsonText, SortsMembers) {
  Json::Value value;
  for (const char* name : {"qi", "n", "kty", "e", "dq", "d", "p", "q", "dp"}) value[name] = 1;
  EXPECT_EQ(JsonToString(value), R"({"d":1,"dp":1,"dq":1,"e":1,"kty":1,"n":1,"p":1,"q":1,"qi":1})");
}

TEST(JsonText, StandsTextThatIsNotUtf8) {
  Json::Value again;
  EXPECT_TRUE(JsonFromText(JsonToString(Json::Value("\xff\xc3")), again));
}

TEST(JsonFromText, TakesAnyTypeOfValue) {
  Json::Value value;
  EXPECT_TRUE(JsonFromText("[1]", value));
  EXPECT_TRUE(value.isArray());
  EXPECT_TRUE(JsonFromText("{\"a\":1}", value));
  EXPECT_EQ(value["a"].asInt(), 1);
}

TEST(JsonFromText, RefusesWhatIsNotJson) {
  for (const char* text : {"", " ", "<html>", "{", "{\"a\"", "[1,", "nul"}) {
    Json::Value value("before");
    EXPECT_FALSE(JsonFromText(text, value)) << text;
    EXPECT_TRUE(value.isNull()) << text;
  }
}

TEST(JsonFromText, RefusesDeepNesting) {
  Json::Value value("before");
  EXPECT_FALSE(JsonFromText(std::string(100000, '['), value));
  EXPECT_TRUE(value.isNull());
}

TEST(JsonFromText, RefusesAnAbsurdNumberOfValues) {
  std::string list = "[0";
  std::string object = R"({"a":0)";
  std::string nested = "[[]";
  for (int i = 0; i < 100000; ++i) {
    list += ",0";
    object += R"(,"a":0)";
    nested += ",[]";
  }
  for (const std::string& text : {list + "]", object + "}", nested + "]"}) {
    Json::Value value("before");
    EXPECT_FALSE(JsonFromText(text, value));
    EXPECT_TRUE(value.isNull());
  }
}

TEST(JsonFromText, TakesManyValuesAndLongTexts) {
  Json::Value value;
  std::string list = "[0";
  for (int i = 1; i < 100000; ++i) list += ",0";
  EXPECT_TRUE(JsonFromText(list + "]", value));
  EXPECT_EQ(value.size(), 100000U);
  EXPECT_TRUE(JsonFromText("{\"a\":\"" + std::string(10 << 20, 'x') + "\"}", value));
  EXPECT_EQ(value["a"].asString().size(), 10U << 20);
}

TEST(JsonFromFile, ReadsAnyTypeOfValue) {
  Json::Value value;
  EXPECT_TRUE(JsonFromFile(File("{\"a\": 5}"), value));
  EXPECT_EQ(value["a"].asInt(), 5);
  EXPECT_TRUE(JsonFromFile(File("[]"), value));
  EXPECT_TRUE(value.isArray());
}

TEST(JsonFromFile, TellsWhyAFileCannotBeRead) {
  Json::Value value("before");
  errno = 0;
  EXPECT_FALSE(JsonFromFile("/tmp/there/is/none", value));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_TRUE(value.isNull());
}

TEST(JsonFromFile, LeavesNoErrnoForAFileThatIsNotJson) {
  for (const char* content : {"", "{", "[1e999999", "1e999999 x"}) {
    Json::Value value("before");
    errno = EBUSY;
    EXPECT_FALSE(JsonFromFile(File(content), value)) << content;
    EXPECT_EQ(errno, 0) << content;
    EXPECT_TRUE(value.isNull());
  }
}

TEST(JsonMember, IsSafeOnEveryTypeOfValue) {
  const Json::Value values[] = {Json::Value(),
                                Json::Value("text"),
                                Json::Value(1),
                                Json::Value(1.5),
                                Json::Value(true),
                                Json::Value(Json::arrayValue),
                                Json::Value(Json::objectValue)};
  for (const Json::Value& value : values) {
    EXPECT_FALSE(HasMember(value, "a"));
    EXPECT_TRUE(Member(value, "a").isNull());
    EXPECT_EQ(TextMember(value, "a"), "");
    EXPECT_TRUE(Member(Member(Member(value, "a"), "b"), "c").isNull());
  }
}

TEST(JsonMember, TellsANullMemberFromNone) {
  EXPECT_TRUE(HasMember(Example(), "Upper"));
  EXPECT_FALSE(HasMember(Example(), "upper"));
  const Json::Value example = Example();
  EXPECT_EQ(Member(example, "list").size(), 2U);
}

TEST(JsonTextMember, TakesStringsAlone) {
  Json::Value value;
  value["text"] = "t";
  value["number"] = 5;
  value["flag"] = true;
  value["null"] = Json::Value();
  value["list"].append("t");
  EXPECT_EQ(TextMember(value, "text"), "t");
  for (const char* other : {"number", "flag", "null", "list"}) {
    EXPECT_EQ(TextMember(value, other), "") << other;
  }
}

}  // namespace
}  // namespace kova
