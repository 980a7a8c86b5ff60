#include <algorithm>
#include <cctype>
#include <sstream>
#include <utility>

#include "net/headers.h"

namespace kova {
namespace {

constexpr char kBlanks[] = " \t\r";

std::string Trimmed(const std::string& text) {
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string LowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

// Whether the characters passed so far end inside of quotes or angle brackets.
class Enclosure {
 public:
  void Pass(char c) {
    if (c == '"' && !bracketed_) quoted_ = !quoted_;
    if (!quoted_ && (c == '<' || c == '>')) bracketed_ = c == '<';
  }
  [[nodiscard]] bool IsOpen() const { return quoted_ || bracketed_; }

 private:
  bool quoted_ = false;
  bool bracketed_ = false;
};

// The pieces between separators that stand outside of quotes and angle brackets.
std::vector<std::string> SplitOutside(const std::string& text, char separator) {
  std::vector<std::string> pieces(1);
  Enclosure enclosure;
  for (const char c : text) {
    enclosure.Pass(c);
    if (c == separator && !enclosure.IsOpen()) {
      pieces.emplace_back();
    } else {
      pieces.back() += c;
    }
  }
  return pieces;
}

// Whether a parameter says that the link is of that relation; it may name several.
bool IsRelation(const std::string& parameter, const std::string& relation) {
  const size_t equals = parameter.find('=');
  if (equals == std::string::npos || LowerCase(Trimmed(parameter.substr(0, equals))) != "rel") {
    return false;
  }
  std::string relations = Trimmed(parameter.substr(equals + 1));
  std::replace(relations.begin(), relations.end(), '"', ' ');
  return (" " + LowerCase(relations) + " ").find(" " + relation + " ") != std::string::npos;
}

// The target of one link, or an empty text when it is none or of another relation.
std::string TargetOf(const std::string& link, const std::string& relation) {
  const std::vector<std::string> parts = SplitOutside(link, ';');
  const std::string target = Trimmed(parts[0]);
  if (target.size() < 2 || target.front() != '<' || target.back() != '>') return {};
  const bool is_of_it = std::any_of(parts.begin() + 1, parts.end(), [&](const std::string& part) {
    return IsRelation(part, relation);
  });
  return is_of_it ? target.substr(1, target.size() - 2) : std::string();
}

}  // namespace

std::vector<std::string> LinkUrls(const HttpResponse& response, const std::string& relation) {
  std::vector<std::string> urls;
  std::istringstream lines(response.header);
  for (std::string line; std::getline(lines, line);) {
    const size_t colon = line.find(':');
    if (colon == std::string::npos || LowerCase(line.substr(0, colon)) != "link") continue;
    for (const std::string& link : SplitOutside(line.substr(colon + 1), ',')) {
      std::string url = TargetOf(link, relation);
      if (!url.empty()) urls.push_back(std::move(url));
    }
  }
  return urls;
}

}  // namespace kova
