// Runs one command and writes what it cost: "WALL CPU PEAK STATUS" (seconds, seconds with children,
// MiB of the largest process, exit status). A program of its own, and a small one, because a child
// begins with its parent's memory as its peak.
//
// usage: measure RESULT COMMAND [ARG...]
#define _GNU_SOURCE
#include <stdio.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

static double Seconds(struct timeval time) {
  return (double)time.tv_sec + (double)time.tv_usec / 1e6;
}

static double Now(void) {
  struct timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  return (double)time.tv_sec + (double)time.tv_nsec / 1e9;
}

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const double start = Now();
  const pid_t child = fork();
  if (child == 0) {
    execvp(argv[2], argv + 2);
    _exit(127);
  }
  int status = 0;
  struct rusage usage;
  if (child < 0 || wait4(child, &status, 0, &usage) != child) return 1;
  const double wall = Now() - start;
  FILE* result = fopen(argv[1], "w");
  if (result == NULL) return 1;
  fprintf(result, "%.4f %.4f %.2f %d\n", wall, Seconds(usage.ru_utime) + Seconds(usage.ru_stime),
          (double)usage.ru_maxrss / 1024, WIFEXITED(status) ? WEXITSTATUS(status) : 128);
  return fclose(result) == 0 ? 0 : 1;
}
