/*
 * An LD_PRELOAD library that makes one chosen system call of a program fail, for testing what the
 * library does when the disk fills, a device errs, permission goes away or descriptors run out.
 *
 * It wraps the calls below and counts those that concern the folders under test. The call counted
 * ZT_FAULT_AT (1 for the first) fails with ZT_FAULT_ERRNO and does nothing; every other call goes
 * through to the C library unchanged. A driver runs a scenario once with ZT_FAULT_AT=0 to learn how
 * many calls it makes (ZT_FAULT_REPORT), then once for each call number: every call site the
 * scenario passes fails once, in turn.
 *
 * Environment (read once, at load):
 *   ZT_FAULT_SCOPE   folders whose paths count, separated by ":" (absolute paths). Path calls
 *                    count when a path argument lies inside one; descriptor calls (write, fsync,
 *                    copy_file_range) count when the descriptor was opened by a counted open; a
 *                    relative path counts when the descriptor it is relative to was. Socket calls
 *                    always count. Unset: every call counts.
 *   ZT_FAULT_CALLS   families that count, separated by ",": open write fsync rename
 *                    copy_file_range inotify_add_watch socket (default: all).
 *   ZT_FAULT_AT      the call number to fail; 0 or unset: none fails.
 *   ZT_FAULT_STICKY  "1": every counted call from ZT_FAULT_AT on fails (a disk that stays full).
 *   ZT_FAULT_ERRNO   ENOSPC, EIO, EACCES or EMFILE (default EIO).
 *   ZT_FAULT_REPORT  a file written at exit: "calls <n>" and, when a call failed, "failed <n>
 *                    <family> <path or descriptor>".
 *   ZT_FAULT_TRACE   "1": one line per counted call on standard error.
 *
 * A program arms and disarms counting with zt_fault_arm() (looked up with dlsym, so the program
 * runs without the library too); it starts armed unless ZT_FAULT_START_DISARMED=1, so a scenario
 * can prepare its files and check its promises without those calls counting.
 *
 * What it does not see: calls the C library makes to itself (fopen and iostreams open files
 * through internal entry points; mkstemp and its kin are wrapped) and raw syscall(2).
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

#define ZT_EXPORT __attribute__((visibility("default")))

enum family {
  FAMILY_OPEN = 1 << 0,
  FAMILY_WRITE = 1 << 1,
  FAMILY_FSYNC = 1 << 2,
  FAMILY_RENAME = 1 << 3,
  FAMILY_COPY = 1 << 4,
  FAMILY_INOTIFY = 1 << 5,
  FAMILY_SOCKET = 1 << 6,
};

static const struct {
  const char* name;
  int family;
} kFamilies[] = {{"open", FAMILY_OPEN},   {"write", FAMILY_WRITE},
                 {"fsync", FAMILY_FSYNC}, {"rename", FAMILY_RENAME},
                 {"copy_file_range", FAMILY_COPY}, {"inotify_add_watch", FAMILY_INOTIFY},
                 {"socket", FAMILY_SOCKET}};

#define MAX_SCOPES 8
#define MAX_TRACKED_FDS 65536

static char scopes[MAX_SCOPES][PATH_MAX];
static size_t scopeCount;
static int scoped;
static int families = ~0;
static long failAt;
static int sticky;
static int failErrno = EIO;
static int trace;
static char reportPath[PATH_MAX];

static atomic_int armed = 1;
static atomic_long calls;
static atomic_long failedCall;
static char failedWhat[PATH_MAX + 64];
static _Atomic unsigned char trackedFds[MAX_TRACKED_FDS];

static const char* familyName(int family) {
  for (size_t i = 0; i < sizeof kFamilies / sizeof kFamilies[0]; ++i) {
    if (kFamilies[i].family == family) return kFamilies[i].name;
  }
  return "?";
}

static void writeReport(void) {
  if (reportPath[0] == '\0') return;
  FILE* file = fopen(reportPath, "w");
  if (file == NULL) return;
  fprintf(file, "calls %ld\n", atomic_load(&calls));
  if (atomic_load(&failedCall) != 0) fprintf(file, "failed %ld %s\n", atomic_load(&failedCall), failedWhat);
  fclose(file);
}

__attribute__((constructor)) static void configure(void) {
  const char* value = getenv("ZT_FAULT_SCOPE");
  if (value != NULL && value[0] != '\0') {
    scoped = 1;
    const char* start = value;
    while (*start != '\0' && scopeCount < MAX_SCOPES) {
      const char* end = strchr(start, ':');
      size_t length = end != NULL ? (size_t)(end - start) : strlen(start);
      while (length > 1 && start[length - 1] == '/') --length;
      if (length > 0 && length < PATH_MAX) {
        memcpy(scopes[scopeCount], start, length);
        scopes[scopeCount][length] = '\0';
        ++scopeCount;
      }
      if (end == NULL) break;
      start = end + 1;
    }
  }
  value = getenv("ZT_FAULT_CALLS");
  if (value != NULL && value[0] != '\0') {
    families = 0;
    for (size_t i = 0; i < sizeof kFamilies / sizeof kFamilies[0]; ++i) {
      const char* found = strstr(value, kFamilies[i].name);
      while (found != NULL) {
        size_t length = strlen(kFamilies[i].name);
        int startsWord = found == value || found[-1] == ',';
        int endsWord = found[length] == '\0' || found[length] == ',';
        if (startsWord && endsWord) {
          families |= kFamilies[i].family;
          break;
        }
        found = strstr(found + 1, kFamilies[i].name);
      }
    }
  }
  value = getenv("ZT_FAULT_AT");
  if (value != NULL) failAt = strtol(value, NULL, 10);
  value = getenv("ZT_FAULT_STICKY");
  sticky = value != NULL && strcmp(value, "1") == 0;
  value = getenv("ZT_FAULT_ERRNO");
  if (value != NULL) {
    if (strcmp(value, "ENOSPC") == 0) failErrno = ENOSPC;
    else if (strcmp(value, "EACCES") == 0) failErrno = EACCES;
    else if (strcmp(value, "EMFILE") == 0) failErrno = EMFILE;
    else failErrno = EIO;
  }
  value = getenv("ZT_FAULT_TRACE");
  trace = value != NULL && strcmp(value, "1") == 0;
  value = getenv("ZT_FAULT_REPORT");
  if (value != NULL && strlen(value) < PATH_MAX) strcpy(reportPath, value);
  value = getenv("ZT_FAULT_START_DISARMED");
  if (value != NULL && strcmp(value, "1") == 0) atomic_store(&armed, 0);
  atexit(writeReport);
}

ZT_EXPORT void zt_fault_arm(int on) { atomic_store(&armed, on != 0); }
ZT_EXPORT long zt_fault_calls(void) { return atomic_load(&calls); }

static int pathInScope(const char* path) {
  if (!scoped) return 1;
  if (path == NULL) return 0;
  for (size_t i = 0; i < scopeCount; ++i) {
    size_t length = strlen(scopes[i]);
    if (strncmp(path, scopes[i], length) == 0 && (path[length] == '\0' || path[length] == '/')) return 1;
  }
  return 0;
}

static int fdTracked(int fd) {
  if (!scoped) return 1;
  return fd >= 0 && fd < MAX_TRACKED_FDS && atomic_load(&trackedFds[fd]) != 0;
}

static void setTracked(int fd, int on) {
  if (fd >= 0 && fd < MAX_TRACKED_FDS) atomic_store(&trackedFds[fd], (unsigned char)(on != 0));
}

static int atPathInScope(int dirfd, const char* path) {
  if (path != NULL && path[0] == '/') return pathInScope(path);
  if (dirfd == AT_FDCWD) {
    char cwd[PATH_MAX];
    return getcwd(cwd, sizeof cwd) != NULL && pathInScope(cwd);
  }
  return fdTracked(dirfd);
}

/* Counts the call when it concerns the scope and its family counts; true when it is to fail. */
static int shouldFail(int family, int concernsScope, const char* what, int fd) {
  if ((families & family) == 0 || !concernsScope || !atomic_load(&armed)) return 0;
  long number = atomic_fetch_add(&calls, 1) + 1;
  int fail = failAt > 0 && (number == failAt || (sticky && number > failAt));
  if (trace) {
    if (what != NULL) fprintf(stderr, "zt-fault: %ld %s %s%s\n", number, familyName(family), what, fail ? " FAIL" : "");
    else fprintf(stderr, "zt-fault: %ld %s fd %d%s\n", number, familyName(family), fd, fail ? " FAIL" : "");
  }
  if (fail && atomic_load(&failedCall) == 0) {
    atomic_store(&failedCall, number);
    if (what != NULL) snprintf(failedWhat, sizeof failedWhat, "%s %s", familyName(family), what);
    else snprintf(failedWhat, sizeof failedWhat, "%s fd %d", familyName(family), fd);
  }
  return fail;
}

