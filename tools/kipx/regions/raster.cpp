// raster.cpp - see raster.h.
#include "regions/raster.h"

#include <algorithm>
#include <cmath>
#include <numbers>

void Box::take(Place place) {
    x0 = std::min(x0, place.x);
    y0 = std::min(y0, place.y);
    x1 = std::max(x1, place.x);
    y1 = std::max(y1, place.y);
}

void Raster::set(const Box &box, const std::vector<Place> &places) {
    box_ = box;
    stride_ = size_t(box.width()) + 2;
    cells_.assign(stride_ * (size_t(box.height()) + 2), 0);
    for (const Place &place : places) cells_[cell(place.x, place.y)] = 1;
}

bool Raster::at_border(uint32_t x, uint32_t y) const {
    const uint8_t *at = &cells_[cell(x, y)];
    return *at && !(at[-1] && at[1] && at[-std::ptrdiff_t(stride_)] && at[stride_]);
}

double Raster::perimeter() const {
    const auto stride = std::ptrdiff_t(stride_);
    std::vector<uint8_t> border(cells_.size());
    for (uint32_t y = box_.y0; y <= box_.y1; ++y)
        for (uint32_t x = box_.x0; x <= box_.x1; ++x) border[cell(x, y)] = at_border(x, y);
    uint64_t straight = 0, slanted = 0, mixed = 0;
    for (uint32_t y = box_.y0; y <= box_.y1; ++y)
        for (uint32_t x = box_.x0; x <= box_.x1; ++x) {
            const uint8_t *at = &border[cell(x, y)];
            if (!*at) continue;
            const int sides = at[-1] + at[1] + at[-stride] + at[stride];
            const int corners = at[-stride - 1] + at[-stride + 1] + at[stride - 1] + at[stride + 1];
            straight += (sides == 2 || sides == 3) && corners <= 2;
            slanted += (sides == 0 && corners == 2) || (sides == 1 && corners == 3);
            mixed += sides == 1 && (corners == 1 || corners == 2);
        }
    return double(straight) + double(slanted) * std::numbers::sqrt2 +
           double(mixed) * (1 + std::numbers::sqrt2) / 2;
}

std::vector<uint64_t> Raster::runs(Extent picture) const {
    std::vector<uint64_t> out;
    uint64_t start = 0; // of the run that is open
    bool within = false;
    const auto turn = [&](uint64_t at) {
        out.push_back(at - start);
        start = at;
        within = !within;
    };
    for (uint32_t x = box_.x0; x <= box_.x1; ++x) {
        const uint64_t column = uint64_t(x) * picture.height;
        for (uint32_t y = box_.y0; y <= box_.y1; ++y)
            if (inside(x, y) != within) turn(column + y);
        // Below the box all is outside, unless the next column goes on where this one ends.
        const bool goes_on = box_.y1 + 1 == picture.height && box_.y0 == 0 && x < box_.x1;
        if (within && !goes_on) turn(column + box_.y1 + 1);
    }
    const uint64_t end = uint64_t(picture.width) * picture.height;
    if (start < end || within) turn(end);
    return out;
}

namespace {

int64_t twice_area(const Ring &ring) {
    int64_t out = 0;
    for (size_t i = 0; i < ring.size(); ++i) {
        const Place &a = ring[i], &b = ring[(i + 1) % ring.size()];
        out += int64_t(a.x) * b.y - int64_t(b.x) * a.y;
    }
    return out;
}

// Whether the pixel below and right of a corner lies in a ring: how many of the ring's upright sides
// stand left of it in its row.
bool holds(const Ring &ring, Place pixel) {
    bool out = false;
    for (size_t i = 0; i < ring.size(); ++i) {
        const Place &a = ring[i], &b = ring[(i + 1) % ring.size()];
        const bool beside = std::min(a.y, b.y) <= pixel.y && pixel.y < std::max(a.y, b.y);
        out ^= a.x == b.x && beside && a.x <= pixel.x;
    }
    return out;
}

// Corners where a path goes straight on are left out.
Ring without_straights(const std::vector<Place> &path) {
    Ring out;
    for (size_t i = 0; i < path.size(); ++i) {
        const Place &before = path[(i + path.size() - 1) % path.size()], &at = path[i];
        const Place &after = path[(i + 1) % path.size()];
        if ((before.x == at.x) != (at.x == after.x)) out.push_back(at);
    }
    return out;
}

} // namespace

