#include "acme_v2/key_change.h"

#include "acme/next_key.h"
#include "acme_v2/account_update.h"
#include "client_fixture.h"

namespace kova::test {
namespace {

const HttpReply kNoAccount = ScriptedCa::Problem(400, "accountDoesNotExist", "none");

class KeyChange : public ClientTest {
 protected:
  KeyChange() : session_(ca_.DirectoryUrl(), Settings::Read()) {
    account_folder_ = CreateAccountFolder("client_v2", AccountInfo(), AccountKey());
    session_.SetupDirectory();
    session_.NewNonce();
    session_.Use(Account::Load(account_folder_));
    ca_.ClearRequests();
  }

  static const RsaKey& Next() {
    static const std::unique_ptr<RsaKey> key = RsaKey::Generate();
    return *key;
  }
  [[nodiscard]] Account WithNext() const {
    return {RsaKey::FromJson(Next().ToJson()), ca_.AccountUrl(), account_folder_};
  }
  [[nodiscard]] HttpReply Known(const std::string& url) const {
    return HttpReply::Json(200, "{}", {"Location: " + url});
  }
  std::string Use() {
    return ErrorOf([this] { UseStoredAccount(session_, account_folder_); });
  }
  // The public half of the key that the session signs with.
  Json::Value Signer() { return session_.Key().PublicJwk(); }
  [[nodiscard]] Json::Value OldPublic() const {
    return RsaKey::FromJson(AccountKey())->PublicJwk();
  }

