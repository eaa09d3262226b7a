// pnm.cpp - the portable anymaps: P1 to P6, up to 16 bits, and P7 with 1 to 4 channels.
//
// A sample keeps its value; the header's maximum only tells 8 bits from 16. In bitmaps, where 1 is
// black, black becomes 0 and white 255.
#include "image/files.h"

#include <cctype>
#include <strings.h>

namespace {

struct Reader {
    const Source &source;
    const std::vector<uint8_t> &bytes;
    size_t at = 2;

    bool done() const { return at >= bytes.size(); }
    size_t left() const { return bytes.size() - at; }

    void skip_space() {
        while (!done()) {
            const uint8_t c = bytes[at];
            if (c == '#') {
                while (!done() && bytes[at] != '\n') ++at;
            } else if (std::isspace(c)) {
                ++at;
            } else {
                return;
            }
        }
    }

    uint64_t number(const char *what, uint64_t limit) {
        skip_space();
        if (done()) source.fail(std::string("PNM: the file ends before the ") + what);
        uint64_t value = 0;
        const size_t start = at;
        for (; !done() && std::isdigit(bytes[at]) && value <= limit; ++at)
            value = value * 10 + (bytes[at] - '0');
        if (at == start) source.fail(std::string("PNM: a number expected for the ") + what);
        if (value > limit)
            source.fail(std::string("PNM: the ") + what + " is more than " + std::to_string(limit));
        return value;
    }

