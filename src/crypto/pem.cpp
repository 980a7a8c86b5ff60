#include "crypto/pem.h"

#include <stdexcept>

#include "crypto/base64url.h"

namespace kova {

std::string PemToBase64Url(const std::string& pem, const std::string& begin,
                           const std::string& end) {
  const size_t marker = pem.find(begin);
  if (marker == std::string::npos) throw std::out_of_range("no " + begin);
  const size_t start = marker + begin.size();
  const size_t stop = pem.find(end, start);
  if (stop == std::string::npos) throw std::out_of_range("no " + end);
  std::string text = pem.substr(start, stop - start);
  std::erase(text, '\n');
  ToBase64UrlAlphabet(text);
  return text;
}

}  // namespace kova
