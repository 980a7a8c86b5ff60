// A client that has an order to finalize.
#pragma once

#include "client_fixture.h"

namespace kova::test {

class IssueTest : public ClientTest {
 protected:
  IssueTest() : client_(OrderedClient({"a.example", "*.a.example"})) {}

  // The same with other settings.
  void Settings(const std::string& settings) {
    WriteFile(kSettingsFile, settings);
    client_ = OrderedClient({"a.example", "*.a.example"});
  }

  std::string New(const std::vector<std::string>& names = {"a.example", "*.a.example"},
                  const std::string& id = {}) {
    IssueOptions options;
    options.certificate_id = id;
    return NewWith(options, names);
  }
  std::string NewWith(const IssueOptions& options,
                      const std::vector<std::string>& names = {"a.example"}) {
    Order order = order_;
    order.names = names;
    return client_->NewCertificate(order, options);
  }
  std::string ErrorOfNew(const std::vector<std::string>& names = {"a.example", "*.a.example"}) {
    return ErrorOf([&] { New(names); });
  }

  std::unique_ptr<AcmeV2Client> client_;
};

inline constexpr char kFinalize[] = "POST /order/1/finalize";
inline constexpr char kOrder[] = "POST /order/1";
inline constexpr char kCertificate[] = "POST /certificate/1";

}  // namespace kova::test