    std::string word() {
        skip_space();
        std::string out;
        while (!done() && !std::isspace(bytes[at])) out += char(bytes[at++]);
        return out;
    }
};

struct Header {
    uint64_t width = 0, height = 0, channels = 1, maximum = 1;
};

Header read_header(Reader &reader, char kind) {
    Header header;
    header.width = reader.number("width", UINT32_MAX);
    header.height = reader.number("height", UINT32_MAX);
    header.channels = kind == '3' || kind == '6' ? 3 : 1;
    if (kind != '1' && kind != '4') header.maximum = reader.number("maximum", 65535);
    return header;
}

Header read_arbitrary_header(Reader &reader) {
    Header header;
    for (std::string key = reader.word(); key != "ENDHDR"; key = reader.word()) {
        if (key == "WIDTH")
            header.width = reader.number("width", UINT32_MAX);
        else if (key == "HEIGHT")
            header.height = reader.number("height", UINT32_MAX);
        else if (key == "DEPTH")
            header.channels = reader.number("depth", UINT32_MAX);
        else if (key == "MAXVAL")
            header.maximum = reader.number("maximum", 65535);
        else if (key == "TUPLTYPE")
            reader.word();
        else
            reader.source.fail("PNM: the header has no ENDHDR, or an unknown line");
    }
    return header;
}

void check_sample(const Source &source, uint64_t value, uint64_t maximum) {
    if (value > maximum)
        source.fail("PNM: the sample " + std::to_string(value) + " exceeds the header's maximum " +
                    std::to_string(maximum));
}

void read_text(Reader &reader, Image &image, uint64_t maximum, bool bitmap) {
    for (uint64_t i = 0; i < image.elements(); ++i) {
        if (bitmap) { // the digits of a bitmap may stand without spaces
            reader.skip_space();
            const int digit = reader.done() ? -1 : reader.bytes[reader.at++];
            if (digit != '0' && digit != '1') reader.source.fail("PNM: a digit 0 or 1 expected");
            image.data()[i] = digit == '0' ? 255 : 0;
            continue;
        }
        const uint64_t value = reader.number("sample", 65535);
        check_sample(reader.source, value, maximum);
        if (image.type() == KIPX_U16)
            image.as<uint16_t>()[i] = uint16_t(value);
        else
            image.data()[i] = uint8_t(value);
    }
}

void read_bits(Reader &reader, Image &image) {
    const size_t row_bytes = (size_t(image.width()) + 7) / 8;
    for (uint32_t y = 0; y < image.height(); ++y) {
        const uint8_t *bits = reader.bytes.data() + reader.at + y * row_bytes;
        for (uint32_t x = 0; x < image.width(); ++x)
            image.row(y)[x] = bits[x / 8] >> (7 - x % 8) & 1 ? 0 : 255;
    }
}

void read_binary(Reader &reader, Image &image, uint64_t maximum) {
    const uint8_t *in = reader.bytes.data() + reader.at;
    const bool wide = image.type() == KIPX_U16;
    for (uint64_t i = 0; i < image.elements(); ++i) {
        const uint32_t value = wide ? uint32_t(in[2 * i]) << 8 | in[2 * i + 1] : in[i];
        if (value > maximum) check_sample(reader.source, value, maximum);
        if (wide)
            image.as<uint16_t>()[i] = uint16_t(value);
        else
            image.data()[i] = uint8_t(value);
    }
}

bool recognises(const uint8_t *head, size_t size) {
    return size >= 3 && head[0] == 'P' && head[1] >= '1' && head[1] <= '7' &&
           (std::isspace(head[2]) || head[2] == '#');
}

Picture read(Source &source) {
    Reader reader{source, source.bytes()};
    const char kind = char(reader.bytes[1]);
    const Header header = kind == '7' ? read_arbitrary_header(reader) : read_header(reader, kind);
    if (header.maximum < 1) source.fail("PNM: the maximum is 0, expected 1 to 65535");
    const uint32_t type = header.maximum > 255 ? KIPX_U16 : KIPX_U8;
    source.check(header.width, header.height, header.channels, type);
    const bool text = kind <= '3', bitmap = kind == '1' || kind == '4';
    if (!text) ++reader.at; // the one space after the header
    const uint64_t row = kind == '4' ? (header.width + 7) / 8
                                     : header.width * header.channels * (text ? 1 : size_of(type));
    if (reader.at > reader.bytes.size() || reader.left() < row * header.height)
        source.fail("PNM: the file ends too early: the header promises " +
                    std::to_string(row * header.height) + " bytes of pixels");
    Picture out;
    Image &image = out.image = source.image(header.width, header.height, header.channels, type);
    if (text)
        read_text(reader, image, header.maximum, bitmap);
    else if (bitmap)
        read_bits(reader, image);
    else
        read_binary(reader, image, header.maximum);
    return out;
}

std::string header_of(const Image &image, const Sink &sink) {
    const std::string size = std::to_string(image.width()) + " " + std::to_string(image.height());
    const std::string maximum = image.type() == KIPX_U16 ? "65535" : "255";
    const std::string ending = sink.name.substr(sink.name.rfind('.'));
    if (strcasecmp(ending.c_str(), ".pam") == 0) {
        static const char *const kinds[] = {"GRAYSCALE", "GRAYSCALE_ALPHA", "RGB", "RGB_ALPHA"};
        return "P7\nWIDTH " + std::to_string(image.width()) + "\nHEIGHT " +
               std::to_string(image.height()) + "\nDEPTH " + std::to_string(image.channels()) +
               "\nMAXVAL " + maximum + "\nTUPLTYPE " + kinds[image.channels() - 1] + "\nENDHDR\n";
    }
    const uint32_t wanted = strcasecmp(ending.c_str(), ".pgm") == 0   ? 1
                            : strcasecmp(ending.c_str(), ".ppm") == 0 ? 3
                            : image.channels() == 1                   ? 1
                                                                      : 3;
    if (image.channels() != wanted)
        sink.fail("a " + ending + " file has " + std::to_string(wanted) +
                  " channels, the image has " + std::to_string(image.channels()) + "; write .pam");
    return (wanted == 1 ? "P5\n" : "P6\n") + size + "\n" + maximum + "\n";
}

void write(const Image &image, const Sink &sink) {
    const std::string header = header_of(image, sink);
    sink.write(header.data(), header.size());
    if (image.type() == KIPX_U8) return sink.write(image.data(), image.bytes());
    std::vector<uint8_t> row(image.row_bytes());
    for (uint32_t y = 0; y < image.height(); ++y) {
        const auto *in = reinterpret_cast<const uint16_t *>(image.row(y));
        for (size_t i = 0; i < row.size() / 2; ++i) {
            row[2 * i] = uint8_t(in[i] >> 8);
            row[2 * i + 1] = uint8_t(in[i]);
        }
        sink.write(row.data(), row.size());
    }
}

constexpr const char *endings[] = {".pgm", ".ppm", ".pnm", ".pam"};
constexpr uint32_t types[] = {KIPX_U8, KIPX_U16};

} // namespace

const Format pnm_format = {"PNM", endings, types, false, false, recognises, read, write};
