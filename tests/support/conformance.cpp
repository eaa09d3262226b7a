// support/conformance.cpp - calls drawn at random, judged by a model of one element.
#include "support/conformance.h"

#include <algorithm>
#include <cstring>
#include <sstream>

#include <kipx/array.h>

#include "support/environment.h"

namespace kipx::test {
namespace {

uint64_t bits_at(const GuardedArray &array, At at) {
    uint64_t bits = 0;
    std::memcpy(&bits, array.address(at), element_size(array.shape().type));
    return bits;
}

// An array that holds the region of a call at a place of its own.
struct Placed {
    GuardedArray array;
    uint32_t row, column;

    static Placed draw(Rng &rng, uint32_t type, uint32_t channels, uint32_t height, uint32_t width,
                       const Placed *like = nullptr) {
        const auto margin = [&] { return rng.one_in(2) ? 0 : static_cast<uint32_t>(rng.below(4)); };
        const uint32_t row = like ? like->row : margin(), column = like ? like->column : margin();
        Shape s;
        s.type = type, s.channels = channels;
        s.height = height + row + margin(), s.width = width + column + margin();
        s.layout = rng.pick(all_layouts);
        s.edge = rng.one_in(2) ? Edge::last : Edge::first;
        s.shift = rng.below(3) == 0 ? rng.below(64) : 0;
        s.offset = static_cast<uint32_t>(rng.below(3)) * 8;
        return {GuardedArray(s), row, column};
    }
    uint64_t bits(uint32_t y, uint32_t x, uint32_t channel) const {
        return bits_at(array, {row + y, column + x, channel});
    }
    kipx_pos position() const {
        return test::position(static_cast<int32_t>(column), static_cast<int32_t>(row));
    }
};

class Trial {
public:
    Trial(const Operation &operation, const Types &types, Rng &rng)
        : op_(operation), rng_(rng), height_(1 + static_cast<uint32_t>(rng.below(3))),
          width_(std::max(1u, rng.pick(all_widths))),
          channels_(1 + static_cast<uint32_t>(rng.below(4))) {
        args_.types = types;
        draw_arrays();
        args_.xe = xe_;
        args_.scale = rng.pick(op_.scales);
        level_ = op_.flat_levels ? static_cast<Level>(rng.below(3)) : Level::whole;
        draw_values();
        if (op_.prepare) op_.prepare(args_);
        point_at_region();
    }

    // Empty, or what went wrong.
    std::string run() {
        expect();
        const Snapshot before = dst().array.snapshot();
        for (uint64_t flags : {KIPX_FLAG_PREPARE, KIPX_FLAG_PROBE}) {
            args_.flags = flags;
            const int32_t code = call();
            if (code != (flags == KIPX_FLAG_PROBE ? KIPX_EAGAIN : 0)) return text(code, flags);
            if (std::string c = dst().array.changes(before); !c.empty()) return text(c);
        }
        args_.flags = 0;
        for (int32_t set : all_sets()) {
            SimdSwitch form(set);
            if (kipx_simd_set(0) != set) return text("another set than asked for runs");
            dst().array.restore(before);
            if (int32_t code = call()) return text(code, 0);
            if (std::string wrong = judge(before); !wrong.empty())
                return text("set " + std::to_string(set) + ": " + wrong);
        }
        return {};
    }

private:
    Placed &dst() { return placed_[dst_index_]; }
    Placed &src(uint32_t i) { return placed_[1 + i]; }

    void draw_arrays() {
        placed_.reserve(5);
        for (uint32_t i = 0; i <= op_.sources; ++i)
            placed_.push_back(Placed::draw(rng_, args_.types[i], channels_, height_, width_,
                                           i == 1 && op_.one_place ? &placed_[0] : nullptr));
        if (op_.has_mask)
            placed_.push_back(
                Placed::draw(rng_, KIPX_U8, rng_.one_in(2) ? 1 : channels_, height_, width_));
        for (Placed &p : placed_) p.array.fill(rng_, Values::any);
        // On a source of its own type, the destination is that very array.
        for (uint32_t i = 0; i < op_.sources && rng_.one_in(2); ++i)
            if (args_.types[1 + i] == args_.types[0] && (i == 0 || !op_.one_place) &&
                rng_.one_in(2))
                dst_index_ = 1 + i;
        // And sometimes both sources are one array.
        const bool same = op_.sources > 1 && args_.types[1] == args_.types[2] && rng_.one_in(8);
        args_.dst = &dst().array;
        for (uint32_t i = 0; i < op_.sources; ++i) sources_[i] = same && i < 2 ? 1 : 1 + i;
        if (same && dst_index_ == 2) dst_index_ = 1, args_.dst = &dst().array;
        for (uint32_t i = 0; i < op_.sources; ++i) args_.src[i] = &placed_[sources_[i]].array;
        if (!op_.has_mask) return;
        args_.mask = &placed_.back().array;
        args_.mask->for_each([&](At at) {
            if (rng_.one_in(3)) args_.mask->set_integer(at, 0);
        });
    }

    void draw_values() {
        constexpr double some[] = {0,   1,   -1,  2,    3,     0.5, -2.5, 7.25,
                                   100, 255, 256, -129, 32768, 1e5, -3e9, 1e30};
        for (uint32_t c = 0; c < channels_; ++c)
            args_.values.push_back(rng_.one_in(2) ? rng_.pick(some)
                                                  : static_cast<double>(rng_.between(-300, 300)));
    }

