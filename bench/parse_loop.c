// The least that anyone can do with an archive: reads and parses each folder's cert.pem, and prints
// how many there were.
//
// usage: parse_loop ARCHIVE
#include <dirent.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <stdio.h>

int main(int argc, char** argv) {
  DIR* archive = argc == 2 ? opendir(argv[1]) : NULL;
  if (archive == NULL) return 2;
  int count = 0;
  for (const struct dirent* entry = readdir(archive); entry != NULL; entry = readdir(archive)) {
    char path[4096];
    snprintf(path, sizeof path, "%s/%s/cert.pem", argv[1], entry->d_name);
    FILE* file = fopen(path, "r");
    if (file == NULL) continue;
    X509* certificate = PEM_read_X509(file, NULL, NULL, NULL);
    if (certificate != NULL) ++count;
    X509_free(certificate);
    fclose(file);
  }
  closedir(archive);
  printf("%d\n", count);
  return 0;
}
