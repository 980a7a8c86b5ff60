#include "issue_fixture.h"

namespace kova::test {
namespace {

using Finalize = IssueTest;

TEST_F(Finalize, SaysThatBadNoncesNeverEnded) {
  ca_.Once(kFinalize, ScriptedCa::Problem(400, "badNonce", "stale"), 4);
  EXPECT_EQ(ErrorOfNew(), "205 client_v2: badnonce for new-cert");
  EXPECT_THAT(syslog_.Texts(), ElementsAre("client_v2:# Failed to new cert due to badnonce"));
  EXPECT_EQ(ca_.Count(kFinalize), 4U);
}

TEST_F(Finalize, SurvivesThreeBadNonces) {
  ca_.Once(kFinalize, ScriptedCa::Problem(400, "badNonce", "stale"), 3);
  EXPECT_EQ(ErrorOfNew(), "nothing");
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
}

TEST_F(Finalize, FailsOnAnyOtherStatusWithoutTheCasReason) {
  for (const HttpReply& reply :
       {ScriptedCa::Problem(400, "badCSR", "no"), ScriptedCa::Problem(403, "orderNotReady", "no"),
        ScriptedCa::Problem(429, "rateLimited", "no"), HttpReply::Json(400, "[]"),
        HttpReply::Json(201, ca_.Order("valid", true)), HttpReply::Text(500, "<html>")}) {
    syslog_.Clear();
    ca_.ClearRequests();
    ca_.Once(kFinalize, reply);
    EXPECT_EQ(ErrorOfNew(), "200 client_v2: new-cert: Unexpect httpcode. (new-cert)");
    EXPECT_THAT(syslog_.Texts(),
                ElementsAre("client_v2:# Failed to new cert with unknown (unknown) [" +
                            std::to_string(reply.status) + "]"));
    EXPECT_THAT(ca_.Routes(), ElementsAre(kFinalize));
  }
}

TEST_F(Finalize, NeedsJson) {
  for (const int status : {200, 400}) {
    ca_.Once(kFinalize, HttpReply::Text(status, "<html>"));
    EXPECT_EQ(ErrorOfNew(), "200 client_network: body is not json.") << status;
  }
}

TEST_F(Finalize, NeedsAnOrder) {
  for (const char* body : {"[]", "null", "5", "\"valid\""}) {
    ca_.Once(kFinalize, HttpReply::Json(200, body));
    EXPECT_EQ(ErrorOfNew(), "200 client_v2: unexpect json response.") << body;
  }
  for (const char* url : {"null", "5", "[\"u\"]", "{}"}) {
    ca_.Once(kFinalize, HttpReply::Json(200, std::string(R"({"certificate": )") + url + "}"));
    EXPECT_EQ(ErrorOfNew(), "200 client_v2: unexpect json response.") << url;
  }
}

TEST_F(Finalize, DownloadsFromNowhereWithoutACertificate) {
  for (const char* status : {"processing", "ready", "valid"}) {
    client_->NewNonce();  // the download that fails takes one and brings none
    ca_.ClearRequests();
    ca_.Once(kFinalize, HttpReply::Json(200, ca_.Order(status, false)));
    EXPECT_EQ(ErrorOfNew(), "100 client_network: Server is not reachable.") << status;
    EXPECT_THAT(ca_.Routes(), ElementsAre(kFinalize)) << status;
  }
  EXPECT_EQ(sleeps_.Durations(), Waits{});
  EXPECT_THAT(ListFolder(kArchive), IsEmpty());
}

TEST_F(Finalize, LeavesTheChallengeTypesAlone) {
  ca_.Once(kFinalize, HttpReply::Text(500, "no"));
  ErrorOfNew();
  EXPECT_EQ(client_->ChallengeTypes().size(), 1U);
}

}  // namespace
}  // namespace kova::test
