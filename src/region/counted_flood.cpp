#include "region/counted_flood.h"

#include "region/chain.h"
#include "region/one_block.h"
#include "region/tree_sink.h"

namespace kipx {
namespace {

template<class Cell>
int32_t flood(const FloodImage &image, FastScratch &scratch, KipxWatershedContext *context) {
    Look look = look_of(image, {0, 0, image.height, image.width});
    Manner manner = look == Look::flat ? Manner::runs : Manner::stacks;
    OneBlock<Cell, FixedOrder> block(image, manner, Set::baseline, scratch);
    TreeSink sink(image.width, MakeInBuilder{context->builder, context->levelset});
    bool complete = block.flood(sink, nullptr);
    __KipxSTBrootnode(context->builder, complete ? sink.root() : nullptr);
    if (!complete) KipxSTBclear(context->builder, 1);
    return complete ? 0 : KIPX_ENOMEM;
}

} // namespace

int32_t counted_flood(KipxXE *xe, uint64_t flags, const FloodImage &image,
                      KipxWatershedContext *context) {
    bool wide = image.mask.at || has_walls(image);
    FastScratch scratch;
    int32_t code = KIPX_ENOMEM;
    if (scratch.open(xe, one_block_size(image, wide ? sizeof(uint16_t) : sizeof(uint8_t)))) {
        KipxSTB *builder = context->builder;
        code = wtsl_of(builder)->configure(builder, context->levelset, flags,
                                           context->levelset->descriptors);
        if (code == 0)
            code = wide ? flood<uint16_t>(image, scratch, context)
                        : flood<uint8_t>(image, scratch, context);
        if (code == 0) code = finish(builder, context->levelset, &context->output, 0);
    }
    scratch.close();
    return code;
}

} // namespace kipx
