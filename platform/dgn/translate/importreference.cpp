#include "importreference.h"

#include <cstddef>
#include <span>

#include "kora/dgn/v7/numbers.h"

namespace Kora::Dgn {

using namespace V7;

std::optional<ReferenceAttachment> readReferenceAttachment(const Element& element)
{
    // Offsets from the end of the display header: file name length (word)
    // and 65 characters, file number, builder and displayer options, 16
    // display flags, 64 bytes of level flags, the reference origin (three
    // 32-bit integers), the 3x3 matrix and conversion factor (doubles), the
    // master origin, then the logical name (a length word and 22 bytes).
    const auto* group = element.as<GroupData>();
    if (!group || group->data.size() < 280) return std::nullopt;
    const std::span<const std::byte> d(group->data);
    auto text = [&](std::size_t lengthAt, std::size_t at, std::size_t room) {
        const std::size_t stored = decodeWord(d.subspan(lengthAt).first<2>());
        std::string s;
        for (std::size_t i = 0; i < std::min(stored, room); ++i) {
            const char c = static_cast<char>(d[at + i]);
            if (c == '\0') break;
            s += c;
        }
        return s;
    };
    auto integer = [&](std::size_t at) { return static_cast<double>(decodeInt32(d.subspan(at).first<4>())); };
    auto real = [&](std::size_t at) { return decodeVaxDouble(d.subspan(at).first<8>()); };
    ReferenceAttachment a;
    a.fileSpec = text(0, 2, 65);
    a.referenceOrigin = {integer(152), integer(156), integer(160)};
    for (std::size_t i = 0; i < 9; ++i) a.matrix[i] = real(164 + 8 * i);
    a.conversion = real(236);
    a.masterOrigin = {integer(244), integer(248), integer(252)};
    a.logicalName = text(256, 258, 22);
    if (a.fileSpec.empty()) return std::nullopt;
    return a;
}

} // namespace Kora::Dgn
