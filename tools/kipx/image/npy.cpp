// npy.cpp - the .npy array file, versions 1 to 3: a 2-D array is a grey image, a 3-D one has its
// channels last. Element types u1 u2 u4 i1 i2 i4 f4 f8, either byte order, C or Fortran order. Of
// masks and labels made elsewhere b1 becomes 0 and 255, i8 and u8 become 32 bits where they fit.
#include "image/files.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <cstring>
#include <fmt/format.h>

namespace {

constexpr uint8_t magic[] = {0x93, 'N', 'U', 'M', 'P', 'Y'};
constexpr char native_order = std::endian::native == std::endian::little ? '<' : '>';

struct Kind {
    const char *code; // without the byte order
    uint32_t type;    // as it is kept
    size_t size = size_of_code(code);

    static constexpr size_t size_of_code(const char *code) { return size_t(code[1] - '0'); }
};
// Those that are written come first.
constexpr Kind kinds[] = {{"u1", KIPX_U8},  {"u2", KIPX_U16}, {"u4", KIPX_U32}, {"i1", KIPX_S8},
                          {"i2", KIPX_S16}, {"i4", KIPX_S32}, {"f4", KIPX_F32}, {"f8", KIPX_F64},
                          {"b1", KIPX_U8},  {"i8", KIPX_S32}, {"u8", KIPX_U32}};

// The text after 'key': in the header's dictionary.
std::string value_of(const Source &source, const std::string &header, const std::string &key) {
    size_t at = header.find("'" + key + "'");
    if (at == std::string::npos) source.fail(".npy: the header has no '" + key + "'");
    at = header.find_first_not_of(" :", at + key.size() + 2);
    if (at == std::string::npos) source.fail(".npy: the header has no value for '" + key + "'");
    return header.substr(at);
}

const Kind &kind_of(const Source &source, const std::string &header, bool &swapped) {
    const std::string value = value_of(source, header, "descr");
    const std::string code = value.substr(0, value.find_first_of(",}"));
    for (const Kind &kind : kinds)
        for (const char order : {'<', '>', '|', '='}) {
            if (order == '|' && kind.size > 1) continue;
            if (code != std::string("'") + order + kind.code + "'") continue;
            swapped = order != native_order && (order == '<' || order == '>');
            return kind;
        }
    source.fail(".npy: elements of type " + code.substr(0, 40) +
                "; expected b1 u1 u2 u4 u8 i1 i2 i4 i8 f4 or f8");
}

bool fortran_order(const Source &source, const std::string &header) {
    const std::string value = value_of(source, header, "fortran_order");
    const bool yes = value.rfind("True", 0) == 0;
    if (!yes && value.rfind("False", 0) != 0)
        source.fail(".npy: the header's fortran_order is neither True nor False");
    return yes;
}

// Height, width, channels.
std::vector<uint64_t> extents_of(const Source &source, const std::string &header) {
    const std::string value = value_of(source, header, "shape");
    std::vector<uint64_t> out;
    size_t at = 1;
    bool sound = value[0] == '(' && value.find(')') != std::string::npos;
    while (sound && value[at] != ')') {
        uint64_t extent = 0;
        const size_t start = at;
        for (; std::isdigit(static_cast<unsigned char>(value[at])) && extent <= UINT32_MAX; ++at)
            extent = extent * 10 + uint64_t(value[at] - '0');
        sound = at > start && extent <= UINT32_MAX;
        out.push_back(extent);
        while (value[at] == ',' || value[at] == ' ') ++at;
    }
    if (!sound) source.fail(".npy: the header's shape cannot be read");
    if (out.size() != 2 && out.size() != 3)
        source.fail(fmt::format(
            ".npy: an array of {} axes; expected (height, width) or (height, width, channels)",
            out.size()));
    out.resize(3, 1);
    return out;
}

bool recognises(const uint8_t *head, size_t size) {
    return size >= sizeof magic && std::memcmp(head, magic, sizeof magic) == 0;
}

// Where element i of the image, counted in C order, stands in an array in Fortran order.
size_t fortran_place(const Shape &shape, size_t i) {
    const size_t channel = i % shape.channels, x = i / shape.channels % shape.width;
    const size_t y = i / shape.channels / shape.width;
    return y + shape.height * (x + shape.width * channel);
}

template<class From, class To> To narrowed(const Source &source, const uint8_t *bytes) {
    From value;
    std::memcpy(&value, bytes, sizeof value);
    if (value != From(To(value)))
        source.fail(fmt::format(".npy: the value {} takes more than 32 bits", value));
    return To(value);
}

// One element in the machine's byte order to its place in the image.
void keep(const Source &source, const Kind &kind, const uint8_t *bytes, Image &image, size_t i) {
    if (kind.code[0] == 'b')
        image.data()[i] = bytes[0] ? 255 : 0;
    else if (kind.size == 8 && kind.type == KIPX_S32)
        image.as<int32_t>()[i] = narrowed<int64_t, int32_t>(source, bytes);
    else if (kind.size == 8 && kind.type == KIPX_U32)
        image.as<uint32_t>()[i] = narrowed<uint64_t, uint32_t>(source, bytes);
    else
        std::memcpy(image.data() + i * kind.size, bytes, kind.size);
}

Picture read(Source &source) {
    const auto &bytes = source.bytes();
    if (bytes.size() < 12) source.fail(".npy: the file ends in its header");
    if (bytes[6] < 1 || bytes[6] > 3)
        source.fail(fmt::format(".npy: version {}; expected 1 to 3", bytes[6]));
    const size_t start = bytes[6] == 1 ? 10 : 12;
    size_t length = bytes[8] | size_t(bytes[9]) << 8;
    if (start == 12) length |= size_t(bytes[10]) << 16 | size_t(bytes[11]) << 24;
    if (bytes.size() - start < length) source.fail(".npy: the file ends in its header");
    const std::string header(reinterpret_cast<const char *>(bytes.data()) + start, length);
    bool swapped = false;
    const Kind &kind = kind_of(source, header, swapped);
    const bool fortran = fortran_order(source, header);
    const std::vector<uint64_t> extents = extents_of(source, header);
    source.check(extents[1], extents[0], extents[2], kind.type);
    const uint64_t wanted = extents[0] * extents[1] * extents[2] * kind.size;
    if (bytes.size() - start - length < wanted)
        source.fail(fmt::format(
            ".npy: the file ends too early: the header promises {} bytes of elements", wanted));
    Picture out;
    out.image = source.image(extents[1], extents[0], extents[2], kind.type);
    const uint8_t *in = bytes.data() + start + length;
    if (!fortran && !swapped && kind.code[0] != 'b' && kind.size == size_of(kind.type)) {
        std::memcpy(out.image.data(), in, out.image.bytes());
        return out;
    }
    uint8_t element[8];
    for (size_t i = 0; i < out.image.elements(); ++i) {
        const size_t place = fortran ? fortran_place(out.image.shape(), i) : i;
        std::copy(in + place * kind.size, in + (place + 1) * kind.size, element);
        if (swapped) std::reverse(element, element + kind.size);
        keep(source, kind, element, out.image, i);
    }
    return out;
}

void write(const Image &image, const Sink &sink) {
    const char *code = std::find_if(std::begin(kinds), std::end(kinds), [&](const Kind &kind) {
                           return kind.type == image.type();
                       })->code;
    std::string header = fmt::format("{{'descr': '{}{}', 'fortran_order': False, 'shape': ({}, {}",
                                     size_of(image.type()) == 1 ? '|' : native_order, code,
                                     image.height(), image.width());
    if (image.channels() > 1) header += fmt::format(", {}", image.channels());
    header += "), }";
    header.append(63 - (10 + header.size()) % 64, ' '); // the elements start at a multiple of 64
    header += '\n';
    const uint8_t lead[] = {1, 0, uint8_t(header.size()), uint8_t(header.size() >> 8)};
    sink.write(magic, sizeof magic);
    sink.write(lead, sizeof lead);
    sink.write(header.data(), header.size());
    sink.write(image.data(), image.bytes());
}

constexpr const char *endings[] = {".npy"};
constexpr uint32_t types[] = {KIPX_U8,  KIPX_U16, KIPX_U32, KIPX_S8,
                              KIPX_S16, KIPX_S32, KIPX_F32, KIPX_F64};

} // namespace

const Format npy_format = {".npy", endings, types, false, false, recognises, read, write};
