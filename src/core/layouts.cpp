// core/layouts.cpp - the layouts of the public records, held at compile time.
//
// Promises that the records of kipx/ have the sizes and offsets that callers of other languages, and
//          programs built earlier, count on. A record that moves stops the build here.
// Costs    nothing: no code, no data, and nothing in the headers that users compile.
#include <kipx/kipx.h>

#define SIZE(Record, bytes) static_assert(sizeof(Record) == (bytes), "size of " #Record)
#define AT(Record, field, bytes)                                                                   \
    static_assert(offsetof(Record, field) == (bytes), #Record "." #field)

// kipx/types.h
AT(kipx_arr, reserved, 16);
AT(kipx_arr, strides, 32);
AT(kipx_arr, naxes, 48);
AT(kipx_arr, reserved2, 50);
AT(kipx_arr, type, 52);
AT(kipx_arr, reserved3, 56);
AT(kipx_arr, offset, 64);
AT(kipx_arr, base, 72);
SIZE(kipx_arr, 80);
SIZE(kipx_site, 32);
SIZE(kipx_pos, 16);
SIZE(kipx_vrange, 16);

// kipx/stats.h
AT(kipx_histogram, width, 4);
AT(kipx_histogram, total, 8);
AT(kipx_histogram, bins, 12);
AT(kipx_histogram, counts, 16);
SIZE(kipx_histogram, 24);

// kipx/env.h
AT(KipxXE, flags, 8);
AT(KipxXE, param, 16);
AT(KipxXE, inline_stack, 24);
AT(KipxXE, saved, 72);
SIZE(KipxXE, 104);

// kipx/planes.h
AT(kipx_operand, origin, 16);
AT(kipx_operand, strides, 32);
AT(kipx_operand, role, 48);
SIZE(kipx_operand, 56);
AT(kipx_pack, extent, 16);
AT(kipx_pack, operand, 32);
AT(kipx_pack, context, 312);
SIZE(kipx_pack, 320);

// kipx/shape.h
AT(kipx_seshape, volume, 16);
SIZE(kipx_seshape, 32);
AT(kipx_strel, mask, 16);
SIZE(kipx_strel, 96);
AT(kipx_brshape, upper, 16);
SIZE(kipx_brshape, 32);

// kipx/tree.h
AT(KipxSTnode, next, 0);
AT(KipxSTnode, child, 8);
AT(KipxSTnode, parent, 16);
AT(KipxSTnode, data, 24);
SIZE(KipxSTnode, 32);
SIZE(KipxIFrecord, 8);
AT(KipxSTBIF, getdisposer, 8);
AT(KipxSTBIF, onattach, 16);
AT(KipxSTBIF, ondetach, 24);
SIZE(KipxSTBIF, 32);
AT(KipxST, root, 0);
AT(KipxST, onattach, 8);
AT(KipxST, onclear, 16);
AT(KipxST, dealloc, 24);
AT(KipxST, builder, 32);
SIZE(KipxST, 40);
AT(KipxSTB, interface_chain, 0);
AT(KipxSTB, specialisation, 8);
AT(KipxSTB, tree, 16);
AT(KipxSTB, flags, 24);
AT(KipxSTB, extsize, 26);
AT(KipxSTB, storage, 32);
AT(KipxSTB, parent, 40);
AT(KipxSTB, embedded_storage, 48);
AT(KipxSTB, saved, 96);
AT(KipxSTB, embedded_tree, 128);
SIZE(KipxSTB, 168);

// kipx/features.h
AT(KipxWTSregion, node, 0);
AT(KipxWTSregion, pixel, 8);
AT(KipxWTSregion, level, 12);
AT(KipxWTSregion, area, 16);
AT(KipxWTSregion, kept, 20);
SIZE(KipxWTSregion, 24);
AT(KipxWTSFDs, magic, 0);
AT(KipxWTSFDs, state_size, 4);
AT(KipxWTSFDs, state_offset, 8);
AT(KipxWTSFDs, parameter, 16);
AT(KipxWTSFDs, init, 24);
AT(KipxWTSFDs, destroy, 32);
AT(KipxWTSFDs, reserved, 40);
AT(KipxWTSFDs, update, 48);
AT(KipxWTSFDs, update2D, 56);
AT(KipxWTSFDs, merge, 64);
AT(KipxWTSFDs, lazymerge, 72);
AT(KipxWTSFDs, isgathered, 80);
AT(KipxWTSFDs, ongather, 88);
SIZE(KipxWTSFDs, 96);
AT(KipxWTSLSC, descriptors, 0);
AT(KipxWTSLSC, count, 8);
AT(KipxWTSLSC, record_size, 12);
AT(KipxWTSLSC, volume, 16);
AT(KipxWTSLSC, strides, 32);
SIZE(KipxWTSLSC, 48);
AT(KipxWTSMF, count, 0);
AT(KipxWTSMF, row, 8);
AT(KipxWTSMF, column, 16);
AT(KipxWTSMF, row_row, 24);
AT(KipxWTSMF, row_column, 32);
AT(KipxWTSMF, column_column, 40);
SIZE(KipxWTSMF, 48);
SIZE(KipxWTSPFpixel, 8);
AT(KipxWTSPF, capacity, 0);
AT(KipxWTSPF, count, 8);
AT(KipxWTSPF, entries, 16);
SIZE(KipxWTSPF, 24);
AT(KipxWTSIF, allocate, 8);
AT(KipxWTSIF, configure, 16);
AT(KipxWTSIF, finish, 24);
AT(KipxWTSIF, newregion, 32);
AT(KipxWTSIF, destroyfeatures, 40);
AT(KipxWTSIF, dispose, 48);
AT(KipxWTSIF, update, 56);
AT(KipxWTSIF, update2D, 64);
AT(KipxWTSIF, merge, 72);
AT(KipxWTSIF, gather, 80);
SIZE(KipxWTSIF, 88);

// kipx/fast_regions.h
AT(KipxFWTSRESnode, index, 4);
AT(KipxFWTSRESnode, node, 8);
AT(KipxFWTSRESnode, region, 40);
SIZE(KipxFWTSRESnode, 64);
AT(KipxFWTSRES, levelset, 168);
AT(KipxFWTSRES, pixels, 216);
AT(KipxFWTSRES, capacity, 224);
AT(KipxFWTSRES, first_block, 232);
AT(KipxFWTSRES, last_block, 240);
AT(KipxFWTSRES, count, 248);
AT(KipxFWTSRES, node_size, 252);
SIZE(KipxFWTSRES, 256);

// kipx/watershed.h
AT(KipxWatershedContext, levelset, 8);
AT(KipxWatershedContext, polarity, 16);
AT(KipxWatershedContext, connectivity, 18);
AT(KipxWatershedContext, shift, 20);
AT(KipxWatershedContext, seed_row, 24);
AT(KipxWatershedContext, seed_column, 28);
AT(KipxWatershedContext, output, 32);
SIZE(KipxWatershedContext, 40);

// kipx/mser.h
SIZE(KipxMSERlist, 24);
SIZE(KipxMSERparms, 20);
AT(KipxMSERContext, min_area_fraction, 4);
AT(KipxMSERContext, max_area_fraction, 8);
AT(KipxMSERContext, max_variation, 12);
AT(KipxMSERContext, min_diversity, 16);
AT(KipxMSERContext, min_area_pixels, 20);
AT(KipxMSERContext, gather, 24);
AT(KipxMSERContext, polarity, 28);
AT(KipxMSERContext, connectivity, 30);
AT(KipxMSERContext, shift, 32);
AT(KipxMSERContext, seed_row, 36);
AT(KipxMSERContext, seed_column, 40);
AT(KipxMSERContext, output, 48);
AT(KipxMSERContext, levelset, 56);
AT(KipxMSERContext, list, 104);
AT(KipxMSERContext, dark_count, 128);
AT(KipxMSERContext, bright_count, 132);
AT(KipxMSERContext, dark, 136);
AT(KipxMSERContext, bright, 144);
AT(KipxMSERContext, dark_builder, 152);
AT(KipxMSERContext, bright_builder, 160);
SIZE(KipxMSERContext, 168);
