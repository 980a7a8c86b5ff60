// The examples of reload scripts that are installed with the documentation, one for each of a few
// servers, and how one of them becomes a subscriber's reload script.
#pragma once

#include <string>
#include <utility>

#include "archive/service_object.h"
#include "archive_cli/command.h"

namespace kova::archive_cli {

// What became of the wish for a reload script.
struct ReloadScriptReport {
  // A line and members of the document; nothing when nobody wished for one.
  void AddTo(Reply& reply) const;

  std::string path{};  // empty: nobody did
  bool made = false;   // else one was there and is left as it was
};

class ReloadExample {
 public:
  // The one for that server. Throws UsageError, which names all of them, when there is none, and
  // Failure when it is not installed.
  static ReloadExample Named(const std::string& server);

  [[nodiscard]] const std::string& Server() const { return server_; }

  // Makes it the reload script of the service's subscriber (0755), unless that has one, be it a
  // damaged one. The service must stay in its folder. Throws Failure.
  [[nodiscard]] ReloadScriptReport PutInPlace(const cert_archive::Service& service) const;

 private:
  ReloadExample(std::string server, std::string text)
      : server_(std::move(server)), text_(std::move(text)) {}

  std::string server_;
  std::string text_;
};

}  // namespace kova::archive_cli
