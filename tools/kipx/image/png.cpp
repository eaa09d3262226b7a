// png.cpp - PNG through libpng: 8 and 16 bits, 1 to 4 channels. Palettes and 1, 2, 4-bit greys are
// expanded to 8 bits, transparent colours to an alpha channel.
//
// libpng leaves by longjmp. The functions that call setjmp therefore hold nothing that needs a
// destructor; what they work on lives in a Session of their caller, which releases it.
#include "image/files.h"

#include <bit>
#include <csetjmp>
#include <cstring>
#include <png.h>

namespace {

struct Session {
    png_structp png = nullptr;
    png_infop info = nullptr;
    const uint8_t *next = nullptr; // unread bytes of the file
    size_t left = 0;
    bool writing = false;
    char error[160] = "out of memory";

    ~Session() {
        if (writing)
            png_destroy_write_struct(&png, &info);
        else
            png_destroy_read_struct(&png, &info, nullptr);
    }
};

void on_error(png_structp png, png_const_charp text) {
    auto *session = static_cast<Session *>(png_get_error_ptr(png));
    std::strncpy(session->error, text, sizeof session->error - 1);
    longjmp(png_jmpbuf(png), 1);
}

void on_warning(png_structp, png_const_charp) {}

void on_read(png_structp png, png_bytep to, size_t size) {
    auto *session = static_cast<Session *>(png_get_io_ptr(png));
    if (size > session->left) png_error(png, "the file ends too early");
    std::memcpy(to, session->next, size);
    session->next += size;
    session->left -= size;
}

bool open_reader(Session &session) {
    session.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &session, on_error, on_warning);
    if (session.png) session.info = png_create_info_struct(session.png);
    return session.info != nullptr;
}

// Reads the header and asks for whole bytes, expanded.
bool read_header(Session &session) {
    if (setjmp(png_jmpbuf(session.png))) return false;
    png_set_read_fn(session.png, &session, on_read);
    png_set_user_limits(session.png, INT32_MAX, INT32_MAX);
    png_read_info(session.png, session.info);
    png_set_expand(session.png);
    if (std::endian::native == std::endian::little) png_set_swap(session.png);
    png_set_interlace_handling(session.png);
    png_read_update_info(session.png, session.info);
    return true;
}

bool read_rows(Session &session, png_bytepp rows) {
    if (setjmp(png_jmpbuf(session.png))) return false;
    png_read_image(session.png, rows);
    png_read_end(session.png, nullptr);
    return true;
}

bool recognises(const uint8_t *head, size_t size) {
    return size >= 8 && png_sig_cmp(head, 0, 8) == 0;
}

Image read(const Source &source) {
    Session session;
    session.next = source.bytes.data();
    session.left = source.bytes.size();
    if (!open_reader(session)) source.fail("PNG: out of memory");
    if (!read_header(session)) source.fail(std::string("PNG: ") + session.error);
    const uint32_t type = png_get_bit_depth(session.png, session.info) == 16 ? KIPX_U16 : KIPX_U8;
    Image image = source.image(png_get_image_width(session.png, session.info),
                               png_get_image_height(session.png, session.info),
                               png_get_channels(session.png, session.info), type);
    std::vector<png_bytep> rows(image.height());
    for (uint32_t y = 0; y < image.height(); ++y) rows[y] = image.row(y);
    if (!read_rows(session, rows.data())) source.fail(std::string("PNG: ") + session.error);
    return image;
}

bool encode(Session &session, const Image &image, std::FILE *file) {
    static constexpr int colour[] = {PNG_COLOR_TYPE_GRAY, PNG_COLOR_TYPE_GRAY_ALPHA,
                                     PNG_COLOR_TYPE_RGB, PNG_COLOR_TYPE_RGB_ALPHA};
    if (setjmp(png_jmpbuf(session.png))) return false;
    png_init_io(session.png, file);
    png_set_user_limits(session.png, INT32_MAX, INT32_MAX);
    png_set_compression_level(session.png, 3);
    png_set_IHDR(session.png, session.info, image.width(), image.height(),
                 image.type() == KIPX_U16 ? 16 : 8, colour[image.channels() - 1],
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(session.png, session.info);
    if (std::endian::native == std::endian::little) png_set_swap(session.png);
    for (uint32_t y = 0; y < image.height(); ++y) png_write_row(session.png, image.row(y));
    png_write_end(session.png, session.info);
    return true;
}

void write(const Image &image, const Sink &sink) {
    Session session;
    session.writing = true;
    session.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &session, on_error, on_warning);
    if (session.png) session.info = png_create_info_struct(session.png);
    if (!session.info || !encode(session, image, sink.file))
        sink.fail(std::string("PNG: ") + session.error);
}

} // namespace

const Format png_format = {"PNG", {".png"}, {KIPX_U8, KIPX_U16}, recognises, read, write};
