// Sees, and can disturb, what the product asks of libcrypto.
#pragma once

#include <malloc.h>

#include <string>
#include <vector>

namespace kova::test {

// Collects the bytes that the product overwrites while the object lives.
class CleansedBytes {
 public:
  CleansedBytes();
  ~CleansedBytes();
  CleansedBytes(const CleansedBytes&) = delete;
  CleansedBytes& operator=(const CleansedBytes&) = delete;

  // True when a buffer that began with these bytes was overwritten.
  [[nodiscard]] bool Include(const std::string& bytes) const;
};

// Makes PEM output of requests fail while the object lives.
class RequestOutputFails {
 public:
  RequestOutputFails();
  ~RequestOutputFails();
  RequestOutputFails(const RequestOutputFails&) = delete;
  RequestOutputFails& operator=(const RequestOutputFails&) = delete;
};

// No key can be made while the object lives.
class NoKeys {
 public:
  NoKeys();
  ~NoKeys();
  NoKeys(const NoKeys&) = delete;
  NoKeys& operator=(const NoKeys&) = delete;
};

// Makes PEM output of keys on curves fail while the object lives.
class KeyOutputFails {
 public:
  KeyOutputFails();
  ~KeyOutputFails();
  KeyOutputFails(const KeyOutputFails&) = delete;
  KeyOutputFails& operator=(const KeyOutputFails&) = delete;
};

// Makes signatures of requests fail while the object lives.
class RequestSignatureFails {
 public:
  RequestSignatureFails();
  ~RequestSignatureFails();
  RequestSignatureFails(const RequestSignatureFails&) = delete;
  RequestSignatureFails& operator=(const RequestSignatureFails&) = delete;
};

// The bytes that a hundred calls leave allocated, after one that may fill caches.
template <typename Call>
size_t Leaked(const Call& call) {
  call();
  const size_t before = mallinfo2().uordblks;
  for (int i = 0; i < 100; ++i) call();
  const size_t after = mallinfo2().uordblks;
  return after > before ? after - before : 0;
}

// Leaves libcrypto without algorithms while the object lives.
class NoAlgorithms {
 public:
  NoAlgorithms();
  ~NoAlgorithms();
  NoAlgorithms(const NoAlgorithms&) = delete;
  NoAlgorithms& operator=(const NoAlgorithms&) = delete;
};

}  // namespace kova::test
