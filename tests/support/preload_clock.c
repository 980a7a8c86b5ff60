/* Preloaded into a program under test: waits return at once, and the monotonic clock moves on by
 * what was waited, so that deadlines are met as if time had passed. Every wait appends its length
 * in seconds ("2", "0.02") as one line to the file named by KOVA_SLEEP_LOG, when that is set.
 *
 * KOVA_WAIT_DIVISOR, a number: that part of each wait is really waited, for a server that works in
 * its own time.
 *
 * KOVA_WALL_CLOCK, seconds since the epoch, is what time(2) says when it is set.
 *
 * KOVA_HANGING_POLL, milliseconds: a poll(2) that may take longer takes only that long, and then as
 * if all of its time had passed. For a child that is not going to end by itself.
 *
 * KOVA_TORN_WRITE, a number of bytes: the program is killed in the middle of the first write of
 * more than that to a file, after those bytes. The file may have no name yet, so KOVA_TORN_REPORT
 * names another that is told what it was: its mode, its links, and the bytes.
 *
 * KOVA_PEAK_LOG names a file to which each of our own programs that ends by itself appends the most
 * memory that it had, in KiB.
 *
 * Child programs inherit the preload and the log: a hook script's sleep counts, too. */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#define NANOSECONDS 1000000000LL

static atomic_llong waited; /* nanoseconds */

static int moves_on(clockid_t clock) {
  return clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_COARSE || clock == CLOCK_BOOTTIME;
}

static long long in_nanoseconds(const struct timespec* time) {
  return time->tv_sec * NANOSECONDS + time->tv_nsec;
}

/* "1.500000000" becomes "1.5", "2.000000000" becomes "2". */
static void drop_trailing_zeros(char* number) {
  char* end = number + strlen(number);
  while (end[-1] == '0') *--end = '\0';
  if (end[-1] == '.') *--end = '\0';
}

static void record(long long nanoseconds) {
  const char* path = getenv("KOVA_SLEEP_LOG");
  if (path == NULL) return;
  char line[40];
  snprintf(line, sizeof line - 1, "%lld.%09lld", nanoseconds / NANOSECONDS,
           nanoseconds % NANOSECONDS);
  drop_trailing_zeros(line);
  strcat(line, "\n");
  int log = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
  if (log < 0 || write(log, line, strlen(line)) < 0) {
    fprintf(stderr, "preload_clock: cannot write to %s: %s\n", path, strerror(errno));
    abort();
  }
  close(log);
}

static void really_wait(long long nanoseconds) {
  const char* divisor = getenv("KOVA_WAIT_DIVISOR");
  if (divisor == NULL || atoi(divisor) <= 0) return;
  const long long part = nanoseconds / atoi(divisor);
  const struct timespec time = {part / NANOSECONDS, part % NANOSECONDS};
  syscall(SYS_clock_nanosleep, CLOCK_MONOTONIC, 0, &time, NULL);
}

static void pass(long long nanoseconds) {
  if (nanoseconds < 0) nanoseconds = 0;
  int saved = errno;
  record(nanoseconds);
  really_wait(nanoseconds);
  atomic_fetch_add(&waited, nanoseconds);
  errno = saved;
}

int clock_gettime(clockid_t clock, struct timespec* time) {
  if (syscall(SYS_clock_gettime, clock, time) != 0) return -1;
  if (moves_on(clock)) {
    long long now = in_nanoseconds(time) + atomic_load(&waited);
    time->tv_sec = now / NANOSECONDS;
    time->tv_nsec = now % NANOSECONDS;
  }
  return 0;
}

time_t time(time_t* result) {
  const char* told = getenv("KOVA_WALL_CLOCK");
  struct timespec now;
  syscall(SYS_clock_gettime, CLOCK_REALTIME, &now);
  time_t seconds = told == NULL ? now.tv_sec : (time_t)atoll(told);
  if (result != NULL) *result = seconds;
  return seconds;
}

