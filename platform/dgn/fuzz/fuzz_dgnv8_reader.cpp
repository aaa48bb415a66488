// libFuzzer entry: any bytes through the V8 reader: the container, the
// pages, every model's elements, and the curves evaluated. Mutations seldom
// survive a page's zlib data, so the same bytes are also decoded as one
// element, which reaches every element decoder directly.
#include "../v8/decode.h"
#include "kora/dgn/v8/reader.h"

using namespace Kora::Dgn::V8;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto* first = reinterpret_cast<const std::byte*>(data);
    Diagnostic problem;
    const Element element = decodeElement({first, size}, Model{}, problem);
    if (const auto* curve = std::get_if<BSplineBody>(&element.body)) (void)curve->at(0.5);
    (void)linkageString({first, size}, 1);

    auto file = File::open({first, first + size});
    if (!file) return 0;
    for (std::size_t i = 0; i < file->models().size(); ++i) {
        auto contents = file->readModel(i);
        if (!contents) continue;
        for (const Element& element : contents->elements) {
            (void)file->levelName(element.level);
            if (const auto* curve = std::get_if<BSplineBody>(&element.body))
                (void)curve->at(static_cast<double>(curve->spans()) / 2);
            if (const auto* conic = std::get_if<ConicBody>(&element.body)) (void)conic->at(conic->start);
        }
    }
    return 0;
}
