// DGNBIND and -DGNBIND on drawings with DGN underlays attached by
// -DGNATTACH, binding through the host's bind service.
#include "flowtest.h"

#include "kora/db/entities.h"
#include "kora/db/underlay.h"
#include "kora/dgn/underlayservice.h"

using namespace Kora::Test;

namespace {

const fs::path kData = fs::path(KORA_TEST_DATA_DIR) / "dgn";

class BindFlow : public FlowTest {
protected:
    static KoDbDatabase* db() { return koDocManagerPtr()->curDocument()->database(); }

    // Attaches the file's first model at `at`: the reference sits on the
    // current layer.
    static void attach(const char* file, const wchar_t* at)
    {
        TestEditor editor;
        editor.reply(wide(kData / file)).reply(L"").reply(L"").reply(at).reply(L"").reply(L"");
        run(L"-DGNATTACH", editor);
    }

    static std::vector<KxUnderlayItemInfo> definitions()
    {
        std::vector<KxUnderlayItemInfo> items;
        KoDbDgnUnderlayService::collectUnderlayItems(db(), items);
        return items;
    }

    // What model space holds: DGN references and block references.
    static std::pair<int, int> referencesAndInserts()
    {
        std::pair<int, int> counts;
        KoDbObjectPointer<KoDbBlockTableRecord> space(db()->modelSpaceId());
        for (const KoDbObjectId& id : space->entityIds()) {
            KoDbObjectPointer<KoDbEntity> e(id);
            if (KoDbDgnReference::cast(e.object())) ++counts.first;
            if (KoDbBlockReference::cast(e.object())) ++counts.second;
        }
        return counts;
    }

    static bool hasLayer(const wchar_t* name)
    {
        KoDbObjectPointer<KoDbLayerTable> layers(db()->layerTableId());
        return layers->has(name);
    }
};

}  // namespace

TEST_F(BindFlow, ThreeReferencesOfOneDefinitionBindItOnce)
{
    for (const wchar_t* at : {L"0,0", L"100,0", L"0,100"}) attach("smalltest.dgn", at);
    ASSERT_EQ(definitions().size(), 1u);
    TestEditor editor;
    editor.reply(L"ALL").reply(L"").reply(L"");
    run(L"DGNBIND", editor);
    EXPECT_EQ(editor.prompts().front(), L"Please select dgnreference objects to bind:");
    EXPECT_NE(editor.transcript().find(L"\nBind Success!"), KoString::npos) << editor.transcript().toUtf8();
    EXPECT_EQ(referencesAndInserts(), std::make_pair(0, 3));
    EXPECT_TRUE(definitions().empty());
    EXPECT_TRUE(hasLayer(L"smalltest-Default$0$1")) << "Enter at the bind type binds";
}

TEST_F(BindFlow, NamesAreCheckedAndTheValidOnesBound)
{
    attach("smalltest.dgn", L"0,0");
    attach("seed_2d.dgn", L"50,0");
    TestEditor editor;
    // "?" lists, an unknown name alone asks again, a name missing between
    // commas is refused, then one good and one unknown name.
    editor.reply(L"?").reply(L"nosuch").reply(L"a,,b").reply(L"smalltest-Default, nosuch").reply(L"Insert");
    run(L"-DGNBIND", editor);
    const KoString& t = editor.transcript();
    EXPECT_NE(t.find(L"\nseed_2d-Default\n"), KoString::npos) << t.toUtf8();
    EXPECT_NE(t.find(L"\nInvalid names:\nnosuch"), KoString::npos) << t.toUtf8();
    EXPECT_NE(t.find(L"\nInvalid Input!"), KoString::npos) << t.toUtf8();
    EXPECT_NE(t.find(L"\nBind Success!"), KoString::npos) << t.toUtf8();
    EXPECT_EQ(editor.prompts().size(), 5u);
    EXPECT_EQ(referencesAndInserts(), std::make_pair(1, 1));
    EXPECT_EQ(definitions().size(), 1u);
    EXPECT_FALSE(hasLayer(L"smalltest-Default$0$1")) << "Insert merges the design's names with the drawing's";
    EXPECT_TRUE(hasLayer(L"1"));
}

TEST_F(BindFlow, ADefinitionOnALockedLayerIsReportedAndKept)
{
    attach("smalltest.dgn", L"0,0");
    attach("seed_2d.dgn", L"50,0");
    // The second reference goes to a layer of its own; layer 0 is locked.
    const KoDbObjectId free = addRecord<KoDbLayerTable, KoDbLayerTableRecord>(db()->layerTableId(), L"Free");
    {
        KoDbObjectPointer<KoDbBlockTableRecord> space(db()->modelSpaceId());
        KoDbObjectPointer<KoDbEntity> second(space->entityIds().back(), KoDb::kForWrite);
        ASSERT_EQ(second->setLayer(free), Kora::eOk);
        KoDbObjectPointer<KoDbLayerTableRecord> zero(db()->layerZero(), KoDb::kForWrite);
        zero->setIsLocked(true);
    }
    TestEditor editor;
    editor.reply(L"smalltest-Default,seed_2d-Default").reply(L"");
    run(L"-DGNBIND", editor);
    const KoString& t = editor.transcript();
    EXPECT_NE(t.find(L"\nsmalltest-Default is on lock layer,cannot be detached."), KoString::npos) << t.toUtf8();
    EXPECT_NE(t.find(L"\nThere are 1 dgnreferences bind success!\r\nThe following dgnreference bind failed:\nsmalltest-Default"),
              KoString::npos) << t.toUtf8();
    ASSERT_EQ(definitions().size(), 1u);
    EXPECT_EQ(definitions().front().definitionName, L"smalltest-Default");
    EXPECT_EQ(referencesAndInserts(), std::make_pair(1, 1));
}