/* "VmHWM:     5432 kB" of this process; 0 when it cannot be read. It counts from the exec on. */
static long peak_memory(void) {
  FILE* status = fopen("/proc/self/status", "re");
  if (status == NULL) return 0;
  char line[128];
  long peak = 0;
  while (peak == 0 && fgets(line, sizeof line, status) != NULL) {
    if (sscanf(line, "VmHWM: %ld", &peak) != 1) peak = 0;
  }
  fclose(status);
  return peak;
}

__attribute__((destructor)) static void report_peak(void) {
  const char* path = getenv("KOVA_PEAK_LOG");
  if (path == NULL || strncmp(program_invocation_short_name, "kova-", 5) != 0) return;
  int log = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
  if (log < 0) return; /* a test may have left it without descriptors */
  signal(SIGXFSZ, SIG_IGN); /* or without room */
  char line[40];
  const int length = snprintf(line, sizeof line, "%ld\n", peak_memory());
  syscall(SYS_write, log, line, (size_t)length);
  close(log);
}

static void report_torn(const struct stat* status, const void* bytes, size_t count) {
  const char* path = getenv("KOVA_TORN_REPORT");
  char line[64];
  int length = snprintf(line, sizeof line, "%o %lu\n", (unsigned)(status->st_mode & 07777),
                        (unsigned long)status->st_nlink);
  int report = path == NULL ? -1 : open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (report < 0) return;
  syscall(SYS_write, report, line, (size_t)length);
  syscall(SYS_write, report, bytes, count);
}

ssize_t write(int fd, const void* bytes, size_t count) {
  const char* torn = getenv("KOVA_TORN_WRITE");
  struct stat status;
  if (torn != NULL && count > strtoul(torn, NULL, 10) && fstat(fd, &status) == 0 &&
      S_ISREG(status.st_mode)) {
    syscall(SYS_write, fd, bytes, strtoul(torn, NULL, 10));
    report_torn(&status, bytes, strtoul(torn, NULL, 10));
    kill(getpid(), SIGKILL);
  }
  return syscall(SYS_write, fd, bytes, count);
}

unsigned int sleep(unsigned int seconds) {
  pass(seconds * NANOSECONDS);
  return 0;
}

int usleep(useconds_t microseconds) {
  pass(microseconds * 1000LL);
  return 0;
}

/* The one wait of the programs under test that a descriptor can end: what is ready comes first. */
int ppoll(struct pollfd* fds, nfds_t count, const struct timespec* timeout, const sigset_t* mask) {
  if (count > 1 || timeout == NULL || mask != NULL) {
    return (int)syscall(SYS_ppoll, fds, count, timeout, mask, _NSIG / 8);
  }
  const struct timespec at_once = {0, 0};
  struct timespec copy = at_once; /* the kernel writes to it */
  int ready = (int)syscall(SYS_ppoll, fds, count, &copy, NULL, 0);
  if (ready == 0) pass(in_nanoseconds(timeout));
  return ready;
}

int poll(struct pollfd* fds, nfds_t count, int timeout) {
  const char* text = getenv("KOVA_HANGING_POLL");
  int most = text == NULL ? -1 : atoi(text);
  if (most < 0 || timeout <= most) return (int)syscall(SYS_poll, fds, count, timeout);
  int ready = (int)syscall(SYS_poll, fds, count, most);
  if (ready == 0) pass(timeout * 1000000LL);
  return ready;
}

static int is_valid(const struct timespec* time) {
  return time->tv_sec >= 0 && time->tv_nsec >= 0 && time->tv_nsec < NANOSECONDS;
}

int nanosleep(const struct timespec* request, struct timespec* remaining) {
  (void)remaining; /* only written after a signal */
  if (!is_valid(request)) {
    errno = EINVAL;
    return -1;
  }
  pass(in_nanoseconds(request));
  return 0;
}

int clock_nanosleep(clockid_t clock, int flags, const struct timespec* request,
                    struct timespec* remaining) {
  (void)remaining;
  if (!is_valid(request)) return EINVAL;
  long long duration = in_nanoseconds(request);
  if (flags & TIMER_ABSTIME) {
    struct timespec now;
    if (clock_gettime(clock, &now) != 0) return errno;
    duration -= in_nanoseconds(&now);
  }
  pass(duration);
  return 0;
}
