// Writes a PNG of each mapping dialog, drawn offscreen over a small store
// file of its own, into every folder named on the command line.
#include <cstdio>

#include "grab.h"
#include "mapping/DgnSetupFile.h"
#include "ui/mappingmodifydialog.h"
#include "ui/mappingnewdialog.h"
#include "ui/mappingsetupsdialog.h"

using namespace Kora::DgnCommands;
using Kora::Ui::Pictures::picture;

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) Kora::Ui::Pictures::folders.emplace_back(argv[i]);
    if (!Kora::Ui::ensureApplication()) {
        std::fprintf(stderr, "mapping_pictures: needs a display (QT_QPA_PLATFORM=offscreen will do)\n");
        return 1;
    }
    Kora::Ui::installHostServices();

    DgnMappingSetupStore store;
    loadMappingSetups(store);
    DgnMappingSetup roads;
    roads.name = L"Roads";
    roads.isImport = 1;
    roads.description = L"Survey levels to the road layers of the county's drawings";
    roads.layerMap = {{L"1", L"ROAD-EDGE"}, {L"2", L"ROAD-CENTRE"}, {L"10", L"KERB"}, {L"22", L"SIGNS"}};
    roads.lineTypeMap = {{L"Solid", L"Continuous"}, {L"Dotted", L"DOT"}};
    roads.colorMap = {{L"3", L"3"}};
    fillDefaultLineWeights(roads.lineWeightMap, true);
    DgnMappingSetup pipes;
    pipes.name = L"Pipes";
    pipes.description = L"Drainage plans for the water board";
    pipes.layerMap = {{L"PIPE", L"7"}};
    store.insert(roads);
    store.insert(pipes);
    saveMappingSetups(store);

    picture("mapping-setups", [] { CDgnMappingDlg(0, L"Roads").DoModal(); });
    picture("mapping-new", [&] { CDgnMappingNewDlg(L"Roads", store, 0).DoModal(); });
    picture("mapping-modify", [&] { CDgnMappingModifyDlg(L"Roads", L"Roads", true, store).DoModal(); });
    return Kora::Ui::Pictures::failures == 0 ? 0 : 1;
}
