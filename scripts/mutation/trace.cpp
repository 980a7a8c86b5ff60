// Linked to the unit tests of the mutants' trees alone: says which functions each test enters,
// those that its child processes enter included.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" char __executable_start;  // NOLINT: the linker's names
extern "C" char etext;

namespace {

constexpr size_t kStep = 16;  // functions begin at multiples of it
unsigned char* entered = nullptr;

size_t Place(const void* function) {
  return static_cast<size_t>(static_cast<const char*>(function) - &__executable_start) / kStep;
}

class Trace : public testing::EmptyTestEventListener {
 public:
  Trace() : size_(Place(&etext) + 1) {
    entered = static_cast<unsigned char*>(
        mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  }

  void OnTestStart(const testing::TestInfo&) override { std::memset(entered, 0, size_); }

  void OnTestEnd(const testing::TestInfo& test) override {
    std::printf("\n[ entered  ] %s.%s", test.test_suite_name(), test.name());
    for (size_t i = 0; i < size_; ++i) {
      if (entered[i] != 0) std::printf(" %zx", i * kStep);
    }
    std::printf("\n");
  }

 private:
  size_t size_;
};

const bool kTraced = [] {
  const bool traced = std::getenv("KOVA_TRACE") != nullptr;
  if (traced) testing::UnitTest::GetInstance()->listeners().Append(new Trace);
  return traced;
}();

}  // namespace

extern "C" void __cyg_profile_func_enter(void* function, void*) {  // NOLINT: the compiler's names
  if (entered != nullptr) entered[Place(function)] = 1;
}
extern "C" void __cyg_profile_func_exit(void*, void*) {}  // NOLINT
