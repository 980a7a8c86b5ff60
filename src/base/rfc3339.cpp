#include "base/rfc3339.h"

#include <algorithm>
#include <string>

namespace kova {
namespace {

using std::chrono::milliseconds;

// Takes a text apart from its begin on; what it is asked for and does not find makes it fail.
class Reader {
 public:
  explicit Reader(std::string_view text) : rest_(text) {}

  // A number of exactly that many digits, from `least` to `most`.
  int Number(size_t digits, int least, int most) {
    int number = 0;
    for (size_t i = 0; i < digits; ++i) number = number * 10 + Digit();
    if (number < least || number > most) failed_ = true;
    return number;
  }

  // Takes one of these signs and returns it, or fails.
  char OneOf(std::string_view signs) {
    if (rest_.empty() || signs.find(rest_.front()) == std::string_view::npos) {
      failed_ = true;
      return '\0';
    }
    const char sign = rest_.front();
    rest_.remove_prefix(1);
    return sign;
  }

  [[nodiscard]] bool NextIs(char sign) const { return rest_.starts_with(sign); }

  // All digits that come next, at least one.
  std::string_view Digits() {
    const size_t count = std::min(rest_.find_first_not_of("0123456789"), rest_.size());
    const std::string_view digits = rest_.substr(0, count);
    if (digits.empty()) failed_ = true;
    rest_.remove_prefix(count);
    return digits;
  }

  [[nodiscard]] bool DoneWell() const { return !failed_ && rest_.empty(); }

 private:
  int Digit() {
    const char sign = OneOf("0123456789");
    return sign == '\0' ? 0 : sign - '0';
  }

  std::string_view rest_;
  bool failed_ = false;
};

std::chrono::year_month_day ReadDate(Reader& reader) {
  const int year = reader.Number(4, 0, 9999);
  reader.OneOf("-");
  const int month = reader.Number(2, 1, 12);
  reader.OneOf("-");
  const int day = reader.Number(2, 1, 31);
  return std::chrono::year(year) / month / day;
}

milliseconds ReadFraction(Reader& reader) {
  if (!reader.NextIs('.')) return milliseconds(0);
  reader.OneOf(".");
  std::string digits(reader.Digits().substr(0, 3));
  digits.resize(3, '0');
  return milliseconds(std::stoi(digits));
}

milliseconds ReadTime(Reader& reader) {
  const std::chrono::hours hours(reader.Number(2, 0, 23));
  reader.OneOf(":");
  const std::chrono::minutes minutes(reader.Number(2, 0, 59));
  reader.OneOf(":");
  const std::chrono::seconds seconds(reader.Number(2, 0, 60));
  return hours + minutes + seconds + ReadFraction(reader);
}

// How far the local time of the text is ahead.
milliseconds ReadOffset(Reader& reader) {
  const char sign = reader.OneOf("Zz+-");
  if (sign != '+' && sign != '-') return milliseconds(0);
  const std::chrono::hours hours(reader.Number(2, 0, 23));
  reader.OneOf(":");
  const std::chrono::minutes minutes(reader.Number(2, 0, 59));
  return sign == '+' ? hours + minutes : -(hours + minutes);
}

}  // namespace

std::optional<Moment> MomentOfText(std::string_view text) {
  Reader reader(text);
  const std::chrono::year_month_day date = ReadDate(reader);
  reader.OneOf("Tt");
  const milliseconds time = ReadTime(reader);
  const milliseconds offset = ReadOffset(reader);
  if (!reader.DoneWell() || !date.ok()) return std::nullopt;
  return std::chrono::sys_days(date) + time - offset;
}

}  // namespace kova
