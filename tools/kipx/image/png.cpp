// png.cpp - PNG through libspng: 8 and 16 bits, 1 to 4 channels. Palettes and 1, 2, 4-bit greys are
// expanded to 8 bits, transparent colours to an alpha channel. Values are never converted: gamma and
// colour profiles are left out.
#include "image/files.h"

#include "image/orientation.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <spng.h>

namespace {

// What texts and profiles in a file may take, one by one and together, when they are unpacked.
constexpr size_t most_text = size_t(1) << 26;

using Codec = std::unique_ptr<spng_ctx, void (*)(spng_ctx *)>;

Codec open_codec(int flags) {
    Codec codec(spng_ctx_new(flags), spng_ctx_free);
    if (!codec) throw std::bad_alloc();
    return codec;
}

void check(const Source &source, int answer) {
    if (answer == SPNG_EMEM) throw std::bad_alloc();
    if (answer != SPNG_OK) source.fail(std::string("PNG: ") + spng_strerror(answer));
}

struct Layout {
    int format;
    uint32_t type, channels;
};

Layout layout_of(const spng_ihdr &header, bool transparent) {
    const bool wide = header.bit_depth == 16;
    const uint32_t type = wide ? KIPX_U16 : KIPX_U8;
    switch (header.color_type) {
    case SPNG_COLOR_TYPE_GRAYSCALE:
        if (transparent) return {wide ? SPNG_FMT_GA16 : SPNG_FMT_GA8, type, 2};
        return {wide ? SPNG_FMT_PNG : SPNG_FMT_G8, type, 1};
    case SPNG_COLOR_TYPE_GRAYSCALE_ALPHA:
        return {SPNG_FMT_PNG, type, 2};
    case SPNG_COLOR_TYPE_TRUECOLOR:
        if (transparent) return {wide ? SPNG_FMT_RGBA16 : SPNG_FMT_RGBA8, type, 4};
        return {SPNG_FMT_PNG, type, 3};
    case SPNG_COLOR_TYPE_INDEXED:
        return transparent ? Layout{SPNG_FMT_RGBA8, type, 4} : Layout{SPNG_FMT_RGB8, type, 3};
    default:
        return {SPNG_FMT_PNG, type, 4};
    }
}

// The chunks lie one behind the other within the file, up to the one that ends it: libspng asks for
// no more than the pixels.
void check_chunks(const Source &source, const std::vector<uint8_t> &bytes) {
    const auto number = [&](size_t at) {
        return uint64_t(bytes[at]) << 24 | bytes[at + 1] << 16 | bytes[at + 2] << 8 | bytes[at + 3];
    };
    for (uint64_t at = 8; bytes.size() - at >= 12; at += 12 + number(size_t(at))) {
        if (number(size_t(at)) > bytes.size() - at - 12) break;
        if (std::memcmp(&bytes[size_t(at) + 4], "IEND", 4) == 0) return;
    }
    source.fail("PNG: the file ends too early");
}

bool recognises(const uint8_t *head, size_t size) {
    static constexpr uint8_t mark[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    return size >= sizeof mark && std::equal(mark, mark + sizeof mark, head);
}

Picture read(Source &source) {
    const auto &bytes = source.bytes();
    check_chunks(source, bytes);
    const Codec codec = open_codec(0);
    check(source, spng_set_png_buffer(codec.get(), bytes.data(), bytes.size()));
    check(source, spng_set_chunk_limits(codec.get(), most_text, most_text));
    spng_ihdr header;
    check(source, spng_get_ihdr(codec.get(), &header));
    source.check(header.width, header.height, 1, KIPX_U8);
    spng_trns colour;
    const int found = spng_get_trns(codec.get(), &colour);
    if (found != SPNG_ECHUNKAVAIL) check(source, found);
    const bool transparent = found == SPNG_OK;
    const Layout layout = layout_of(header, transparent);
    Picture out;
    out.image = source.image(header.width, header.height, layout.channels, layout.type);
    check(source, spng_decode_image(codec.get(), out.image.data(), out.image.bytes(), layout.format,
                                    transparent ? SPNG_DECODE_TRNS : 0));
    check(source, spng_decode_chunks(codec.get()));
    spng_exif exif;
    if (spng_get_exif(codec.get(), &exif) == SPNG_OK)
        out.orientation =
            exif_orientation(reinterpret_cast<const uint8_t *>(exif.data), exif.length);
    return out;
}

void write(const Image &image, const Sink &sink) {
    static constexpr uint8_t colours[] = {
        SPNG_COLOR_TYPE_GRAYSCALE, SPNG_COLOR_TYPE_GRAYSCALE_ALPHA, SPNG_COLOR_TYPE_TRUECOLOR,
        SPNG_COLOR_TYPE_TRUECOLOR_ALPHA};
    const Codec codec = open_codec(SPNG_CTX_ENCODER);
    spng_ihdr header = {};
    header.width = image.width();
    header.height = image.height();
    header.bit_depth = image.type() == KIPX_U16 ? 16 : 8;
    header.color_type = colours[image.channels() - 1];
    int answer = spng_set_png_file(codec.get(), sink.file);
    if (answer == SPNG_OK) answer = spng_set_ihdr(codec.get(), &header);
    if (answer == SPNG_OK) answer = spng_set_option(codec.get(), SPNG_IMG_COMPRESSION_LEVEL, 3);
    if (answer == SPNG_OK)
        answer = spng_encode_image(codec.get(), image.data(), image.bytes(), SPNG_FMT_PNG,
                                   SPNG_ENCODE_FINALIZE);
    if (answer == SPNG_EMEM) throw std::bad_alloc();
    if (answer != SPNG_OK) sink.fail_encoding(std::string("PNG: ") + spng_strerror(answer));
}

constexpr const char *endings[] = {".png"};
constexpr uint32_t types[] = {KIPX_U8, KIPX_U16};

} // namespace

const Format png_format = {"PNG", endings, types, false, false, recognises, read, write};
