// scene.h - a made micrograph with known truth: an uneven light, bright and dark cells that touch,
// nuclei and grain, and a camera with photon and read noise.
//
// Gives    Scene: the expected light, the illumination alone and the labels of the cells; and noisy
//          frames of any expected light.
// Promises integer arithmetic only: the same bytes on every machine for the same options. A cell
//          looks the same wherever rows are cut. Light is counted in sixteenths of a photon.
// Costs    some 100 ns a pixel, and beside the result a band of rows and 80 bytes a cell.
#pragma once

#include "image/image.h"

#include <cstdint>
#include <vector>

struct SceneOptions {
    uint32_t width = 960;
    uint32_t height = 640;
    uint64_t seed = 1;
    uint32_t cells = 0; // 0: one per 3600 pixels
};

class Scene {
public:
    explicit Scene(const SceneOptions &options);

    // Expected light, u16. labels, when given, becomes an s32 image: 0 background, else 1 to cells().
    Image light(Image *labels = nullptr) const;
    // The light where there is no cell, u16.
    Image illumination() const;
    uint32_t cells() const { return uint32_t(cells_.size()); }

private:
    struct Cell {
        int64_t x, y;                      // centre in sixteenths of a pixel
        int32_t along, across;             // half axes in sixteenths
        int32_t cosine, sine;              // of the long axis, in 1/32768
        int64_t along_scale, across_scale; // 2^40 / half axis squared
        int32_t edge;                      // depth over which it fades in, see Depth
        int32_t contrast;                  // against the light around it, in 1/256
        int32_t nucleus_x, nucleus_y;      // centre of the nucleus, in the cell's axes
        int32_t nucleus_scale;             // its size, see depth_at
        int32_t nucleus_contrast;          // 1/256
    };
    struct Band;

    void place_cells();
    Cell make_cell(uint64_t slot, int64_t x, int64_t y) const;
    int32_t illumination_at(uint32_t x, uint32_t y) const;
    void find_depths(Band &band) const;
    void add_depth(Band &band, uint32_t index) const;
    int32_t light_at(const Band &band, size_t at, uint32_t x, uint32_t y) const;
    bool inside(const Band &band, size_t at) const;

    SceneOptions options_;
    uint32_t pitch_;                   // distance of the slots that cells stand in, pixels
    int warp_shift_;                   // width of the field that bends outlines, see lattice_noise
    std::vector<Cell> cells_;          // sorted by slot, row by row
    std::vector<uint32_t> row_starts_; // first cell of each row of slots, and the end
};

// A frame that the camera takes of u16 light: u8, a step is 4 photons. key tells frames apart.
Image noisy_frame(const Image &light, uint64_t key);
// The same without noise.
Image exposed(const Image &light);
// The key of a frame of the scene with a seed.
uint64_t frame_key(uint64_t seed, uint64_t number);
