// tiff.cpp - TIFF through libtiff: any page of a file, striped and tiled, samples side by side or in
// planes, 1 to 4 channels; 8, 16 and 32-bit integers with and without sign, 32 and 64-bit floats.
// Samples of 1, 2 and 4 bits are spread over 0 to 255, those of 10, 12 and 14 keep their values in
// 16; palettes are expanded to RGB, and zero-is-white is turned round.
//
// libtiff reports through process-wide handlers; the last error of the thread is kept for the
// sentence, warnings are dropped. Of a file on disk it reads what it needs, and nothing throws
// through it.
#include "image/files.h"

#include "failure.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <new>
#include <tiffio.h>
#include <unistd.h>
#include <vector>

namespace {

thread_local char last_error[200];

void give_up() { throw std::bad_alloc(); }

// libtiff 4.5 counts a tag before it has room for it; without memory for its first one it looks into a
// table that is not there. Then the program ends as wherever memory fails in what cannot throw.
void on_error(const char *, const char *format, va_list arguments) noexcept {
    std::vsnprintf(last_error, sizeof last_error, format, arguments);
    if (std::strstr(format, "list of custom values")) give_up();
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

// The file as libtiff wants to see it.
struct Stream {
    Source &source;
    uint64_t at = 0;
};

tmsize_t stream_read(thandle_t handle, void *to, tmsize_t size) {
    auto *stream = static_cast<Stream *>(handle);
    try {
        const size_t got = size > 0 ? stream->source.read_at(stream->at, to, size_t(size)) : 0;
        stream->at += got;
        return tmsize_t(got);
    } catch (const Failure &failure) {
        std::snprintf(last_error, sizeof last_error, "%s", failure.what());
        return -1;
    }
}

tmsize_t stream_write(thandle_t, void *, tmsize_t) { return 0; }

toff_t stream_seek(thandle_t handle, toff_t offset, int whence) {
    auto *stream = static_cast<Stream *>(handle);
    const uint64_t start = whence == SEEK_SET   ? 0
                           : whence == SEEK_CUR ? stream->at
                                                : stream->source.size();
    return stream->at = start + offset;
}

toff_t stream_size(thandle_t handle) { return static_cast<Stream *>(handle)->source.size(); }

int stream_close(thandle_t) { return 0; }

struct Layout {
    uint32_t width = 0, height = 0;
    uint16_t bits = 1, samples = 1, kind = SAMPLEFORMAT_UINT, planar = PLANARCONFIG_CONTIG;
    uint16_t photometric = PHOTOMETRIC_MINISBLACK, compression = COMPRESSION_NONE;
    uint16_t orientation = ORIENTATION_TOPLEFT;

    bool packed() const { return bits % 8 != 0; }
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
    TIFFGetFieldDefaulted(tiff, TIFFTAG_ORIENTATION, &out.orientation);
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
    case 2:
    case 4:
        if (!sign && !real) return KIPX_U8;
        break;
    case 10:
    case 12:
    case 14:
        if (!sign && !real) return KIPX_U16;
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
    source.fail(
        fmt::format("TIFF: samples of {} bits and sample format {}; expected integers of 1, 2, "
                    "4, 8, 10, 12, 14, 16, 32 or floats of 32, 64 bits",
                    layout.bits, layout.kind));
}

void check_colours(const Layout &layout, const Source &source) {
    switch (layout.photometric) {
    case PHOTOMETRIC_MINISBLACK:
    case PHOTOMETRIC_MINISWHITE:
    case PHOTOMETRIC_RGB:
        return;
    case PHOTOMETRIC_PALETTE:
        if (layout.samples == 1 && layout.bits <= 8) return;
        break;
    case PHOTOMETRIC_SEPARATED:
        source.fail("TIFF: four colours (CMYK); grey or RGB expected: `convert IN -colorspace sRGB "
                    "OUT.png` makes it that");
    default:
        break;
    }
    source.fail(fmt::format("TIFF: colour model {}; expected grey, RGB or a palette of 8 bits",
                            layout.photometric));
}

// Samples that begin inside bytes, most significant bit first: small ones spread over 0 to 255 but
// for palette entries, larger ones as they are.
void unpack(const uint8_t *in, size_t count, const Layout &layout, uint8_t *out) {
    const uint32_t most = (1u << layout.bits) - 1;
    const uint32_t step = layout.photometric == PHOTOMETRIC_PALETTE ? 1 : 255 / most;
    uint32_t held = 0;
    int bits = 0;
    for (size_t i = 0; i < count; ++i) {
        for (; bits < layout.bits; bits += 8) held = held << 8 | *in++;
        bits -= layout.bits;
        const uint32_t value = held >> bits & most;
        if (layout.bits < 8)
            out[i] = uint8_t(value * step);
        else
            reinterpret_cast<uint16_t *>(out)[i] = uint16_t(value);
    }
}

// A block of decoded rows, and where its pixels go; sample < 0: all channels lie side by side.
struct Block {
    const uint8_t *bytes;
    size_t row_bytes;
    uint32_t x, y, width, height; // of the part that lies in the picture
    int sample;
};

void place(Image &image, const Block &block, const Layout &layout) {
    const size_t element = size_of(image.type()), pixel = element * image.channels();
    const size_t across = size_t(block.width) * (block.sample < 0 ? image.channels() : 1);
    std::vector<uint8_t> row(layout.packed() ? across * element : 0);
    for (uint32_t y = 0; y < block.height; ++y) {
        const uint8_t *in = block.bytes + y * block.row_bytes;
        uint8_t *out = image.row(block.y + y) + block.x * pixel;
        if (layout.packed()) {
            unpack(in, across, layout, row.data());
            in = row.data();
        }
        if (block.sample < 0) {
            std::memcpy(out, in, block.width * pixel);
            continue;
        }
        out += size_t(block.sample) * element;
        for (uint32_t x = 0; x < block.width; ++x)
            std::memcpy(out + x * pixel, in + x * element, element);
    }
}

[[noreturn]] void damaged(const Source &source) { source.fail(std::string("TIFF: ") + last_error); }

std::vector<uint8_t> block_buffer(const Source &source, uint64_t bytes, uint64_t image_bytes) {
    // A block larger than the picture and a bit of padding is a lie that would only cost memory.
    if (bytes == 0 || bytes > (image_bytes + (1 << 20)) * 4)
        source.fail(fmt::format("TIFF: blocks of {} bytes do not fit the picture's size", bytes));
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
        source.fail(fmt::format("TIFF: rows of {} bytes do not fit the picture's size", row_bytes));
    auto block = block_buffer(source, TIFFStripSize64(tiff), image.bytes());
    const int samples = planes ? layout.samples : 1;
    for (int sample = 0; sample < samples; ++sample)
        for (uint32_t y = 0; y < layout.height; y += std::min(rows, layout.height - y)) {
            const uint32_t count = std::min(rows, layout.height - y);
            const auto wanted = tmsize_t(count * row_bytes);
            if (TIFFReadEncodedStrip(tiff, TIFFComputeStrip(tiff, y, uint16_t(sample)),
                                     block.data(), wanted) != wanted)
                damaged(source);
            place(image, {block.data(), row_bytes, 0, y, layout.width, count, planes ? sample : -1},
                  layout);
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
        source.fail(fmt::format("TIFF: tiles of {}x{} pixels cannot be read", width, height));
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
                place(image,
                      {block.data(), row_bytes, x0, y0, std::min(width, layout.width - x0),
                       std::min(height, layout.height - y0), planes ? sample : -1},
                      layout);
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

void turn_round(Image &image, const Layout &layout) {
    with_type(image.type(), [&](auto sample) {
        using T = decltype(sample);
        if constexpr (std::is_unsigned_v<T>) {
            const T most =
                layout.bits > 8 && layout.packed() ? T((1u << layout.bits) - 1) : T(~T(0));
            std::transform(image.as<T>(), image.as<T>() + image.elements(), image.as<T>(),
                           [most](T value) { return T(most - value); });
        }
    });
}

bool recognises(const uint8_t *head, size_t size) {
    return size >= 4 && (std::memcmp(head, "II*\0", 4) == 0 || std::memcmp(head, "MM\0*", 4) == 0 ||
                         std::memcmp(head, "II+\0", 4) == 0 || std::memcmp(head, "MM\0+", 4) == 0);
}

// No table or block is larger than what the picture may take, whatever the file says.
Handle open_reader(Stream &stream) {
    listen();
    const uint64_t most =
        std::min<uint64_t>(stream.source.max_pixels() * 32 + (1 << 20), SIZE_MAX / 2);
    const std::unique_ptr<TIFFOpenOptions, void (*)(TIFFOpenOptions *)> options(
        TIFFOpenOptionsAlloc(), TIFFOpenOptionsFree);
    if (!options) throw std::bad_alloc();
    TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), tmsize_t(most));
    stream.source.size(); // a pipe is read here, and not under libtiff
    return Handle(TIFFClientOpenExt("file", "rm", &stream, stream_read, stream_write, stream_seek,
                                    stream_close, stream_size, nullptr, nullptr, options.get()),
                  TIFFClose);
}

Image read_page(TIFF *tiff, const Source &source, const Layout &layout) {
    const uint32_t type = element_type(layout, source);
    check_colours(layout, source);
    source.check(layout.width, layout.height, layout.samples, type);
    if (!TIFFIsCODECConfigured(layout.compression))
        source.fail(fmt::format("TIFF: compression {} is not supported", layout.compression));
    Image image = source.image(layout.width, layout.height, layout.samples, type);
    if (TIFFIsTiled(tiff))
        read_tiles(tiff, source, layout, image);
    else
        read_strips(tiff, source, layout, image);
    if (layout.photometric == PHOTOMETRIC_MINISWHITE) turn_round(image, layout);
    return layout.photometric == PHOTOMETRIC_PALETTE ? with_palette(tiff, source, image)
                                                     : std::move(image);
}

Picture read(Source &source) {
    Stream stream{source};
    const Handle tiff = open_reader(stream);
    if (!tiff) damaged(source);
    Picture out;
    last_error[0] = 0;
    out.pages = uint32_t(TIFFNumberOfDirectories(tiff.get()));
    out.cut = last_error[0] != 0;
    if (source.page() < 1 || source.page() > out.pages) return out;
    std::strcpy(last_error, "damaged");
    if (source.page() > 1 && !TIFFSetDirectory(tiff.get(), source.page() - 1)) damaged(source);
    const Layout layout = read_layout(tiff.get(), source);
    out.image = read_page(tiff.get(), source, layout);
    if (layout.orientation >= 1 && layout.orientation <= 8) out.orientation = layout.orientation;
    return out;
}

bool encode(TIFF *tiff, const Image &image, bool compress) {
    const uint32_t rows =
        uint32_t(std::clamp<size_t>((size_t(1) << 18) / image.row_bytes(), 1, image.height()));
    const int kind = !is_integer(image.type()) ? SAMPLEFORMAT_IEEEFP
                     : image.type() & 8        ? SAMPLEFORMAT_INT
                                               : SAMPLEFORMAT_UINT;
    const uint16_t extra = EXTRASAMPLE_UNASSALPHA;
    const bool alpha = image.channels() == 2 || image.channels() == 4;
    const int light = image.channels() < 3 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB;
    // A tag that finds no memory is refused; libtiff would go on without it, or with half a codec. One
    // of its two ways to deflate is named, so that the bytes do not depend on which one it has.
    const bool tagged =
        TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, image.width()) &&
        TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, image.height()) &&
        TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, int(size_of(image.type()) * 8)) &&
        TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, int(image.channels())) &&
        TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, kind) &&
        TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
        TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, light) &&
        TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, rows) &&
        (!compress || (TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE) &&
                       TIFFSetField(tiff, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL) &&
                       TIFFSetField(tiff, TIFFTAG_ZIPQUALITY, 3) &&
                       TIFFSetField(tiff, TIFFTAG_DEFLATE_SUBCODEC, DEFLATE_SUBCODEC_ZLIB))) &&
        (!alpha || TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &extra));
    if (!tagged) return false;
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
    const int descriptor = dup(fileno(sink.file)); // the handle closes it
    const Handle tiff(TIFFFdOpen(descriptor, "file", large ? "w8" : "w"), TIFFClose);
    if (!tiff && descriptor >= 0) close(descriptor);
    if (tiff && encode(tiff.get(), image, sink.compress && is_integer(image.type()))) return;
    // What is incomplete is not to be written by closing it.
    if (tiff) TIFFSetMode(tiff.get(), O_RDONLY);
    sink.fail_encoding(std::string("TIFF: ") + last_error);
}

constexpr const char *endings[] = {".tif", ".tiff"};
constexpr uint32_t types[] = {KIPX_U8,  KIPX_U16, KIPX_U32, KIPX_S8,
                              KIPX_S16, KIPX_S32, KIPX_F32, KIPX_F64};

} // namespace

const Format tiff_format = {"TIFF", endings, types, false, true, recognises, read, write};
