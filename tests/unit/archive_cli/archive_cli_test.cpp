// The parts of kova-archive that need no archive.
#include <fcntl.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <sys/wait.h>
#include <unistd.h>

#include "../archive/archive_fixture.h"
#include "../archive/test_certificates.h"
#include "archive_cli/arguments.h"
#include "archive_cli/facts.h"
#include "archive_cli/kept_stderr.h"
#include "archive_cli/table.h"
#include "archive_cli/text.h"
#include "base/status.h"

namespace kova::archive_cli {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(TextTest, CountsColumnsNotBytes) {
  EXPECT_EQ(Width(""), 0U);
  EXPECT_EQ(Width("abc"), 3U);
  EXPECT_EQ(Width("b\u00fccher.example"), 14U);
  EXPECT_EQ(Width("\u65e5\u672c"), 4U);  // wide characters
  EXPECT_EQ(Width("e\u0301"), 1U);       // a combining accent
}

TEST(TextTest, LetsNothingSteerTheTerminal) {
  EXPECT_EQ(Printable("plain \u00fc \u65e5"), "plain \u00fc \u65e5");
  EXPECT_EQ(Printable("\033[31mred\r\n\t\x7f"), "?[31mred????");
  EXPECT_EQ(Printable("\u009b31m"), "?31m");  // the eight-bit form of ESC [
  EXPECT_EQ(Printable("bad \xff\xc3 utf-8"), "bad ?? utf-8");
  EXPECT_EQ(Printable("cut \xe6\x97"), "cut ??");
  EXPECT_EQ(Printable(std::string("a\0b", 3)), "a?b");
}

TEST(TextTest, KnowsWritingFromBytes) {
  EXPECT_TRUE(IsWriting(""));
  EXPECT_TRUE(IsWriting("plain \u00fc \u65e5 ~"));
  for (const char* text :
       {"a\nb", "\t", "\x7f", "\x1b[2J", "\xff", "\xc3", "a\xe6\x97", "\u0085", "\xed\xa0\x80"}) {
    EXPECT_FALSE(IsWriting(text)) << text;
  }
  EXPECT_FALSE(IsWriting(std::string("a\0b", 3)));
}

TEST(TextTest, ShortensWithAnEllipsis) {
  EXPECT_EQ(Shortened("abcdef", 6), "abcdef");
  EXPECT_EQ(Shortened("abcdef", 5), "abcd\u2026");
  EXPECT_EQ(Shortened("abcdef", 1), "\u2026");
  EXPECT_EQ(Shortened("abcdef", 0), "");
  EXPECT_EQ(Shortened("\u65e5\u672c\u8a9e", 5), "\u65e5\u672c\u2026");
  EXPECT_EQ(Shortened("\u65e5\u672c\u8a9e", 4), "\u65e5\u2026");
}

const std::vector<Column> kColumns = {{"ID"}, {"NAMES", false, 6}, {"DAYS", true}, {"END"}};

TEST(TableTest, AlignsItsColumns) {
  EXPECT_EQ(RenderTable(
                kColumns,
                {{{"a"}, {"b\u00fccher"}, {"7"}, {"x"}}, {{"long-id"}, {""}, {"-123"}, {""}}}, {}),
            "ID       NAMES   DAYS  END\n"
            "a        b\u00fccher     7  x\n"
            "long-id          -123\n");
}

TEST(TableTest, NarrowsWhatMayBeNarrowedToTheScreen) {
  const std::vector<std::vector<Cell>> rows = {{{"abc"}, {"0123456789abcdef"}, {"7"}, {"x"}}};
  EXPECT_EQ(RenderTable(kColumns, rows, {24, false}),
            "ID   NAMES     DAYS  END\n"
            "abc  0123456\u2026     7  x\n");
  // Not below the least width, even when the rows then do not fit.
  EXPECT_EQ(RenderTable(kColumns, rows, {5, false}),
            "ID   NAMES   DAYS  END\n"
            "abc  01234\u2026     7  x\n");
}

TEST(TableTest, ACellThatIsNotCutDoesNotWidenTheOtherRows) {
  const std::string wide(41, 'w');
  const std::string widest(40, 'x');
  const std::vector<std::vector<Cell>> rows = {{{"a"}, {wide}, {"7"}, {"x"}},
                                               {{wide}, {"b"}, {"1"}, {"y"}},
                                               {{"c"}, {widest}, {"2"}, {"z"}}};
  EXPECT_EQ(RenderTable(kColumns, rows, {}),
            "ID  NAMES" + std::string(37, ' ') + "DAYS  END\n" + "a   " + wide + "     7  x\n" +  //
                wide + "  b" + std::string(44, ' ') + "1  y\n" + "c   " + widest + "     2  z\n");
  // On a terminal that is true of what may not be narrowed.
  EXPECT_EQ(RenderTable(kColumns, {{{wide}, {wide}, {"7"}, {"x"}}, {{"c"}, {"d"}, {"1"}, {"y"}}},
                        {28, false}),
            "ID  NAMES          DAYS  END\n" + wide + "  wwwwwwwwwwww\u2026     7  x\n" +
                "c   d                 1  y\n");
}

TEST(TableTest, ColoursOnlyWhereWanted) {
  const std::vector<std::vector<Cell>> rows = {{{"a", Colour::kRed}, {"b", Colour::kYellow}}};
  const std::vector<Column> columns = {{"X"}, {"Y"}};
  EXPECT_EQ(RenderTable(columns, rows, {0, true}),
            "\033[1mX\033[0m  \033[1mY\033[0m\n\033[31ma\033[0m  \033[33mb\033[0m\n");
  EXPECT_EQ(RenderTable(columns, rows, {0, false}), "X  Y\na  b\n");
}

TEST(TableTest, ShowsNoControlCharacters) {
  EXPECT_EQ(RenderTable({{"X"}}, {{{"\033[2J"}}}, {}), "X\n?[2J\n");
}

TEST(RequireTest, ThrowsWhatAStatusSays) {
  Require(Status());
  // A long text with brackets, as an index that cannot be written once was part of a message.
  const std::string text = "[0x" + std::string(200000, 'A') + " [0x0002";
  try {
    Require(Status::Failed("Failed to write", text, "No space left on device"), "context: ");
    ADD_FAILURE() << "no failure";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.message, "context: Failed to write " + text + ": No space left on device");
  }
}

