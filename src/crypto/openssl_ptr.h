// Owners of libcrypto's objects, one alias per type.
#pragma once

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>

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

}  // namespace kova
