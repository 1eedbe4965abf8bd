/* InterposeClock.c — stand-ins for the C library's clock, open and select,
 * defined in the test executable so that the library's calls reach them.
 * Tests move the wall clock, make /proc/uptime unreadable or empty, and make
 * select fail; by default every call passes straight through.
 * Part of LumBase; MIT licence. */
/* Both open and open64 are defined here, so the header must not turn one
 * into the other. */
#undef _FILE_OFFSET_BITS
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdint.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>

int64_t lumtest_clock_offset_us = 0;  /* added to every wall-clock reading */
int lumtest_uptime_mode = 0;          /* 0 real, 1 unreadable, 2 empty */
int lumtest_select_fails = 0;         /* select returns -1 (EBADF) */
int lumtest_select_calls = 0;
long lumtest_select_last_timeout_us = -1;

int gettimeofday(struct timeval *restrict tv, void *restrict tz)
{
    struct timespec now;
    int64_t us;
    (void)tz;
    clock_gettime(CLOCK_REALTIME, &now);
    us = (int64_t)now.tv_sec * 1000000 + now.tv_nsec / 1000 + lumtest_clock_offset_us;
    tv->tv_sec = (time_t)(us / 1000000);
    tv->tv_usec = (suseconds_t)(us % 1000000);
    if (tv->tv_usec < 0) {
        tv->tv_usec += 1000000;
        tv->tv_sec -= 1;
    }
    return 0;
}

static int redirect_uptime(const char *path, int *result)
{
    if (lumtest_uptime_mode == 0 || strcmp(path, "/proc/uptime") != 0) return 0;
    if (lumtest_uptime_mode == 1) {
        errno = ENOENT;
        *result = -1;
    } else {
        int (*real)(const char *, int, ...) = (int (*)(const char *, int, ...))dlsym(RTLD_NEXT, "open");
        *result = real("/dev/null", O_RDONLY);
    }
    return 1;
}

static int openThrough(const char *name, const char *path, int flags, mode_t mode)
{
    int result;
    int (*real)(const char *, int, ...);
    if (redirect_uptime(path, &result)) return result;
    real = (int (*)(const char *, int, ...))dlsym(RTLD_NEXT, name);
    return real(path, flags, mode);
}

/* The mode argument exists only with O_CREAT or O_TMPFILE. */
#define MODE_ARGUMENT(flags, mode)                     \
    do {                                               \
        if ((flags) & (O_CREAT | O_TMPFILE)) {         \
            va_list arguments;                         \
            va_start(arguments, flags);                \
            (mode) = (mode_t)va_arg(arguments, int);   \
            va_end(arguments);                         \
        }                                              \
    } while (0)

int open(const char *path, int flags, ...)
{
    mode_t mode = 0;
    MODE_ARGUMENT(flags, mode);
    return openThrough("open", path, flags, mode);
}

int open64(const char *path, int flags, ...)
{
    mode_t mode = 0;
    MODE_ARGUMENT(flags, mode);
    return openThrough("open64", path, flags, mode);
}

int select(int nfds, fd_set *restrict readfds, fd_set *restrict writefds, fd_set *restrict exceptfds,
           struct timeval *restrict timeout)
{
    int (*real)(int, fd_set *, fd_set *, fd_set *, struct timeval *);
    lumtest_select_calls++;
    lumtest_select_last_timeout_us = timeout ? (long)(timeout->tv_sec * 1000000L + timeout->tv_usec) : -1;
    if (lumtest_select_fails) {
        errno = EBADF;
        return -1;
    }
    real = (int (*)(int, fd_set *, fd_set *, fd_set *, struct timeval *))dlsym(RTLD_NEXT, "select");
    return real(nfds, readfds, writefds, exceptfds, timeout);
}

/* setsockopt: records the last send time-out asked for, then passes on. */
long lumtest_sndtimeo_sec = -1;
long lumtest_sndtimeo_usec = -1;

int setsockopt(int fd, int level, int name, const void *value, socklen_t length)
{
    int (*real)(int, int, int, const void *, socklen_t);
    if (level == SOL_SOCKET && name == SO_SNDTIMEO && value != NULL && length >= sizeof(struct timeval)) {
        const struct timeval *limit = (const struct timeval *)value;
        lumtest_sndtimeo_sec = (long)limit->tv_sec;
        lumtest_sndtimeo_usec = (long)limit->tv_usec;
    }
    real = (int (*)(int, int, int, const void *, socklen_t))dlsym(RTLD_NEXT, "setsockopt");
    return real(fd, level, name, value, length);
}
