// jpeg.cpp - JPEG through libjpeg: 8 bits, grey or RGB.
//
// libjpeg leaves by longjmp: the functions that call setjmp hold nothing that needs a destructor.
// Damage that libjpeg would paper over with grey blocks is an error here, harmless bytes between
// segments are not; simpler interfaces to the same decoder do not tell one from the other.
#include "image/files.h"

#include "image/orientation.h"

#include <csetjmp>
#include <cstring>
#include <fmt/format.h>
#include <new>
// clang-format off: jpeglib.h needs FILE to be declared before it
#include <cstdio>
#include <jerror.h>
#include <jpeglib.h>
// clang-format on

namespace {

// A progressive file may ask for any number of passes over the picture; real ones need a dozen.
constexpr int most_scans = 500;

struct Session {
    jpeg_error_mgr errors;
    jpeg_progress_mgr progress;
    jmp_buf escape;
    char error[JMSG_LENGTH_MAX];
};

void on_error(j_common_ptr codec) {
    auto *session = static_cast<Session *>(codec->client_data);
    codec->err->format_message(codec, session->error);
    longjmp(session->escape, 1);
}

void on_message(j_common_ptr codec, int level) {
    if (level < 0 && codec->err->msg_code != JWRN_EXTRANEOUS_DATA) on_error(codec);
}

void on_progress(j_common_ptr codec) {
    auto *session = static_cast<Session *>(codec->client_data);
    if (reinterpret_cast<j_decompress_ptr>(codec)->input_scan_number <= most_scans) return;
    std::strcpy(session->error, "too many scans");
    longjmp(session->escape, 1);
}

template<class Codec> void prepare(Session &session, Codec &codec) {
    std::memset(&codec, 0, sizeof codec);
    codec.err = jpeg_std_error(&session.errors);
    session.errors.error_exit = on_error;
    session.errors.emit_message = on_message;
    codec.client_data = &session;
}

struct Decoder {
    Session session = {};
    jpeg_decompress_struct codec;
    Decoder() { prepare(session, codec); }
    ~Decoder() { jpeg_destroy_decompress(&codec); }
};

struct Encoder {
    Session session = {};
    jpeg_compress_struct codec;
    Encoder() { prepare(session, codec); }
    ~Encoder() { jpeg_destroy_compress(&codec); }
};

bool read_header(Decoder &decoder, const uint8_t *bytes, size_t size) {
    if (setjmp(decoder.session.escape)) return false;
    jpeg_decompress_struct &codec = decoder.codec;
    jpeg_create_decompress(&codec);
    codec.client_data = &decoder.session;
    decoder.session.progress.progress_monitor = on_progress;
    codec.progress = &decoder.session.progress;
    jpeg_mem_src(&codec, bytes, static_cast<unsigned long>(size));
    jpeg_save_markers(&codec, JPEG_APP0 + 1, 0xFFFF);
    jpeg_read_header(&codec, TRUE);
    codec.out_color_space = codec.num_components == 1 ? JCS_GRAYSCALE : JCS_RGB;
    return true;
}

bool read_rows(Decoder &decoder, Image &image) {
    if (setjmp(decoder.session.escape)) return false;
    jpeg_decompress_struct &codec = decoder.codec;
    jpeg_start_decompress(&codec);
    while (codec.output_scanline < codec.output_height) {
        JSAMPROW row = image.row(codec.output_scanline);
        jpeg_read_scanlines(&codec, &row, 1);
    }
    jpeg_finish_decompress(&codec);
    return true;
}

bool recognises(const uint8_t *head, size_t size) {
    return size >= 3 && head[0] == 0xFF && head[1] == 0xD8 && head[2] == 0xFF;
}

// Of the EXIF block among the markers kept.
uint32_t orientation_of(const jpeg_decompress_struct &codec) {
    static constexpr uint8_t lead[] = {'E', 'x', 'i', 'f', 0, 0};
    for (auto *marker = codec.marker_list; marker; marker = marker->next)
        if (marker->data_length > sizeof lead && std::memcmp(marker->data, lead, sizeof lead) == 0)
            return exif_orientation(marker->data + sizeof lead, marker->data_length - sizeof lead);
    return 1;
}

[[noreturn]] void refuse(const Source &source, const Decoder &decoder) {
    if (decoder.session.errors.msg_code == JERR_OUT_OF_MEMORY) throw std::bad_alloc();
    source.fail(std::string("JPEG: ") + decoder.session.error);
}

Picture read(Source &source) {
    const auto &bytes = source.bytes();
    Decoder decoder;
    if (!read_header(decoder, bytes.data(), bytes.size())) refuse(source, decoder);
    const int components = decoder.codec.num_components;
    if (components == 4)
        source.fail("JPEG: four colours (CMYK); grey or RGB expected: `convert IN -colorspace sRGB "
                    "OUT.png` makes it that");
    if (components != 1 && components != 3)
        source.fail(fmt::format("JPEG: {} components; grey or colour expected", components));
    Picture out;
    out.image = source.image(decoder.codec.image_width, decoder.codec.image_height,
                             uint64_t(components), KIPX_U8);
    out.orientation = orientation_of(decoder.codec);
    if (!read_rows(decoder, out.image)) refuse(source, decoder);
    return out;
}

bool encode(Encoder &encoder, const Image &image, std::FILE *file) {
    if (setjmp(encoder.session.escape)) return false;
    jpeg_compress_struct &codec = encoder.codec;
    jpeg_create_compress(&codec);
    codec.client_data = &encoder.session;
    jpeg_stdio_dest(&codec, file);
    codec.image_width = image.width();
    codec.image_height = image.height();
    codec.input_components = int(image.channels());
    codec.in_color_space = image.channels() == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(&codec);
    jpeg_set_quality(&codec, 95, TRUE);
    jpeg_start_compress(&codec, TRUE);
    while (codec.next_scanline < codec.image_height) {
        JSAMPROW row = const_cast<uint8_t *>(image.row(codec.next_scanline));
        jpeg_write_scanlines(&codec, &row, 1);
    }
    jpeg_finish_compress(&codec);
    return true;
}

void write(const Image &image, const Sink &sink) {
    if (image.channels() != 1 && image.channels() != 3)
        sink.fail(fmt::format("JPEG stores 1 or 3 channels, the image has {}", image.channels()));
    Encoder encoder;
    if (encode(encoder, image, sink.file)) return;
    if (encoder.session.errors.msg_code == JERR_OUT_OF_MEMORY) throw std::bad_alloc();
    sink.fail_encoding(std::string("JPEG: ") + encoder.session.error);
}

constexpr const char *endings[] = {".jpg", ".jpeg"};
constexpr uint32_t types[] = {KIPX_U8};

} // namespace

const Format jpeg_format = {"JPEG", endings, types, true, false, recognises, read, write};
