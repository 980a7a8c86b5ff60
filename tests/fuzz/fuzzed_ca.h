// An authority in this process, in the place of the transport: each request is answered as a good
// one would answer it, or with whatever the fuzzer makes of that.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <functional>
#include <string>

#include "net/client_network.h"

namespace kova::fuzz {

class FuzzedCa {
 public:
  // `good` gives the right reply to a URL.
  FuzzedCa(FuzzedDataProvider& data, std::function<HttpResponse(const std::string& url)> good);
  ~FuzzedCa();
  FuzzedCa(const FuzzedCa&) = delete;
  FuzzedCa& operator=(const FuzzedCa&) = delete;

  // Throws what the transport throws when the fuzzer breaks the connection.
  HttpResponse Answer(const std::string& url);

 private:
  FuzzedDataProvider& data_;
  std::function<HttpResponse(const std::string& url)> good_;
};

HttpResponse Reply(long status, const std::string& body, const std::string& header = {});

// A fresh host without router and dns-01, where waiting takes no time.
void PrepareHost();

// Runs an issuance. Nothing must be left of one that throws SLError, and of a good one a whole
// certificate.
void CheckIssuance(const std::function<void()>& issue);

}  // namespace kova::fuzz
