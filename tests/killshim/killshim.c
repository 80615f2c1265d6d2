/*
 * Test-only LD_PRELOAD library: counts the calls that change the file system (renames, links,
 * removals, directory creation, opens for writing) under one directory, and ends the process
 * with SIGKILL just before call number N, so a crash test can stop a transaction between any
 * two of its operations without a hook in the product.
 *
 *   TAVRINOX_KILLSHIM_SCOPE  only paths that start with this prefix are counted (required)
 *   TAVRINOX_KILLSHIM_AT     the call to die at, counting from 1; unset or 0: never
 *   TAVRINOX_KILLSHIM_TRACE  when set, every counted call is written to standard error
 *   TAVRINOX_KILLSHIM_VICTIM a process killed first, such as the drive's FUSE process (a pulled stick)
 *
 * A process that ends normally writes "killshim: completed after N calls" to standard error;
 * one that is killed writes "killshim: killed at call N (operation path)" first.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

static const char *scope;
static size_t scopeLength;
static long killAt;
static pid_t victim;
static int trace;
static long callCount;

__attribute__((constructor)) static void readSettings(void)
{
    scope = getenv("TAVRINOX_KILLSHIM_SCOPE");
    scopeLength = scope ? strlen(scope) : 0;
    const char *at = getenv("TAVRINOX_KILLSHIM_AT");
    killAt = at ? atol(at) : 0;
    const char *victimPid = getenv("TAVRINOX_KILLSHIM_VICTIM");
    victim = victimPid ? (pid_t)atol(victimPid) : 0;
    trace = getenv("TAVRINOX_KILLSHIM_TRACE") != NULL;
}

__attribute__((destructor)) static void reportCount(void)
{
    if (scope)
        dprintf(STDERR_FILENO, "killshim: completed after %ld calls\n", callCount);
}

/* The absolute form of a path given relative to a directory descriptor, as far as it matters
 * for the prefix test: ".." is not resolved, the product passes absolute paths. */
static void absolutePath(int dirfd, const char *path, char *out, size_t size)
{
    if (path[0] == '/') {
        snprintf(out, size, "%s", path);
        return;
    }
    char base[PATH_MAX] = "";
    if (dirfd == AT_FDCWD) {
        if (!getcwd(base, sizeof base))
            base[0] = '\0';
    } else {
        char link[64];
        snprintf(link, sizeof link, "/proc/self/fd/%d", dirfd);
        const ssize_t length = readlink(link, base, sizeof base - 1);
        base[length > 0 ? length : 0] = '\0';
    }
    snprintf(out, size, "%s/%s", base, path);
}

static int inScope(int dirfd, const char *path)
{
    if (!scope || !path)
        return 0;
    char full[2 * PATH_MAX];
    absolutePath(dirfd, path, full, sizeof full);
    return strncmp(full, scope, scopeLength) == 0;
}

static void count(const char *operation, int dirfd, const char *path, int otherDirfd, const char *otherPath)
{
    if (!inScope(dirfd, path) && !inScope(otherDirfd, otherPath))
        return;
    const long call = __atomic_add_fetch(&callCount, 1, __ATOMIC_SEQ_CST);
    const char *shown = path ? path : otherPath;
    if (trace)
        dprintf(STDERR_FILENO, "killshim: call %ld %s %s\n", call, operation, shown);
    if (call == killAt) {
        dprintf(STDERR_FILENO, "killshim: killed at call %ld (%s %s)\n", call, operation, shown);
        if (victim > 0)
            kill(victim, SIGKILL);
        kill(getpid(), SIGKILL);
    }
}

static int opensForWriting(int flags)
{
    return (flags & O_ACCMODE) != O_RDONLY || (flags & (O_CREAT | O_TRUNC)) != 0;
}

