// The stored ACME accounts, and which certificates of the archive were obtained with them.
#pragma once

#include <string>
#include <vector>

namespace kova {

struct StoredAccount {
  std::string id;                           // the name of its folder
  std::string folder;                       // in the account store
  bool readable = false;                    // info.json is an object; without it the rest is empty
  int version = 0;                          // of the protocol; 0: none that is known
  std::string directory;                    // URL
  std::string contact;                      // e-mail address, without "mailto:"
  std::string url;                          // empty for version 1
  bool has_key = false;                     // private_key.json is an object
  bool rollover_unfinished = false;         // it has a next key, of a run that was cut short
  std::vector<std::string> certificates{};  // ids whose renewal records name it, sorted
};

// All of the store, in the order of ids. Throws SLError 202 when it cannot be listed.
std::vector<StoredAccount> StoredAccounts();

// That one. Throws SLError 202 in words when there is none.
StoredAccount StoredAccountOf(const std::string& id);

}  // namespace kova