// Every side between a pixel inside and one outside is walked once, with the inside on the right.
// Where two pixels inside meet in a corner alone the walk stays with its own one; a walk that comes
// back to a corner has closed a ring there, which is taken off.
std::vector<Ring> Raster::rings() const {
    enum Way { right, down, left, up };
    static constexpr int step_x[] = {1, 0, -1, 0}, step_y[] = {0, 1, 0, -1};
    const size_t across = size_t(box_.width()) + 1;
    const auto corner = [&](Place at) { return (at.y - box_.y0) * across + (at.x - box_.x0); };
    const auto is_inside = [&](int64_t x, int64_t y) {
        return cells_[size_t(y - box_.y0 + 1) * stride_ + size_t(x - box_.x0 + 1)] != 0;
    };
    // Whether a side leads from a corner in a direction, and whether it was walked.
    std::vector<uint8_t> open(across * (size_t(box_.height()) + 1));
    for (uint32_t y = box_.y0; y <= box_.y1; ++y)
        for (uint32_t x = box_.x0; x <= box_.x1; ++x) {
            if (!inside(x, y)) continue;
            if (!is_inside(x, int64_t(y) - 1)) open[corner({x, y})] |= 1 << right;
            if (!is_inside(int64_t(x) + 1, y)) open[corner({x + 1, y})] |= 1 << down;
            if (!is_inside(x, int64_t(y) + 1)) open[corner({x + 1, y + 1})] |= 1 << left;
            if (!is_inside(int64_t(x) - 1, y)) open[corner({x, y + 1})] |= 1 << up;
        }
    std::vector<Ring> out;
    std::vector<int32_t> place_in_path(open.size(), -1);
    std::vector<Place> path;
    for (size_t start = 0; start < open.size(); ++start) {
        while (open[start]) {
            Place at = {uint32_t(box_.x0 + start % across), uint32_t(box_.y0 + start / across)};
            int way = right;
            while (true) {
                const size_t here = corner(at);
                if (place_in_path[here] >= 0) {
                    const auto first = path.begin() + place_in_path[here];
                    for (auto passed = first; passed != path.end(); ++passed)
                        place_in_path[corner(*passed)] = -1;
                    out.push_back(without_straights({first, path.end()}));
                    path.erase(first, path.end());
                }
                if (!open[here]) break; // only where the last ring has been closed
                place_in_path[here] = int32_t(path.size());
                path.push_back(at);
                const int turned_right = (way + 1) % 4;
                const int next[] = {turned_right, way, (way + 3) % 4, (way + 2) % 4};
                for (const int candidate : next)
                    if (open[here] >> candidate & 1) {
                        way = candidate;
                        break;
                    }
                open[here] &= uint8_t(~(1 << way));
                at = {at.x + uint32_t(step_x[way]), at.y + uint32_t(step_y[way])};
            }
        }
    }
    return out;
}

std::vector<Polygon> Raster::polygons() const {
    std::vector<Polygon> out;
    std::vector<Ring> holes;
    for (Ring &ring : rings()) {
        if (twice_area(ring) > 0)
            out.push_back({std::move(ring), {}});
        else
            holes.push_back(std::move(ring));
    }
    std::sort(out.begin(), out.end(), [](const Polygon &a, const Polygon &b) {
        return twice_area(a.outer) <
               twice_area(b.outer); // so that the first around a hole is its own
    });
    for (Ring &hole : holes) {
        const auto least = std::min_element(hole.begin(), hole.end(), [](Place a, Place b) {
            return a.x != b.x ? a.x < b.x : a.y < b.y;
        });
        const Place beside = {least->x - 1, least->y}; // a pixel of the region
        const auto owner = std::find_if(out.begin(), out.end(), [&](const Polygon &polygon) {
            return out.size() == 1 || holds(polygon.outer, beside);
        });
        owner->holes.push_back(std::move(hole));
    }
    return out;
}

// The frame of the box is outside, so that what lies around the region is one part, and the first;
// every other part is a hole.
void Raster::fill_holes(size_t limit) {
    constexpr uint8_t seen = 2; // outside, and no hole to fill
    std::vector<size_t> part;
    const auto take = [&](size_t at) {
        if (cells_[at] != 0) return;
        cells_[at] = seen;
        part.push_back(at);
    };
    for (size_t start = 0; start < cells_.size(); ++start) {
        if (cells_[start] != 0) continue;
        part.clear();
        take(start);
        for (size_t i = 0; i < part.size(); ++i) {
            const size_t at = part[i], column = at % stride_;
            if (column > 0) take(at - 1);
            if (column + 1 < stride_) take(at + 1);
            if (at >= stride_) take(at - stride_);
            if (at + stride_ < cells_.size()) take(at + stride_);
        }
        if (start == 0 || part.size() > limit) continue;
        for (const size_t at : part) cells_[at] = 1;
    }
    for (uint8_t &at : cells_) at &= 1;
}