/* The C library's own function, looked up once (the same answer in every thread). */
#define REAL(name)                              \
  static __typeof__(&name) real_##name;         \
  if (real_##name == NULL) real_##name = (__typeof__(&name))dlsym(RTLD_NEXT, #name)

#define FAIL_WITH(value) \
  do {                   \
    errno = failErrno;   \
    return value;        \
  } while (0)

/* ---- open ---- */

static int openedPath(int fd, int concernsScope) {
  if (fd >= 0) setTracked(fd, concernsScope);
  return fd;
}

static mode_t modeArgument(int flags, va_list arguments) {
  return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE ? (mode_t)va_arg(arguments, int) : 0;
}

ZT_EXPORT int open(const char* path, int flags, ...) {
  REAL(open);
  va_list arguments;
  va_start(arguments, flags);
  mode_t mode = modeArgument(flags, arguments);
  va_end(arguments);
  int inScope = atPathInScope(AT_FDCWD, path);
  if (shouldFail(FAMILY_OPEN, inScope, path, -1)) FAIL_WITH(-1);
  return openedPath(real_open(path, flags, mode), inScope);
}

ZT_EXPORT int open64(const char* path, int flags, ...) {
  REAL(open64);
  va_list arguments;
  va_start(arguments, flags);
  mode_t mode = modeArgument(flags, arguments);
  va_end(arguments);
  int inScope = atPathInScope(AT_FDCWD, path);
  if (shouldFail(FAMILY_OPEN, inScope, path, -1)) FAIL_WITH(-1);
  return openedPath(real_open64(path, flags, mode), inScope);
}

ZT_EXPORT int openat(int dirfd, const char* path, int flags, ...) {
  REAL(openat);
  va_list arguments;
  va_start(arguments, flags);
  mode_t mode = modeArgument(flags, arguments);
  va_end(arguments);
  int inScope = atPathInScope(dirfd, path);
  if (shouldFail(FAMILY_OPEN, inScope, path, -1)) FAIL_WITH(-1);
  return openedPath(real_openat(dirfd, path, flags, mode), inScope);
}

ZT_EXPORT int openat64(int dirfd, const char* path, int flags, ...) {
  REAL(openat64);
  va_list arguments;
  va_start(arguments, flags);
  mode_t mode = modeArgument(flags, arguments);
  va_end(arguments);
  int inScope = atPathInScope(dirfd, path);
  if (shouldFail(FAMILY_OPEN, inScope, path, -1)) FAIL_WITH(-1);
  return openedPath(real_openat64(dirfd, path, flags, mode), inScope);
}

ZT_EXPORT int creat(const char* path, mode_t mode) { return open(path, O_CREAT | O_WRONLY | O_TRUNC, mode); }
ZT_EXPORT int creat64(const char* path, mode_t mode) { return open64(path, O_CREAT | O_WRONLY | O_TRUNC, mode); }

/* Temporary files: the C library opens them through its own entry point, so they are counted here
   as opens of the template's folder. */
ZT_EXPORT int mkstemp(char* pathTemplate) {
  REAL(mkstemp);
  int inScope = atPathInScope(AT_FDCWD, pathTemplate);
  if (shouldFail(FAMILY_OPEN, inScope, pathTemplate, -1)) FAIL_WITH(-1);
  return openedPath(real_mkstemp(pathTemplate), inScope);
}

ZT_EXPORT int mkostemp(char* pathTemplate, int flags) {
  REAL(mkostemp);
  int inScope = atPathInScope(AT_FDCWD, pathTemplate);
  if (shouldFail(FAMILY_OPEN, inScope, pathTemplate, -1)) FAIL_WITH(-1);
  return openedPath(real_mkostemp(pathTemplate, flags), inScope);
}

ZT_EXPORT int mkstemps(char* pathTemplate, int suffixLength) {
  REAL(mkstemps);
  int inScope = atPathInScope(AT_FDCWD, pathTemplate);
  if (shouldFail(FAMILY_OPEN, inScope, pathTemplate, -1)) FAIL_WITH(-1);
  return openedPath(real_mkstemps(pathTemplate, suffixLength), inScope);
}

ZT_EXPORT int mkostemps(char* pathTemplate, int suffixLength, int flags) {
  REAL(mkostemps);
  int inScope = atPathInScope(AT_FDCWD, pathTemplate);
  if (shouldFail(FAMILY_OPEN, inScope, pathTemplate, -1)) FAIL_WITH(-1);
  return openedPath(real_mkostemps(pathTemplate, suffixLength, flags), inScope);
}

ZT_EXPORT int close(int fd) {
  REAL(close);
  setTracked(fd, 0);
  return real_close(fd);
}

/* ---- write ---- */

ZT_EXPORT ssize_t write(int fd, const void* buffer, size_t count) {
  REAL(write);
  if (shouldFail(FAMILY_WRITE, fdTracked(fd) && fd > 2, NULL, fd)) FAIL_WITH(-1);
  return real_write(fd, buffer, count);
}

ZT_EXPORT ssize_t pwrite(int fd, const void* buffer, size_t count, off_t offset) {
  REAL(pwrite);
  if (shouldFail(FAMILY_WRITE, fdTracked(fd) && fd > 2, NULL, fd)) FAIL_WITH(-1);
  return real_pwrite(fd, buffer, count, offset);
}

ZT_EXPORT ssize_t pwrite64(int fd, const void* buffer, size_t count, off_t offset) {
  REAL(pwrite64);
  if (shouldFail(FAMILY_WRITE, fdTracked(fd) && fd > 2, NULL, fd)) FAIL_WITH(-1);
  return real_pwrite64(fd, buffer, count, offset);
}

ZT_EXPORT ssize_t writev(int fd, const struct iovec* vector, int count) {
  REAL(writev);
  if (shouldFail(FAMILY_WRITE, fdTracked(fd) && fd > 2, NULL, fd)) FAIL_WITH(-1);
  return real_writev(fd, vector, count);
}

/* ---- fsync ---- */

ZT_EXPORT int fsync(int fd) {
  REAL(fsync);
  if (shouldFail(FAMILY_FSYNC, fdTracked(fd), NULL, fd)) FAIL_WITH(-1);
  return real_fsync(fd);
}

ZT_EXPORT int fdatasync(int fd) {
  REAL(fdatasync);
  if (shouldFail(FAMILY_FSYNC, fdTracked(fd), NULL, fd)) FAIL_WITH(-1);
  return real_fdatasync(fd);
}

/* ---- rename ---- */

ZT_EXPORT int rename(const char* from, const char* to) {
  REAL(rename);
  if (shouldFail(FAMILY_RENAME, atPathInScope(AT_FDCWD, from) || atPathInScope(AT_FDCWD, to), to, -1)) {
    FAIL_WITH(-1);
  }
  return real_rename(from, to);
}

ZT_EXPORT int renameat(int fromDir, const char* from, int toDir, const char* to) {
  REAL(renameat);
  if (shouldFail(FAMILY_RENAME, atPathInScope(fromDir, from) || atPathInScope(toDir, to), to, -1)) {
    FAIL_WITH(-1);
  }
  return real_renameat(fromDir, from, toDir, to);
}

ZT_EXPORT int renameat2(int fromDir, const char* from, int toDir, const char* to, unsigned int flags) {
  REAL(renameat2);
  if (shouldFail(FAMILY_RENAME, atPathInScope(fromDir, from) || atPathInScope(toDir, to), to, -1)) {
    FAIL_WITH(-1);
  }
  return real_renameat2(fromDir, from, toDir, to, flags);
}

/* ---- copy_file_range ---- */

ZT_EXPORT ssize_t copy_file_range(int in, off_t* inOffset, int out, off_t* outOffset, size_t length,
                                  unsigned int flags) {
  REAL(copy_file_range);
  if (shouldFail(FAMILY_COPY, fdTracked(in) || fdTracked(out), NULL, out)) FAIL_WITH(-1);
  return real_copy_file_range(in, inOffset, out, outOffset, length, flags);
}

/* ---- inotify ---- */

ZT_EXPORT int inotify_add_watch(int fd, const char* path, uint32_t mask) {
  REAL(inotify_add_watch);
  if (shouldFail(FAMILY_INOTIFY, atPathInScope(AT_FDCWD, path), path, -1)) FAIL_WITH(-1);
  return real_inotify_add_watch(fd, path, mask);
}

/* ---- sockets ---- */

ZT_EXPORT int socket(int domain, int type, int protocol) {
  REAL(socket);
  if (shouldFail(FAMILY_SOCKET, 1, "socket", -1)) FAIL_WITH(-1);
  return real_socket(domain, type, protocol);
}

ZT_EXPORT int connect(int fd, const struct sockaddr* address, socklen_t length) {
  REAL(connect);
  if (shouldFail(FAMILY_SOCKET, 1, "connect", fd)) FAIL_WITH(-1);
  return real_connect(fd, address, length);
}

ZT_EXPORT int bind(int fd, const struct sockaddr* address, socklen_t length) {
  REAL(bind);
  if (shouldFail(FAMILY_SOCKET, 1, "bind", fd)) FAIL_WITH(-1);
  return real_bind(fd, address, length);
}

ZT_EXPORT int listen(int fd, int backlog) {
  REAL(listen);
  if (shouldFail(FAMILY_SOCKET, 1, "listen", fd)) FAIL_WITH(-1);
  return real_listen(fd, backlog);
}

ZT_EXPORT int accept(int fd, struct sockaddr* address, socklen_t* length) {
  REAL(accept);
  if (shouldFail(FAMILY_SOCKET, 1, "accept", fd)) FAIL_WITH(-1);
  return real_accept(fd, address, length);
}

ZT_EXPORT int accept4(int fd, struct sockaddr* address, socklen_t* length, int flags) {
  REAL(accept4);
  if (shouldFail(FAMILY_SOCKET, 1, "accept", fd)) FAIL_WITH(-1);
  return real_accept4(fd, address, length, flags);
}

ZT_EXPORT ssize_t send(int fd, const void* buffer, size_t length, int flags) {
  REAL(send);
  if (shouldFail(FAMILY_SOCKET, 1, "send", fd)) FAIL_WITH(-1);
  return real_send(fd, buffer, length, flags);
}

ZT_EXPORT ssize_t sendto(int fd, const void* buffer, size_t length, int flags, const struct sockaddr* address,
                         socklen_t addressLength) {
  REAL(sendto);
  if (shouldFail(FAMILY_SOCKET, 1, "send", fd)) FAIL_WITH(-1);
  return real_sendto(fd, buffer, length, flags, address, addressLength);
}

ZT_EXPORT ssize_t sendmsg(int fd, const struct msghdr* message, int flags) {
  REAL(sendmsg);
  if (shouldFail(FAMILY_SOCKET, 1, "send", fd)) FAIL_WITH(-1);
  return real_sendmsg(fd, message, flags);
}

ZT_EXPORT ssize_t recv(int fd, void* buffer, size_t length, int flags) {
  REAL(recv);
  if (shouldFail(FAMILY_SOCKET, 1, "recv", fd)) FAIL_WITH(-1);
  return real_recv(fd, buffer, length, flags);
}

ZT_EXPORT ssize_t recvfrom(int fd, void* buffer, size_t length, int flags, struct sockaddr* address,
                           socklen_t* addressLength) {
  REAL(recvfrom);
  if (shouldFail(FAMILY_SOCKET, 1, "recv", fd)) FAIL_WITH(-1);
  return real_recvfrom(fd, buffer, length, flags, address, addressLength);
}

ZT_EXPORT ssize_t recvmsg(int fd, struct msghdr* message, int flags) {
  REAL(recvmsg);
  if (shouldFail(FAMILY_SOCKET, 1, "recv", fd)) FAIL_WITH(-1);
  return real_recvmsg(fd, message, flags);
}
