#include "lifecycle/account_list.h"

#include <algorithm>
#include <filesystem>
#include <map>

#include "acme/account_store.h"
#include "acme/next_key.h"
#include "acme/renewal_record.h"
#include "archive/paths.h"
#include "base/files.h"
#include "base/json.h"
#include "base/sl_error.h"
#include "crypto/secret.h"
#include "platform/files.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";

using IdsByAccount = std::map<std::string, std::vector<std::string>>;

std::string WithoutSlash(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

std::string LastPart(const std::string& path) {
  return std::filesystem::path(WithoutSlash(path)).filename();
}

// By the folder that the renewal record names. Also of certificates that the index does not have:
// they can be renewed one by one.
IdsByAccount CertificatesByAccount() {
  std::vector<std::string> folders;
  if (!ListByPattern(std::string(kArchiveRoot) + "/*", folders)) {
    throw Error(code::kLocal, kTag, std::string("cannot list [") + kArchiveRoot + "]");
  }
  IdsByAccount ids;
  for (const std::string& folder : folders) {
    RenewalRecord record;
    if (ReadRenewalRecord(folder, record) != RecordProblem::kNone) continue;
    ids[WithoutSlash(record.account)].push_back(LastPart(folder));
  }
  return ids;
}

StoredAccount Read(const std::string& folder, const IdsByAccount& ids) {
  StoredAccount account;
  account.id = LastPart(folder);
  account.folder = folder;
  SecretJson key;
  account.has_key = ReadAccountKey(folder, key.value);
  account.rollover_unfinished = HasNextKey(folder);
  if (const auto found = ids.find(folder); found != ids.end()) {
    account.certificates = found->second;
    std::sort(account.certificates.begin(), account.certificates.end());
  }
  Json::Value info;
  if (!ReadAccountInfo(folder, info)) return account;
  account.readable = true;
  const Json::Value& version = Member(info, "version");
  account.version = version.isInt() ? version.asInt() : 0;
  account.directory = TextMember(info, "directory");
  account.contact = TextMember(info, "contact");
  account.url = TextMember(info, "account_url");
  return account;
}

std::vector<std::string> AccountFolders() {
  try {
    return ListAccounts();
  } catch (const char* /*reason*/) {
    throw Error(code::kLocal, kTag, "cannot list the stored accounts");
  }
}

}  // namespace

std::vector<StoredAccount> StoredAccounts() {
  const IdsByAccount ids = CertificatesByAccount();
  std::vector<StoredAccount> accounts;
  for (const std::string& folder : AccountFolders()) {
    if (folder.back() == '/') accounts.push_back(Read(WithoutSlash(folder), ids));
  }
  std::sort(accounts.begin(), accounts.end(),
            [](const StoredAccount& a, const StoredAccount& b) { return a.id < b.id; });
  return accounts;
}

StoredAccount StoredAccountOf(const std::string& id) {
  RemoveUnfinishedAccounts();
  const std::string folder = AccountFolder(id);
  if (!cert_archive::IsPlainName(id) || !KLIBCFileCheckDir(folder)) {
    throw Error(code::kLocal, kTag, "there is no account [" + id + "]");
  }
  return Read(folder, CertificatesByAccount());
}

}  // namespace kova
