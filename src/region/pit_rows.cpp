// region/pit_rows.cpp - raising small pits, compiled once per instruction set.
//
// Of a pixel of level l, the pixels around it that it reaches over pixels at or below l are its pit,
// as far as a window shows them: the diamond of 13 pixels.
// The pit is closed when no pixel beyond the window belongs to it. Then the pixel is raised to the
// lowest level next to the pit.
#include "region/pit_rows.h"

#include "core/lanes.h"

namespace kipx::KIPX_SET {
namespace {

using Cells = Vector<u8>;

inline Cells least(Cells a, Cells b) { return a < b ? a : b; }
inline Cells not_above(Cells a, Cells level) { return reinterpret_cast<Cells>(a <= level); }
// A cell next to some of the pit, or next to none: then it looks like a border.
inline Cells beside(Cells cell, Cells pit) { return cell | ~pit; }

// The cells around one vector of pixels.
struct Window {
    const u8 *const *rows;
    ptrdiff_t x;
    Cells at(int y, int dx) const { return load_vector<u8>(rows[3 + y] + x + dx, 0); }
};

// What is known of the pits of one vector of pixels.
struct Pits {
    Cells level, around; // lowest level next to the pit
    explicit Pits(Cells l) : level(l), around(l | ~l) {}
    // Whether these cells belong to the pit, as masks.
    Cells member(Cells cell) {
        Cells in = not_above(cell, level);
        around = least(around, cell | in);
        return in;
    }
    // The pixels' new levels; beyond: the lowest cell beyond the window.
    Cells raised(Cells beyond) const {
        Cells border = around | ~around;
        Cells low = least(around, beyond);
        Cells stays = not_above(beyond, level) | reinterpret_cast<Cells>(low == border);
        return (level & stays) | (low & ~stays);
    }
};

inline Cells raise(const Window &w) {
    Pits p(w.at(0, 0));
    Cells e = p.member(w.at(0, 1)), o = p.member(w.at(0, -1));
    Cells n = p.member(w.at(-1, 0)), s = p.member(w.at(1, 0));
    Cells ee = p.member(beside(w.at(0, 2), e)), oo = p.member(beside(w.at(0, -2), o));
    Cells nn = p.member(beside(w.at(-2, 0), n)), ss = p.member(beside(w.at(2, 0), s));
    Cells ne = p.member(beside(w.at(-1, 1), n | e)), no = p.member(beside(w.at(-1, -1), n | o));
    Cells se = p.member(beside(w.at(1, 1), s | e)), so = p.member(beside(w.at(1, -1), s | o));
    Cells beyond = least(least(beside(w.at(0, 3), ee), beside(w.at(0, -3), oo)),
                         least(beside(w.at(-3, 0), nn), beside(w.at(3, 0), ss)));
    beyond = least(beyond, least(beside(w.at(-1, 2), ee | ne), beside(w.at(1, 2), ee | se)));
    beyond = least(beyond, least(beside(w.at(-1, -2), oo | no), beside(w.at(1, -2), oo | so)));
    beyond = least(beyond, least(beside(w.at(-2, 1), nn | ne), beside(w.at(-2, -1), nn | no)));
    beyond = least(beyond, least(beside(w.at(2, 1), ss | se), beside(w.at(2, -1), ss | so)));
    return p.raised(beyond);
}

void row(u8 *out, const u8 *const rows[7], u32 n) {
    for (u32 x = 0; x < n; x += vector_bytes) {
        Cells raised = raise({rows, x});
        memcpy(out + x, &raised, sizeof raised);
    }
}

} // namespace

extern const PitRow pit_rows[pit_row_count] = {row};

} // namespace kipx::KIPX_SET
