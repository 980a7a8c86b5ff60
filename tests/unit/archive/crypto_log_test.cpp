#include <openssl/bio.h>
#include <openssl/err.h>

#include "../archive/archive_fixture.h"
#include "archive/utils.h"

// The linker sends the product's calls of BIO_new here.
namespace {
bool bio_fails = false;
}
extern "C" BIO* __real_BIO_new(const BIO_METHOD* method);   // NOLINT
extern "C" BIO* __wrap_BIO_new(const BIO_METHOD* method) {  // NOLINT
  return bio_fails ? nullptr : __real_BIO_new(method);
}

namespace kova::cert_archive {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class CryptoLogTest : public test::ArchiveTest {};

TEST_F(CryptoLogTest, LogsWhatTheLibraryHasToSay) {
  ERR_clear_error();
  ERR_raise(ERR_LIB_USER, ERR_R_MALLOC_FAILURE);
  LogCryptoErrors("cannot 100%s");
  EXPECT_THAT(Log(), ElementsAre(AllOf(StartsWith("utils.cpp:# cannot 100%s ["),
                                       HasSubstr("malloc failure"), EndsWith("]"))));
  EXPECT_EQ(ERR_peek_error(), 0U);
}

TEST_F(CryptoLogTest, LogsAnEmptyQueueToo) {
  ERR_clear_error();
  LogCryptoErrors("nothing");
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# nothing []"));
}

TEST_F(CryptoLogTest, LogsThatItCannotLog) {
  bio_fails = true;
  LogCryptoErrors("lost");
  bio_fails = false;
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Fatal Error. new bio failed."));
}

}  // namespace
}  // namespace kova::cert_archive
