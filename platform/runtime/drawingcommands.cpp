// The host's drawing commands: documents (NEW, OPEN, SAVE, SAVEAS, CLOSE)
// and enough drawing (LINE, CIRCLE, PLINE, TEXT, LAYER) to build a drawing
// from a script, LIST to show it and SELECT to pick entities for the next
// command.
#include "drawingcommands.h"

#include <cmath>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "currentspace.h"
#include "kora/docman.h"
#include "kora/dxf/dxf.h"
#include "kora/db/underlay.h"
#include "kora/editor.h"
#include "kora/selset.h"

namespace {

constexpr size_t kReplySize = 1024;

KoDbDatabase* workingDatabase()
{
    KoDbDatabase* db = kodbHostApplicationServices()->workingDatabase();
    if (!db) koedPrompt(L"\nNo drawing is open.");
    return db;
}

// Appends a new entity with the drawing's current properties.
void addEntity(KoDbDatabase& db, std::unique_ptr<KoDbEntity> entity)
{
    entity->setDatabaseDefaults(&db);
    KoDbObjectId id;
    if (Kora::Runtime::appendToCurrentSpace(db, entity.get(), id) == Kora::eOk) entity.release();
    else koedPrompt(L"\nThe entity could not be added to the drawing.");
}

bool askText(const wchar_t* prompt, KoString& text, bool spacesAllowed = true)
{
    wchar_t reply[kReplySize] = {};
    if (koedGetString(spacesAllowed ? 1 : 0, prompt, reply, kReplySize) != KORTNORM) return false;
    text = KoString(reply).trimmed();
    return true;
}

void cmdNew()
{
    koDocManagerPtr()->appContextNewDocument();
    koutPrintf(L"\n%s is the current drawing.", koDocManagerPtr()->curDocument()->docTitle().c_str());
}

// One line for what was put right and one for what could not be, so that
// the user knows the drawing on screen is not quite the file on disk.
void printAudit(const KoDbDxfReadReport& report)
{
    std::vector<std::string> repaired, left;
    for (const auto& problem : report.diagnostics) repaired.push_back(problem.message);
    for (const auto& problem : report.audit)
        (problem.severity == Kora::Severity::kError ? left : repaired).push_back(problem.message);
    for (const auto& [problems, what] : {std::pair(&repaired, "repaired"), std::pair(&left, "not repaired")}) {
        if (problems->empty()) continue;
        std::string text;
        for (const std::string& problem : *problems) text += (text.empty() ? "" : "; ") + problem;
        koutPrintf(L"\nAudit: %zu problem%hs %hs: %hs.", problems->size(), problems->size() == 1 ? "" : "s", what,
                   text.c_str());
    }
}

void cmdOpen()
{
    KoString path;
    if (!askText(L"\nEnter name of drawing to open: ", path) || path.isEmpty()) return;
    KoString message;
    KoDbDxfReadReport report;
    if (koDocManagerPtr()->appContextOpenDocument(path, &message, &report) != Kora::eOk) {
        koutPrintf(L"\nCannot open the drawing. %s", message.c_str());
        return;
    }
    koutPrintf(L"\n%s opened.", koDocManagerPtr()->curDocument()->fileName().c_str());
    printAudit(report);
}

void saveAs(KoApDocument& doc, const KoString& path)
{
    KoString message;
    if (koDocManagerPtr()->saveDocument(&doc, path, &message) != Kora::eOk)
        koutPrintf(L"\nThe drawing was not saved. %s", message.c_str());
    else
        koutPrintf(L"\nSaved %s.", doc.fileName().c_str());
}

// A file that exists is replaced only when the user says so; Enter keeps
// it, as does a cancel. Scripts answer the question like any other.
bool mayReplace(const KoString& path)
{
    std::error_code ec;
    if (!std::filesystem::exists(path.toUtf8(), ec)) return true;
    koedInitGet(0, L"Yes No");
    wchar_t answer[16] = {};
    const int rc = koedGetKword(
        KoString::format(L"\n%s already exists. Do you want to replace it? [Yes/No] <No>: ", path.c_str()), answer, 16);
    return rc == KORTNORM && KoString(answer) == L"Yes";
}

void cmdSaveas()
{
    KoApDocument* doc = koDocManagerPtr()->curDocument();
    if (!doc) {
        koedPrompt(L"\nNo drawing is open.");
        return;
    }
    const KoString current = doc->fileName().isEmpty() ? doc->docTitle() + L".dxf" : doc->fileName();
    KoString path;
    if (!askText(KoString::format(L"\nSave drawing as <%s>: ", current.c_str()), path)) return;
    if (path.isEmpty()) path = current;
    if (!mayReplace(path)) return;
    saveAs(*doc, path);
}

void cmdSave()
{
    KoApDocument* doc = koDocManagerPtr()->curDocument();
    if (doc && !doc->fileName().isEmpty()) saveAs(*doc, doc->fileName());
    else cmdSaveas();
}

void cmdClose()
{
    KoApDocument* doc = koDocManagerPtr()->curDocument();
    if (!doc) {
        koedPrompt(L"\nNo drawing is open.");
        return;
    }
    const KoString title = doc->docTitle();
    if (koDocManagerPtr()->closeDocument(doc) == Kora::eOk) koutPrintf(L"\n%s closed.", title.c_str());
}

void cmdLine()
{
    KoDbDatabase* db = workingDatabase();
    if (!db) return;
    double from[3];
    if (koedGetPoint(nullptr, L"\nSpecify first point: ", from) != KORTNORM) return;
    for (;;) {
        double to[3];
        if (koedGetPoint(from, L"\nSpecify next point: ", to) != KORTNORM) return;
        addEntity(*db, std::make_unique<KoDbLine>(KoGePoint3d(from[0], from[1], from[2]), KoGePoint3d(to[0], to[1], to[2])));
        std::copy(to, to + 3, from);
    }
}

void cmdCircle()
{
    KoDbDatabase* db = workingDatabase();
    if (!db) return;
    double center[3];
    double radius = 0;
    if (koedGetPoint(nullptr, L"\nSpecify center point for circle: ", center) != KORTNORM) return;
    koedInitGet(KORSG_NONULL | KORSG_NOZERO | KORSG_NONEG, nullptr);
    if (koedGetDist(center, L"\nSpecify radius of circle: ", &radius) != KORTNORM) return;
    addEntity(*db, std::make_unique<KoDbCircle>(KoGePoint3d(center[0], center[1], center[2]), KoGeVector3d::kZAxis(), radius));
}

void cmdPline()
{
    KoDbDatabase* db = workingDatabase();
    if (!db) return;
    auto polyline = std::make_unique<KoDbPolyline>();
    double point[3];
    if (koedGetPoint(nullptr, L"\nSpecify start point: ", point) != KORTNORM) return;
    polyline->addVertexAt(0, KoGePoint2d(point[0], point[1]));
    polyline->setElevation(point[2]);
    for (;;) {
        koedInitGet(0, L"Close _Close");
        const int rc = koedGetPoint(point, L"\nSpecify next point or [Close]: ", point);
        if (rc == KORTKWORD) {
            polyline->setClosed(true);
            break;
        }
        if (rc == KORTCAN) return;
        if (rc != KORTNORM) break;
        polyline->addVertexAt(polyline->numVerts(), KoGePoint2d(point[0], point[1]));
    }
    if (polyline->numVerts() > 1) addEntity(*db, std::move(polyline));
}

void cmdText()
{
    KoDbDatabase* db = workingDatabase();
    if (!db) return;
    double at[3];
    double height = 2.5;
    double rotation = 0;
    KoString text;
    if (koedGetPoint(nullptr, L"\nSpecify start point of text: ", at) != KORTNORM) return;
    koedInitGet(KORSG_NOZERO | KORSG_NONEG, nullptr);
    const int rc = koedGetDist(at, L"\nSpecify height <2.5>: ", &height);
    if (rc != KORTNORM && rc != KORTNONE) return;
    const int rr = koedGetAngle(at, L"\nSpecify rotation angle of text <0>: ", &rotation);
    if (rr != KORTNORM && rr != KORTNONE) return;
    if (!askText(L"\nEnter text: ", text) || text.isEmpty()) return;
    auto entity = std::make_unique<KoDbText>();
    entity->setPosition(KoGePoint3d(at[0], at[1], at[2]));
    entity->setHeight(height);
    entity->setRotation(rotation);
    entity->setTextString(text);
    addEntity(*db, std::move(entity));
}

// LAYER at the command line: one option, its layer name, its value.
void cmdLayer()
{
    KoDbDatabase* db = workingDatabase();
    if (!db) return;
    for (;;) {
        koedInitGet(0, L"? New Set Color Lock Unlock On Off Freeze Thaw _? New Set Color Lock Unlock On Off Freeze Thaw");
        wchar_t option[32] = {};
        if (koedGetKword(L"\nEnter an option [?/New/Set/Color/Lock/Unlock/On/Off/Freeze/Thaw]: ", option, 32) != KORTNORM) return;
        const KoString choice(option);
        KoDbLayerTable* table = nullptr;
        if (db->getLayerTable(table, KoDb::kForWrite) != Kora::eOk) return;
        if (choice == L"?") {
            for (auto it = table->newIterator(); !it->done(); it->step()) {
                KoDbObjectId id;
                KoDbLayerTableRecord* layer = nullptr;
                if (it->getRecordId(id) != Kora::eOk || kodbOpenObject(layer, id, KoDb::kForRead) != Kora::eOk) continue;
                koutPrintf(L"\n%-24s color %3d %s%s%s", layer->getName().c_str(), layer->color().colorIndex(),
                           layer->isOff() ? L"off " : L"on ", layer->isFrozen() ? L"frozen " : L"", layer->isLocked() ? L"locked" : L"");
                layer->close();
            }
            table->close();
            continue;
        }
        // As in other hosts, the colour comes before the layer it is for.
        int colorIndex = 0;
        if (choice == L"Color") {
            koedInitGet(KORSG_NONULL | KORSG_NOZERO | KORSG_NONEG, nullptr);
            if (koedGetInt(L"\nEnter color number (1-255): ", &colorIndex) != KORTNORM || colorIndex > 255) {
                table->close();
                continue;
            }
        }
        KoString name;
        if (!askText(KoString::format(L"\nEnter layer name for %s: ", choice.c_str()), name, false) || name.isEmpty()) {
            table->close();
            continue;
        }
        if (choice == L"New") {
            if (!table->has(name)) {
                auto layer = std::make_unique<KoDbLayerTableRecord>();
                layer->setName(name);
                if (table->add(layer.get()) == Kora::eOk) layer.release()->close();
            }
            table->close();
            continue;
        }
        KoDbLayerTableRecord* layer = nullptr;
        if (table->getAt(name, layer, KoDb::kForWrite) != Kora::eOk) {
            table->close();
            koutPrintf(L"\nCannot find layer \"%s\".", name.c_str());
            continue;
        }
        table->close();
        if (choice == L"Set") db->setClayer(layer->objectId());
        else if (choice == L"Lock") layer->setIsLocked(true);
        else if (choice == L"Unlock") layer->setIsLocked(false);
        else if (choice == L"On") layer->setIsOff(false);
        else if (choice == L"Off") layer->setIsOff(true);
        else if (choice == L"Freeze") layer->setIsFrozen(true);
        else if (choice == L"Thaw") layer->setIsFrozen(false);
        else if (choice == L"Color") layer->setColor(KoCmColor::fromIndex(colorIndex));
        layer->close();
    }
}

KoString pointText(const KoGePoint3d& p) { return KoString::format(L"(%g,%g,%g)", p.x, p.y, p.z); }

KoString colorText(const KoCmColor& color)
{
    if (color.isByLayer()) return L"ByLayer";
    if (color.isByBlock()) return L"ByBlock";
    if (color.isByColor()) return KoString::format(L"%d,%d,%d", color.red(), color.green(), color.blue());
    return KoString::format(L"%d", color.colorIndex());
}

KoString lineWeightText(KoDb::LineWeight weight)
{
    switch (weight) {
    case KoDb::kLnWtByLayer: return L"ByLayer";
    case KoDb::kLnWtByBlock: return L"ByBlock";
    case KoDb::kLnWtByLwDefault: return L"Default";
    default: return KoString::format(L"%.2f mm", static_cast<int>(weight) / 100.0);
    }
}

// What a user most wants to know of an entity's geometry.
KoString geometryText(const KoDbEntity& e)
{
    if (const auto* line = KoDbLine::cast(&e)) return L"from " + pointText(line->startPoint()) + L" to " + pointText(line->endPoint());
    if (const auto* arc = KoDbArc::cast(&e))
        return KoString::format(L"center %s radius %g angles %g-%g", pointText(arc->center()).c_str(), arc->radius(),
                                arc->startAngle() * 180.0 / M_PI, arc->endAngle() * 180.0 / M_PI);
    if (const auto* circle = KoDbCircle::cast(&e))
        return KoString::format(L"center %s radius %g", pointText(circle->center()).c_str(), circle->radius());
    if (const auto* pline = KoDbPolyline::cast(&e))
        return KoString::format(L"%d vertices, %s", pline->numVerts(), pline->isClosed() ? L"closed" : L"open");
    if (const auto* text = KoDbText::cast(&e))
        return KoString::format(L"\"%s\" at %s height %g", text->textString().c_str(), pointText(text->position()).c_str(), text->height());
    if (const auto* ref = KoDbUnderlayReference::cast(&e)) return L"at " + pointText(ref->position());
    KoDbExtents extents;
    if (e.getGeomExtents(extents) == Kora::eOk)
        return L"extents " + pointText(extents.minPoint()) + L" - " + pointText(extents.maxPoint());
    return KoString();
}

void cmdList()
{
    KoDbDatabase* db = workingDatabase();
    if (!db) return;
    KoDbBlockTableRecord* space = nullptr;
    if (kodbOpenObject(space, Kora::Runtime::currentSpaceId(*db), KoDb::kForRead) != Kora::eOk) return;
    int count = 0;
    for (auto it = space->newIterator(); !it->done(); it->step()) {
        KoDbEntity* e = nullptr;
        if (it->getEntity(e, KoDb::kForRead) != Kora::eOk) continue;
        koutPrintf(L"\n%-6s %-12s layer: %s  color: %s  linetype: %s  lineweight: %s  %s", e->handle().ascii().c_str(),
                   KoString::fromUtf8(kodbDxfName(e)).c_str(), e->layer().c_str(), colorText(e->color()).c_str(), e->linetype().c_str(),
                   lineWeightText(e->lineWeight()).c_str(), geometryText(*e).c_str());
        e->close();
        ++count;
    }
    space->close();
    koutPrintf(L"\n%d entities.", count);
}

// Selects entities and leaves them as the pick-first selection of the
// next command.
void cmdSelect()
{
    koads_name ss;
    const int rc = koedSSGet(nullptr, nullptr, nullptr, nullptr, ss);
    if (rc != KORTNORM) return;
    koedSSSetFirst(ss, nullptr);
    koedSSFree(ss);
}

}  // namespace

namespace Kora::Runtime {

void registerDrawingCommands(KoEdCommandStack& stack)
{
    const struct {
        const wchar_t* name;
        KoRxFunctionPtr function;
    } commands[] = {
        {L"NEW", cmdNew},   {L"OPEN", cmdOpen},     {L"SAVE", cmdSave},   {L"SAVEAS", cmdSaveas}, {L"CLOSE", cmdClose},
        {L"LINE", cmdLine}, {L"CIRCLE", cmdCircle}, {L"PLINE", cmdPline}, {L"TEXT", cmdText},     {L"LAYER", cmdLayer},
        {L"LIST", cmdList}, {L"SELECT", cmdSelect},
    };
    for (const auto& c : commands) stack.addCommand(L"KORA", c.name, c.name, KORX_CMD_MODAL, c.function);
}

}  // namespace Kora::Runtime
