// Asks the probe, with the name server of the vendor's zone at 127.0.0.1.
#pragma once

#include <arpa/inet.h>
#include <resolv.h>

#include <string>
#include <vector>

#include "challenge/challenge.h"
#include "challenge_fixture.h"
#include "dns_server.h"

namespace kova::test {

inline constexpr char kName[] = "_acme-challenge.x.box.ddns.example";
inline constexpr char kValue[] = "gfj9Xq-Rg85nM";

class TxtProbe : public DdnsTest {
 protected:
  TxtProbe() {
    WriteFile("/etc/resolv.conf", "nameserver 127.0.0.7\noptions timeout:1 attempts:1\n");
    res_init();
  }

  static DnsServer Serving(const std::vector<DnsRecord>& answers) {
    return DnsServer([answers](const DnsQuery& query) { return DnsReply(query, answers); });
  }

  static bool Check() { return CheckTxtRecord(kDomain, kValue); }

  // What the resolver would ask now.
  static std::string NameServer() {
    return std::to_string(_res.nscount) + " " + inet_ntoa(_res.nsaddr_list[0].sin_addr);
  }

  static std::string Printed(const std::string& rdata) {
    return std::string(kName) + ".  1M IN TXT  " + rdata;
  }
};

}  // namespace kova::test
