// support/flood_fixture.cpp - floods of model images.
#include "support/flood_fixture.h"

#include <algorithm>

#include <gtest/gtest.h>

namespace kipx::test {

RandomImage random_image(Rng &rng, bool masked) {
    RandomImage r;
    ModelImage &m = r.model;
    m.height = static_cast<uint32_t>(rng.between(1, rng.one_in(4) ? 3 : 14));
    m.width = static_cast<uint32_t>(rng.between(1, rng.one_in(4) ? 3 : 14));
    m.eight = rng.one_in(2);
    int levels = static_cast<int>(rng.between(1, rng.one_in(2) ? 4 : 256));
    int smooth = static_cast<int>(rng.below(3));
    for (uint32_t i = 0; i < m.height * m.width; ++i) {
        int v = static_cast<int>(rng.below(static_cast<uint64_t>(levels)));
        if (smooth && i > 0) v = (v + smooth * m.level.back()) / (smooth + 1);
        m.level.push_back(v);
    }
    // The levels next to 255 as often as those next to 0.
    if (rng.one_in(2))
        for (int &v : m.level) v = 255 - v;
    if (masked) {
        uint64_t holes = static_cast<uint64_t>(rng.between(1, 8));
        for (uint32_t i = 0; i < m.height * m.width; ++i)
            m.mask.push_back(rng.one_in(holes) ? 0 : static_cast<uint8_t>(rng.between(1, 255)));
    }
    r.seed_row = static_cast<uint32_t>(rng.below(m.height));
    r.seed_column = static_cast<uint32_t>(rng.below(m.width));
    return r;
}

std::string form_name(Form form) {
    return form == Form::standard ? "standard" : form == Form::general ? "general" : "fast";
}

uint64_t form_flags(Form form) {
    return form == Form::fast      ? KIPX_FLAG_FAST
           : form == Form::general ? KIPX_FLAG_GENERAL_BUILDER
                                   : 0;
}

namespace {

Shape shape_of(const ModelImage &model, Layout layout) {
    Shape shape;
    shape.height = model.height;
    shape.width = model.width;
    shape.layout = layout;
    return shape;
}

} // namespace

ImageOf::ImageOf(const ModelImage &model, bool inverted, Layout layout)
    : source(shape_of(model, layout)), mask(shape_of(model, layout)) {
    for (uint32_t i = 0; i < model.level.size(); ++i) {
        At at{i / model.width, i % model.width, 0, 0};
        source.set_integer(at, inverted ? 255 - model.level[i] : model.level[i]);
        mask.set_integer(at, model.mask.empty() ? 1 : model.mask[i]);
    }
}

FloodOf::FloodOf(KipxXE *xe, Form form) : xe_(xe), form_(form) {
    KipxWTSPFinitFeatureDs(&pixel_feature_, nullptr);
    levelset_.descriptors = &pixel_feature_;
    levelset_.count = form == Form::fast ? 0 : 1;
    context.levelset = &levelset_;
    context.builder = form == Form::fast
                          ? &KipxFWTSRESopen(nullptr, nullptr, nullptr, KipxXEmmstack(xe))->builder
                          : KipxWTSTBopen(nullptr, nullptr, nullptr, KipxXEmmstack(xe));
}

FloodOf::~FloodOf() { KipxSTBclose(context.builder, 0); }

int32_t FloodOf::run(const ImageOf &image, bool masked) {
    return KipxWatershedEx(xe_, form_flags(form_), image.source.arr(),
                           masked ? image.mask.arr() : nullptr, nullptr, nullptr, &context);
}

std::vector<uint32_t> gathered_pixels(KipxSTB *builder, KipxWTSregion *region, uint32_t offset,
                                      uint32_t width) {
    EXPECT_EQ(KipxGatherMSERFeatures(builder, region), 0);
    auto *list = reinterpret_cast<const KipxWTSPF *>(reinterpret_cast<char *>(region) + offset);
    EXPECT_EQ(list->count, static_cast<uint64_t>(region->area));
    std::vector<uint32_t> pixels;
    for (uint64_t i = 0; i < list->count; ++i)
        pixels.push_back(list->entries[i].row * width + list->entries[i].column);
    std::sort(pixels.begin(), pixels.end());
    return pixels;
}

std::vector<uint32_t> FloodOf::pixels_of(KipxWTSregion *region) {
    if (form_ != Form::fast)
        return gathered_pixels(context.builder, region, pixel_feature_.state_offset,
                               levelset_.volume[2]);
    std::vector<uint32_t> pixels(static_cast<size_t>(region->area));
    KipxFWTSRES *store = KipxFWTSRESfrombuilder(context.builder);
    EXPECT_EQ(kipx_fwtsr_fetch(store, region, 0, ~0u, pixels.data()), pixels.size());
    std::sort(pixels.begin(), pixels.end());
    return pixels;
}

std::vector<ModelRegion> FloodOf::regions() {
    struct Walk {
        FloodOf *flood;
        std::vector<ModelRegion> found;
    } walk{this, {}};
    KipxAGTwalk(
        context.output, KIPX_PREORDER,
        [](KipxSTnode *node, void *arg, int32_t) -> int32_t {
            auto *w = static_cast<Walk *>(arg);
            auto *region = static_cast<KipxWTSregion *>(node->data);
            ModelRegion r;
            EXPECT_EQ(region->node, node);
            for (KipxSTnode *c = node->child; c; c = c->next) EXPECT_EQ(c->parent, node);
            if (node->parent)
                r.parent_size =
                    static_cast<size_t>(static_cast<KipxWTSregion *>(node->parent->data)->area);
            r.level = region->level;
            r.pixels = w->flood->pixels_of(region);
            EXPECT_TRUE(std::binary_search(r.pixels.begin(), r.pixels.end(), region->pixel));
            w->found.push_back(std::move(r));
            return 1;
        },
        &walk);
    std::sort(walk.found.begin(), walk.found.end());
    return walk.found;
}

} // namespace kipx::test
