#include <memory>
#include <type_traits>

#include "challenge_fixture.h"

namespace kova::test {
namespace {

using Factory = ChallengeTest;

TEST_F(Factory, MakesTheChallengeOfAType) {
  EXPECT_EQ(ChallengeFactory("http-01", http_)->type(), "http-01");
  EXPECT_EQ(ChallengeFactory("dns-01", http_)->type(), "dns-01");
}

TEST_F(Factory, KnowsNoOtherSpelling) {
  for (const char* type : {"HTTP-01", "DNS-01", "Http-01", "http-01 ", "", "tls-alpn-01", "%s"}) {
    EXPECT_EQ(ErrorOf([&] { ChallengeFactory(type, http_); }),
              "204 challenge: Unknown challenge type.")
        << type;
  }
}

TEST_F(Factory, GivesAChallengeThatHoldsNothing) {
  const auto challenge = ChallengeFactory("http-01", http_);
  EXPECT_EQ(challenge->domain, "");
  EXPECT_EQ(challenge->token, "");
  EXPECT_EQ(challenge->keyAuthorization, "");
}

TEST_F(Factory, GivesAnOwnerThatRunsTheConcreteDestructor) {
  auto challenge = ChallengeFactory("http-01", http_);
  challenge->Set("a.example", "token", "token.thumbprint");
  ASSERT_TRUE(challenge->setup());
  const auto second_owner = std::make_unique<std::shared_ptr<LeChallenge>>(challenge);
  challenge.reset();
  EXPECT_TRUE(Exists(std::string(kTokenFolder) + "/token"));
  second_owner->reset();
  EXPECT_FALSE(Exists(std::string(kTokenFolder) + "/token"));
}

TEST_F(Factory, FillsAllThreeFieldsAtOnce) {
  Http01Challenge challenge;
  challenge.Set("a.example", "token", "token.thumbprint");
  EXPECT_EQ(challenge.domain, "a.example");
  EXPECT_EQ(challenge.token, "token");
  EXPECT_EQ(challenge.keyAuthorization, "token.thumbprint");
}

TEST(ChallengeModel, CannotBeDestroyedOrMadeAsItsBase) {
  static_assert(std::is_abstract_v<LeChallenge>);
  static_assert(!std::is_destructible_v<LeChallenge>);
  static_assert(!std::has_virtual_destructor_v<LeChallenge>);
  static_assert(!std::is_copy_constructible_v<Http01Challenge>);
  static_assert(!std::is_copy_constructible_v<KovaDns01Challenge>);
}

}  // namespace
}  // namespace kova::test
