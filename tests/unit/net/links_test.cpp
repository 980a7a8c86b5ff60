#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "net/headers.h"

namespace kova {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<std::string> Alternates(const std::string& headers) {
  HttpResponse response;
  response.header = "HTTP/1.1 200 OK\r\n" + headers + "\r\n";
  return LinkUrls(response, "alternate");
}

TEST(LinkUrls, AreThoseOfTheRelationInOrder) {
  EXPECT_THAT(
      Alternates("Link: <http://a/1>;rel=\"alternate\"\r\nLink: <http://a/i>;rel=\"index\"\r\n"
                 "Link: <http://a/2>;rel=\"alternate\"\r\n"),
      ElementsAre("http://a/1", "http://a/2"));
  EXPECT_THAT(Alternates("Location: http://a/\r\n"), IsEmpty());
}

TEST(LinkUrls, AreFoundHoweverTheyAreSpaced) {
  for (const char* header :
       {"Link: <http://a/1>; rel=\"alternate\"\r\n", "link:<http://a/1>;rel=alternate\r\n",
        "LINK:  <http://a/1> ; rel = \"alternate\" \r\n",
        "Link: <http://a/1>;\tREL=\"Alternate\"\r\n",
        "Link: <http://a/1>; title=\"x; y, z\"; rel=\"next alternate\"\r\n",
        "Link: , <http://a/1>; rel=\"alternate\"\r\n",
        "Link: <http://a/0>; rel=\"up\", <http://a/1>; rel=\"alternate\"\r\n"}) {
    EXPECT_THAT(Alternates(header), ElementsAre("http://a/1")) << header;
  }
}

TEST(LinkUrls, MayHoldTheSignsThatSeparate) {
  EXPECT_THAT(Alternates("Link: <http://a/1,2;3>; rel=\"alternate\"\r\n"),
              ElementsAre("http://a/1,2;3"));
}

TEST(LinkUrls, AreNoneInWhatIsNoLink) {
  for (const char* header :
       {"Link: http://a/1; rel=\"alternate\"\r\n", "Link: http://a/1>; rel=\"alternate\"\r\n",
        "Link: >; rel=\"alternate\"\r\n", "Link: <http://a/1\r\n", "Link: <>\r\n", "Link: \r\n",
        "Link: ;;;,,,\r\n", "Link: <http://a/1>; rel\r\n",
        "Link: <http://a/1>; rel=\"alternates\"\r\n", "Link: <http://a/1>; xrel=\"alternate\"\r\n",
        "Link: <http://a/1>; rel=\"\r\n", "X-Link: <http://a/1>; rel=\"alternate\"\r\n"}) {
    EXPECT_THAT(Alternates(header), IsEmpty()) << header;
  }
}

}  // namespace
}  // namespace kova
