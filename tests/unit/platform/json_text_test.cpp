#include <gtest/gtest.h>
#include <json/value.h>

#include <cerrno>

#include "host_files.h"
#include "platform/files.h"
#include "scratch.h"

namespace kova::platform {
namespace {

using test::Scratch;
using test::WriteFile;

TEST(JsonTextTest, JsonOfAnyTypeIsParsed) {
  Json::Value value;
  EXPECT_TRUE(ParseJson(R"({"a":1})", value));
  EXPECT_EQ(value["a"].asInt(), 1);
  EXPECT_TRUE(ParseJson("[1,2]", value));
  EXPECT_EQ(value.size(), 2U);
  EXPECT_TRUE(ParseJson("{} // said the author", value));
}

TEST(JsonTextTest, WhatIsNoJsonGivesNull) {
  for (const char* text : {"", "<html>", "{\"a\":", "{", "]"}) {
    Json::Value value(Json::objectValue);
    EXPECT_FALSE(ParseJson(text, value)) << text;
    EXPECT_TRUE(value.isNull());
  }
}

TEST(JsonTextTest, DeepNestingIsRefusedNotFatal) {
  Json::Value value(1);
  EXPECT_FALSE(ParseJson(std::string(100'000, '['), value));
  EXPECT_TRUE(value.isNull());
  std::string objects;
  for (int i = 0; i < 100'000; ++i) objects += "{\"a\":";
  EXPECT_FALSE(ParseJson(objects, value));
}

TEST(JsonTextTest, OnlyAnObjectIsReadFromAFile) {
  const Scratch scratch;
  const std::string path = scratch.Path("file.json");
  Json::Value object(1);
  EXPECT_FALSE(ReadJsonObject(path, object));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_TRUE(object.isNull());
  for (const char* text : {"", "[]", "null", "7", "\"x\"", "{\"a\":"}) {
    WriteFile(path, text);
    EXPECT_FALSE(ReadJsonObject(path, object)) << text;
    EXPECT_EQ(errno, 0) << text;
    EXPECT_TRUE(object.isNull());
  }
  WriteFile(path, R"({"a":"b"})");
  EXPECT_TRUE(ReadJsonObject(path, object));
  EXPECT_EQ(object["a"].asString(), "b");
}

}  // namespace
}  // namespace kova::platform
