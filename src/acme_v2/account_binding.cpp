#include <sys/stat.h>
#include <unistd.h>

#include <optional>

#include "acme_v2/account.h"
#include "base/json.h"
#include "base/log.h"
#include "crypto/encoding.h"
#include "crypto/secret.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v2";
constexpr char kPath[] = "/usr/kova/etc/letsencrypt/eab.json";

// Whoever reads the key can make accounts in the customer's name; whoever writes it, in another's.
bool IsPrivate(const struct stat& status) {
  return S_ISREG(status.st_mode) && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0 &&
         (status.st_uid == 0 || status.st_uid == geteuid());
}

// False when there is no such file, or, with a message, when it cannot be used.
bool ReadBindings(Json::Value& bindings) {
  struct stat status {};
  if (lstat(kPath, &status) != 0) return false;
  if (!IsPrivate(status)) {
    LogError(kTag, "%s is not used: others than root can get at it.", kPath);
    return false;
  }
  if (JsonFromFile(kPath, bindings) && bindings.isObject()) return true;
  LogError(kTag, "%s is not used: it is no JSON object.", kPath);
  return false;
}

Json::Value Signed(const std::string& kid, const std::string& key, const std::string& url,
                   const Json::Value& jwk) {
  Json::Value header(Json::objectValue);
  header["alg"] = "HS256";
  header["kid"] = kid;
  header["url"] = url;
  Json::Value binding(Json::objectValue);
  const std::string encoded_header = Base64UrlEncode(JsonToString(header));
  const std::string encoded_payload = Base64UrlEncode(JsonToString(jwk));
  binding["protected"] = encoded_header;
  binding["payload"] = encoded_payload;
  binding["signature"] = HmacSha256Base64Url(key, encoded_header + "." + encoded_payload);
  return binding;
}

}  // namespace

Json::Value AccountBinding(const std::string& directory, const std::string& url,
                           const Json::Value& jwk) {
  SecretJson bindings;
  if (!ReadBindings(bindings.value) || !HasMember(bindings.value, directory.c_str())) return {};
  const Json::Value& entry = Member(bindings.value, directory.c_str());
  SecretText key;
  key.text = Base64UrlDecode(TextMember(entry, "hmac_key")).value_or("");
  const std::string kid = TextMember(entry, "kid");
  if (!kid.empty() && !key.text.empty()) return Signed(kid, key.text, url, jwk);
  LogError(kTag, "%s has no usable kid and hmac_key for %s.", kPath, directory.c_str());
  return {};
}

}  // namespace kova
