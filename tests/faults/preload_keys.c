/* Preloaded into the programs of a sweep or under valgrind: RSA keys of 2048 bits are not made but
 * read in turn from the files that are named 0, 1, 2, ... in the folder KOVA_KEY_POOL, which has
 * KOVA_KEY_COUNT of them (16). Its file "next" holds the number of the next one, shared by all
 * processes, so that keys in a row differ.
 *
 * Not linked with the library of these functions: most programs that get this have none. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <openssl/evp.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

enum { BITS = 2048, KEYS = 16 };

typedef EVP_PKEY* Generate(OSSL_LIB_CTX*, const char*, const char*, ...);
typedef int GenerateIn(EVP_PKEY_CTX*, EVP_PKEY**);
typedef int IsA(const EVP_PKEY_CTX*, const char*);
typedef EVP_PKEY* Read(FILE*, EVP_PKEY**, void*, void*);

static unsigned next_number(const char* folder) {
  char path[256];
  snprintf(path, sizeof path, "%s/next", folder);
  int file = open(path, O_RDWR | O_CLOEXEC);
  if (file < 0) abort();
  void* page = mmap(NULL, sizeof(atomic_uint), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  if (page == MAP_FAILED) abort();
  close(file);
  unsigned number = atomic_fetch_add((atomic_uint*)page, 1);
  munmap(page, sizeof(atomic_uint));
  const char* count = getenv("KOVA_KEY_COUNT");
  return number % (count != NULL ? (unsigned)atoi(count) : KEYS);
}

static EVP_PKEY* pooled_key(const char* folder) {
  char path[256];
  snprintf(path, sizeof path, "%s/%u", folder, next_number(folder));
  FILE* file = fopen(path, "re");
  if (file == NULL) abort();
  Read* read_key = (Read*)dlsym(RTLD_DEFAULT, "PEM_read_PrivateKey");
  EVP_PKEY* key = read_key(file, NULL, NULL, NULL);
  fclose(file);
  return key;
}

EVP_PKEY* EVP_PKEY_Q_keygen(OSSL_LIB_CTX* context, const char* properties, const char* type, ...) {
  Generate* make = (Generate*)dlsym(RTLD_NEXT, "EVP_PKEY_Q_keygen");
  const char* folder = getenv("KOVA_KEY_POOL");
  va_list args;
  va_start(args, type);
  EVP_PKEY* key;
  if (strcmp(type, "RSA") == 0) {
    size_t bits = va_arg(args, size_t);
    key =
        folder != NULL && bits == BITS ? pooled_key(folder) : make(context, properties, type, bits);
  } else if (strcmp(type, "EC") == 0) {
    key = make(context, properties, type, va_arg(args, const char*));
  } else {
    key = make(context, properties, type);
  }
  va_end(args);
  return key;
}

/* The openssl tool's way; the product asks it for keys of 2048 bits alone. */
int EVP_PKEY_keygen(EVP_PKEY_CTX* context, EVP_PKEY** key) {
  GenerateIn* make = (GenerateIn*)dlsym(RTLD_NEXT, "EVP_PKEY_keygen");
  IsA* is_a = (IsA*)dlsym(RTLD_DEFAULT, "EVP_PKEY_CTX_is_a");
  const char* folder = getenv("KOVA_KEY_POOL");
  int is_tool = strcmp(program_invocation_short_name, "openssl") == 0;
  if (folder == NULL || !is_tool || !is_a(context, "RSA")) return make(context, key);
  *key = pooled_key(folder);
  return *key != NULL;
}
