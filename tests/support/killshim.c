// Test-only LD_PRELOAD library: counts the calls that change files under one directory (renames, links,
// removals, directory creation, opens for writing) and ends the process with SIGKILL just before call
// number N, so that a crash test can stop a transaction between any two of its operations without a
// hook in the product. It wraps the calls Qt and the C library make on Linux; the crash table asserts a
// floor on the number counted, which would show a call left unwrapped.
//   TAVRINOX_KILLSHIM_SCOPE   only paths starting with this prefix count (required)
//   TAVRINOX_KILLSHIM_AT      the call to die at, counting from 1; unset or 0: never
//   TAVRINOX_KILLSHIM_WRITES  when not empty, each write to a file opened for writing in the scope
//                             counts too, so that a file rewritten in place (truncated, then written)
//                             is stopped between the two as well; so does a copy_file_range into it
//   TAVRINOX_KILLSHIM_VICTIM  a process killed first, as the drive's FUSE process when a stick is pulled
//   TAVRINOX_KILLSHIM_TRACE   when not empty, each counted call and each flush (fsync, fdatasync, syncfs)
//                             of a file or folder in the scope is written to standard error as
//                             "killshim: operation path", for a test to see what came before what
// A process ending by itself writes "killshim: completed after N calls" to standard error; one that is
// killed writes "killshim: killed at call N (operation path)" first.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static long calls;
static char writable[4096]; // descriptors opened for writing in the scope

__attribute__((destructor)) static void report(void)
{
    if (getenv("TAVRINOX_KILLSHIM_SCOPE"))
        dprintf(STDERR_FILENO, "killshim: completed after %ld calls\n", calls);
}

// Whether a path, relative to a directory descriptor, lies in the scope; ".." is not resolved.
static int inScope(int dirfd, const char *path)
{
    const char *scope = getenv("TAVRINOX_KILLSHIM_SCOPE");
    char full[2 * PATH_MAX] = "", link[64];
    snprintf(link, sizeof link, "/proc/self/fd/%d", dirfd);
    if (path && path[0] != '/' &&
        (dirfd == AT_FDCWD ? getcwd(full, PATH_MAX) != NULL : readlink(link, full, PATH_MAX) > 0))
        strcat(full, "/");
    return scope && path && strncmp(strncat(full, path, PATH_MAX), scope, strlen(scope)) == 0;
}

static void count(const char *operation, int counted, const char *path)
{
    const char *at = getenv("TAVRINOX_KILLSHIM_AT"), *trace = getenv("TAVRINOX_KILLSHIM_TRACE");
    if (counted && trace && *trace)
        dprintf(STDERR_FILENO, "killshim: %s %s\n", operation, path);
    if (counted && __atomic_add_fetch(&calls, 1, __ATOMIC_SEQ_CST) == (at ? atol(at) : 0)) {
        dprintf(STDERR_FILENO, "killshim: killed at call %ld (%s %s)\n", calls, operation, path);
        if (getenv("TAVRINOX_KILLSHIM_VICTIM") && atol(getenv("TAVRINOX_KILLSHIM_VICTIM")) > 0)
            kill((pid_t)atol(getenv("TAVRINOX_KILLSHIM_VICTIM")), SIGKILL);
        kill(getpid(), SIGKILL);
    }
}

static int written(int fd)
{
    const char *writes = getenv("TAVRINOX_KILLSHIM_WRITES");
    return writes && *writes && fd >= 0 && fd < (int)sizeof writable && writable[fd];
}

#define REAL(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))
// An open for writing counts before it happens; its descriptor is remembered for the write mode.
#define OPEN(name, dirfd, ...)                                                                               \
    va_list arguments;                                                                                       \
    va_start(arguments, flags);                                                                              \
    const mode_t mode =                                                                                      \
        (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(arguments, mode_t) : 0;               \
    va_end(arguments);                                                                                       \
    const int writing = (flags & O_ACCMODE) != O_RDONLY;                                                     \
    count(#name, (writing || (flags & (O_CREAT | O_TRUNC))) && inScope(dirfd, path), path);                  \
    const int fd = REAL(name)(__VA_ARGS__, mode);                                                            \
    if (fd >= 0 && fd < (int)sizeof writable)                                                                \
        writable[fd] = writing && inScope(dirfd, path);                                                      \
    return fd;
#define WRAP(type, name, parameters, counted, path, arguments)                                               \
    type name parameters                                                                                     \
    {                                                                                                        \
        count(#name, counted, path);                                                                         \
        return REAL(name) arguments;                                                                         \
    }
// A flush is never a kill point (the numbering stays that of the changes); it only shows in the trace,
// named by the path its descriptor stands for, with a "/" after it so that the scope's own folder counts.
#define FLUSH(name)                                                                                          \
    int name(int fd)                                                                                         \
    {                                                                                                        \
        char link[64], path[PATH_MAX + 1] = "";                                                              \
        const char *trace = getenv("TAVRINOX_KILLSHIM_TRACE");                                               \
        snprintf(link, sizeof link, "/proc/self/fd/%d", fd);                                                 \
        if (trace && *trace && readlink(link, path, PATH_MAX - 1) > 0 && inScope(AT_FDCWD, strcat(path, "/"))) \
            dprintf(STDERR_FILENO, "killshim: %s %s\n", #name, path);                                        \
        return REAL(name)(fd);                                                                               \
    }
#define CLOSED (fd >= 0 && fd < (int)sizeof writable ? writable[fd] = 0 : 0)
#define BOTH(from, to) (inScope(AT_FDCWD, from) || inScope(AT_FDCWD, to))
#define BOTH_AT(fromFd, from, toFd, to) (inScope(fromFd, from) || inScope(toFd, to))

// clang-format off
int open(const char *path, int flags, ...) { OPEN(open, AT_FDCWD, path, flags) }
int open64(const char *path, int flags, ...) { OPEN(open64, AT_FDCWD, path, flags) }
WRAP(ssize_t, write, (int fd, const void *data, size_t size), written(fd), "a file", (fd, data, size))
WRAP(ssize_t, copy_file_range, (int in, loff_t *inAt, int fd, loff_t *at, size_t size, unsigned flags), written(fd),
     "a file", (in, inAt, fd, at, size, flags))
FLUSH(fsync)
FLUSH(fdatasync)
FLUSH(syncfs)
WRAP(int, close, (int fd), CLOSED, "", (fd))
WRAP(int, unlink, (const char *path), inScope(AT_FDCWD, path), path, (path))
WRAP(int, rmdir, (const char *path), inScope(AT_FDCWD, path), path, (path))
WRAP(int, mkdir, (const char *path, mode_t mode), inScope(AT_FDCWD, path), path, (path, mode))
// A rename or link counts when either side lies in the scope.
WRAP(int, rename, (const char *from, const char *to), BOTH(from, to), to, (from, to))
WRAP(int, link, (const char *from, const char *to), BOTH(from, to), to, (from, to))
WRAP(int, renameat2, (int fd, const char *from, int toFd, const char *to, unsigned flags), BOTH_AT(fd, from, toFd, to), to,
     (fd, from, toFd, to, flags))
WRAP(int, linkat, (int fd, const char *from, int toFd, const char *to, int flags), BOTH_AT(fd, from, toFd, to), to,
     (fd, from, toFd, to, flags))
    // clang-format on
