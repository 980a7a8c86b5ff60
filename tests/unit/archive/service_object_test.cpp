#include "archive/service_object.h"

#include "archive_fixture.h"
#include "base/json.h"

namespace kova::cert_archive {
namespace {

using test::ArchiveTest;
using test::List;
using test::ServiceObject;
using testing::ElementsAre;
using testing::IsEmpty;

class ServiceObjectTest : public ArchiveTest {};

Json::Value Parsed(const std::string& text) {
  Json::Value value;
  EXPECT_TRUE(JsonFromText(text, value)) << text;
  return value;
}

TEST_F(ServiceObjectTest, IsValidWithItsFiveRequiredMembers) {
  EXPECT_TRUE(IsValidServiceObject(ServiceObject("system", "default")));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(ServiceObjectTest, LogsTheFirstMemberThatIsMissing) {
  for (const char* key : {"display_name", "subscriber", "service", "isPkg", "owner"}) {
    syslog_.Clear();
    Json::Value object = ServiceObject("system", "default");
    object.removeMember(key);
    EXPECT_FALSE(IsValidServiceObject(object)) << key;
    EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Lack of necesary key. [" + std::string(key) + "]"));
  }
  syslog_.Clear();
  EXPECT_FALSE(IsValidServiceObject(Json::Value(Json::objectValue)));
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Lack of necesary key. [display_name]"));
}

TEST_F(ServiceObjectTest, ChecksItsMembersInOrder) {
  Json::Value object = ServiceObject("system", "default");
  object["display_name"] = 1;  // fails silently before the missing owner is looked at
  object.removeMember("owner");
  EXPECT_FALSE(IsValidServiceObject(object));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(ServiceObjectTest, FailsSilentlyOnAWrongType) {
  for (const char* key : {"display_name", "display_name_i18n", "subscriber", "service", "owner"}) {
    for (const char* wrong : {"1", "true", "null", "[]", "{}", "1.5"}) {
      Json::Value object = ServiceObject("system", "default");
      object[key] = Parsed(std::string("[") + wrong + "]")[0];
      EXPECT_FALSE(IsValidServiceObject(object)) << key << " " << wrong;
    }
  }
  for (const char* wrong : {"\"true\"", "1", "0", "null", "[]"}) {
    Json::Value object = ServiceObject("system", "default");
    object["isPkg"] = Parsed(std::string("[") + wrong + "]")[0];
    EXPECT_FALSE(IsValidServiceObject(object)) << wrong;
  }
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(ServiceObjectTest, FailsSilentlyOnAnEmptyText) {
  for (const char* key : {"display_name", "display_name_i18n", "subscriber", "service", "owner"}) {
    Json::Value object = ServiceObject("system", "default");
    object[key] = "";
    EXPECT_FALSE(IsValidServiceObject(object)) << key;
  }
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(ServiceObjectTest, MayHaveALocalisationKeyAndUnknownMembers) {
  Json::Value object = ServiceObject("system", "default");
  object["display_name_i18n"] = "common:default";
  object["colour"] = 7;
  EXPECT_TRUE(IsValidServiceObject(object));
}

TEST_F(ServiceObjectTest, IsNothingButAnObject) {
  for (const char* text : {"[null]", "[1]", "[\"x\"]", "[[]]", "[true]"}) {
    EXPECT_FALSE(IsValidServiceObject(Parsed(text)[0])) << text;
  }
}

TEST_F(ServiceObjectTest, KnowsItsPlaces) {
  const Service system = ServiceFrom(ServiceObject("mail", "smtp"));
  EXPECT_EQ(system.Folder(), "/usr/kova/etc/certificate/mail/smtp");
  EXPECT_EQ(system.ReloadScript(), "/usr/libexec/certificate.d/mail");
  Json::Value object = ServiceObject("mail", "smtp");
  object["isPkg"] = true;
  const Service package = ServiceFrom(object);
  EXPECT_EQ(package.Folder(), "/usr/local/etc/certificate/mail/smtp");
  EXPECT_EQ(package.ReloadScript(), "/usr/local/libexec/certificate.d/mail");
  EXPECT_EQ(package.owner, test::kOwner);
}

TEST_F(ServiceObjectTest, StaysInItsFolderOnlyWithPlainNames) {
  EXPECT_TRUE(ServiceFrom(ServiceObject("mail", "smtp")).StaysInItsFolder());
  for (const char* name : {"..", ".", "a/b", "../x", "/"}) {
    EXPECT_FALSE(ServiceFrom(ServiceObject(name, "smtp")).StaysInItsFolder()) << name;
    EXPECT_FALSE(ServiceFrom(ServiceObject("mail", name)).StaysInItsFolder()) << name;
  }
}

TEST_F(ServiceObjectTest, NeverDeploysIntoTheArchiveItself) {
  Json::Value object = ServiceObject("_archive", "abc");
  EXPECT_FALSE(ServiceFrom(object).StaysInItsFolder());
  object["isPkg"] = true;  // a package of that name has its own tree
  EXPECT_TRUE(ServiceFrom(object).StaysInItsFolder());
}

TEST_F(ServiceObjectTest, IsTheSameServiceByTwoMembersAlone) {
  Json::Value other = ServiceObject("mail", "smtp", "other");
  other["isPkg"] = true;
  other["display_name"] = "another";
  EXPECT_TRUE(IsSameService(ServiceObject("mail", "smtp"), other));
  EXPECT_FALSE(IsSameService(ServiceObject("mail", "smtp"), ServiceObject("mail", "imap")));
  EXPECT_FALSE(IsSameService(ServiceObject("mail", "smtp"), ServiceObject("web", "smtp")));
  EXPECT_FALSE(IsSameService(ServiceObject("mail", "smtp"), ServiceObject("Mail", "smtp")));
  EXPECT_FALSE(IsSameService(Parsed("[1]")[0], Parsed("[1]")[0]));
}

TEST_F(ServiceObjectTest, FindsTheSystemDefault) {
  EXPECT_TRUE(
      HasSystemDefault(List({ServiceObject("mail", "smtp"), ServiceObject("system", "default")})));
  EXPECT_FALSE(
      HasSystemDefault(List({ServiceObject("system", "other"), ServiceObject("mail", "default")})));
  EXPECT_FALSE(HasSystemDefault(Json::Value(Json::arrayValue)));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(ServiceObjectTest, PassesOverInvalidElementsBeforeTheSystemDefault) {
  Json::Value broken = ServiceObject("system", "default");
  broken["isPkg"] = "true";
  EXPECT_FALSE(HasSystemDefault(List({broken})));
  EXPECT_TRUE(HasSystemDefault(List({broken, ServiceObject("system", "default")})));
  // After the answer is known nothing more is looked at.
  EXPECT_TRUE(HasSystemDefault(List({ServiceObject("system", "default"), broken})));
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# service object is error.",
                                 "utils.cpp:# service object is error."));
}

TEST_F(ServiceObjectTest, HasNoSystemDefaultInWhatIsNoList) {
  for (const char* text : {"{}", "[\"x\"]", "{\"system\":\"default\"}"}) {
    EXPECT_FALSE(HasSystemDefault(Parsed(text))) << text;
  }
  EXPECT_FALSE(HasSystemDefault(Json::Value("text")));
}

class ServiceListTest : public ServiceObjectTest {
 protected:
  Json::Value a_ = ServiceObject("mail", "a");
  Json::Value b_ = ServiceObject("mail", "b");
  Json::Value c_ = ServiceObject("mail", "c");

  Json::Value NewB() const {
    Json::Value object = b_;
    object["owner"] = "another";
    return object;
  }
};

TEST_F(ServiceListTest, AppendsANewService) {
  Json::Value list = List({a_, b_});
  UpdateServiceList(list, c_, ListUpdate::kAppend);
  EXPECT_EQ(list, List({a_, b_, c_}));
}

TEST_F(ServiceListTest, AppendMovesAServiceToTheEndOnce) {
  Json::Value list = List({b_, a_, b_, c_});
  UpdateServiceList(list, NewB(), ListUpdate::kAppend);
  EXPECT_EQ(list, List({a_, c_, NewB()}));
}

TEST_F(ServiceListTest, RemovesEveryEntryOfAService) {
  Json::Value list = List({b_, a_, b_, c_});
  UpdateServiceList(list, NewB(), ListUpdate::kRemove);
  EXPECT_EQ(list, List({a_, c_}));
}

TEST_F(ServiceListTest, RefreshReplacesWhatIsListed) {
  Json::Value list = List({b_, a_});
  UpdateServiceList(list, NewB(), ListUpdate::kRefresh);
  EXPECT_EQ(list, List({a_, NewB()}));
}

TEST_F(ServiceListTest, RefreshDoesNotEnterAService) {
  Json::Value list = List({a_, c_});
  UpdateServiceList(list, b_, ListUpdate::kRefresh);
  EXPECT_EQ(list, List({a_, c_}));
}

TEST_F(ServiceListTest, DropsMalformedElementsInEveryMode) {
  Json::Value no_service = a_;
  no_service.removeMember("service");
  Json::Value wrong_type = a_;
  wrong_type["subscriber"] = 1;
  const Json::Value mixed = List({no_service, a_, Json::Value("text"), wrong_type,
                                  Json::Value(Json::arrayValue), Json::Value(), Json::Value(1)});
  for (const ListUpdate update : {ListUpdate::kAppend, ListUpdate::kRemove, ListUpdate::kRefresh}) {
    Json::Value list = mixed;
    UpdateServiceList(list, b_, update);
    const Json::Value expected = update == ListUpdate::kAppend ? List({a_, b_}) : List({a_});
    EXPECT_EQ(list, expected) << static_cast<int>(update);
  }
}

TEST_F(ServiceListTest, KeepsElementsThatOnlyNameAService) {
  Json::Value bare;
  bare["subscriber"] = "mail";
  bare["service"] = "bare";
  Json::Value list = List({bare});
  UpdateServiceList(list, a_, ListUpdate::kAppend);
  EXPECT_EQ(list, List({bare, a_}));
}

TEST_F(ServiceListTest, ReplacesAnInvalidElementOfTheSameService) {
  Json::Value invalid = a_;
  invalid["isPkg"] = "true";
  invalid.removeMember("owner");
  for (const ListUpdate update : {ListUpdate::kAppend, ListUpdate::kRefresh}) {
    Json::Value list = List({invalid, b_});
    UpdateServiceList(list, a_, update);
    EXPECT_EQ(list, List({b_, a_})) << static_cast<int>(update);
  }
}

TEST_F(ServiceListTest, NumbersItsModesAsOthersDo) {
  EXPECT_EQ(static_cast<int>(ListUpdate::kAppend), 0);
  EXPECT_EQ(static_cast<int>(ListUpdate::kRemove), 1);
  EXPECT_EQ(static_cast<int>(ListUpdate::kRefresh), 2);
}

TEST_F(ServiceObjectTest, AnObjectOfServicesIsNoList) {
  Json::Value services(Json::objectValue);
  services["default"] = ServiceObject("system", "default");
  EXPECT_FALSE(HasSystemDefault(services));
  UpdateServiceList(services, ServiceObject("mail", "smtp"), ListUpdate::kAppend);
  EXPECT_EQ(services, test::List({ServiceObject("mail", "smtp")}));
}

}  // namespace
}  // namespace kova::cert_archive
