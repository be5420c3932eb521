#include "platform/crt/file_status.h"

#include <sys/stat.h>

int _stat(const char* path, struct _stat* buffer) {
    struct stat status;
    if (!path || !buffer || stat(path, &status) != 0) return -1;
    unsigned short kind = S_ISDIR(status.st_mode)   ? _S_IFDIR
                          : S_ISREG(status.st_mode) ? _S_IFREG
                                                    : 0;
    buffer->st_mode = (unsigned short)(kind | (status.st_mode & 0777));
    buffer->st_size = int64_t(status.st_size);
    return 0;
}
