// tiff.cpp - TIFF through libtiff: striped and tiled, samples side by side or in planes, 1 to 4
// channels; 8, 16 and 32-bit integers with and without sign, 32 and 64-bit floats; palettes
// are expanded to RGB, bilevel pictures to 0 and 255, and zero-is-white is turned round. Of several
// pictures in a file the first is read.
//
// libtiff reports through process-wide handlers; the last error of the thread is kept for the
// sentence, warnings are dropped.
#include "image/files.h"

#include "failure.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <mutex>
#include <tiffio.h>

namespace {

thread_local char last_error[200];

void on_error(const char *, const char *format, va_list arguments) {
    std::vsnprintf(last_error, sizeof last_error, format, arguments);
}

using Handle = std::unique_ptr<TIFF, void (*)(TIFF *)>;

void listen() {
    static std::once_flag once;
    std::call_once(once, [] {
        TIFFSetWarningHandler(nullptr);
        TIFFSetErrorHandler(on_error);
    });
    std::strcpy(last_error, "damaged");
}

// The file's bytes as libtiff wants to see them.
struct Stream {
    const std::vector<uint8_t> &bytes;
    uint64_t at = 0;
};

tmsize_t stream_read(thandle_t handle, void *to, tmsize_t size) {
    auto *stream = static_cast<Stream *>(handle);
    const uint64_t total = stream->bytes.size();
    if (stream->at >= total || size <= 0) return 0;
    const size_t count = size_t(std::min<uint64_t>(uint64_t(size), total - stream->at));
    std::memcpy(to, stream->bytes.data() + stream->at, count);
    stream->at += count;
    return tmsize_t(count);
}

tmsize_t stream_write(thandle_t, void *, tmsize_t) { return 0; }

toff_t stream_seek(thandle_t handle, toff_t offset, int whence) {
    auto *stream = static_cast<Stream *>(handle);
    const uint64_t start = whence == SEEK_SET   ? 0
                           : whence == SEEK_CUR ? stream->at
                                                : stream->bytes.size();
    return stream->at = start + offset;
}

toff_t stream_size(thandle_t handle) { return static_cast<Stream *>(handle)->bytes.size(); }

int stream_close(thandle_t) { return 0; }

struct Layout {
    uint32_t width = 0, height = 0;
    uint16_t bits = 1, samples = 1, kind = SAMPLEFORMAT_UINT, planar = PLANARCONFIG_CONTIG;
    uint16_t photometric = PHOTOMETRIC_MINISBLACK, compression = COMPRESSION_NONE;
};

Layout read_layout(TIFF *tiff, const Source &source) {
    Layout out;
    if (!TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &out.width) ||
        !TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &out.height))
        source.fail("TIFF: the header gives no size");
    TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &out.bits);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &out.samples);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &out.kind);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &out.planar);
    TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &out.photometric);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &out.compression);
    if (out.photometric == PHOTOMETRIC_YCBCR && out.compression == COMPRESSION_JPEG) {
        TIFFSetField(tiff, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
        out.photometric = PHOTOMETRIC_RGB;
    }
    return out;
}

uint32_t element_type(const Layout &layout, const Source &source) {
    const bool sign = layout.kind == SAMPLEFORMAT_INT, real = layout.kind == SAMPLEFORMAT_IEEEFP;
    const bool known =
        sign || real || layout.kind == SAMPLEFORMAT_UINT || layout.kind == SAMPLEFORMAT_VOID;
    switch (known ? layout.bits : 0) {
    case 1:
        if (layout.samples == 1 && !sign && !real) return KIPX_U8;
        break;
    case 8:
        if (!real) return sign ? KIPX_S8 : KIPX_U8;
        break;
    case 16:
        if (!real) return sign ? KIPX_S16 : KIPX_U16;
        break;
    case 32:
        return real ? KIPX_F32 : sign ? KIPX_S32 : KIPX_U32;
    case 64:
        if (real) return KIPX_F64;
        break;
    default:
        break;
    }
    source.fail("TIFF: samples of " + std::to_string(layout.bits) + " bits and sample format " +
                std::to_string(layout.kind) +
                "; expected integers of 8, 16, 32 or floats of 32, 64 bits");
}

void check_colours(const Layout &layout, const Source &source) {
    switch (layout.photometric) {
    case PHOTOMETRIC_MINISBLACK:
    case PHOTOMETRIC_MINISWHITE:
    case PHOTOMETRIC_RGB:
        return;
    case PHOTOMETRIC_PALETTE:
        if (layout.samples == 1 && layout.bits == 8) return;
        break;
    default:
        break;
    }
    source.fail("TIFF: colour model " + std::to_string(layout.photometric) +
                "; expected grey, RGB or an 8-bit palette");
}

