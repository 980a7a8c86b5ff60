#include "net/headers.h"

#include <gtest/gtest.h>

#include "debug_output.h"

namespace kova {
namespace {

HttpResponse With(std::string header) {
  HttpResponse response;
  response.header = std::move(header);
  return response;
}

TEST(GetHeader, FindsTheFirstValue) {
  const HttpResponse response = With(
      "HTTP/1.1 200 OK\r\nReplay-Nonce: one\r\nLocation: http://a/\r\nReplay-Nonce: two\r\n\r\n");
  EXPECT_EQ(GetHeader(response, "Replay-Nonce"), "one");
  EXPECT_EQ(GetHeader(response, "Location"), "http://a/");
}

TEST(GetHeader, IsEmptyWhenThereIsNone) {
  EXPECT_EQ(GetHeader(With("HTTP/1.1 200 OK\r\nA: b\r\n\r\n"), "Replay-Nonce"), "");
  EXPECT_EQ(GetHeader(With(""), "Replay-Nonce"), "");
  EXPECT_EQ(GetHeader(HttpResponse(), "Replay-Nonce"), "");
}

TEST(GetHeader, IsCaseSensitive) {
  const HttpResponse response = With("HTTP/1.1 200 OK\r\nreplay-nonce: one\r\n\r\n");
  EXPECT_EQ(GetHeader(response, "Replay-Nonce"), "");
  EXPECT_EQ(GetHeader(response, "replay-nonce"), "one");
}

TEST(AnyCaseHeader, FindsTheFirstValueHoweverItIsWritten) {
  EXPECT_EQ(AnyCaseHeader(With("X\r\nA-b: one\r\na-B: two\r\n\r\n"), "a-b"), "one");
  EXPECT_EQ(AnyCaseHeader(With("X\r\na-b:one\t \r\n"), "A-B"), "one");
  EXPECT_EQ(AnyCaseHeader(With("X\r\nA-b: one"), "A-b"), "one");
  EXPECT_EQ(AnyCaseHeader(With("X\r\nA-b: \r\nA-b: two\r\n"), "A-b"), "");
}

TEST(AnyCaseHeader, IsEmptyWhenThereIsNone) {
  for (const char* text :
       {"", "A", "A-bc: one\r\n", "xA-b: one\r\n", "A-b\r\n", "A-c: one\r\n", "A: one\r\n"}) {
    EXPECT_EQ(AnyCaseHeader(With(text), "A-b"), "") << text;
  }
}

TEST(GetHeader, WantsExactlyOneBlankAfterTheColon) {
  EXPECT_EQ(GetHeader(With("X\r\nA:value\r\n"), "A"), "");
  EXPECT_EQ(GetHeader(With("X\r\nA:\tvalue\r\n"), "A"), "");
  EXPECT_EQ(GetHeader(With("X\r\nA : value\r\n"), "A"), "");
  EXPECT_EQ(GetHeader(With("X\r\nA:  value\r\n"), "A"), " value");
  EXPECT_EQ(GetHeader(With("X\r\nA: value \r\n"), "A"), "value ");
}

TEST(GetHeader, MatchesOnlyAtTheStartOfALine) {
  EXPECT_EQ(GetHeader(With("A: status line\r\n\r\n"), "A"), "");
  EXPECT_EQ(GetHeader(With("X\r\nX-A: no\r\nB: A: no\r\nA: yes\r\n"), "A"), "yes");
}

TEST(GetHeader, TakesTheRestOfATextWithoutALineEnd) {
  EXPECT_EQ(GetHeader(With("X\r\nA: the end"), "A"), "the end");
  EXPECT_EQ(GetHeader(With("X\r\nA: line\nfeed"), "A"), "line\nfeed");
  EXPECT_EQ(GetHeader(With("X\r\nA: "), "A"), "");
  EXPECT_EQ(GetHeader(With("X\r\nA:"), "A"), "");
}

TEST(GetHeader, WalksRepeatedHeaders) {
  const HttpResponse response = With("X\r\nA: one\r\nB: b\r\nA: two\r\nA: three");
  size_t position = 0;
  EXPECT_EQ(GetHeader(response, "A", position), "one");
  EXPECT_EQ(response.header.substr(position, 4), "\r\nB:");
  EXPECT_EQ(GetHeader(response, "A", position), "two");
  EXPECT_EQ(GetHeader(response, "A", position), "three");
  EXPECT_EQ(position, std::string::npos);
  EXPECT_EQ(GetHeader(response, "A", position), "");
  EXPECT_EQ(position, std::string::npos);
}

TEST(GetHeader, SetsThePositionToNowhereWhenThereIsNone) {
  size_t position = 2;
  EXPECT_EQ(GetHeader(With("X\r\nA: one\r\n"), "B", position), "");
  EXPECT_EQ(position, std::string::npos);
}

TEST(GetHeader, StandsAPositionBeyondTheText) {
  size_t position = 1000;
  EXPECT_EQ(GetHeader(With("X\r\nA: one\r\n"), "A", position), "");
  EXPECT_EQ(position, std::string::npos);
}

TEST(GetHeader, TakesNulBytesAsText) {
  EXPECT_EQ(GetHeader(With(std::string("X\r\nA: o\0ne\r\n\0\nB: b\r\n", 21)), "A"),
            std::string("o\0ne", 4));
  EXPECT_EQ(GetHeader(With(std::string("X\0\r\n\0\nB: b\r\n", 12)), "B"), "b");
}

TEST(GetHeader, StandsAHugeHeader) {
  const std::string value(1 << 20, 'v');
  EXPECT_EQ(GetHeader(With("X\r\nA: " + value + "\r\n"), "A"), value);
}

TEST(GetLinkUrl, GivesTheUrlOfTheRelation) {
  EXPECT_EQ(GetLinkUrl(With("X\r\nLink: <http://a/issuer>;rel=\"up\"\r\n"), "up"),
            "http://a/issuer");
}

TEST(GetLinkUrl, AllowsNoBlankAroundTheRelation) {
  EXPECT_EQ(GetLinkUrl(With("X\r\nLink: <http://a/>; rel=\"up\"\r\n"), "up"), "");
  EXPECT_EQ(GetLinkUrl(With("X\r\nLink: <http://a/> ;rel=\"up\"\r\n"), "up"), "");
  EXPECT_EQ(GetLinkUrl(With("X\r\nLink: <http://a/>;rel =\"up\"\r\n"), "up"), "");
  EXPECT_EQ(GetLinkUrl(With("X\r\nLink: <http://a/>;rel=up\r\n"), "up"), "");
}

TEST(GetLinkUrl, PassesOverOtherRelations) {
  EXPECT_EQ(GetLinkUrl(With("X\r\nLink: <http://a/terms>;rel=\"terms-of-service\"\r\n"
                            "Link: <http://a/issuer>;rel=\"up\"\r\n"),
                       "up"),
            "http://a/issuer");
  EXPECT_EQ(GetLinkUrl(With("X\r\nLink: <http://a/>;rel=\"upper\"\r\n"), "up"), "");
}

TEST(GetLinkUrl, GivesTheFirstOfSeveral) {
  EXPECT_EQ(GetLinkUrl(With("X\r\nLink: <one>;rel=\"up\"\r\nLink: <two>;rel=\"up\"\r\n"), "up"),
            "one");
}

TEST(GetLinkUrl, FindsTheRelationAnywhereInTheValue) {
  EXPECT_EQ(
      GetLinkUrl(With("X\r\nLink: <one>;rel=\"next\", <two>;rel=\"up\";title=\"t\"\r\n"), "up"),
      "two");
}

TEST(GetLinkUrl, IsEmptyWithoutALink) {
  EXPECT_EQ(GetLinkUrl(With("X\r\nA: b\r\n\r\n"), "up"), "");
  EXPECT_EQ(GetLinkUrl(HttpResponse(), "up"), "");
  EXPECT_EQ(GetLinkUrl(With("X\r\nlink: <http://a/>;rel=\"up\"\r\n"), "up"), "");
}

TEST(GetLinkUrl, StopsAtAnEmptyLink) {
  EXPECT_EQ(GetLinkUrl(With("X\r\nLink: \r\nLink: <one>;rel=\"up\"\r\n"), "up"), "");
}

TEST(GetLinkUrl, EndsWithALinkThatHasNoLineEnd) {
  EXPECT_EQ(GetLinkUrl(With("X\r\nLink: <one>;rel=\"up\""), "up"), "one");
  EXPECT_EQ(GetLinkUrl(With("X\r\nLink: <one>;rel=\"other\""), "up"), "");
}

TEST(GetLinkUrl, IsEmptyWhenTheValueBeginsWithTheRelation) {
  EXPECT_EQ(test::DebugOutput(
                1,
                [] {
                  EXPECT_EQ(
                      GetLinkUrl(With("X\r\nLink: >;rel=\"up\"\r\nLink: <b>;rel=\"up\"\r\n"), "up"),
                      "");
                }),
            "");
}

TEST(GetLinkUrl, SaysWhenTheUrlHasNoBeginning) {
  EXPECT_EQ(test::DebugOutput(
                1, [] { EXPECT_EQ(GetLinkUrl(With("X\r\nLink: one>;rel=\"up\"\r\n"), "up"), ""); }),
            "DEBUG: Link rel: up, url not found\n");
}

}  // namespace
}  // namespace kova
