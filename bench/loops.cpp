// The inner loops over growing input. N: all of them are to be linear, and RMS says how well that
// fits. Run in the sandbox: two of them work on the host's own paths.
#include <benchmark/benchmark.h>
#include <json/value.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "acme/issued_folder.h"
#include "archive/index.h"
#include "archive/paths.h"
#include "challenge/challenge.h"
#include "crypto/encoding.h"
#include "crypto/pem.h"
#include "lifecycle/names.h"
#include "net/headers.h"
#include "platform/device.h"
#include "txt_reply.h"

namespace kova {
namespace {

using benchmark::State;

constexpr int64_t kSmallBlock = 1 << 10;
constexpr int64_t kLargeBlock = 1 << 20;

std::string Repeated(const std::string& piece, int64_t length) {
  std::string text;
  while (static_cast<int64_t>(text.size() + piece.size()) <= length) text += piece;
  return text;
}

HttpResponse HeaderBlock(const std::string& line, int64_t length) {
  HttpResponse response;
  response.header = "HTTP/1.1 200 OK\r\n" + Repeated(line, length) + "\r\n";
  return response;
}

void Count(State& state) {
  state.SetComplexityN(state.range(0));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void HeaderThatIsNotThere(State& state) {
  const HttpResponse response =
      HeaderBlock("X-Filler: some value of some length\r\n", state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(GetHeader(response, "Replay-Nonce"));
  Count(state);
}

void LinkBehindManyOthers(State& state) {
  const HttpResponse response =
      HeaderBlock("Link: <https://ca.example/other>;rel=\"index\"\r\n", state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(GetLinkUrl(response, "up"));
  Count(state);
}

std::string Pem(int64_t length) {
  return std::string(kCertificateBegin) + "\n" + Repeated(std::string(64, 'A') + "\n", length) +
         kCertificateEnd + "\n";
}

void PemSplit(State& state) {
  const std::string chain = Repeated(Pem(1800), state.range(0)) + Pem(1800) + Pem(1800);
  for (auto _ : state) benchmark::DoNotOptimize(SplitChain(chain));
  Count(state);
}

void Base64Url(State& state) {
  const std::string bytes(static_cast<size_t>(state.range(0)), '\xa5');
  for (auto _ : state) benchmark::DoNotOptimize(Base64UrlEncode(bytes));
  Count(state);
}

void PemToBase64UrlText(State& state) {
  const std::string pem = Pem(state.range(0));
  for (auto _ : state) {
    benchmark::DoNotOptimize(PemToBase64Url(pem, kCertificateBegin, kCertificateEnd));
  }
  Count(state);
}

void DomainList(State& state) {
  const std::string names = Repeated(" www.host.example ;", state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(SplitDomainList(names));
  Count(state);
}

Json::Value IndexOf(int64_t certificates) {
  Json::Value info(Json::objectValue);
  for (int64_t i = 0; i < certificates; ++i) {
    Json::Value& entry = info["c" + std::to_string(i)];
    entry["desc"] = "a certificate";
    entry["services"] = Json::Value(Json::arrayValue);
  }
  return info;
}

// Lock, read, change, write, flush, rename.
void IndexRewrite(State& state) {
  using namespace cert_archive;
  std::filesystem::create_directories(std::filesystem::path(kIndexPath).parent_path());
  std::ofstream(kIndexPath) << IndexOf(state.range(0)).toStyledString();
  for (auto _ : state) {
    const Status done = EditIndex(kUpdateTimeout, [](Json::Value& info) {
      info["c0"]["desc"] = "another text";
      return IndexEdit::kWrite;
    });
    if (!done) state.SkipWithError("the index cannot be rewritten");
  }
  state.SetComplexityN(state.range(0));
}

// The looked-for value is the last one of the answer.
void TxtAnswer(State& state) {
  std::filesystem::create_directories("/usr/kova/etc");
  std::ofstream(platform::kDeviceRecordPath) << R"({"ddns_name_server": "127.0.0.1"})";
  std::filesystem::permissions(platform::kDeviceRecordPath, std::filesystem::perms::owner_read);
  bench::AnswerTxtQueries("host.example", static_cast<int>(state.range(0)), "the last one");
  for (auto _ : state) {
    if (!CheckTxtRecord("host.example", "the last one")) state.SkipWithError("not found");
  }
  state.SetComplexityN(state.range(0));
}

BENCHMARK(HeaderThatIsNotThere)
    ->RangeMultiplier(4)
    ->Range(kSmallBlock, kLargeBlock)
    ->Complexity(benchmark::oN);
BENCHMARK(LinkBehindManyOthers)
    ->RangeMultiplier(4)
    ->Range(kSmallBlock, kLargeBlock)
    ->Complexity(benchmark::oN);
BENCHMARK(PemSplit)->RangeMultiplier(4)->Range(kSmallBlock, kLargeBlock)->Complexity(benchmark::oN);
BENCHMARK(Base64Url)
    ->RangeMultiplier(4)
    ->Range(kSmallBlock, kLargeBlock)
    ->Complexity(benchmark::oN);
BENCHMARK(PemToBase64UrlText)
    ->RangeMultiplier(4)
    ->Range(kSmallBlock, kLargeBlock)
    ->Complexity(benchmark::oN);
BENCHMARK(DomainList)
    ->RangeMultiplier(4)
    ->Range(kSmallBlock, kLargeBlock)
    ->Complexity(benchmark::oN);
BENCHMARK(IndexRewrite)
    ->RangeMultiplier(10)
    ->Range(10, 10000)
    ->Complexity(benchmark::oN)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(TxtAnswer)->RangeMultiplier(2)->Range(1, 64)->Complexity(benchmark::oN);

}  // namespace
}  // namespace kova

BENCHMARK_MAIN();
