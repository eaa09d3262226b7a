/* kipx/version.h - which version this is: of the headers at compile time, of the library at run time.
 *
 * Major versions break programs, minor ones add, patches mend. A program that was compiled with one
 * version runs with every later one of the same major version.
 */
#ifndef KIPX_VERSION_H
#define KIPX_VERSION_H

#include <kipx/api.h>

KIPX_BEGIN

#define KIPX_VERSION_MAJOR 1
#define KIPX_VERSION_MINOR 0
#define KIPX_VERSION_PATCH 0

/* One number that grows with versions: 1002003 is 1.2.3. Minor and patch stay below 1000. */
#define KIPX_VERSION_NUMBER                                                                        \
    (KIPX_VERSION_MAJOR * 1000000 + KIPX_VERSION_MINOR * 1000 + KIPX_VERSION_PATCH)

/* The same as text: "1.2.3". */
#define KIPX_VERSION_STRING                                                                        \
    KIPX_VERSION_TEXT(KIPX_VERSION_MAJOR, KIPX_VERSION_MINOR, KIPX_VERSION_PATCH)
#define KIPX_VERSION_TEXT(major, minor, patch) KIPX_VERSION_JOIN(major, minor, patch)
#define KIPX_VERSION_JOIN(major, minor, patch) #major "." #minor "." #patch

/* The KIPX_VERSION_NUMBER of the library that the program runs with. */
KIPX_API int32_t kipx_version(void);

KIPX_END

#endif
