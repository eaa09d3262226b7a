/* kipx/error.h - result codes as text, for messages. The codes stand in kipx/types.h. */
#ifndef KIPX_ERROR_H
#define KIPX_ERROR_H

#include <kipx/types.h>

KIPX_BEGIN

/* What a result means: the name of the code and one sentence, such as "KIPX_EEMPTY: the region of
 * interest is empty"; "success" for 0 and for counts; "unknown error" for any other number. One
 * line of ASCII without a full stop, constant, never null, the same in every locale. */
KIPX_API const char *kipx_strerror(int32_t code);

KIPX_END

#endif
