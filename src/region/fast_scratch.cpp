#include "region/fast_scratch.h"

namespace kipx {

bool FastScratch::open(KipxXE *xe, uint64_t bytes) {
    xe_ = xe;
    first_ = static_cast<char *>(KipxXEalloca(xe, bytes, 16));
    size_ = first_ ? bytes : 0;
    return first_ != nullptr;
}

void *FastScratch::take(uint64_t bytes) {
    bytes = (bytes + 15) / 16 * 16;
    if (bytes <= size_ - used_) {
        used_ += bytes;
        return first_ + used_ - bytes;
    }
    auto *block = static_cast<Extra *>(KipxXEalloca(xe_, sizeof(Extra) + bytes, 16));
    if (!block) return nullptr;
    *block = {extra_, 0};
    extra_ = block;
    return block + 1;
}

void FastScratch::rewind() {
    while (extra_) {
        Extra *before = extra_->before;
        KipxXEfreea(xe_, extra_);
        extra_ = before;
    }
    used_ = 0;
}

void FastScratch::close() {
    rewind();
    KipxXEfreea(xe_, first_);
    *this = {};
}

} // namespace kipx