// Copies a block of decoded rows to its place: sample < 0 means that all channels lie side by side.
void place(Image &image, const uint8_t *block, size_t block_row, uint32_t x0, uint32_t y0,
           uint32_t width, uint32_t height, int sample, bool bilevel) {
    const size_t element = size_of(image.type()), pixel = element * image.channels();
    for (uint32_t y = 0; y < height; ++y) {
        const uint8_t *in = block + y * block_row;
        uint8_t *out = image.row(y0 + y) + x0 * pixel;
        if (bilevel) {
            for (uint32_t x = 0; x < width; ++x) out[x] = in[x / 8] >> (7 - x % 8) & 1 ? 255 : 0;
        } else if (sample < 0) {
            std::memcpy(out, in, width * pixel);
        } else {
            for (uint32_t x = 0; x < width; ++x)
                std::memcpy(out + x * pixel + size_t(sample) * element, in + x * element, element);
        }
    }
}

[[noreturn]] void damaged(const Source &source) { source.fail(std::string("TIFF: ") + last_error); }

std::vector<uint8_t> block_buffer(const Source &source, uint64_t bytes, uint64_t image_bytes) {
    // A block larger than the picture and a bit of padding is a lie that would only cost memory.
    if (bytes == 0 || bytes > (image_bytes + (1 << 20)) * 4)
        source.fail("TIFF: blocks of " + std::to_string(bytes) +
                    " bytes do not fit the picture's size");
    return std::vector<uint8_t>(size_t(bytes));
}

void read_strips(TIFF *tiff, const Source &source, const Layout &layout, Image &image) {
    uint32_t rows = 0;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &rows);
    if (rows == 0) source.fail("TIFF: strips of no rows");
    rows = std::min(rows, layout.height);
    const bool planes = layout.planar == PLANARCONFIG_SEPARATE && layout.samples > 1;
    const size_t row_bytes = size_t(TIFFScanlineSize64(tiff));
    if (row_bytes != (uint64_t(layout.width) * layout.bits * (planes ? 1 : layout.samples) + 7) / 8)
        source.fail("TIFF: rows of " + std::to_string(row_bytes) +
                    " bytes do not fit the picture's size");
    auto block = block_buffer(source, TIFFStripSize64(tiff), image.bytes());
    const int samples = planes ? layout.samples : 1;
    for (int sample = 0; sample < samples; ++sample)
        for (uint32_t y = 0; y < layout.height; y += std::min(rows, layout.height - y)) {
            const uint32_t count = std::min(rows, layout.height - y);
            const auto wanted = tmsize_t(count * row_bytes);
            if (TIFFReadEncodedStrip(tiff, TIFFComputeStrip(tiff, y, uint16_t(sample)),
                                     block.data(), wanted) != wanted)
                damaged(source);
            place(image, block.data(), row_bytes, 0, y, layout.width, count, planes ? sample : -1,
                  layout.bits == 1);
        }
}

void read_tiles(TIFF *tiff, const Source &source, const Layout &layout, Image &image) {
    uint32_t width = 0, height = 0;
    TIFFGetField(tiff, TIFFTAG_TILEWIDTH, &width);
    TIFFGetField(tiff, TIFFTAG_TILELENGTH, &height);
    const bool planes = layout.planar == PLANARCONFIG_SEPARATE && layout.samples > 1;
    const size_t row_bytes = size_t(TIFFTileRowSize64(tiff));
    if (width == 0 || height == 0 ||
        row_bytes != (uint64_t(width) * layout.bits * (planes ? 1 : layout.samples) + 7) / 8)
        source.fail("TIFF: tiles of " + std::to_string(width) + "x" + std::to_string(height) +
                    " pixels cannot be read");
    auto block = block_buffer(source, TIFFTileSize64(tiff), image.bytes());
    const auto wanted = tmsize_t(block.size());
    const int samples = planes ? layout.samples : 1;
    for (int sample = 0; sample < samples; ++sample)
        for (uint64_t y = 0; y < layout.height; y += height)
            for (uint64_t x = 0; x < layout.width; x += width) {
                const uint32_t x0 = uint32_t(x), y0 = uint32_t(y);
                const uint32_t tile = TIFFComputeTile(tiff, x0, y0, 0, uint16_t(sample));
                if (TIFFReadEncodedTile(tiff, tile, block.data(), wanted) != wanted)
                    damaged(source);
                place(image, block.data(), row_bytes, x0, y0, std::min(width, layout.width - x0),
                      std::min(height, layout.height - y0), planes ? sample : -1, layout.bits == 1);
            }
}

