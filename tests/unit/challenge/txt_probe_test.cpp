#include "txt_probe_fixture.h"

namespace kova::test {
namespace {

TEST_F(TxtProbe, FindsTheRecordAtTheZonesNameServer) {
  const DnsServer server = Serving({{kName, TxtData({kValue})}});
  OutputCapture output(2);
  EXPECT_TRUE(Check());
  EXPECT_THAT(output.Debug(),
              ElementsAre("DNS Anser: " + Printed(std::string("\"") + kValue + "\""),
                          std::string("DNS get ready ") + kValue));
  ASSERT_EQ(server.Queries().size(), 1U);
  EXPECT_EQ(server.Queries()[0].name, kName);
  EXPECT_EQ(server.Queries()[0].type, 16);
}

TEST_F(TxtProbe, AsksThatServerEvenBeforeTheResolverWasUsedAtAll) {
  const DnsServer server = Serving({{kName, TxtData({kValue})}});
  _res.options &= ~static_cast<unsigned long>(RES_INIT);
  EXPECT_TRUE(Check());
}

TEST_F(TxtProbe, AsksAServerAtItsFourByteAddress) {
  const std::string hosts = ReadFile("/etc/hosts");
  WriteFile("/etc/hosts", hosts + "\n::1 ns.example\n127.0.0.1 ns.example\n");
  std::string device = Device("box.ddns.example");
  WriteFile(kDeviceRecord, device.replace(device.find("127.0.0.1"), 9, "ns.example"));
  const DnsServer server = Serving({{kName, TxtData({kValue})}});
  EXPECT_TRUE(Check());
  WriteFile("/etc/hosts", hosts);
}

TEST_F(TxtProbe, ShowsTheAnswerAtLevelTwoOnly) {
  const DnsServer server = Serving({{kName, TxtData({kValue})}});
  OutputCapture output(1);
  EXPECT_TRUE(Check());
  EXPECT_THAT(output.Debug(), ElementsAre(std::string("DNS get ready ") + kValue));
}

TEST_F(TxtProbe, FindsTheValueAmongOtherText) {
  const DnsServer server = Serving({{kName, TxtData({"before", std::string("x") + kValue + "y"})}});
  EXPECT_TRUE(Check());
}

TEST_F(TxtProbe, FindsTheValueInALaterRecord) {
  const DnsServer server = Serving({{kName, TxtData({"other"})}, {kName, TxtData({kValue})}});
  OutputCapture output(2);
  EXPECT_TRUE(Check());
  EXPECT_EQ(output.Debug().size(), 3U);
}

TEST_F(TxtProbe, LooksAtThePrintedRecord) {
  const DnsServer server = Serving({{kName, TxtData({"unrelated"})}});
  EXPECT_TRUE(CheckTxtRecord(kDomain, "IN TXT"));
  EXPECT_FALSE(CheckTxtRecord(kDomain, "IN A"));
}

TEST_F(TxtProbe, DoesNotJoinTheStringsOfARecord) {
  const DnsServer server = Serving({{kName, TxtData({"gfj9Xq", "-Rg85nM"})}});
  EXPECT_FALSE(Check());
}

TEST_F(TxtProbe, PassesOverRecordsOfOtherOwners) {
  for (const std::string owner :
       {"other.example", "x.box.ddns.example", "_ACME-challenge.x.box.ddns.example",
        "_acme-challenge.X.box.ddns.example", "_acme-challenge.x.box.ddns.example.more", "."}) {
    const DnsServer server = Serving({{owner, TxtData({kValue})}});
    OutputCapture output(2);
    EXPECT_FALSE(Check()) << owner;
    EXPECT_EQ(output.Text(), "") << owner;
  }
}

TEST_F(TxtProbe, KeepsTheCaseOfTheDomain) {
  const DnsServer server = Serving({{"_acme-challenge.X.Box.ddns.example", TxtData({kValue})}});
  EXPECT_TRUE(CheckTxtRecord("X.Box.ddns.example", kValue));
  EXPECT_EQ(server.Queries()[0].name, "_acme-challenge.X.Box.ddns.example");
}

TEST_F(TxtProbe, PrintsRecordsOfOtherTypesAsWell) {
  const DnsServer server = Serving({{kName, WireName("target.example"), kTypeCname}});
  OutputCapture output(2);
  EXPECT_FALSE(Check());
  EXPECT_THAT(output.Debug(), ElementsAre("DNS Anser: _acme-challenge.x.box.ddns.example.  1M IN "
                                          "CNAME  target.example."));
}

TEST_F(TxtProbe, SaysThatTheQueryFailed) {
  const DnsServer server([](const DnsQuery& query) { return DnsReply(query, {}, kNameError); });
  OutputCapture output(1);
  EXPECT_FALSE(Check());
  ASSERT_EQ(output.Debug().size(), 1U);
  EXPECT_TRUE(
      output.Debug()[0].starts_with(std::string("failed to query TXT dns ") + kName + ":-1 "))
      << output.Debug()[0];
}

TEST_F(TxtProbe, SaysWhyTheQueryFailed) {
  OutputCapture output(1);
  EXPECT_FALSE(Check());  // nobody listens
  EXPECT_THAT(output.Debug(), ElementsAre(std::string("failed to query TXT dns ") + kName +
                                          ":-1 Connection refused"));
}

TEST_F(TxtProbe, SaysThatTheNameServerHasNoAddress) {
  const std::string unknown = std::string(64, 'a') + ".example";
  WriteFile(kDeviceRecord, R"({"ddns_name_server": ")" + unknown + "\"}");
  OutputCapture output(1);
  EXPECT_FALSE(Check());
  EXPECT_THAT(output.Debug(), ElementsAre("failed to query dns ip " + unknown));
}

TEST_F(TxtProbe, AsksTheBuiltInNameServerUnlessTheRecordNamesOne) {
  WriteFile(kDeviceRecord, "{}");
  WriteFile("/etc/hosts", "127.0.0.1 localhost\n");
  {
    OutputCapture output(1);
    EXPECT_FALSE(Check());
    EXPECT_THAT(output.Debug(), ElementsAre("failed to query dns ip ns1.ddns.kova.example"));
  }
  WriteFile("/etc/hosts", "127.0.0.1 ns1.ddns.kova.example\n");
  const DnsServer server = Serving({{kName, TxtData({kValue})}});
  EXPECT_TRUE(Check());
}

TEST_F(TxtProbe, AsksNoOtherServerWhenTheZonesOwnIsSilent) {
  WriteFile("/etc/resolv.conf",
            "nameserver 127.0.0.7\nnameserver 127.0.0.1\noptions timeout:1 attempts:1\n");
  res_init();
  WriteFile(kDeviceRecord, R"({"ddns_name_server": "127.0.0.2"})");  // nobody listens there
  const DnsServer others = Serving({{kName, TxtData({kValue})}});
  EXPECT_FALSE(Check());
  EXPECT_THAT(others.Queries(), IsEmpty());
}

TEST_F(TxtProbe, RestoresTheResolverOnEveryWayOut) {
  EXPECT_EQ(NameServer(), "1 127.0.0.7");
  {
    const DnsServer server = Serving({{kName, TxtData({kValue})}});
    EXPECT_TRUE(Check());
    EXPECT_EQ(NameServer(), "1 127.0.0.7");
  }
  EXPECT_FALSE(Check());  // the query fails
  EXPECT_EQ(NameServer(), "1 127.0.0.7");
  WriteFile("/etc/resolv.conf", "nameserver 127.0.0.8\nnameserver 127.0.0.9\n");
  WriteFile(kDeviceRecord, R"({"ddns_name_server": "a..example"})");
  EXPECT_FALSE(Check());  // the name server has no address
  EXPECT_EQ(NameServer(), "2 127.0.0.8");
}

// The whole set-up, seen from the record's side.
TEST_F(TxtProbe, EndsTheWaitOfASetupWithTheFirstMatch) {
  int queries = 0;
  KovaDns01Challenge challenge(http_);
  challenge.Set(kDomain, "token", "token.thumbprint");
  const DnsServer server([&](const DnsQuery& query) {
    return DnsReply(query, {{kName, TxtData({++queries < 3 ? "not yet" : Txt()})}});
  });
  EXPECT_TRUE(challenge.setup());
  EXPECT_EQ(queries, 3);
  EXPECT_EQ(sleeps_.Durations(),
            std::vector<std::chrono::milliseconds>(2, std::chrono::seconds(1)));
}

}  // namespace
}  // namespace kova::test
