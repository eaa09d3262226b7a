// core/error.cpp - result codes as text, and the version that the library was built as.
#include <kipx/error.h>
#include <kipx/version.h>

extern "C" {

const char *kipx_strerror(int32_t code) {
    if (code >= 0) return "success";
    switch (code) {
    case KIPX_EINVAL:
        return "KIPX_EINVAL: bad argument, descriptor or operation code, or operands that do not "
               "match";
    case KIPX_ENOTSUP:
        return "KIPX_ENOTSUP: the arguments are valid, but this operation has no kernel for them";
    case KIPX_ENOTIMP:
        return "KIPX_ENOTIMP: this operation is not implemented";
    case KIPX_ENOMEM:
        return "KIPX_ENOMEM: work memory could not be had";
    case KIPX_EEMPTY:
        return "KIPX_EEMPTY: the region of interest is empty";
    case KIPX_EAGAIN:
        return "KIPX_EAGAIN: all is well, but the call was a probe and did no work";
    default:
        return "unknown error";
    }
}

int32_t kipx_version(void) { return KIPX_VERSION_NUMBER; }
}
