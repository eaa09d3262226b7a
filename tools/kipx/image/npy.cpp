// npy.cpp - the .npy array file, versions 1 to 3: a 2-D array is a grey image, a 3-D one has its
// channels last. Element types u1 u2 u4 i1 i2 i4 f4 f8, either byte order, C order.
#include "image/files.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <cstring>

namespace {

constexpr uint8_t magic[] = {0x93, 'N', 'U', 'M', 'P', 'Y'};
constexpr char native_order = std::endian::native == std::endian::little ? '<' : '>';

struct Kind {
    const char *code; // without the byte order
    uint32_t type;
};
constexpr Kind kinds[] = {{"u1", KIPX_U8},  {"u2", KIPX_U16}, {"u4", KIPX_U32}, {"i1", KIPX_S8},
                          {"i2", KIPX_S16}, {"i4", KIPX_S32}, {"f4", KIPX_F32}, {"f8", KIPX_F64}};

// The text after 'key': in the header's dictionary.
std::string value_of(const Source &source, const std::string &header, const std::string &key) {
    size_t at = header.find("'" + key + "'");
    if (at == std::string::npos) source.fail(".npy: the header has no '" + key + "'");
    at = header.find_first_not_of(" :", at + key.size() + 2);
    if (at == std::string::npos) source.fail(".npy: the header has no value for '" + key + "'");
    return header.substr(at);
}

uint32_t type_of(const Source &source, const std::string &header, bool &swapped) {
    const std::string value = value_of(source, header, "descr");
    const std::string code = value.substr(0, value.find_first_of(",}"));
    for (const Kind &kind : kinds)
        for (const char order : {'<', '>', '|', '='}) {
            if (order == '|' && size_of(kind.type) > 1) continue;
            if (code != std::string("'") + order + kind.code + "'") continue;
            swapped = order != native_order && (order == '<' || order == '>');
            return kind.type;
        }
    source.fail(".npy: elements of type " + code.substr(0, 40) +
                "; expected u1 u2 u4 i1 i2 i4 f4 or f8");
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
        source.fail(".npy: an array of " + std::to_string(out.size()) +
                    " axes; expected (height, width) or (height, width, channels)");
    out.resize(3, 1);
    return out;
}

bool recognises(const uint8_t *head, size_t size) {
    return size >= sizeof magic && std::memcmp(head, magic, sizeof magic) == 0;
}

Image read(const Source &source) {
    const auto &bytes = source.bytes;
    if (bytes.size() < 12) source.fail(".npy: the file ends in its header");
    if (bytes[6] < 1 || bytes[6] > 3)
        source.fail(".npy: version " + std::to_string(bytes[6]) + "; expected 1 to 3");
    const size_t start = bytes[6] == 1 ? 10 : 12;
    size_t length = bytes[8] | size_t(bytes[9]) << 8;
    if (start == 12) length |= size_t(bytes[10]) << 16 | size_t(bytes[11]) << 24;
    if (bytes.size() - start < length) source.fail(".npy: the file ends in its header");
    const std::string header(reinterpret_cast<const char *>(bytes.data()) + start, length);
    bool swapped = false;
    const uint32_t type = type_of(source, header, swapped);
    if (value_of(source, header, "fortran_order").rfind("False", 0) != 0)
        source.fail(".npy: the array is in Fortran order; C order expected");
    const std::vector<uint64_t> extents = extents_of(source, header);
    source.check(extents[1], extents[0], extents[2], type);
    const uint64_t wanted = extents[0] * extents[1] * extents[2] * size_of(type);
    if (bytes.size() - start - length < wanted)
        source.fail(".npy: the file ends too early: the header promises " + std::to_string(wanted) +
                    " bytes of elements");
    Image image = source.image(extents[1], extents[0], extents[2], type);
    std::memcpy(image.data(), bytes.data() + start + length, image.bytes());
    if (swapped)
        for (size_t i = 0; i < image.bytes(); i += size_of(type))
            std::reverse(image.data() + i, image.data() + i + size_of(type));
    return image;
}

void write(const Image &image, const Sink &sink) {
    const char *code = std::find_if(std::begin(kinds), std::end(kinds), [&](const Kind &kind) {
                           return kind.type == image.type();
                       })->code;
    std::string header = std::string("{'descr': '") +
                         (size_of(image.type()) == 1 ? '|' : native_order) + code +
                         "', 'fortran_order': False, 'shape': (" + std::to_string(image.height()) +
                         ", " + std::to_string(image.width());
    if (image.channels() > 1) header += ", " + std::to_string(image.channels());
    header += "), }";
    header.append(63 - (10 + header.size()) % 64, ' '); // the elements start at a multiple of 64
    header += '\n';
    const uint8_t lead[] = {1, 0, uint8_t(header.size()), uint8_t(header.size() >> 8)};
    sink.write(magic, sizeof magic);
    sink.write(lead, sizeof lead);
    sink.write(header.data(), header.size());
    sink.write(image.data(), image.bytes());
}

} // namespace

const Format npy_format = {
    ".npy",
    {".npy"},
    {KIPX_U8, KIPX_U16, KIPX_U32, KIPX_S8, KIPX_S16, KIPX_S32, KIPX_F32, KIPX_F64},
    recognises,
    read,
    write};