TEST(KeptStderrTest, KeepsStandardError) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const int saved = dup(STDERR_FILENO);
  dup2(ends[1], STDERR_FILENO);
  std::string kept;
  {
    KeptStderr keeper;
    EXPECT_EQ(write(STDERR_FILENO, "one\ntwo\n", 8), 8);
    kept = keeper.Release();
    EXPECT_EQ(write(STDERR_FILENO, "seen", 4), 4);
  }
  dup2(saved, STDERR_FILENO);
  close(saved);
  EXPECT_EQ(kept, "one\ntwo\n");
  char seen[16] = {};
  EXPECT_EQ(read(ends[0], seen, sizeof seen), 4);
  EXPECT_STREQ(seen, "seen");
  close(ends[0]);
  close(ends[1]);
}

TEST(KeptStderrTest, WhatLivesOnCannotPileUpItsStandardError) {
  int late = -1;
  {
    const KeptStderr keeper;
    late = dup(STDERR_FILENO);
  }
  EXPECT_EQ(write(late, "x", 1), -1);
  close(late);
}

TEST(KeptStderrTest, FindsTheLastLine) {
  EXPECT_EQ(LastLine(""), "");
  EXPECT_EQ(LastLine(" \n\n"), "");
  EXPECT_EQ(LastLine("one"), "one");
  EXPECT_EQ(LastLine("one\ntwo\n\n"), "two");
}

class ArgumentsTest : public testing::Test {
 protected:
  static Arguments Parse(const std::vector<std::string>& words, const Command& command = kBind) {
    bool help = false;
    return ParseArguments(command, words, help);
  }
  static std::string Refusal(const std::vector<std::string>& words,
                             const Command& command = kBind) {
    try {
      Parse(words, command);
    } catch (const UsageError& error) {
      return error.message;
    }
    return "none";
  }
};

TEST_F(ArgumentsTest, TakesOptionsAndOperandsInAnyOrder) {
  const Arguments arguments = Parse({"--package", "--service=smtp", "abc", "--subscriber", "mail",
                                     "--display-name", "", "--owner", "root", "--json"});
  EXPECT_THAT(arguments.operands, ElementsAre("abc"));
  EXPECT_EQ(arguments.Text("service"), "smtp");
  EXPECT_EQ(arguments.Text("subscriber"), "mail");
  EXPECT_TRUE(arguments.Has("display-name"));
  EXPECT_TRUE(arguments.Has("package"));
  EXPECT_TRUE(arguments.json);
  EXPECT_EQ(arguments.Text("nothing"), "");
}

TEST_F(ArgumentsTest, SaysWhatIsWrong) {
  EXPECT_EQ(Refusal({}), "missing ID");
  EXPECT_EQ(Refusal({"a", "b"}), "too many arguments");
  EXPECT_EQ(Refusal({"a", "--subscriber", "s"}), "missing --service N");
  EXPECT_EQ(Refusal({"a", "--frob"}), "unknown option --frob");
  EXPECT_EQ(Refusal({"a", "-x"}), "unknown option -x");
  EXPECT_EQ(Refusal({"a", "--owner"}), "missing value of --owner");
  EXPECT_EQ(Refusal({"x"}, kList), "too many arguments");
}

const Command kWithLetters = {"try",
                              "",
                              0,
                              9,
                              {{"domain", "NAME", false, "a name", 'd'},
                               {"quick", nullptr, false, "at once", 'q'},
                               {"dry", nullptr, false, "not at all"}},
                              "Try it",
                              nullptr};

TEST_F(ArgumentsTest, TakesLettersForOptions) {
  const Arguments arguments = Parse({"-d", "a", "-qdb", "x", "--domain", "c", "-dd"}, kWithLetters);
  EXPECT_THAT(arguments.options.at("domain"), ElementsAre("a", "b", "c", "d"));
  EXPECT_EQ(arguments.Text("domain"), "d");
  EXPECT_TRUE(arguments.Has("quick"));
  EXPECT_FALSE(arguments.Has("dry"));
  EXPECT_THAT(arguments.operands, ElementsAre("x"));
}