static int takesMode(int flags)
{
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

#define REAL(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))

/* The mode that open() and openat() read from their variable arguments only when they may create a file. */
#define READ_OPTIONAL_MODE(flags, mode)                                                                    \
    mode_t mode = 0;                                                                                       \
    if (takesMode(flags)) {                                                                                \
        va_list arguments;                                                                                 \
        va_start(arguments, flags);                                                                        \
        mode = va_arg(arguments, mode_t);                                                                  \
        va_end(arguments);                                                                                 \
    }

#define OPEN_WRAPPER(name)                                                                                 \
    int name(const char *path, int flags, ...)                                                             \
    {                                                                                                      \
        READ_OPTIONAL_MODE(flags, mode)                                                                    \
        if (opensForWriting(flags))                                                                        \
            count(#name, AT_FDCWD, path, AT_FDCWD, NULL);                                                  \
        return REAL(name)(path, flags, mode);                                                              \
    }

#define OPENAT_WRAPPER(name)                                                                               \
    int name(int dirfd, const char *path, int flags, ...)                                                  \
    {                                                                                                      \
        READ_OPTIONAL_MODE(flags, mode)                                                                    \
        if (opensForWriting(flags))                                                                        \
            count(#name, dirfd, path, AT_FDCWD, NULL);                                                     \
        return REAL(name)(dirfd, path, flags, mode);                                                       \
    }

OPEN_WRAPPER(open)
OPEN_WRAPPER(open64)
OPENAT_WRAPPER(openat)
OPENAT_WRAPPER(openat64)

/* The fortified entry points that callers built with _FORTIFY_SOURCE reach instead of open(). */
int __open_2(const char *path, int flags);
int __open64_2(const char *path, int flags);
int __openat_2(int dirfd, const char *path, int flags);
int __openat64_2(int dirfd, const char *path, int flags);

int __open_2(const char *path, int flags)
{
    if (opensForWriting(flags))
        count("__open_2", AT_FDCWD, path, AT_FDCWD, NULL);
    return REAL(__open_2)(path, flags);
}

int __open64_2(const char *path, int flags)
{
    if (opensForWriting(flags))
        count("__open64_2", AT_FDCWD, path, AT_FDCWD, NULL);
    return REAL(__open64_2)(path, flags);
}

int __openat_2(int dirfd, const char *path, int flags)
{
    if (opensForWriting(flags))
        count("__openat_2", dirfd, path, AT_FDCWD, NULL);
    return REAL(__openat_2)(dirfd, path, flags);
}

int __openat64_2(int dirfd, const char *path, int flags)
{
    if (opensForWriting(flags))
        count("__openat64_2", dirfd, path, AT_FDCWD, NULL);
    return REAL(__openat64_2)(dirfd, path, flags);
}

int creat(const char *path, mode_t mode)
{
    count("creat", AT_FDCWD, path, AT_FDCWD, NULL);
    return REAL(creat)(path, mode);
}

int rename(const char *from, const char *to)
{
    count("rename", AT_FDCWD, to, AT_FDCWD, from);
    return REAL(rename)(from, to);
}

int renameat(int fromDirfd, const char *from, int toDirfd, const char *to)
{
    count("renameat", toDirfd, to, fromDirfd, from);
    return REAL(renameat)(fromDirfd, from, toDirfd, to);
}

int renameat2(int fromDirfd, const char *from, int toDirfd, const char *to, unsigned int flags)
{
    count("renameat2", toDirfd, to, fromDirfd, from);
    return REAL(renameat2)(fromDirfd, from, toDirfd, to, flags);
}

int link(const char *from, const char *to)
{
    count("link", AT_FDCWD, to, AT_FDCWD, from);
    return REAL(link)(from, to);
}

int linkat(int fromDirfd, const char *from, int toDirfd, const char *to, int flags)
{
    count("linkat", toDirfd, to, fromDirfd, from);
    return REAL(linkat)(fromDirfd, from, toDirfd, to, flags);
}

int unlink(const char *path)
{
    count("unlink", AT_FDCWD, path, AT_FDCWD, NULL);
    return REAL(unlink)(path);
}

int unlinkat(int dirfd, const char *path, int flags)
{
    count("unlinkat", dirfd, path, AT_FDCWD, NULL);
    return REAL(unlinkat)(dirfd, path, flags);
}

int rmdir(const char *path)
{
    count("rmdir", AT_FDCWD, path, AT_FDCWD, NULL);
    return REAL(rmdir)(path);
}

int mkdir(const char *path, mode_t mode)
{
    count("mkdir", AT_FDCWD, path, AT_FDCWD, NULL);
    return REAL(mkdir)(path, mode);
}

int mkdirat(int dirfd, const char *path, mode_t mode)
{
    count("mkdirat", dirfd, path, AT_FDCWD, NULL);
    return REAL(mkdirat)(dirfd, path, mode);
}
