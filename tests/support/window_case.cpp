// support/window_case.cpp - operations over a window, on drawn arrays.
#include "support/window_case.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <sstream>

#include "support/conformance.h"
#include "support/environment.h"

namespace kipx::test {
namespace {

enum class Place { apart, in_place, across };

// Channel c of a plane of a view that begins dx columns into the array.
Plane plane_of(const GuardedArray &a, uint32_t plane, uint32_t channel, int dx, int width) {
    Plane p{static_cast<int>(a.shape().height), width, {}};
    p.values.resize(static_cast<size_t>(p.height) * width);
    for (int y = 0; y < p.height; y++)
        for (int x = 0; x < width; x++)
            p.at(y, x) =
                a.real({static_cast<uint32_t>(y), static_cast<uint32_t>(x + dx), channel, plane});
    return p;
}

bool agrees(const WindowCase &c, double got, double must, double scale) {
    if (std::isnan(got) && std::isnan(must)) return true;
    if (c.tolerance > 0 && std::isfinite(must)) return std::fabs(got - must) <= c.tolerance * scale;
    return memcmp(&got, &must, sizeof got) == 0 || (got == must && (got != 0 || !is_real(c.type)));
}

} // namespace

double stored(uint32_t type, long double value) {
    if (is_real(type)) return type == KIPX_F32 ? static_cast<float>(value) : double(value);
    const long double low = static_cast<long double>(lowest(type)),
                      high = static_cast<long double>(highest(type));
    return static_cast<double>(std::clamp(nearbyintl(value), low, high));
}

namespace {

double neutral(uint32_t type, bool smallest) {
    if (type == KIPX_F32) return smallest ? FLT_MAX : -FLT_MAX;
    if (type == KIPX_F64) return smallest ? DBL_MAX : -DBL_MAX;
    return static_cast<double>(smallest ? highest(type) : lowest(type));
}

Plane extreme(uint32_t type, bool smallest, const Plane &src, const Region &r, const Footprint &e) {
    Plane out{r.height, r.width, std::vector<double>(static_cast<size_t>(r.height) * r.width)};
    for (int y = 0; y < r.height; y++)
        for (int x = 0; x < r.width; x++) {
            double m = neutral(type, smallest);
            for (int i = 0; i < e.height; i++)
                for (int j = 0; j < e.width; j++) {
                    const int sy = r.y + y - e.row + i, sx = r.x + x - e.column + j;
                    if (!e.has(i, j) || !src.has(sy, sx)) continue;
                    const double v = src.at(sy, sx);
                    if (smallest ? v < m : v > m) m = v;
                }
            out.at(y, x) = m;
        }
    return out;
}

Plane minus(uint32_t type, const Plane &a, const Plane &b) {
    Plane out = a;
    for (size_t i = 0; i < a.values.size(); i++)
        out.values[i] = stored(type, static_cast<long double>(a.values[i]) - b.values[i]);
    return out;
}

Plane part(const Plane &src, const Region &r) {
    Plane out{r.height, r.width, {}};
    for (int y = 0; y < r.height; y++)
        for (int x = 0; x < r.width; x++) out.values.push_back(src.at(r.y + y, r.x + x));
    return out;
}

} // namespace

Plane morphology(uint32_t type, uint32_t op, const Plane &src, const Region &r,
                 const Footprint &e) {
    auto twice = [&](bool first) {
        return extreme(type, !first, extreme(type, first, src, r, e), {0, 0, r.height, r.width}, e);
    };
    switch (op) {
    case 3:
        return extreme(type, true, src, r, e);
    case 4:
        return extreme(type, false, src, r, e);
    case 5:
        return twice(false);
    case 6:
        return twice(true);
    case 7:
        return minus(type, twice(false), part(src, r));
    case 8:
        return minus(type, part(src, r), twice(true));
    case 9:
        return minus(type, extreme(type, false, src, r, e), extreme(type, true, src, r, e));
    default:
        return part(src, r);
    }
}

std::string try_window(Rng &rng, const WindowCase &c) {
    const Place place = static_cast<Place>(rng.below(3));
    Shape s;
    s.type = c.type;
    s.width = 1 + static_cast<uint32_t>(rng.below(c.most_width));
    s.height = 1 + static_cast<uint32_t>(rng.below(c.most_height));
    s.channels = c.channels[rng.below(c.channels.size())];
    s.layout = rng.pick(all_layouts), s.edge = rng.one_in(2) ? Edge::first : Edge::last;
    s.shift = rng.below(3) * element_size(c.type);
    if (rng.one_in(4)) s.naxes = 4, s.planes = 1 + static_cast<uint32_t>(rng.below(3));
    const bool across = place == Place::across && s.width > 1;
    GuardedArray src(s);
    src.fill(rng, c.values);
    Shape ds = s;
    if (place == Place::apart) ds.layout = rng.pick(all_layouts);
    GuardedArray other(ds);
    other.fill(rng, Values::finite);
    GuardedArray &dst = place == Place::apart ? other : src;
    Shape ms = s;
    ms.type = KIPX_U8, ms.layout = rng.pick(all_layouts);
    if (rng.one_in(2)) ms.naxes = 3;
    if (c.single_mask && rng.one_in(2)) ms.channels = 1;
    GuardedArray mask(ms);
    mask.for_each([&](At at) { mask.set_integer(at, rng.one_in(3) ? 0 : rng.between(1, 255)); });

    kipx_arr from = *src.arr(), to = *dst.arr();
    const int dx = across ? 1 : 0, width = static_cast<int>(s.width) - dx;
    if (across) {
        from.volume[2] = to.volume[2] = static_cast<uint32_t>(width);
        to.base = dst.address({0, 1, 0, 0}), to.offset = 0;
    }
    const kipx_site roi = random_rectangle(rng, s.width, s.height);
    const bool has_roi = rng.one_in(2), has_mask = rng.one_in(2);
    Region r{0, 0, static_cast<int>(s.height), width};
    if (has_roi) {
        auto end = [](uint32_t at, uint32_t n, int most) {
            return static_cast<int>(std::min<int64_t>(
                int64_t{static_cast<int32_t>(at)} + static_cast<int32_t>(n), most));
        };
        r.y = std::max(static_cast<int32_t>(roi.origin[1]), 0);
        r.x = std::max(static_cast<int32_t>(roi.origin[2]), 0);
        r.height = end(roi.origin[1], roi.extent[1], r.height) - r.y;
        r.width = end(roi.origin[2], roi.extent[2], width) - r.x;
    }
    const bool empty = r.height < 1 || r.width < 1;

    std::vector<Plane> must;
    for (uint32_t plane = 0; !empty && plane < src.planes(); plane++)
        for (uint32_t k = 0; k < s.channels; k++)
            must.push_back(c.model(plane_of(src, plane, k, 0, width), r, k));
    std::vector<double> scales; // the largest finite value of each
    for (const Plane &p : must) {
        scales.push_back(0);
        for (double v : p.values)
            if (std::isfinite(v)) scales.back() = std::max(scales.back(), std::fabs(v));
    }
    const Snapshot src_before = src.snapshot(), dst_before = other.snapshot();
    for (int32_t set : all_sets()) {
        src.restore(src_before), other.restore(dst_before);
        SimdSwitch simd(set);
        Environment xe;
        std::ostringstream where;
        where << s << (has_roi ? " roi" : "") << (has_mask ? " mask" : "") << " place "
              << static_cast<int>(place) << " set " << set << " region " << r.y << "," << r.x << " "
              << r.height << "x" << r.width << ": ";
        const bool null_dst = place == Place::in_place && rng.one_in(2);
        const int32_t code = c.call(xe, &from, null_dst ? nullptr : &to,
                                    has_mask ? mask.arr() : nullptr, has_roi ? &roi : nullptr, r);
        if (code != (empty ? KIPX_EEMPTY : 0)) return where.str() + "code " + std::to_string(code);
        if (std::string d = dst.damage(); !d.empty()) return where.str() + d;
        if (place == Place::apart)
            if (std::string d = src.changes(src_before); !d.empty())
                return where.str() + "source: " + d;
        std::string wrong;
        GuardedArray before(place == Place::apart ? ds : s);
        before.restore(place == Place::apart ? dst_before : src_before);
        dst.for_each([&](At at) {
            if (!wrong.empty()) return;
            const int y = static_cast<int>(at.y), x = static_cast<int>(at.x) - dx;
            const At m{at.y, static_cast<uint32_t>(std::max(x, 0)),
                       ms.channels == 1 ? 0 : at.channel, ms.naxes == 4 ? at.plane : 0};
            const bool inside = !empty && y >= r.y && y < r.y + r.height && x >= r.x &&
                                x < r.x + r.width && (!has_mask || mask.integer(m) != 0);
            double value = before.real(at), scale = 0;
            if (inside) {
                const Plane &p = must[at.plane * s.channels + at.channel];
                value = p.at(y - r.y, x - r.x);
                scale = scales[at.plane * s.channels + at.channel];
            }
            const double got = dst.real(at);
            if (inside ? agrees(c, got, value, scale)
                       : memcmp(&got, &value, sizeof got) == 0 ||
                             (std::isnan(got) && std::isnan(value)))
                return;
            std::ostringstream text;
            text << "element " << at.y << "," << at.x << " channel " << at.channel << " plane "
                 << at.plane << " is " << got << ", not " << value;
            wrong = text.str();
        });
        if (!wrong.empty()) return where.str() + wrong;
    }
    return {};
}

} // namespace kipx::test