    // Regions and positions that lead to the place of each array, left out where they need not be.
    void point_at_region() {
        const Placed &d = dst();
        const bool whole = d.row == 0 && d.column == 0;
        roi_ = rectangle(static_cast<int32_t>(d.column), static_cast<int32_t>(d.row),
                         static_cast<int32_t>(width_), static_cast<int32_t>(height_));
        const bool fits = d.array.shape().height == height_ && d.array.shape().width == width_;
        args_.roi = whole && fits && rng_.one_in(2) ? nullptr : &roi_;
        args_.in_place = op_.null_in_place && op_.sources > 0 && sources_[0] == dst_index_ &&
                         level_ == Level::whole && rng_.one_in(2);
        for (uint32_t i = 0; i < op_.sources; ++i) {
            const Placed &s = placed_[sources_[i]];
            at_[i] = s.position();
            const bool needless = (s.row == 0 && s.column == 0) || (i == 0 && args_.in_place);
            args_.at[i] = needless && rng_.one_in(2) ? nullptr : &at_[i];
        }
        if (op_.has_mask) mask_at_ = placed_.back().position(), args_.mask_at = &mask_at_;
    }

    FlatOperand flat(Placed &p, kipx_pos &origin) {
        origin = p.position();
        const kipx_arr *a = p.array.arr();
        return {a->type, kipx_arr_base(a), p.array.address({p.row, p.column}), origin.at + 1,
                a->strides + 1};
    }

    int32_t call() {
        const uint32_t extent[4] = {1, height_, width_, channels_};
        kipx_pos origins[4] = {};
        FlatArguments f{3 | 1 << 4, extent + 1, flat(dst(), origins[0]), {}, {}};
        for (uint32_t i = 0; i < op_.sources; ++i)
            f.src[i] = flat(placed_[sources_[i]], origins[1 + i]);
        kipx_pos mask_origin = {};
        uint32_t mask_strides[4] = {}; // the unused leading slot first
        if (op_.has_mask) {
            f.mask = flat(placed_.back(), mask_origin);
            std::copy(f.mask.strides, f.mask.strides + 3, mask_strides + 1);
            if (args_.mask->shape().channels == 1) mask_strides[3] = 0;
            f.mask.strides = mask_strides + 1;
        }
        return op_.call(level_, args_, f);
    }

    template<class F> void each_element(F &&f) {
        for (uint32_t y = 0; y < height_; ++y)
            for (uint32_t x = 0; x < width_; ++x)
                for (uint32_t c = 0; c < channels_; ++c) f(y, x, c);
    }

    // What the region must hold, from the contents before the call; and the sources as they are.
    void expect() {
        each_element([&](uint32_t y, uint32_t x, uint32_t c) {
            uint64_t bits[4] = {0, 0, 0, dst().bits(y, x, c)};
            for (uint32_t i = 0; i < op_.sources; ++i) bits[i] = placed_[sources_[i]].bits(y, x, c);
            const bool open = !op_.has_mask ||
                              placed_.back().bits(y, x, args_.mask->shape().channels == 1 ? 0 : c);
            expected_.push_back(open ? op_.model(args_, c, bits) : dst().bits(y, x, c));
        });
        for (Placed &p : placed_) pages_.push_back(p.array.snapshot());
    }

    std::string judge(const Snapshot &before) {
        size_t k = 0;
        std::ostringstream wrong;
        each_element([&](uint32_t y, uint32_t x, uint32_t c) {
            const uint64_t is = dst().bits(y, x, c), must = expected_[k++];
            if (is == must || wrong.tellp() > 0) return;
            wrong << "row " << y << ", pixel " << x << ", channel " << c << ": 0x" << std::hex << is
                  << " instead of 0x" << must;
        });
        if (wrong.tellp() > 0) return wrong.str();
        for (size_t i = 0; i < placed_.size(); ++i) {
            if (!placed_[i].array.canaries_intact()) return placed_[i].array.damage();
            if (i != dst_index_ && placed_[i].array.snapshot() != pages_[i])
                return "a source has changed";
        }
        return dst().array.changes_outside(before, roi_);
    }

    std::string text(int32_t code, uint64_t flags) {
        return text("returned " + std::to_string(code) + " with flags " + std::to_string(flags));
    }
    std::string text(const std::string &what) {
        std::ostringstream out;
        out << op_.name << " at level " << static_cast<int>(level_) << ", scale " << args_.scale
            << ", values";
        for (double v : args_.values) out << ' ' << v;
        out << ": " << what;
        for (Placed &p : placed_) out << "\n    " << p.array.shape();
        out << "\n    destination is array " << dst_index_ << (args_.in_place ? ", in place" : "");
        return out.str();
    }

    const Operation &op_;
    Rng &rng_;
    Environment xe_;
    uint32_t height_, width_, channels_;
    std::vector<Placed> placed_; // destination, sources, mask
    size_t dst_index_ = 0;
    size_t sources_[3] = {};
    Arguments args_;
    Level level_ = Level::whole;
    kipx_site roi_{};
    kipx_pos at_[3] = {}, mask_at_{};
    std::vector<uint64_t> expected_;
    std::vector<Snapshot> pages_;
};

} // namespace

const std::vector<int32_t> &all_sets() {
    static const std::vector<int32_t> sets = [] {
        std::vector<int32_t> found;
        for (int32_t set : {KIPX_SIMD_OFF, KIPX_SIMD_AVX2, KIPX_SIMD_AVX512}) {
            SimdSwitch form(set);
            if (kipx_simd_set(0) == set) found.push_back(set);
        }
        return found;
    }();
    return sets;
}

std::string conform(const Operation &operation, uint64_t seed, int calls) {
    Rng rng(seed);
    for (const Types &types : operation.types)
        for (int i = 0; i < calls; ++i)
            if (std::string wrong = Trial(operation, types, rng).run(); !wrong.empty())
                return wrong;
    return {};
}

} // namespace kipx::test
