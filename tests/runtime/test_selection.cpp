#include <gtest/gtest.h>

#include "kora/db/underlay.h"
#include "kora/docman.h"
#include "kora/host.h"
#include "kora/selset.h"
#include "testeditor.h"

namespace {

struct Drawing {
    Drawing()
    {
        while (koDocManagerPtr()->curDocument()) koDocManagerPtr()->closeDocument(koDocManagerPtr()->curDocument());
        koDocManagerPtr()->appContextNewDocument();
        db = kodbHostApplicationServices()->workingDatabase();
        line = add(new KoDbLine(KoGePoint3d(0, 0), KoGePoint3d(1, 1)));
        underlay = add(new KoDbDgnReference);
        circle = add(new KoDbCircle(KoGePoint3d(5, 5), KoGeVector3d::kZAxis(), 2));
    }
    ~Drawing() { koDocManagerPtr()->closeDocument(koDocManagerPtr()->curDocument()); }
    KoDbObjectId add(KoDbEntity* entity)
    {
        KoDbBlockTableRecord* space = nullptr;
        EXPECT_EQ(kodbOpenObject(space, db->modelSpaceId(), KoDb::kForWrite), Kora::eOk);
        KoDbObjectId id;
        EXPECT_EQ(space->appendKoDbEntity(id, entity), Kora::eOk);
        entity->close();
        space->close();
        return id;
    }
    KoDbDatabase* db;
    KoDbObjectId line, underlay, circle;
};

KoDbObjectIdArray members(const koads_name ss)
{
    KoDbObjectIdArray ids;
    int32_t n = 0;
    EXPECT_EQ(koedSSLength(ss, &n), KORTNORM);
    for (int32_t i = 0; i < n; ++i) {
        koads_name ent;
        KoDbObjectId id;
        EXPECT_EQ(koedSSName(ss, i, ent), KORTNORM);
        EXPECT_EQ(kodbGetObjectId(id, ent), Kora::eOk);
        ids.push_back(id);
    }
    return ids;
}

}  // namespace

TEST(SelectionSets, FiltersByTypeAcrossTheDrawing)
{
    Drawing d;
    koresbuf* filter = koutBuildList(KORTDXF0, L"DGNUNDERLAY", 0);
    koads_name ss;
    ASSERT_EQ(koedSSGet(L"_X", nullptr, nullptr, filter, ss), KORTNORM);
    EXPECT_EQ(members(ss), KoDbObjectIdArray{d.underlay});
    EXPECT_EQ(koedSSFree(ss), KORTNORM);
    EXPECT_EQ(koedSSFree(ss), KORTERROR);
    koutRelRb(filter);

    filter = koutBuildList(KORTDXF0, L"line,CIRC*", 0);
    ASSERT_EQ(koedSSGet(L"_X", nullptr, nullptr, filter, ss), KORTNORM);
    EXPECT_EQ(members(ss), (KoDbObjectIdArray{d.line, d.circle}));
    koedSSFree(ss);
    koutRelRb(filter);
}

TEST(SelectionSets, PromptedSelectionTakesHandlesAllAndLast)
{
    Drawing d;
    const wchar_t* prompts[2] = {L"\nPick underlays: ", L""};
    koresbuf* filter = koutBuildList(KORTDXF0, L"DGNUNDERLAY", 0);
    koads_name ss;
    {
        TestEditor editor;
        editor.reply(d.line.handle().ascii()).reply(d.underlay.handle().ascii()).reply(L"FFFF").reply(L"");
        ASSERT_EQ(koedSSGet(L":$", prompts, nullptr, filter, ss), KORTNORM);
        EXPECT_EQ(members(ss), KoDbObjectIdArray{d.underlay});
        EXPECT_NE(editor.transcript().find(L"1 found, 1 filtered out"), KoString::npos) << editor.transcript().toUtf8();
        EXPECT_NE(editor.transcript().find(L"FFFF: no entity"), KoString::npos);
        EXPECT_EQ(editor.prompts().front(), L"\nPick underlays: ");
        koedSSFree(ss);
    }
    {
        TestEditor editor;
        editor.reply(L"ALL").reply(L"L").reply(L"");
        ASSERT_EQ(koedSSGet(nullptr, nullptr, nullptr, nullptr, ss), KORTNORM);
        EXPECT_EQ(members(ss), (KoDbObjectIdArray{d.line, d.underlay, d.circle}));
        EXPECT_NE(editor.transcript().find(L"1 found, 1 already selected"), KoString::npos);
        koedSSFree(ss);
    }
    {
        TestEditor editor;
        editor.reply(L"");
        EXPECT_EQ(koedSSGet(L":$", prompts, nullptr, filter, ss), KORTERROR);
        editor.cancel();
        EXPECT_EQ(koedSSGet(L":$", prompts, nullptr, filter, ss), KORTCAN);
    }
    koutRelRb(filter);
}

TEST(SelectionSets, PickFirstSelectionIsImplied)
{
    Drawing d;
    koresbuf* filter = koutBuildList(KORTDXF0, L"DGNUNDERLAY", 0);
    koads_name ss;
    EXPECT_EQ(koedSSGet(L"_I", nullptr, nullptr, filter, ss), KORTERROR);
    ASSERT_EQ(koedSSGet(L"_X", nullptr, nullptr, nullptr, ss), KORTNORM);
    EXPECT_EQ(koedSSSetFirst(ss, nullptr), KORTNORM);
    koedSSFree(ss);
    ASSERT_EQ(koedSSGet(L"_I", nullptr, nullptr, filter, ss), KORTNORM);
    EXPECT_EQ(members(ss), KoDbObjectIdArray{d.underlay});
    koedSSFree(ss);
    EXPECT_EQ(koedSSSetFirst(nullptr, nullptr), KORTNORM);
    EXPECT_EQ(koedSSGet(L"_I", nullptr, nullptr, nullptr, ss), KORTERROR);
    koutRelRb(filter);
}

TEST(SelectionSets, ListAndSelectCommands)
{
    Drawing d;
    koraRegisterHostCommands();
    TestEditor editor;
    editor.reply(L"L").reply(L"");
    EXPECT_TRUE(koraRunCommand(L"SELECT"));
    ASSERT_EQ(koDocManagerPtr()->curDocument()->pickfirst(), KoDbObjectIdArray{d.circle});
    EXPECT_TRUE(koraRunCommand(L"LIST"));
    const KoString shown = editor.transcript();
    EXPECT_NE(shown.find(L"LINE"), KoString::npos) << shown.toUtf8();
    EXPECT_NE(shown.find(L"DGNUNDERLAY"), KoString::npos) << shown.toUtf8();
    EXPECT_NE(shown.find(L"radius 2"), KoString::npos) << shown.toUtf8();
    EXPECT_EQ(d.db->openObjectCount(), 0);
}
