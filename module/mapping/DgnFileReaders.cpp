#include "mapping/DgnFileReaders.h"

#include "kora/status.h"

namespace dgn {

namespace {

DgnPropertyReader* g_dgnReader = nullptr;
DrawingNameReader* g_drawingReader = nullptr;

}  // namespace

void setDgnPropertyReader(DgnPropertyReader* reader) { g_dgnReader = reader; }
void setDrawingNameReader(DrawingNameReader* reader) { g_drawingReader = reader; }

int readDgnFileProperties(const KoString& path, DgnFileProperties& properties)
{
    return g_dgnReader ? g_dgnReader->addPropFromDgnFile(path, properties) : KORTERROR;
}

bool readDrawingTableNames(const KoString& path, DrawingNameReader::Format format, std::vector<KoString>& layers,
                           std::vector<KoString>& linetypes)
{
    return g_drawingReader && g_drawingReader->readTableNames(path, format, layers, linetypes);
}

}  // namespace dgn
