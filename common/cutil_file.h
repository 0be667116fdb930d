#ifndef COMMON_CUTIL_FILE_H
#define COMMON_CUTIL_FILE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Find the size of a file by seeking to its end. @return bytes; 0 when it cannot be opened or has no end */
int64_t CUTIL_GetFileSize(const char* path);

#ifdef __cplusplus
}
#endif

#endif