TEST_F(ArgumentsTest, SaysWhatIsWrongWithLetters) {
  EXPECT_EQ(Refusal({"-d"}, kWithLetters), "missing value of -d");
  EXPECT_EQ(Refusal({"-z"}, kWithLetters), "unknown option -z");
  EXPECT_EQ(Refusal({"-qz"}, kWithLetters), "unknown option -z");
  EXPECT_EQ(Refusal({"-d"}, kBind), "unknown option -d");
}

TEST_F(ArgumentsTest, ShowsLettersBesideTheirOptions) {
  EXPECT_THAT(Usage(kWithLetters), HasSubstr("\n  --domain NAME               a name (-d)\n"));
  EXPECT_THAT(Usage(kWithLetters), HasSubstr("\n  --dry                       not at all\n"));
  EXPECT_THAT(Usage(kWithLetters), HasSubstr("try [--domain NAME] [--quick] [--dry] [--json]"));
}

TEST_F(ArgumentsTest, HelpAsksForNothingElse) {
  bool help = false;
  ParseArguments(kBind, {"--help"}, help);
  EXPECT_TRUE(help);
  ParseArguments(kBind, {"-h", "a", "b"}, help);
  EXPECT_TRUE(help);
}

TEST_F(ArgumentsTest, TwoDashesEndTheOptions) {
  EXPECT_THAT(Parse({"--", "--json"}, kDeploy).operands, ElementsAre("--json"));
}

TEST_F(ArgumentsTest, EveryCommandIsInTheUsageText) {
  for (const Command* command : Commands()) {
    EXPECT_THAT(Usage(), HasSubstr(std::string("\n  ") + command->word + " "));
    EXPECT_THAT(Usage(*command), HasSubstr("--json"));
    for (const OptionRule& rule : command->options) {
      EXPECT_THAT(Usage(*command), HasSubstr(std::string("--") + rule.name));
    }
  }
}

class FactsTest : public test::ArchiveTest {
 protected:
  static constexpr std::int64_t kDay = 86400;

  static CertificateFacts Facts(long expires_in) {
    test::Write("/usr/kova/c.pem", test::MakePemPair(expires_in, "Let's Encrypt").certificate);
    return ReadFacts("/usr/kova/c.pem", {false, 30}, std::time(nullptr));
  }
};

TEST_F(FactsTest, TellsTheStateOfACertificate) {
  EXPECT_EQ(Facts(31 * kDay).state, State::kValid);
  EXPECT_EQ(Facts(30 * kDay - 60).state, State::kDue);
  EXPECT_EQ(Facts(60).state, State::kDue);
  EXPECT_EQ(Facts(-60).state, State::kExpired);
  EXPECT_EQ(Facts(60).issuer, "Let's Encrypt");
  EXPECT_THAT(Facts(60).names, IsEmpty());
}

TEST_F(FactsTest, CountsWholeDays) {
  CertificateFacts facts;
  facts.not_after = 10 * kDay;
  EXPECT_EQ(DaysLeft(facts, 0), 10);
  EXPECT_EQ(DaysLeft(facts, 1), 9);
  EXPECT_EQ(DaysLeft(facts, 10 * kDay - 1), 0);
  EXPECT_EQ(DaysLeft(facts, 10 * kDay + 1), -1);
  EXPECT_EQ(DateText(0), "1970-01-01");
  EXPECT_EQ(TimeText(1700000000), "2023-11-14T22:13:20Z");
}

TEST_F(FactsTest, CannotReadEverything) {
  test::Write("/usr/kova/c.pem", "nonsense");
  EXPECT_EQ(ReadFacts("/usr/kova/c.pem", {false, 30}, 0).state, State::kUnreadable);
  EXPECT_EQ(ReadFacts("/usr/kova/none", {false, 30}, 0).state, State::kUnreadable);
  EXPECT_THAT(Log(), IsEmpty()) << "looking is not worth a message";
}

TEST_F(FactsTest, FlagsAFolder) {
  const std::string folder = test::Folder("abc");
  EXPECT_THAT(FolderFlags(folder), ElementsAre("incomplete"));
  AddFolder("abc");
  EXPECT_THAT(FolderFlags(folder), IsEmpty());
  test::Write(folder + "/renew.json", "{}");
  test::Write(folder + "/is_default_cert", "");
  for (const char* other :
       {"{}", "[]", "broken", R"({"is_broken": "true"})", R"({"is_broken": false})"}) {
    test::Write(folder + "/cert_info", other);
    EXPECT_THAT(FolderFlags(folder), ElementsAre("acme", "self-signed")) << other;
  }
  test::Write(folder + "/cert_info", R"({"is_broken": true})");
  EXPECT_THAT(FolderFlags(folder), ElementsAre("acme", "broken", "self-signed"));
}

}  // namespace
}  // namespace kova::archive_cli
