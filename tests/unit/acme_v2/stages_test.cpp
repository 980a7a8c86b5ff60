#include <algorithm>

#include "../base/terminal.h"
#include "base/progress.h"
#include "client_fixture.h"

namespace kova::test {
namespace {

using Stages = ClientTest;

// What stood on the line in turn.
std::vector<std::string> Parts(const std::string& shown) {
  constexpr char kRewrite[] = "\r\033[K";
  std::vector<std::string> parts;
  for (size_t begin = 0; begin < shown.size();) {
    const size_t end = std::min(shown.find(kRewrite, begin), shown.size());
    std::string part = shown.substr(begin, end - begin);
    if (!part.empty() && (parts.empty() || part != parts.back())) parts.push_back(part);
    begin = end + sizeof kRewrite - 1;
  }
  return parts;
}

TEST_F(Stages, OfAnIssuanceAreShownToWhoeverWaits) {
  AcmeV2Client client(ca_.DirectoryUrl(), Settings::Read());
  client.SetupDirectory();
  Terminal terminal;
  const ProgressLine progress;
  client.RegisterAccount("a@b.example");
  const Order order = client.NewOrder({"a.example"});
  client.AuthorizeOrder(order);
  client.NewCertificate(order, {});
  EXPECT_THAT(
      Parts(terminal.Shown()),
      ElementsAre("a@b.example: registering an account", "placing the order",
                  "asking the router to forward ports 80 and 443", "a.example: setting up http-01",
                  "a.example: waiting for the CA to validate http-01",
                  "generating the key and the request", "waiting for the certificate",
                  "storing the certificate"));
}

}  // namespace
}  // namespace kova::test
