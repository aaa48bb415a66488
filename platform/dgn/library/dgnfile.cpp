#include "kora/dgn/dgnfile.h"

#include "designscan.h"

int DgnFile::addPropFromDgnFile(const KoString& path, DgnFileProp& prop)
{
    Kora::Dgn::DesignScan scan;
    if (Kora::Dgn::scanDesignFile(path, scan) != Kora::eOk) return KORTERROR;
    prop = std::move(scan.properties);
    return KORTNORM;
}