Image with_palette(TIFF *tiff, const Source &source, const Image &indices) {
    uint16_t *table[3] = {};
    if (!TIFFGetField(tiff, TIFFTAG_COLORMAP, &table[0], &table[1], &table[2]))
        source.fail("TIFF: the palette is missing");
    Image out = source.image(indices.width(), indices.height(), 3, KIPX_U8);
    for (uint64_t i = 0; i < indices.pixels(); ++i)
        for (int c = 0; c < 3; ++c)
            out.data()[3 * i + uint64_t(c)] = uint8_t(table[c][indices.data()[i]] >> 8);
    return out;
}

void turn_round(Image &image) {
    with_type(image.type(), [&](auto sample) {
        using T = decltype(sample);
        if constexpr (std::is_unsigned_v<T>)
            std::transform(image.as<T>(), image.as<T>() + image.elements(), image.as<T>(),
                           [](T value) { return T(~value); });
    });
}

bool recognises(const uint8_t *head, size_t size) {
    return size >= 4 && (std::memcmp(head, "II*\0", 4) == 0 || std::memcmp(head, "MM\0*", 4) == 0 ||
                         std::memcmp(head, "II+\0", 4) == 0 || std::memcmp(head, "MM\0+", 4) == 0);
}

Image read(const Source &source) {
    listen();
    Stream stream{source.bytes};
    const Handle tiff(TIFFClientOpen("file", "rm", &stream, stream_read, stream_write, stream_seek,
                                     stream_close, stream_size, nullptr, nullptr),
                      TIFFClose);
    if (!tiff) damaged(source);
    const Layout layout = read_layout(tiff.get(), source);
    const uint32_t type = element_type(layout, source);
    check_colours(layout, source);
    source.check(layout.width, layout.height, layout.samples, type);
    if (!TIFFIsCODECConfigured(layout.compression))
        source.fail("TIFF: compression " + std::to_string(layout.compression) +
                    " is not supported");
    Image image = source.image(layout.width, layout.height, layout.samples, type);
    if (TIFFIsTiled(tiff.get()))
        read_tiles(tiff.get(), source, layout, image);
    else
        read_strips(tiff.get(), source, layout, image);
    if (layout.photometric == PHOTOMETRIC_MINISWHITE) turn_round(image);
    if (layout.photometric == PHOTOMETRIC_PALETTE) return with_palette(tiff.get(), source, image);
    return image;
}

bool encode(TIFF *tiff, const Image &image) {
    const uint32_t rows =
        uint32_t(std::clamp<size_t>((size_t(1) << 18) / image.row_bytes(), 1, image.height()));
    const int kind = !is_integer(image.type()) ? SAMPLEFORMAT_IEEEFP
                     : image.type() & 8        ? SAMPLEFORMAT_INT
                                               : SAMPLEFORMAT_UINT;
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, image.width());
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, image.height());
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, int(size_of(image.type()) * 8));
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, int(image.channels()));
    TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, kind);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC,
                 image.channels() < 3 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, rows);
    if (image.channels() == 2 || image.channels() == 4) {
        const uint16_t extra = EXTRASAMPLE_UNASSALPHA;
        TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &extra);
    }
    for (uint32_t y = 0, strip = 0; y < image.height(); y += rows, ++strip) {
        const auto size = tmsize_t(std::min(rows, image.height() - y) * image.row_bytes());
        // libtiff takes a pointer to changeable bytes, and changes them only for the other byte
        // order.
        if (TIFFWriteEncodedStrip(tiff, strip, const_cast<uint8_t *>(image.row(y)), size) != size)
            return false;
    }
    return TIFFFlush(tiff);
}

void write(const Image &image, const Sink &sink) {
    listen();
    const bool large = image.bytes() > UINT32_MAX - (1u << 24);
    const Handle tiff(TIFFOpen(sink.path.c_str(), large ? "w8" : "w"), TIFFClose);
    if (!tiff || !encode(tiff.get(), image)) sink.fail(std::string("TIFF: ") + last_error);
}

} // namespace

const Format tiff_format = {
    "TIFF",
    {".tif", ".tiff"},
    {KIPX_U8, KIPX_U16, KIPX_U32, KIPX_S8, KIPX_S16, KIPX_S32, KIPX_F32, KIPX_F64},
    recognises,
    read,
    write};
