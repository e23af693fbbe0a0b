// Loaded in front of the C library: appends to the file that VELDAN_SYNC_LOG names which files a program writes through
// to the disk and which it removes, in order.
#define _GNU_SOURCE
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

static void note(const char* what, const char* path) {
    const char* log = getenv("VELDAN_SYNC_LOG");
    const int file = log != NULL ? open(log, O_WRONLY | O_CREAT | O_APPEND, 0600) : -1;
    if (file >= 0) {
        dprintf(file, "%s %s\n", what, path);
        close(file);
    }
}

static void noteDescriptor(int descriptor) {
    char link[64];
    char path[4096] = "";
    snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    if (readlink(link, path, sizeof path - 1) > 0)
        note("sync", path);
}

int fsync(int descriptor) {
    noteDescriptor(descriptor);
    return (int)syscall(SYS_fsync, descriptor);
}

int fdatasync(int descriptor) {
    noteDescriptor(descriptor);
    return (int)syscall(SYS_fdatasync, descriptor);
}

int unlink(const char* path) {
    note("unlink", path);
    return (int)syscall(SYS_unlink, path);
}
