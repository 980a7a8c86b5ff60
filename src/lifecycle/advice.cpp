#include "lifecycle/advice.h"

#include <algorithm>
#include <array>

namespace kova {
namespace {

struct Entry {
  int code;
  std::string_view file;  // empty: whatever it is
  std::string_view advice;
};

// Of two entries of one code the one with a file comes first.
constexpr std::array kAdvice = {
    Entry{kUnusableRecord, "",
          "Obtain the certificate anew: what was kept to renew it cannot be used."},
    Entry{code::kUnreachable, "",
          "Check the server's URL, the network and its name servers, this host's clock and its "
          "trust store (ca-certificates)."},
    Entry{code::kConnection, "",
          "Make sure that port 80 of this host can be reached from the internet under that name."},
    Entry{code::kRefused, "profile", "Choose one that the authority offers, or none."},
    Entry{code::kRefused, "",
          "Check that each name is spelt right and is yours; if the authority only took too long, "
          "try again later."},
    Entry{code::kAccountRateLimit, "",
          "Wait before registering again, and use the authority's staging directory for trials."},
    Entry{code::kOrderRateLimit, "",
          "Wait as long as the authority asks, and use its staging directory for trials."},
    Entry{code::kAccountRefused, "",
          "Check the e-mail address and, if the authority wants one, the external account binding "
          "in /usr/kova/etc/letsencrypt/eab.json."},
    Entry{code::kNoDomain, "", "Give at least one host name."},
    Entry{code::kNotKovaDdns, "",
          "A wildcard needs a dns-txt hook, or a name of the vendor's dynamic DNS."},
    Entry{code::kDns, "",
          "Check what the public DNS has for that name: an A or AAAA record of this host, or with "
          "dns-01 the TXT record below _acme-challenge."},
    Entry{
        code::kUnauthorized, "",
        "Make sure that /.well-known/acme-challenge/ of that name leads to /var/lib/letsencrypt on "
        "this host, or with dns-01 that the TXT record is public."},
    Entry{code::kProtocol, "account",
          "Nothing was changed on this host: mend what the authority names, and try again."},
    Entry{code::kProtocol, "",
          "Check that the server's URL is that of an ACME directory, and try again "
          "later; kova-letsencrypt -vv shows what is sent and received."},
    Entry{code::kAccountKey, "kova-letsencrypt",
          "See the system log for what failed, then hand the files out again with kova-archive "
          "deploy."},
    Entry{code::kAccountKey, "",
          "The stored account cannot be used: see kova-archive account list, and obtain the "
          "certificate anew."},
    Entry{code::kLocal, "",
          "See the system log for what failed; free space and the modes below /usr/kova/etc are "
          "the usual reasons."},
    Entry{code::kChallengeSetup, "",
          "Make sure that /var/lib/letsencrypt can be written to, and see the system log."},
    Entry{code::kNoNonce, "",
          "Try again later; with \"noncerefill\" in the settings a fresh nonce is fetched."},
    Entry{code::kBadNonceFinalize, "", "Try again: the authority kept forgetting its nonces."},
};
constexpr std::string_view kGeneralAdvice = "See the system log for what failed.";

constexpr size_t kNamesShown = 3;
constexpr size_t kLongestName = 255;
constexpr size_t kLongestDetail = 400;
constexpr std::string_view kCut = "...";

std::string VisibleByte(unsigned char byte) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  if (byte == '\n') return "\\n";
  if (byte == '\t') return "\\t";
  if (byte >= 0x20 && byte < 0x7f) return {static_cast<char>(byte)};
  return {'\\', 'x', kDigits[byte >> 4U], kDigits[byte & 0xfU]};
}

std::string Named(const std::vector<std::string>& names) {
  std::string text;
  const size_t shown = std::min(names.size(), kNamesShown);
  for (size_t i = 0; i < shown; ++i) {
    text += (text.empty() ? "" : ", ") + Visible(names[i], kLongestName);
  }
  if (names.size() > shown) text += " and " + std::to_string(names.size() - shown) + " more";
  return text;
}

// The sentence goes on after it.
std::string WithoutStop(std::string text) {
  const size_t last = text.find_last_not_of(" \t\r\n.");
  text.resize(last == std::string::npos ? 0 : last + 1);
  return text;
}

std::string DetailOf(const SLError& error) {
  std::string detail = WithoutStop(error.cause);
  if (detail.empty()) detail = WithoutStop(error.message);
  return detail.empty() ? "no reason was given" : Visible(detail, kLongestDetail);
}

}  // namespace

std::string_view AdviceOn(int code, std::string_view file) {
  for (const Entry& entry : kAdvice) {
    if (entry.code == code && (entry.file.empty() || entry.file == file)) return entry.advice;
  }
  return kGeneralAdvice;
}

Explanation Explain(const SLError& error, const std::vector<std::string>& names) {
  const std::vector<std::string> about =
      error.name.empty() ? names : std::vector<std::string>{error.name};
  return {error.code, Named(about), DetailOf(error), std::string(AdviceOn(error.code, error.file))};
}

std::string Sentence(const Explanation& explanation) {
  const std::string whom = explanation.name.empty() ? "" : explanation.name + ": ";
  return whom + explanation.detail + " [" + std::to_string(explanation.code) + "]. " +
         explanation.advice;
}

std::string Visible(std::string_view text, size_t limit) {
  std::string visible;
  size_t kept = 0;  // how much of it would stay in front of the cut
  for (const char c : text) {
    visible += VisibleByte(static_cast<unsigned char>(c));
    if (visible.size() + kCut.size() <= limit) kept = visible.size();
    if (visible.size() > limit) return visible.substr(0, kept).append(kCut);
  }
  return visible;
}

}  // namespace kova
