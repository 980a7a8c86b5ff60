// Owners of libcrypto's objects, one alias per type, and the texts that its BIOs collect.
#pragma once

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>
#include <string>

namespace kova {

template <auto F>
struct OpensslFree {
  void operator()(auto* object) const noexcept { F(object); }
};

using BignumPtr = std::unique_ptr<BIGNUM, OpensslFree<BN_clear_free>>;
using BioPtr = std::unique_ptr<BIO, OpensslFree<BIO_free_all>>;
using EvpMdCtxPtr = std::unique_ptr<EVP_MD_CTX, OpensslFree<EVP_MD_CTX_free>>;
using EvpPkeyPtr = std::unique_ptr<EVP_PKEY, OpensslFree<EVP_PKEY_free>>;
using EvpPkeyCtxPtr = std::unique_ptr<EVP_PKEY_CTX, OpensslFree<EVP_PKEY_CTX_free>>;
using X509Ptr = std::unique_ptr<X509, OpensslFree<X509_free>>;
using X509ReqPtr = std::unique_ptr<X509_REQ, OpensslFree<X509_REQ_free>>;

// A BIO that collects what is written to it; none when there is no memory.
BioPtr MemoryBio();

// What a memory BIO has collected.
std::string BioText(BIO& memory);

// The library's pending errors as text, collected in that memory BIO; its queue is empty then.
std::string PendingErrors(BIO& memory);

}  // namespace kova