  Session session_;
};

TEST_F(KeyChange, AsksByTheKeyAndRegistersNobody) {
  ca_.Once("POST /new-account", Known(ca_.AccountUrl()));
  EXPECT_TRUE(IsKnownByKey(session_, WithNext()));
  const Jws question = ca_.Signed("POST /new-account").at(0);
  EXPECT_EQ(question.header["jwk"], Next().PublicJwk());
  EXPECT_FALSE(question.header.isMember("kid"));
  EXPECT_EQ(Parsed(question.payload), Parsed(R"({"onlyReturnExisting": true})"));
  EXPECT_TRUE(Verifies(question, Next().PublicJwk()));
}

TEST_F(KeyChange, AsksWithANonceOfItsOwn) {
  Session fresh(ca_.DirectoryUrl(), Settings::Read());
  fresh.SetupDirectory();
  fresh.TakeNonce();  // the one that came with the directory
  ca_.Once("POST /new-account", Known(ca_.AccountUrl()));
  EXPECT_TRUE(IsKnownByKey(fresh, Account::Load(account_folder_)));
}

TEST_F(KeyChange, AnotherAccountsKeyIsNotThisOnes) {
  ca_.Once("POST /new-account", Known(ca_.Url("/account/2")));
  EXPECT_FALSE(IsKnownByKey(session_, WithNext()));
  ca_.Once("POST /new-account", kNoAccount);
  EXPECT_FALSE(IsKnownByKey(session_, WithNext()));
}

TEST_F(KeyChange, AnAnswerThatIsNeitherYesNorNoIsAnError) {
  for (const HttpReply& reply :
       {HttpReply::Json(200, "{}"), ScriptedCa::Problem(500, "accountDoesNotExist", "x"),
        ScriptedCa::Problem(400, "malformed", "x"), HttpReply::Text(404, "no")}) {
    ca_.Once("POST /new-account", reply);
    EXPECT_THAT(ErrorOf([&] { (void)IsKnownByKey(session_, WithNext()); }),
                HasSubstr("200 account: the CA answered "));
    EXPECT_EQ(Signer(), Next().PublicJwk());  // nevertheless
  }
}

TEST_F(KeyChange, NeedsAResourceForIt) {
  Json::Value directory = Parsed(ca_.Directory());
  directory.removeMember("keyChange");
  ca_.Once("GET /directory", HttpReply::Json(200, directory.toStyledString()));
  session_.SetupDirectory();
  ca_.ClearRequests();
  EXPECT_EQ(ErrorOf([&] { ChangeKey(session_, Account::Load(account_folder_), Next()); }),
            "200 account: the CA offers no change of keys");
  EXPECT_THAT(ca_.Routes(), IsEmpty());
}

TEST_F(KeyChange, IsSignedByBothKeys) {
  ca_.Once("POST /key-change", HttpReply::Json(200, "{}"));
  ChangeKey(session_, Account::Load(account_folder_), Next());
  const Jws outer = ca_.Signed("POST /key-change").at(0);
  EXPECT_TRUE(Verifies(outer, OldPublic()));
  EXPECT_EQ(outer.header["kid"].asString(), ca_.AccountUrl());
  const Jws inner = ReadJws(outer.payload);
  EXPECT_TRUE(Verifies(inner, Next().PublicJwk()));
  Json::Value header(Json::objectValue);
  header["alg"] = "RS256";
  header["jwk"] = Next().PublicJwk();
  header["url"] = ca_.Url("/key-change");
  EXPECT_EQ(inner.header, header);
  Json::Value payload(Json::objectValue);
  payload["account"] = ca_.AccountUrl();
  payload["oldKey"] = OldPublic();
  EXPECT_EQ(Parsed(inner.payload), payload);
}

TEST_F(KeyChange, ThatIsRefusedSaysWhy) {
  ca_.Once("POST /key-change", ScriptedCa::Problem(409, "malformed", "taken"));
  EXPECT_EQ(ErrorOf([&] { ChangeKey(session_, Account::Load(account_folder_), Next()); }),
            "200 account: the CA answered 409: taken");
}

TEST_F(KeyChange, OfAnUnbrokenAccountAsksNobody) {
  EXPECT_EQ(Use(), "nothing");
  EXPECT_THAT(ca_.Routes(), IsEmpty());
  EXPECT_EQ(Signer(), OldPublic());
}

TEST_F(KeyChange, ThatTheCaKnowsIsFinished) {
  WriteNextKey(account_folder_, Next().ToJson());
  ca_.Once("POST /new-account", Known(ca_.AccountUrl()));
  EXPECT_EQ(Use(), "nothing");
  EXPECT_EQ(Signer(), Next().PublicJwk());
  EXPECT_EQ(session_.BuildProtectedHeader("u")["kid"].asString(), ca_.AccountUrl());
  EXPECT_FALSE(HasNextKey(account_folder_));
  EXPECT_EQ(Parsed(ReadFile(account_folder_ + "/private_key.json")), Next().ToJson());
}

TEST_F(KeyChange, ThatTheCaKnowsIsToldAtLevelOne) {
  WriteNextKey(account_folder_, Next().ToJson());
  ca_.Once("POST /new-account", Known(ca_.AccountUrl()));
  OutputCapture output(1);
  EXPECT_EQ(Use(), "nothing");
  EXPECT_EQ(output.Debug().back(),
            "The CA knows the account by its next key. [" + account_folder_ + "]");
}

TEST_F(KeyChange, ThatTheCaDoesNotKnowLeavesBothKeys) {
  for (const HttpReply& reply : {kNoAccount, HttpReply::Text(500, "no")}) {
    WriteNextKey(account_folder_, Next().ToJson());
    ca_.Once("POST /new-account", reply);
    EXPECT_EQ(Use(), "nothing");
    EXPECT_EQ(Signer(), OldPublic());
    EXPECT_TRUE(HasNextKey(account_folder_));
    EXPECT_EQ(Parsed(ReadFile(account_folder_ + "/private_key.json")), AccountKey());
  }
}

TEST_F(KeyChange, WhoseKeyIsDamagedIsOneLineInTheLog) {
  WriteFile(NextKeyPath(account_folder_), "{");
  EXPECT_EQ(Use(), "nothing");
  EXPECT_EQ(Signer(), OldPublic());
  EXPECT_THAT(ca_.Routes(), IsEmpty());
  ASSERT_EQ(syslog_.Texts().size(), 1U);
  EXPECT_THAT(syslog_.Texts()[0], HasSubstr(NextKeyPath(account_folder_) + " cannot be used."));
}

using AccountUpdate = KeyChange;

TEST_F(AccountUpdate, SendsTheContactToTheAccount) {
  ca_.Once("POST /account/1", HttpReply::Json(200, "{}"));
  UpdateContact(session_, Account::Load(account_folder_), "me@host.example");
  const Jws request = ca_.Signed("POST /account/1").at(0);
  EXPECT_EQ(Parsed(request.payload), Parsed(R"({"contact": ["mailto:me@host.example"]})"));
  EXPECT_EQ(request.header["kid"].asString(), ca_.AccountUrl());
}

TEST_F(AccountUpdate, TellsWhatTheCaSaid) {
  ca_.Once("POST /account/1", ScriptedCa::Problem(400, "invalidContact", "%s no"));
  EXPECT_EQ(ErrorOf([&] { UpdateContact(session_, Account::Load(account_folder_), "x"); }),
            "200 account: the CA answered 400: %s no");
}

TEST_F(AccountUpdate, ADeactivationThatIsTakenNeedsNoQuestion) {
  ca_.Once("POST /account/1", HttpReply::Json(200, R"({"status": "deactivated"})"));
  EXPECT_EQ(ErrorOf([&] { Deactivate(session_, Account::Load(account_folder_)); }), "nothing");
  EXPECT_THAT(ca_.Routes(), ElementsAre("POST /account/1"));
}

TEST_F(AccountUpdate, OnlyAnAccountThatIsNotAuthorizedMayBeDeactivatedAlready) {
  ca_.Always("POST /new-account", HttpReply::Json(200, R"({"status": "deactivated"})"));
  for (const HttpReply& refusal : {ScriptedCa::Problem(403, "rateLimited", "no"),
                                   ScriptedCa::Problem(400, "unauthorized", "no")}) {
    ca_.Once("POST /account/1", refusal);
    EXPECT_THAT(ErrorOf([&] { Deactivate(session_, Account::Load(account_folder_)); }),
                HasSubstr(std::to_string(refusal.status) + ": no"));
  }
}

TEST_F(AccountUpdate, ADeactivatedAccountIsDeactivated) {
  for (const HttpReply& answer : {ScriptedCa::Problem(401, "unauthorized", "gone"),
                                  HttpReply::Json(200, R"({"status": "deactivated"})")}) {
    ca_.Once("POST /account/1", ScriptedCa::Problem(403, "unauthorized", "gone"));
    ca_.Once("POST /new-account", answer);
    EXPECT_EQ(ErrorOf([&] { Deactivate(session_, Account::Load(account_folder_)); }), "nothing");
  }
  EXPECT_EQ(Parsed(ca_.Signed("POST /account/1").at(0).payload),
            Parsed(R"({"status": "deactivated"})"));
}

TEST_F(AccountUpdate, ARefusalIsNoDeactivation) {
  ca_.Once("POST /account/1", ScriptedCa::Problem(403, "unauthorized", "no"));
  ca_.Once("POST /new-account", HttpReply::Json(200, R"({"status": "valid"})"));
  EXPECT_EQ(ErrorOf([&] { Deactivate(session_, Account::Load(account_folder_)); }),
            "200 account: the CA answered 403: no");
  ca_.Once("POST /account/1", ScriptedCa::Problem(400, "malformed", "no"));
  EXPECT_EQ(ErrorOf([&] { Deactivate(session_, Account::Load(account_folder_)); }),
            "200 account: the CA answered 400: no");
}

}  // namespace
}  // namespace kova::test
