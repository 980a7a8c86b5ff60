// Sees, and can disturb, what the product asks of libcrypto.
#pragma once

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

// Leaves libcrypto without algorithms while the object lives.
class NoAlgorithms {
 public:
  NoAlgorithms();
  ~NoAlgorithms();
  NoAlgorithms(const NoAlgorithms&) = delete;
  NoAlgorithms& operator=(const NoAlgorithms&) = delete;
};

}  // namespace kova::test
