#include <algorithm>
#include <cctype>
#include <ctime>

#include "acme/issued_folder.h"
#include "base/log.h"
#include "base/sl_error.h"
#include "crypto/certificate.h"
#include "crypto/pem.h"

namespace kova {
namespace {

bool IsBlank(const std::string& text) {
  return std::all_of(text.begin(), text.end(),
                     [](unsigned char c) { return std::isspace(c) != 0; });
}

// Whether the text is certificates from the first byte to the last, blanks between them aside.
bool HoldsOnlyCertificates(const std::string& pem) {
  size_t position = 0;
  for (;;) {
    const size_t begin = pem.find(kCertificateBegin, position);
    if (!IsBlank(pem.substr(position, begin - position))) return false;
    if (begin == std::string::npos) return true;
    const size_t end = pem.find(kCertificateEnd, begin);
    if (end == std::string::npos) return false;
    position = end + std::string(kCertificateEnd).size();
  }
}

std::string LowerCase(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// The first of the names that the certificate is not for; empty when there is none.
std::string MissingName(const Certificate& leaf, const std::vector<std::string>& names) {
  std::vector<std::string> held = leaf.AlternativeNames();
  for (std::string& name : held) name = LowerCase(name);
  for (const std::string& name : names) {
    if (std::find(held.begin(), held.end(), LowerCase(name)) == held.end()) return name;
  }
  return {};
}

std::string ProblemOfTime(const Certificate& leaf) {
  const std::int64_t now = std::time(nullptr);
  const auto begin = leaf.NotBefore();
  const auto end = leaf.NotAfter();
  if (!begin || !end) return "its dates cannot be read";
  if (*begin > now) return "it is not valid yet";
  if (*end < now) return "it has expired";
  return {};
}

std::string ProblemOfLeaf(const Certificate& leaf, const std::string& private_key_pem,
                          const std::vector<std::string>& names) {
  if (!leaf.FitsKeyText(private_key_pem)) return "it has another key";
  const std::string missing = MissingName(leaf, names);
  if (!missing.empty()) return "it is not for " + missing;
  return ProblemOfTime(leaf);
}

std::string ProblemOf(const std::string& chain_pem, const std::string& private_key_pem,
                      const std::vector<std::string>& names) {
  const std::vector<Certificate> chain = Certificate::ChainFromText(chain_pem);
  if (chain.empty() || !HoldsOnlyCertificates(chain_pem)) return "it is no chain of certificates";
  std::string problem = ProblemOfLeaf(chain[0], private_key_pem, names);
  if (!problem.empty()) return problem;
  for (size_t index = 1; index < chain.size(); ++index) {
    if (!chain[index - 1].IsIssuedBy(chain[index])) {
      return "certificate " + std::to_string(index + 1) +
             " of the chain did not issue the one before";
    }
  }
  return {};
}

}  // namespace

void RequireFitting(const char* tag, const std::string& chain_pem,
                    const std::string& private_key_pem, const std::vector<std::string>& names) {
  const std::string problem = ProblemOf(chain_pem, private_key_pem, names);
  if (problem.empty()) return;
  LogError(tag, "Issued certificate does not fit. [%s]", problem.c_str());
  throw SLError(code::kProtocol, tag, __LINE__, "new-cert: issued certificate does not fit. (%s)",
                problem.c_str());
}

}  // namespace kova
