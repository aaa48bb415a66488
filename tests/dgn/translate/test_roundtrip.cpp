// A drawing written by ezdxf goes to a V7 design and comes back through the
// import: what each kind becomes, the layers through the two maps, and the
// geometry.
#include "export_test_support.h"
#include "import_test_support.h"

#include <cmath>
#include <list>
#include <map>

#include "kora/db/entities.h"

using namespace Kora::Test;
namespace fs = std::filesystem;

namespace {

using Census = std::map<std::pair<std::string, std::string>, int>;  // (kind, layer) -> count

Census census(KoDbDatabase& db)
{
    Census c;
    for (const KoDbObjectId& id : entitiesOf(db.modelSpaceId())) ++c[{dxfNameOf(id), layerOf(id)}];
    return c;
}

std::string show(const Census& c)
{
    std::string s;
    for (const auto& [key, n] : c) s += key.first + "@" + key.second + "=" + std::to_string(n) + " ";
    return s;
}

template <class E>
std::vector<const E*> all(KoDbDatabase& db, std::list<KoDbObjectPointer<KoDbEntity>>& open)
{
    std::vector<const E*> out;
    for (const KoDbObjectId& id : entitiesOf(db.modelSpaceId())) {
        open.emplace_back(id);
        if (const E* e = E::cast(open.back().object())) out.push_back(e);
    }
    return out;
}

bool near(const KoGePoint3d& a, const KoGePoint3d& b)
{
    return a.distanceTo(b) <= 1e-9 * std::max(1.0, std::hypot(a.x, a.y));
}

}  // namespace

TEST(DgnRoundTrip, DrawingToDesignAndBackKeepsKindsLayersAndGeometry)
{
    const fs::path folder = scratch("roundtrip");
    auto original = readDrawing(KORA_EXPORT_FIXTURE);
    DgnExport exporter;
    exporter.seedFile = seed("V7-Metric-Seed2D.dgn");
    exporter.layerMap = {{L"Walls", L"10"}, {L"Doors", L"11"}};
    ASSERT_EQ(runExport(exporter, folder / "plan.dgn", *original), KORTNORM);

    KoDbDatabase back(true);
    DgnTranslationReport report;
    DgnImportState state;
    state.targetMode = 1;
    state.tables.levels = {{L"10", L"Walls"}, {L"11", L"Doors"}};
    TestEditor quiet;
    ASSERT_EQ(importFile(folder / "plan.dgn", back, report, state), KORTNORM);

    const Census before = census(*original), after = census(back);
    // Kinds that come back as themselves, on their own layers through the maps.
    for (const char* kind : {"LINE", "POINT", "CIRCLE", "ARC", "ELLIPSE", "TEXT", "MTEXT", "INSERT"})
        for (const char* layer : {"Walls", "Doors"})
            EXPECT_EQ(after.count({kind, layer}) ? after.at({kind, layer}) : 0,
                      before.count({kind, layer}) ? before.at({kind, layer}) : 0)
                << kind << " on " << layer << "\nbefore: " << show(before) << "\nafter:  " << show(after);

    std::list<KoDbObjectPointer<KoDbEntity>> openA, openB;
    const auto linesA = all<KoDbLine>(*original, openA), linesB = all<KoDbLine>(back, openB);
    ASSERT_EQ(linesA.size(), linesB.size());
    for (std::size_t i = 0; i < linesA.size(); ++i) {
        EXPECT_TRUE(near(linesA[i]->startPoint(), linesB[i]->startPoint()));
        EXPECT_TRUE(near(linesA[i]->endPoint(), linesB[i]->endPoint()));
    }
    const auto circlesA = all<KoDbCircle>(*original, openA), circlesB = all<KoDbCircle>(back, openB);
    ASSERT_EQ(circlesA.size(), circlesB.size());
    for (std::size_t i = 0; i < circlesA.size(); ++i) {
        EXPECT_TRUE(near(circlesA[i]->center(), circlesB[i]->center()));
        EXPECT_NEAR(circlesA[i]->radius(), circlesB[i]->radius(), 1e-9 * circlesA[i]->radius());
    }
    const auto textsA = all<KoDbText>(*original, openA), textsB = all<KoDbText>(back, openB);
    ASSERT_EQ(textsA.size(), textsB.size());
    for (std::size_t i = 0; i < textsA.size(); ++i) EXPECT_EQ(textsA[i]->textString(), textsB[i]->textString());
}
