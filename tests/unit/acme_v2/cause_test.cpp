// What the CA said, where the message has no place for it, is kept for people.

#include <functional>

#include "acme/reply.h"
#include "client_fixture.h"

namespace kova::test {
namespace {

const HttpReply kProblem = ScriptedCa::Problem(403, "userActionRequired", "agree first");

class Causes : public ClientTest {
 protected:
  static std::string CauseOf(const std::function<void()>& work) {
    try {
      work();
    } catch (const SLError& error) {
      return error.cause;
    }
    return "no failure";
  }
};

TEST_F(Causes, OfARefusedRegistration) {
  AcmeV2Client client(ca_.DirectoryUrl(), Settings::Read());
  client.SetupDirectory();
  ca_.Once("POST /new-account", kProblem);
  EXPECT_EQ(CauseOf([&] { client.RegisterAccount("a@b.example"); }), "agree first");
}

TEST_F(Causes, OfARefusedOrder) {
  const auto client = ReadyClient();
  ca_.Once("POST /new-order", kProblem);
  EXPECT_EQ(CauseOf([&] { client->NewOrder({"a.example"}); }), "agree first");
}

TEST_F(Causes, OfAnAuthorizationThatIsNotShown) {
  const auto client = OrderedClient({"a.example"});
  ca_.Once("POST /authz/0", kProblem);
  EXPECT_EQ(CauseOf([&] { client->DoAuthorization(ca_.Url("/authz/0")); }), "agree first");
}

TEST_F(Causes, OfAChallengeThatIsNotTaken) {
  const auto client = OrderedClient({"a.example"});
  ca_.Once("POST /challenge/0/http-01", kProblem);
  EXPECT_EQ(CauseOf([&] { client->DoAuthorization(ca_.Url("/authz/0")); }), "agree first");
}

TEST_F(Causes, OfARefusedFinalize) {
  const auto client = OrderedClient({"a.example"});
  ca_.Once("POST /order/1/finalize", kProblem);
  EXPECT_EQ(CauseOf([&] { client->NewCertificate(order_, IssueOptions()); }), "agree first");
}

TEST_F(Causes, AreEmptyWhenTheReplyHasNone) {
  const SLError error(200, "m", "client_v2", 1);
  for (const char* body : {"", "no", "[]", "{}", "{\"detail\": 1}"}) {
    EXPECT_EQ(WithCause(error, HttpResponse{false, "", body, 500}).cause, "") << body;
  }
}

}  // namespace
}  // namespace kova::test
