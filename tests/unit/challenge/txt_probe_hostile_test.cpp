#include "txt_probe_fixture.h"

namespace kova::test {
namespace {

using HostileDns = TxtProbe;

TEST_F(HostileDns, ComesAgainOverTcpWhenAReplyWasTruncated) {
  const DnsServer server([](const DnsQuery& query) {
    return query.tcp ? DnsReply(query, {{kName, TxtData({kValue})}}) : TruncatedReply(query);
  });
  EXPECT_TRUE(Check());
  EXPECT_EQ(server.Queries().size(), 2U);
}

// A reply of more than 4096 bytes is cut by the resolver; what is left of it must not be read past.
TEST_F(HostileDns, SurvivesAReplyThatDoesNotFitItsBuffer) {
  std::vector<DnsRecord> records;
  for (int i = 0; i < 100; ++i) records.push_back({kName, TxtData({std::string(255, 'x')})});
  records.push_back({kName, TxtData({kValue})});
  const DnsServer server([&records](const DnsQuery& query) {
    return query.tcp ? DnsReply(query, records) : TruncatedReply(query);
  });
  EXPECT_FALSE(Check());
  EXPECT_EQ(server.Queries().size(), 2U);
}

TEST_F(HostileDns, SurvivesADatagramThatDoesNotFitItsBuffer) {
  const std::vector<DnsRecord> records(20, {kName, TxtData({std::string(255, 'x')})});
  const DnsServer server = Serving(records);
  EXPECT_FALSE(Check());
  EXPECT_GE(server.Queries().size(), 1U);
}

TEST_F(HostileDns, SurvivesARecordWhosePrintedFormDoesNotFit) {
  // Each byte prints as four characters.
  const std::vector<std::string> strings(8, std::string(250, '\x01'));
  const DnsServer server([&strings](const DnsQuery& query) {
    const std::vector<DnsRecord> records = {{kName, TxtData(strings)}, {kName, TxtData({kValue})}};
    return query.tcp ? DnsReply(query, records) : TruncatedReply(query);
  });
  EXPECT_TRUE(Check());  // the next record is looked at all the same
}

TEST_F(HostileDns, SurvivesRepliesThatAreCutAnywhere) {
  size_t length = 0;
  const DnsServer server([&length](const DnsQuery& query) {
    const std::string whole = DnsReply(query, {{kName, TxtData({kValue})}});
    // The resolver itself turns replies down that lack the question.
    const size_t shortest = query.bytes.size();
    return whole.substr(0, std::min(shortest + length, whole.size()));
  });
  const size_t record = WireName(kName).size() + 10 + TxtData({kValue}).size();
  for (; length < record; ++length) EXPECT_FALSE(Check()) << length;
  EXPECT_TRUE(Check());
}

TEST_F(HostileDns, SurvivesDamagedReplies) {
  size_t position = 0;
  const DnsServer server([&position](const DnsQuery& query) {
    std::string reply = DnsReply(query, {{kName, TxtData({kValue})}});
    if (position < reply.size()) reply[position] = static_cast<char>(0xff);
    return reply;
  });
  // From the answer on, so that the resolver takes the reply for one to its question.
  const size_t answer = 12 + WireName(kName).size() + 4;
  const size_t end = answer + WireName(kName).size() + 10 + TxtData({kValue}).size();
  // Whatever a record's type, class or time to live, and with strings that overrun it, its printed
  // form holds the text; an owner, a length or a text of its own is another matter.
  const size_t type = answer + WireName(kName).size();
  const size_t text_length = type + 10;
  for (position = answer; position < end; ++position) {
    const bool is_harmless = position >= type && position < type + 8;
    EXPECT_EQ(Check(), is_harmless || position == text_length) << position;
  }
  EXPECT_EQ(server.Queries().size(), end - answer);
  EXPECT_TRUE(Check());
}

TEST_F(HostileDns, SurvivesARecordCountThatIsALie) {
  const DnsServer server([](const DnsQuery& query) {
    std::string reply = DnsReply(query, {{kName, TxtData({kValue})}});
    reply[6] = static_cast<char>(0xff);
    return reply;
  });
  EXPECT_FALSE(Check());
}

TEST_F(HostileDns, SurvivesAnOwnerThatPointsToItself) {
  const DnsServer server([](const DnsQuery& query) {
    std::string reply = DnsReply(query, {{kName, TxtData({kValue})}});
    const size_t owner = 12 + WireName(kName).size() + 4;
    reply.replace(owner, WireName(kName).size(), std::string("\xc0") + static_cast<char>(owner));
    return reply;
  });
  EXPECT_FALSE(Check());
}

}  // namespace
}  // namespace kova::test
