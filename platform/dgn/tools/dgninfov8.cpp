#include "dgninfov8.h"

#include <cstdio>
#include <string>

#include "kora/dgn/v8/reader.h"

using namespace Kora::Dgn::V8;

namespace {

std::string number(double v)
{
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.10g", v);
    return buffer;
}

std::string point(const Point& p, bool is3d)
{
    return "(" + number(p.x) + " " + number(p.y) + (is3d ? " " + number(p.z) : "") + ")";
}

std::string describe(const Element& e)
{
    struct Describe {
        bool is3d;
        std::string operator()(const UnknownBody&) const { return "not decoded"; }
        std::string operator()(const LinearBody& b) const
        {
            std::string text = std::to_string(b.points.size()) + " points";
            for (std::size_t i = 0; i < b.points.size() && i < 4; ++i) text += " " + point(b.points[i], is3d);
            return text + (b.points.size() > 4 ? " ..." : "");
        }
        std::string operator()(const ConicBody& b) const
        {
            return "centre " + point(b.centre, is3d) + " axes " + number(b.primary) + " " + number(b.secondary)
                 + " start " + number(b.start) + " sweep " + number(b.sweep);
        }
        std::string operator()(const TextBody& b) const
        {
            return "\"" + b.text + "\" at " + point(b.origin, is3d) + " height " + number(b.height) + " font "
                 + std::to_string(b.font);
        }
        std::string operator()(const ComplexBody&) const { return "components follow"; }
        std::string operator()(const CellBody& b) const { return "cell at " + point(b.origin, is3d); }
        std::string operator()(const SharedCellBody& b) const
        {
            return "shared cell \"" + b.name + "\" at " + point(b.origin, is3d);
        }
        std::string operator()(const BSplineBody& b) const
        {
            return "order " + std::to_string(b.order) + (b.closed ? " closed, " : ", ")
                 + std::to_string(b.poles.size()) + " poles";
        }
    };
    return std::visit(Describe{e.is3d}, e.body);
}

} // namespace

int printV8File(const char* path, bool raw)
{
    auto bytes = readFileBytes(path);
    if (!bytes) {
        std::fprintf(stderr, "dgninfo: %s\n", bytes.error().message.c_str());
        return 1;
    }
    auto file = File::open(std::move(*bytes));
    if (!file) {
        std::fprintf(stderr, "dgninfo: %s: %s\n", path, file.error().describe().c_str());
        return 1;
    }
    std::printf("File: %s\n", path);
    std::printf("Version: V8 (compound document)\n");
    std::printf("Models: %zu\n", file->models().size());
    for (const Model& m : file->models())
        std::printf("  %s: %s, master \"%s\", sub \"%s\", %s sub units per master unit, %s UOR per master unit\n",
                    m.name.c_str(), m.is3d ? "3D" : "2D", m.master.label.c_str(), m.sub.label.c_str(),
                    number(m.subPerMaster()).c_str(), number(m.uorPerMaster).c_str());
    std::printf("Levels: %zu\n", file->levels().size());
    for (const Level& level : file->levels()) std::printf("  %u \"%s\"\n", level.id, level.name.c_str());
    std::printf("Shared cell definitions: %zu\n", file->sharedCells().size());
    for (const SharedCellDefinition& definition : file->sharedCells())
        std::printf("  \"%s\" (%zu elements)\n", definition.name.c_str(), definition.elements.size());
    for (const Diagnostic& d : file->diagnostics()) std::printf("warning: %s\n", d.message.c_str());

    for (std::size_t i = 0; i < file->models().size(); ++i) {
        auto contents = file->readModel(i);
        if (!contents) {
            std::fprintf(stderr, "dgninfo: %s: %s\n", path, contents.error().describe().c_str());
            return 1;
        }
        std::printf("Model \"%s\" elements:\n", file->models()[i].name.c_str());
        for (std::size_t k = 0; k < contents->elements.size(); ++k) {
            const Element& e = contents->elements[k];
            const std::string parent = e.parent == NoParent ? "" : " in #" + std::to_string(e.parent);
            std::printf("#%zu type %u%s level=%s colour=%u weight=%u style=%d%s %s\n", k, e.type, parent.c_str(),
                        file->levelName(e.level).c_str(), e.colour, e.weight, e.style, e.hole ? " hole" : "",
                        describe(e).c_str());
            if (raw)
                for (std::size_t at = 0; at < e.bytes.size(); at += 32) {
                    std::printf("    ");
                    for (std::size_t b = at; b < e.bytes.size() && b < at + 32; ++b)
                        std::printf("%02x", std::to_integer<unsigned>(e.bytes[b]));
                    std::printf("\n");
                }
        }
        std::printf("Element count: %zu\n", contents->elements.size());
        for (const Diagnostic& d : contents->diagnostics)
            std::printf("warning: %s (element %zu at byte offset %zu)\n", d.message.c_str(), d.elementIndex, d.offset);
    }
    return 0;
}
