#include "crypto/secret.h"

#include <openssl/crypto.h>

namespace kova {

void Cleanse(std::string& secret) {
  secret.resize(secret.capacity());  // what a longer text left behind the end goes as well
  OPENSSL_cleanse(secret.data(), secret.size());
  secret.clear();
}

void Cleanse(Json::Value& secret) {
  const char* begin = nullptr;
  const char* end = nullptr;
  if (secret.isString() && secret.getString(&begin, &end)) {
    // The value owns the text; its interface merely offers no way to overwrite it in place.
    OPENSSL_cleanse(const_cast<char*>(begin), static_cast<size_t>(end - begin));
  } else if (secret.isArray() || secret.isObject()) {
    for (Json::Value& member : secret) Cleanse(member);
  }
  secret = Json::Value();
}

}  // namespace kova
